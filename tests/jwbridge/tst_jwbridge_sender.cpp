#include "support/common/simulatedportsmain.h"
#include "support/jwbridge/brokerrun.h"

#include <device/communicator.h>
#include <fleet/broker.h>
#include <jwbridge/boards.h>
#include <jwbridge/database.h>
#include <jwbridge/sender.h>
#include <simulator/testbed.h>

#include <QTemporaryDir>

using namespace JwBridge;

/// Tests the part of jwbridge that writes sentences to boards, in this process.
class TestJwbridgeSender : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { NEEDS_MOSQUITTO; }

    void portThatFailsIsReported();
};

// The watch closes a port that fails, and reports the loss of the board up to 500 ms later.
void TestJwbridgeSender::portThatFailsIsReported()
{
    JwSimulator::Testbed testbed;
    JwSimulator::BoardConfig config;
    config.serial = QStringLiteral("S1");
    QVERIFY(testbed.add(config));
    const QByteArray part = "S1:1.0";
    const JwFleet::Topics topics(QStringLiteral("jw"), QStringLiteral("here"));
    const QTemporaryDir folder;
    Database database;
    QString error;
    QVERIFY2(database.open(folder.filePath(QStringLiteral("boards.db")), &error), qPrintable(error));
    JwTools::SearchSettings search;
    search.types = {JwDevice::BoardA};
    Boards boards(database, search, 3600);
    QVERIFY(boards.load(&error));
    boards.start();

    BrokerRun run;
    run.start();
    JwFleet::BrokerSettings settings;
    settings.address = {QStringLiteral("localhost"), run.port(), false};
    settings.clientId = "bridge";
    JwFleet::Broker broker(settings);
    const Sender sender(broker, boards, topics, 10);
    QByteArray result;
    connect(&broker, &JwFleet::Broker::connected, this, [&] { broker.subscribe(topics.txResult(part), false); });
    connect(&broker, &JwFleet::Broker::received, this, [&](const JwFleet::Message &message) {
        if (message.topic == topics.txResult(part))
            result = message.payload;
    });
    broker.start();
    WAIT_FOR(broker.isConnected() && boards.communicator(part));
    const auto send = [&] {
        result.clear();
        QVERIFY(broker.publish(topics.tx(part), "PJWVER", false) > 0);
        WAIT_FOR(!result.isEmpty());
    };
    send();
    QCOMPARE(result, QByteArray(R"({"id":1})"));
    boards.communicator(part)->device()->close();
    send();
    QVERIFY2(result.contains("the port of the board can't be written"), result.constData());
}

SIMULATED_PORTS_MAIN(TestJwbridgeSender)
#include "tst_jwbridge_sender.moc"

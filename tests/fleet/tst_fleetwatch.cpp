#include "support/jwbridge/bridgerun.h"

#include <fleet/fleetwatch.h>

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using JwFleet::FleetWatch;
using JwFleet::Machine;
using JwFleet::RemoteBoard;

namespace {

/// A FleetWatch that notes its signals as texts.
class Watcher
{
public:
    explicit Watcher(const BrokerRun &broker)
        : watch(settings(broker), QStringLiteral("jw"), FleetWatch::WithPayloads)
    {
        const auto note = [this](const char *name) {
            return [this, name](const RemoteBoard &board) {
                events.append(QStringLiteral("%1 %2/%3 %4%5")
                                  .arg(QLatin1String(name), board.host, board.id, board.state,
                                       board.reason.isEmpty() ? QString() : QLatin1Char(' ') + board.reason));
            };
        };
        QObject::connect(&watch, &FleetWatch::boardFound, note("found"));
        QObject::connect(&watch, &FleetWatch::boardLost, note("lost"));
        QObject::connect(&watch, &FleetWatch::boardBack, note("back"));
        QObject::connect(&watch, &FleetWatch::boardForgotten, note("forgotten"));
        QObject::connect(&watch, &FleetWatch::machineChanged, [this](const Machine &machine) {
            const char *const names[] = {"noNews", "online", "offline"};
            machines.append(QStringLiteral("%1 %2").arg(machine.host, QLatin1String(names[machine.state])));
        });
        QObject::connect(&watch, &FleetWatch::payloadReceived,
                         [this](const RemoteBoard &board, qint64 time, qint64 seq, const QString &text) {
                             payloads.append(QStringLiteral("%1/%2 %3").arg(board.host, board.id, text));
                             times.append(time);
                             numbers.append(seq);
                         });
        QObject::connect(&watch, &FleetWatch::sendFinished, [this](int number, qint64 id, const QString &error) {
            results.insert(number, error.isEmpty() ? QStringLiteral("written %1").arg(id) : error);
        });
        QObject::connect(&watch, &FleetWatch::settled, [this] { isSettled = true; });
        watch.start();
    }

    static JwFleet::BrokerSettings settings(const BrokerRun &broker)
    {
        JwFleet::BrokerSettings settings;
        settings.address = {QStringLiteral("localhost"), broker.port(), false};
        return settings;
    }

    QString result(const QString &id, const QString &line)
    {
        const int number = watch.send(QStringLiteral("here"), id, line);
        [&] { WAIT_FOR(results.contains(number)); }();
        return results.value(number);
    }

    QStringList events;
    QStringList machines;
    QStringList payloads;
    QList<qint64> times;
    QList<qint64> numbers;
    QMap<int, QString> results;
    bool isSettled = false; // from now on, the watch receives what others publish
    FleetWatch watch;
};

/// Publishes a payload as a bridge does.
void publishPayload(const BrokerRun &broker, const QByteArray &text, const char *seq, const char *time)
{
    const QStringList property{QStringLiteral("-D"), QStringLiteral("publish"), QStringLiteral("user-property")};
    const Outcome outcome =
        runProgram(QStringLiteral("mosquitto_pub"),
                   QStringList{QStringLiteral("-V"), QStringLiteral("5"), QStringLiteral("-q"), QStringLiteral("1"),
                               QStringLiteral("-p"), QString::number(broker.port()), QStringLiteral("-t"),
                               QStringLiteral("jw/here/boards/S1/rx"), QStringLiteral("-s")}
                       + property + QStringList{QStringLiteral("seq"), QString::fromLatin1(seq)} + property
                       + QStringList{QStringLiteral("time"), QString::fromLatin1(time)},
                   text);
    QCOMPARE(outcome.error, QByteArray());
    QCOMPARE(outcome.status, 0);
}

/// Stores a retained message in the broker. An empty payload removes the message.
void store(quint16 port, const QString &topic, const QString &payload)
{
    const QStringList content =
        payload.isEmpty() ? QStringList{QStringLiteral("-n")} : QStringList{QStringLiteral("-m"), payload};
    const Outcome outcome =
        runProgram(QStringLiteral("mosquitto_pub"),
                   QStringList{QStringLiteral("-q"), QStringLiteral("1"), QStringLiteral("-p"), QString::number(port),
                               QStringLiteral("-r"), QStringLiteral("-t"), topic}
                       + content);
    QCOMPARE(outcome.status, 0);
}

} // namespace

/// Tests what a client sees of boards on several machines, and how it sends to them.
class TestFleetWatch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { NEEDS_MOSQUITTO; }
    void init();

    void boardsOfAllMachinesAreFound();
    void pulledBoardIsLostAndBack();
    void boardsAreLostWithTheirMachine();
    void boardsAreLostWithTheBroker();
    void boardThatIsLostAtTheStartIsReported();
    void forgottenBoardIsReported();
    void boardForgottenWithoutAConnectionIsReported();
    void lineIsWrittenAndAnswered();
    void lineThatIsNotWrittenHasAReason();
    void lineForAReadOnlyBridgeIsRefused();
    void lineWithoutAConnectionIsNotSent();
    void connectionThatEndsFinishesTheLine();
    void repeatedPayloadIsReportedOnce();
    void payloadWithANulIsReportedWhole();
    void refusedPortHasAReason();
    void otherMessagesAreIgnored();
    void settledComesAfterTheStoredStates_data();
    void settledComesAfterTheStoredStates();

private:
    QString folder(const char *name) const
    {
        const QString path = m_folder->filePath(QLatin1String(name));
        QDir().mkpath(path);
        return path;
    }

    QString m_port;
    std::unique_ptr<QTemporaryDir> m_folder;
};

void TestFleetWatch::init()
{
    m_port = uniquePortName();
    m_folder = std::make_unique<QTemporaryDir>();
}

void TestFleetWatch::boardsOfAllMachinesAreFound()
{
    BrokerRun broker;
    broker.start();
    Watcher watcher(broker);
    BridgeRun here({boardOn("BoardA", m_port, "serial=S1")}, broker.url(), folder("here"));
    const QString second = uniquePortName();
    const QString third = uniquePortName();
    BridgeRun there({boardOn("BoardB", second, "serial=S1"), boardOn("BoardC", third, "serial=x/y")}, broker.url(),
                    folder("there"), {QStringLiteral("--host"), QStringLiteral("there")});
    WAIT_FOR(watcher.events.size() == 3);
    QStringList events = watcher.events;
    events.sort();
    QCOMPARE(events,
             (QStringList{QStringLiteral("found here/S1:1.0 ready"), QStringLiteral("found there/S1:1.0 ready"),
                          QStringLiteral("found there/x/y:1.0 ready")}));
    QStringList machines = watcher.machines;
    machines.sort();
    QCOMPARE(machines, (QStringList{QStringLiteral("here online"), QStringLiteral("there online")}));

    const QList<RemoteBoard> boards = watcher.watch.boards();
    QCOMPARE(boards.size(), 3);
    QCOMPARE(boards[1].type, QStringLiteral("BoardB"));
    QCOMPARE(boards[1].portName, second);
    QCOMPARE(boards[1].serialNumber, QStringLiteral("S1"));
    QVERIFY(!boards[1].hardwareVersion.isEmpty());
    QVERIFY(qAbs(boards[1].since.msecsTo(QDateTime::currentDateTimeUtc())) < programPatience);

    Watcher late(broker);
    WAIT_FOR(late.events.size() == 3);
    QCOMPARE(late.machines.size(), 2);
}

void TestFleetWatch::pulledBoardIsLostAndBack()
{
    BrokerRun broker;
    broker.start();
    Watcher watcher(broker);
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1,pull-after=2000,replug-after=500")}, broker.url(),
                     folder("here"));
    WAIT_FOR(watcher.events.size() == 3);
    QCOMPARE(
        watcher.events,
        (QStringList{QStringLiteral("found here/S1:1.0 ready"), QStringLiteral("lost here/S1:1.0 lost cablePulled"),
                     QStringLiteral("back here/S1:1.0 ready")}));
}

void TestFleetWatch::boardsAreLostWithTheirMachine()
{
    BrokerRun broker;
    broker.start();
    Watcher watcher(broker);
    const auto start = [&] {
        return std::make_unique<BridgeRun>(QStringList{boardOn("BoardA", m_port, "serial=S1")}, broker.url(),
                                           folder("here"));
    };
    std::unique_ptr<BridgeRun> bridge = start();
    WAIT_FOR(watcher.events.size() == 1);
    bridge.reset();
    WAIT_FOR(watcher.events.size() == 2);
    QCOMPARE(watcher.events.last(), QStringLiteral("lost here/S1:1.0 offline"));
    QCOMPARE(watcher.machines, (QStringList{QStringLiteral("here online"), QStringLiteral("here offline")}));
    bridge = start();
    WAIT_FOR(watcher.events.last() == QLatin1String("back here/S1:1.0 ready"));
    QCOMPARE(watcher.machines.last(), QStringLiteral("here online"));
}

void TestFleetWatch::boardsAreLostWithTheBroker()
{
    BrokerRun broker;
    broker.start();
    Watcher watcher(broker);
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1")}, broker.url(), folder("here"));
    WAIT_FOR(watcher.events.size() == 1);
    broker.stop(BrokerRun::WithoutMemory);
    WAIT_FOR(watcher.machines.last() == QLatin1String("here noNews"));
    QCOMPARE(watcher.events.size(), 2); // "offline" if the ending broker published the will of the bridge
    QVERIFY2(watcher.events.last().startsWith(QLatin1String("lost here/S1:1.0 ")), qPrintable(watcher.events.last()));
    broker.start();
    WAIT_FOR(watcher.events.size() == 3);
    QCOMPARE(watcher.events.last(), QStringLiteral("back here/S1:1.0 ready"));
    QCOMPARE(watcher.machines.last(), QStringLiteral("here online"));
}

void TestFleetWatch::boardThatIsLostAtTheStartIsReported()
{
    BrokerRun broker;
    broker.start();
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1,pull-after=1500")}, broker.url(), folder("here"));
    Subscriber subscriber(broker);
    subscriber.start();
    WAIT_FOR(subscriber.newest("jw/here/boards/S1:1.0/state").contains("cablePulled"));
    Watcher watcher(broker);
    WAIT_FOR(!watcher.events.isEmpty());
    QCOMPARE(watcher.events, QStringList{QStringLiteral("lost here/S1:1.0 lost cablePulled")});
}

void TestFleetWatch::forgottenBoardIsReported()
{
    BrokerRun broker;
    broker.start();
    Watcher watcher(broker);
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1,pull-after=1500")}, broker.url(), folder("here"),
                     {QStringLiteral("--forget-after"), QStringLiteral("1s")});
    WAIT_FOR(watcher.events.size() == 3);
    QCOMPARE(watcher.events.last(), QStringLiteral("forgotten here/S1:1.0 lost cablePulled"));
    QVERIFY(watcher.watch.boards().isEmpty());
}

void TestFleetWatch::boardForgottenWithoutAConnectionIsReported()
{
    const QString ready = QStringLiteral("{\"state\":\"ready\"}");
    const QString gone = QStringLiteral("jw/here/boards/S2/state");
    BrokerRun broker;
    broker.start();
    store(broker.port(), QStringLiteral("jw/here/online"), QStringLiteral("true"));
    store(broker.port(), QStringLiteral("jw/here/boards/S1/state"), ready);
    store(broker.port(), gone, ready);
    Watcher watcher(broker);
    WAIT_FOR(watcher.events.size() == 2);
    broker.stop();
    {
        // A broker with the same memory on another port, which the watch does not know.
        const quint16 port = BrokerRun::freePort();
        QFile file(broker.file(QStringLiteral("other.conf")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("listener " + QByteArray::number(port) + " 127.0.0.1\nallow_anonymous true\npersistence true\n"
                   + "persistence_location " + QFile::encodeName(broker.file(QString())) + "\n"
                   + (::getuid() == 0 ? "user root\n" : ""));
        file.close();
        ProgramRun other(programFile("mosquitto"), {QStringLiteral("-c"), file.fileName()});
        other.start();
        WAIT_FOR(other.error().contains(" running"));
        store(port, gone, QString());
    }
    broker.start();
    WAIT_FOR(watcher.events.size() == 6);
    QCOMPARE(QStringList(watcher.events.mid(2)),
             (QStringList{QStringLiteral("lost here/S1 noNews"), QStringLiteral("lost here/S2 noNews"),
                          QStringLiteral("back here/S1 ready"), QStringLiteral("forgotten here/S2 noNews")}));
    QCOMPARE(watcher.watch.boards().size(), 1);
}

void TestFleetWatch::lineIsWrittenAndAnswered()
{
    BrokerRun broker;
    broker.start();
    Watcher watcher(broker);
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1")}, broker.url(), folder("here"));
    WAIT_FOR(watcher.events.size() == 1);
    const QString first = watcher.result(QStringLiteral("S1:1.0"), QStringLiteral("PJWVER"));
    const QString second = watcher.result(QStringLiteral("S1:1.0"), QStringLiteral("$PJWVER*0c\r\n"));
    const auto id = [](const QString &result) { return result.section(QStringLiteral("written "), 1).toInt(); };
    QVERIFY2(id(first) > 0, qPrintable(first));
    QVERIFY2(id(second) > id(first), qPrintable(second));
    WAIT_FOR(watcher.payloads.size() >= 2); // more if the bridge checks the board
    for (const QString &payload : std::as_const(watcher.payloads))
        QVERIFY2(payload.startsWith(QLatin1String("here/S1:1.0 $PJWVER,")), qPrintable(payload));
    for (int i = 1; i < watcher.numbers.size(); ++i)
        QVERIFY(watcher.numbers[i] > watcher.numbers[i - 1]);
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    QVERIFY(qAbs(watcher.times[1] / 1000 - now) < programPatience);
}

void TestFleetWatch::lineThatIsNotWrittenHasAReason()
{
    BrokerRun broker;
    broker.start();
    Watcher watcher(broker);
    QFile report(m_folder->filePath(QStringLiteral("report")));
    ProgramRun bridge(jwsimProgram(),
                      QStringList{QStringLiteral("--report"), report.fileName()}
                          + bridgeUnderJwsim({boardOn("BoardA", m_port, "serial=S1")}, broker.url(), folder("here")));
    bridge.start();
    WAIT_FOR(watcher.events.size() == 1);
    const QString wrong = watcher.result(QStringLiteral("S1:1.0"), QStringLiteral("PJWVER*00"));
    QVERIFY2(wrong.contains(QLatin1String("checksum")), qPrintable(wrong));
    const QString unknown = watcher.result(QStringLiteral("S2:1.0"), QStringLiteral("PJWTWO"));
    QVERIFY2(unknown.contains(QLatin1String("the board is not there")), qPrintable(unknown));
    bridge.sendSignal(SIGTERM);
    QVERIFY(bridge.finish());
    QVERIFY(report.open(QIODevice::ReadOnly));
    const QByteArray received = report.readAll();
    QVERIFY2(received.contains("$PJWVER*0c"), received); // the bridge's own query
    QVERIFY2(!received.contains("*00") && !received.contains("PJWTWO"), received);
}

void TestFleetWatch::lineForAReadOnlyBridgeIsRefused()
{
    BrokerRun broker;
    broker.start();
    Watcher watcher(broker);
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1")}, broker.url(), folder("here"),
                     {QStringLiteral("--read-only")});
    WAIT_FOR(watcher.events.size() == 1);
    const QString result = watcher.result(QStringLiteral("S1:1.0"), QStringLiteral("PJWVER"));
    QVERIFY2(result.contains(QLatin1String("--read-only")), qPrintable(result));
}

void TestFleetWatch::lineWithoutAConnectionIsNotSent()
{
    BrokerRun broker;
    Watcher watcher(broker);
    QCOMPARE(watcher.watch.send(QStringLiteral("here"), QStringLiteral("S1:1.0"), QStringLiteral("PJWVER")), 0);
    broker.start();
    WAIT_FOR(watcher.watch.isConnected());
    QCOMPARE(watcher.watch.send(QStringLiteral("+"), QStringLiteral("S1:1.0"), QStringLiteral("PJWVER")), 0);
}

void TestFleetWatch::connectionThatEndsFinishesTheLine()
{
    BrokerRun broker;
    broker.start();
    Watcher watcher(broker);
    Subscriber silentBridge(broker); // takes the line, and sends no result
    silentBridge.start();
    WAIT_FOR(watcher.watch.isConnected());
    const int number = watcher.watch.send(QStringLiteral("here"), QStringLiteral("S1"), QStringLiteral("PJWVER"));
    WAIT_FOR(silentBridge.newest("jw/here/boards/S1/tx") == "PJWVER");
    QVERIFY(watcher.results.isEmpty());
    broker.stop();
    WAIT_FOR(watcher.results.contains(number));
    QVERIFY2(watcher.results[number].contains(QLatin1String("connection")), qPrintable(watcher.results[number]));
}

void TestFleetWatch::repeatedPayloadIsReportedOnce()
{
    BrokerRun broker;
    broker.start();
    Watcher watcher(broker);
    WAIT_FOR(watcher.isSettled);
    publishPayload(broker, "a", "5", "1000");
    publishPayload(broker, "b", "6", "1000");
    publishPayload(broker, "a", "5", "1000");
    publishPayload(broker, "b", "6", "1000");
    publishPayload(broker, "clock was set back", "7", "500");
    publishPayload(broker, "spool was deleted", "1", "2000");
    WAIT_FOR(watcher.payloads.size() >= 4);
    QCOMPARE(watcher.payloads,
             (QStringList{QStringLiteral("here/S1 a"), QStringLiteral("here/S1 b"),
                          QStringLiteral("here/S1 clock was set back"), QStringLiteral("here/S1 spool was deleted")}));
}

void TestFleetWatch::payloadWithANulIsReportedWhole()
{
    BrokerRun broker;
    broker.start();
    Watcher watcher(broker);
    WAIT_FOR(watcher.isSettled);
    publishPayload(broker, QByteArray("a\0b", 3), "5", "1000");
    WAIT_FOR(!watcher.payloads.isEmpty());
    QCOMPARE(watcher.payloads.first(), QStringLiteral("here/S1 a") + QChar(u'\0') + QLatin1Char('b'));
}

void TestFleetWatch::refusedPortHasAReason()
{
    BrokerRun broker;
    broker.start();
    Watcher watcher(broker);
    BridgeRun bridge({boardOn("silent", m_port)}, broker.url(), folder("here"));
    const auto ports = [&watcher] { return watcher.watch.ports(QStringLiteral("here")); };
    WAIT_FOR(!ports().isEmpty() && ports().first().isRefused());
    QCOMPARE(ports().size(), 1);
    QCOMPARE(ports().first().portName, m_port);
    QCOMPARE(ports().first().state, QStringLiteral("silent"));
    QVERIFY(ports().first().summary.contains(QLatin1String("no sentence")));
    QVERIFY(!ports().first().advice.isEmpty());
}

void TestFleetWatch::otherMessagesAreIgnored()
{
    BrokerRun broker;
    broker.start();
    Watcher watcher(broker);
    WAIT_FOR(watcher.isSettled);
    publish(broker, QStringLiteral("jw/here/online"), "true");
    for (const char *payload : {"", "x", "[]", "{}", "{\"state\":1}", "{\"state\":{}}"})
        publish(broker, QStringLiteral("jw/here/boards/S1/state"), payload);
    for (const char *payload : {"", "x", "{}", "[1]"})
        publish(broker, QStringLiteral("jw/here/ports"), payload);
    publish(broker, QStringLiteral("jw/there/online"), "");
    WAIT_FOR(watcher.machines.size() == 2);
    QCOMPARE(watcher.machines.last(), QStringLiteral("there offline"));
    QCOMPARE(watcher.events, QStringList());
    QVERIFY(watcher.watch.boards().isEmpty());
}

void TestFleetWatch::settledComesAfterTheStoredStates_data()
{
    QTest::addColumn<QByteArray>("settings");
    QTest::newRow("usual") << QByteArray();
    QTest::newRow("client may not publish") << QByteArray("acl_file /dev/null\n");
}

void TestFleetWatch::settledComesAfterTheStoredStates()
{
    QFETCH(QByteArray, settings);
    BrokerRun broker(settings);
    broker.start();
    constexpr int boards = 40; // more than the broker sends at once
    store(broker.port(), QStringLiteral("jw/here/online"), QStringLiteral("true"));
    for (int i = 0; i < boards; ++i)
        store(broker.port(), QStringLiteral("jw/here/boards/S%1/state").arg(i), QStringLiteral("{\"state\":\"lost\"}"));
    Watcher watcher(broker);
    int known = -1;
    connect(&watcher.watch, &FleetWatch::settled, this,
            [&] { known = static_cast<int>(watcher.watch.boards().size()); });
    WAIT_FOR(known >= 0);
    QCOMPARE(known, settings.isEmpty() ? boards : 0);
}

QTEST_GUILESS_MAIN(TestFleetWatch)
#include "tst_fleetwatch.moc"

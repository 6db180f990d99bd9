#include "support/jwbridge/filledspool.h"
#include "support/jwbridge/plainbridge.h"
#include "support/jwbridge/scriptedbroker.h"

#include <QTemporaryDir>
#include <QTest>

#include <memory>

namespace {

// Returns how many payloads are in the spool of a bridge that does not run.
int spooled(const QString &folder)
{
    JwBridge::Database database;
    QString error;
    if (!database.open(folder + QStringLiteral("/jwbridge.db"), &error))
        return -1;
    JwBridge::Statement rows(database, "SELECT count(*) FROM payloads");
    return rows.next() ? static_cast<int>(rows.number(0)) : -1;
}

// Returns a number of two bytes.
QByteArray number(QByteArray::size_type value)
{
    return QByteArray(1, static_cast<char>(value >> 8)) + static_cast<char>(value & 255);
}

QByteArray acknowledgement(const Packet &packet, const QByteArray &reason = QByteArray())
{
    return Packet{Packet::Puback, packet.identifier() + reason}.bytes();
}

} // namespace

/// Tests what jwbridge does with brokers that speak MQTT 5, but do less than jwbridge needs.
class TestJwbridgeOddBrokers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_spool = std::make_unique<QTemporaryDir>(); }

    void manyPayloadsThatAreTooLarge();
    void brokerWithoutNeededFeaturesGetsNothing_data();
    void brokerWithoutNeededFeaturesGetsNothing();
    void exceededQuotaLosesNothing();
    void brokerThatAcknowledgesNothingIsLeft();
    void memoryIsLimitedIfNothingIsAcknowledged();

private:
    std::unique_ptr<QTemporaryDir> m_spool;
    const QByteArray m_rx = "jw/here/boards/S1:1.0/rx";
};

// The broker allows only packets that are smaller than every message of jwbridge.
void TestJwbridgeOddBrokers::manyPayloadsThatAreTooLarge()
{
    fillSpool(m_spool->path(), 60000);
    ScriptedBroker broker([](const Packet &packet) {
        return packet.kind == Packet::Connect ? ScriptedBroker::welcome(QByteArray("\x27\0\0\0\x10", 5)) : QByteArray();
    });
    PlainBridge bridge(broker.url(), m_spool->path());
    const QByteArray reason = ": the topic has a wildcard, or the message is larger than the broker allows";
    WAIT_FOR(bridge.isOver() || bridge.error().contains("the broker refuses a message to " + m_rx + reason));
    WAIT_FOR(bridge.isOver() || bridge.error().contains("the broker refuses a message to jw/here/online" + reason));
    QVERIFY(!bridge.isOver());
    bridge.sendSignal(SIGTERM);
    QVERIFY(bridge.finish());
    QCOMPARE(bridge.status(), 0);
}

void TestJwbridgeOddBrokers::brokerWithoutNeededFeaturesGetsNothing_data()
{
    QTest::addColumn<QByteArray>("properties");
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("quality of service 0")
        << QByteArray("\x24\0", 2) << QByteArray("the broker does not support quality of service 1");
    QTest::newRow("no retained messages")
        << QByteArray("\x25\0", 2) << QByteArray("the broker does not support retained messages");
}

void TestJwbridgeOddBrokers::brokerWithoutNeededFeaturesGetsNothing()
{
    QFETCH(QByteArray, properties);
    QFETCH(QByteArray, text);
    fillSpool(m_spool->path(), 10);
    ScriptedBroker broker([&properties](const Packet &packet) {
        return packet.kind == Packet::Connect ? ScriptedBroker::welcome(properties) : acknowledgement(packet);
    });
    {
        PlainBridge bridge(broker.url(), m_spool->path());
        WAIT_FOR(bridge.error().contains(text));
        WAIT_FOR(broker.connections >= 3);
        QVERIFY(!bridge.error().contains("connected to"));
    }
    QCOMPARE(spooled(m_spool->path()), 10);
}

void TestJwbridgeOddBrokers::exceededQuotaLosesNothing()
{
    constexpr int count = 10;
    constexpr int refusals = 3;
    fillSpool(m_spool->path(), count);
    int refused = 0;
    int taken = 0;
    ScriptedBroker broker([&](const Packet &packet) {
        if (packet.kind == Packet::Connect)
            return ScriptedBroker::welcome();
        if (packet.kind == Packet::Publish && packet.topic() == m_rx && refused < refusals) {
            ++refused;
            return acknowledgement(packet, "\x97");
        }
        taken += packet.kind == Packet::Publish && packet.topic() == m_rx ? 1 : 0;
        return packet.kind == Packet::Publish ? acknowledgement(packet) : QByteArray();
    });
    {
        PlainBridge bridge(broker.url(), m_spool->path());
        WAIT_FOR(bridge.error().contains("the broker takes no message now: Quota exceeded"));
        WAIT_FOR(taken >= count);
    }
    QCOMPARE(refused, refusals);
    QCOMPARE(spooled(m_spool->path()), 0);
}

void TestJwbridgeOddBrokers::brokerThatAcknowledgesNothingIsLeft()
{
    ScriptedBroker broker([](const Packet &packet) {
        if (packet.kind == Packet::Connect)
            return ScriptedBroker::welcome();
        return packet.kind == Packet::Pingreq ? Packet{Packet::Pingresp, QByteArray()}.bytes() : QByteArray();
    });
    PlainBridge bridge(broker.url(), m_spool->path(), {QStringLiteral("--keep-alive"), QStringLiteral("5")});
    WAIT_FOR(bridge.error().contains("the broker does not acknowledge messages"));
    WAIT_FOR(broker.connections >= 2);
}

// The broker makes the bridge send more than 100 MB of results.
void TestJwbridgeOddBrokers::memoryIsLimitedIfNothingIsAcknowledged()
{
    const QByteArray topic = "jw/here/boards/S1/tx";
    const QByteArray data(60000, 'x');
    const QByteArray properties = "\x09" + number(data.size()) + data; // data that the result must contain
    const QByteArray flood =
        Packet{Packet::Publish,
               number(topic.size()) + topic + Packet::length(static_cast<int>(properties.size())) + properties}
            .bytes()
            .repeated(2000);
    ScriptedBroker broker([&flood](const Packet &packet) {
        return packet.kind == Packet::Connect ? ScriptedBroker::welcome() + flood : QByteArray();
    });
    qputenv("ASAN_OPTIONS", "quarantine_size_mb=8"); // AddressSanitizer keeps freed memory, by default 256 MiB
    PlainBridge bridge(broker.url(), m_spool->path(), {QStringLiteral("--keep-alive"), QStringLiteral("3600")});
    WAIT_FOR(bridge.error().contains("the broker does not acknowledge messages"));
    const qint64 memory = mostMemory(bridge.processId());
    QVERIFY2(memory < 100 * 1024, qPrintable(QStringLiteral("%1 KiB").arg(memory)));
    QVERIFY(!bridge.isOver());
}

QTEST_GUILESS_MAIN(TestJwbridgeOddBrokers)
#include "tst_jwbridge_oddbrokers.moc"

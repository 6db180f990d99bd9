#include "support/jwbridge/bridgerun.h"

#include <jwbridge/database.h>

#include <QFile>
#include <QHash>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <utility>
#include <vector>

namespace {

constexpr int boardCount = 16;
constexpr int maxReplies = 1000; // that a simulated board can send to one query
constexpr int brokerStopsOfALife = 4;
constexpr int patience = 600000; // ms; a long run may need this time for one step
constexpr int lastReplies = 10000; // one board sends these for 20 s, while broker and bridge end

// Waits like WAIT_FOR, but long enough for a long run.
#define WAIT_LONG_FOR(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, patience)

// Returns how many payloads must arrive in the whole run.
int payloadCount()
{
    const int count = qEnvironmentVariableIntValue("JWDEVICE_BRIDGE_PAYLOADS");
    return count > 0 ? count : 8000;
}

// Reads a mosquitto_sub that prints the board and the number of each payload.
class Receiver
{
public:
    explicit Receiver(const BrokerRun &broker)
        : m_subscriber(broker, QStringLiteral("jw/+/boards/+/rx"), {QStringLiteral("-F"), QStringLiteral("%t %P")})
    {
        m_subscriber.start();
    }

    // Reads what came since the last call. Returns how many different payloads came so far.
    int count()
    {
        const QByteArray output = m_subscriber.output();
        for (auto end = output.indexOf('\n', m_read); end >= 0; end = output.indexOf('\n', m_read)) {
            const QByteArray line = output.mid(m_read, end - m_read);
            m_read = end + 1;
            const auto number = line.lastIndexOf("seq:");
            if (number < 0)
                m_fault = line;
            else
                add(line.left(line.indexOf(' ')), line.mid(number + 4).toLongLong());
        }
        return m_count;
    }
    // Returns the first number in this range that did not arrive, or -1.
    qint64 missing(qint64 first, qint64 last) const
    {
        for (qint64 seq = first; seq <= last; ++seq) {
            if (!isSeen(seq))
                return seq;
        }
        return -1;
    }
    // Returns the number of the newest payload.
    qint64 newest() const { return m_newest.isEmpty() ? 0 : *std::max_element(m_newest.cbegin(), m_newest.cend()); }
    // Returns how many boards have sent something since forgetBoards().
    int boards() const { return static_cast<int>(m_boards.size()); }
    void forgetBoards() { m_boards.clear(); }
    int repeats() const { return m_repeats; }
    QByteArray fault() const { return m_fault; }

private:
    bool isSeen(qint64 seq) const
    {
        return seq >= 0 && seq < static_cast<qint64>(m_isSeen.size()) && m_isSeen[static_cast<std::size_t>(seq)];
    }
    void add(const QByteArray &topic, qint64 seq)
    {
        if (isSeen(seq)) {
            ++m_repeats;
            return;
        }
        if (seq < m_newest.value(topic))
            m_fault = topic + " is out of order";
        m_newest[topic] = seq;
        m_boards.insert(topic);
        if (seq >= static_cast<qint64>(m_isSeen.size()))
            m_isSeen.resize(static_cast<std::size_t>(seq) * 2 + 1);
        m_isSeen[static_cast<std::size_t>(seq)] = true;
        ++m_count;
    }

    Subscriber m_subscriber;
    QByteArray::size_type m_read = 0;
    int m_count = 0;
    int m_repeats = 0;
    QByteArray m_fault; // the newest line that must not come
    QHash<QByteArray, qint64> m_newest; // number of the newest payload of each topic
    QSet<QByteArray> m_boards; // topics since forgetBoards()
    std::vector<bool> m_isSeen; // by number
};

// Asks a board with this USB serial number `count` times.
void ask(const BrokerRun &broker, const QString &serial, int count)
{
    // The event loop must run meanwhile, because the broker waits until its log is read.
    ProgramRun query(QStringLiteral("mosquitto_pub"),
                     {QStringLiteral("-V"), QStringLiteral("5"), QStringLiteral("-q"), QStringLiteral("1"),
                      QStringLiteral("-p"), QString::number(broker.port()), QStringLiteral("--repeat"),
                      QString::number(count), QStringLiteral("-m"), QStringLiteral("PJWVER"), QStringLiteral("-t"),
                      QStringLiteral("jw/here/boards/%1:1.0/tx").arg(serial)});
    query.start();
    WAIT_FOR(query.isOver());
    QCOMPARE(query.status(), 0);
}

// Returns how many payloads are on the disk of a running bridge. Reads a copy, because the bridge locks its file.
qint64 storedPayloads(const QString &file)
{
    QTemporaryDir folder;
    const QString copy = folder.filePath(QStringLiteral("copy.db"));
    QFile::copy(file, copy);
    QFile::copy(file + QStringLiteral("-wal"), copy + QStringLiteral("-wal"));
    JwBridge::Database database;
    QString error;
    if (!database.open(copy, &error))
        return 0;
    JwBridge::Statement rows(database, "SELECT count(*) FROM payloads");
    return rows.next() ? rows.number(0) : 0;
}

} // namespace

/// Tests that every payload on the disk of a bridge arrives, although broker and bridge end again and again.
class TestJwbridgeKills : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { NEEDS_MOSQUITTO; }

    void everyStoredPayloadArrives();
};

/// The broker is stopped, and keeps its memory: otherwise it would forget payloads that it has acknowledged, but not
/// yet sent to the subscriber. The bridge is killed.
void TestJwbridgeKills::everyStoredPayloadArrives()
{
    const int total = payloadCount();
    const int kills = total >= 1000000 ? 5 : 1;
    const int share = total / (kills + 1);
    // Between two stops of the broker, the boards are asked so often that more than this share comes.
    const int repliesOfAStep = share / brokerStopsOfALife / boardCount * 13 / 10 + 2;
    const int repliesOfAQuery = std::min(repliesOfAStep, maxReplies);
    const int queries = (repliesOfAStep + repliesOfAQuery - 1) / repliesOfAQuery;
    QStringList boards;
    for (int i = 0; i < boardCount; ++i)
        boards.append(
            boardOn("BoardA", uniquePortName(),
                    qPrintable(QStringLiteral("serial=S%1,speed=115200,replies=%2").arg(i).arg(repliesOfAQuery))));

    QTemporaryDir spool;
    const QString file = spool.filePath(QStringLiteral("jwbridge.db"));
    BrokerRun broker("max_inflight_messages 1000\n"); // many at once, so that a busy machine does not slow the test
    broker.start();
    Receiver receiver(broker);
    qint64 first = 1; // number of the first payload of the bridge's life
    qint64 killedWith = 0; // payloads that were on the disk when the bridge was killed
    std::vector<std::pair<qint64, qint64>> ranges; // that must arrive, one for each life
    for (int life = 0; life <= kills; ++life) {
        receiver.forgetBoards();
        BridgeRun bridge(boards, broker.url(), spool.path(), {QStringLiteral("--tx-rate"), QStringLiteral("1000")});
        WAIT_LONG_FOR(receiver.count() >= 0 && receiver.boards() == boardCount);
        const int before = receiver.count();
        for (int stop = 1; stop <= brokerStopsOfALife; ++stop) {
            WAIT_FOR(broker.log().contains("Sending SUBACK to jwbridge"));
            for (int i = 0; i < boardCount; ++i) {
                ask(broker, QStringLiteral("S%1").arg(i), queries);
                if (QTest::currentTestFailed())
                    return;
            }
            const int goal = before + share * stop / brokerStopsOfALife;
            WAIT_LONG_FOR(receiver.count() >= goal);
            if (life == kills && stop == brokerStopsOfALife)
                break;
            if (stop == brokerStopsOfALife)
                ask(broker, QStringLiteral("S0"), lastReplies / repliesOfAQuery);
            const auto failures = bridge.error().count("no connection to");
            broker.stop();
            WAIT_FOR(bridge.error().count("no connection to") > failures);
            if (stop < brokerStopsOfALife)
                broker.start();
        }
        if (life == kills) {
            WAIT_LONG_FOR(receiver.count() >= total && receiver.missing(first, receiver.newest()) < 0);
            break;
        }
        WAIT_FOR(storedPayloads(file) > 0);
        const int pid = bridgePid(spool.path());
        QVERIFY(pid > 0);
        QCOMPARE(::kill(pid, SIGKILL), 0);
        WAIT_FOR(bridge.isOver());

        JwBridge::Database database;
        QString error;
        QVERIFY2(database.open(file, &error), qPrintable(error));
        JwBridge::Statement rows(database, "SELECT count(*), max(seq) FROM payloads");
        QVERIFY(rows.next());
        killedWith += rows.number(0);
        if (rows.number(0) > 0)
            ranges.emplace_back(first, rows.number(1));
        JwBridge::Statement next(database, "SELECT value FROM numbers WHERE name = CAST('next' AS BLOB)");
        QVERIFY(next.next());
        first = next.number(0);
        broker.start();
    }
    QVERIFY(killedWith > 0);
    for (const auto &range : ranges) {
        WAIT_FOR(receiver.count() > 0 && receiver.missing(range.first, range.second) < 0);
    }
    QCOMPARE(receiver.fault(), QByteArray());
    qInfo("%d payloads arrived, %d of them again; the broker was stopped %d times, the bridge killed %d times, with %d "
          "payloads on its disk",
          receiver.count(), receiver.repeats(), (kills + 1) * brokerStopsOfALife - 1, kills,
          static_cast<int>(killedWith));
}

QTEST_GUILESS_MAIN(TestJwbridgeKills)
#include "tst_jwbridge_kills.moc"

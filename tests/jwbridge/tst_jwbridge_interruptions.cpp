#include "support/jwbridge/bridgerun.h"
#include "support/jwbridge/filledspool.h"

#include <QDateTime>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QSet>
#include <QTest>

#include <algorithm>
#include <memory>

#include <sys/resource.h>

namespace {

// A board that sends this many replies to the query of the probe: the first one finds the board, the others are
// payloads. The line is so slow that this takes about three seconds. On a busy machine the query is repeated, and more
// payloads come.
constexpr int replies = 600;
const char *const streaming = "serial=S1,replies=600,speed=57600";

QList<qint64> seqsOf(const QList<ReceivedMessage> &messages)
{
    QList<qint64> seqs;
    for (const ReceivedMessage &message : messages)
        seqs.append(message.property("seq"));
    return seqs;
}

// Returns `seqs` without the numbers that came again later. A message may come twice.
QList<qint64> withoutRepeats(const QList<qint64> &seqs)
{
    QList<qint64> result;
    QSet<qint64> seen;
    for (const qint64 seq : seqs) {
        if (!seen.contains(seq))
            result.append(seq);
        seen.insert(seq);
    }
    return result;
}

bool isAscending(const QList<qint64> &seqs)
{
    return std::is_sorted(seqs.begin(), seqs.end());
}

// No user may fill a disk in a test. A limit for the size of files has the same effect: writes fail.
void limitFiles(int pid, rlim_t bytes)
{
    rlimit both{};
    QCOMPARE(::prlimit(pid, RLIMIT_FSIZE, nullptr, &both), 0);
    both.rlim_cur = bytes;
    QCOMPARE(::prlimit(pid, RLIMIT_FSIZE, &both, nullptr), 0);
}

// Returns a command that runs jwbridge, with this limit from the start.
QStringList withFullDisk(const QStringList &command)
{
    const int program = static_cast<int>(command.indexOf(QStringLiteral(JWBRIDGE_PROGRAM)));
    return command.mid(0, program) + QStringList{QStringLiteral("prlimit"), QStringLiteral("--fsize=4096:unlimited")}
    + command.mid(program);
}

} // namespace

/// Tests that nothing is lost when the broker or the bridge is away for a time.
class TestJwbridgeInterruptions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        NEEDS_MOSQUITTO;
        NEEDS_PROGRAM("prlimit", "util-linux");
        NEEDS_PROGRAM("strings", "binutils");
    }
    void init();

    void brokerMayStartLater();
    void brokerWithoutMemoryGetsEverythingAgain();
    void payloadsWaitForTheBroker();
    void storedPayloadsSurviveAKill();
    void payloadsGivenUpAreCounted();
    void forgottenBoardIsEmptiedLater();
    void fullDiskLosesNothing();
    void fullDiskAtTheStartLosesNothing();
    void fullDiskAtTheFirstStartEndsTheProgram();
    void fullDiskAtTheEndIsReported();
    void damagedSpoolIsSetAside();

private:
    // Returns about how many payloads were written to the disk so far.
    int spooled() const
    {
        QFile file(m_spool->filePath(QStringLiteral("jwbridge.db-wal")));
        return file.open(QIODevice::ReadOnly) ? static_cast<int>(file.readAll().count("$PJWVER,")) : 0;
    }

    QString m_port;
    std::unique_ptr<QTemporaryDir> m_spool;
    const QByteArray m_board = "jw/here/boards/S1:1.0";
};

void TestJwbridgeInterruptions::init()
{
    m_port = uniquePortName();
    m_spool = std::make_unique<QTemporaryDir>();
}

void TestJwbridgeInterruptions::brokerMayStartLater()
{
    BrokerRun broker;
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1")}, broker.url(), m_spool->path());
    WAIT_FOR(bridge.error().contains("no connection to " + broker.url().toLatin1()));
    QVERIFY2(bridge.error().contains("Connection refused"), bridge.error().constData());
    broker.start();
    Subscriber subscriber(broker);
    subscriber.start();
    WAIT_FOR(subscriber.newest(m_board + "/state").contains("ready"));
    WAIT_FOR(subscriber.newest("jw/here/online") == "true");
    WAIT_FOR(subscriber.newest("jw/here/ports").contains("handedOver"));
    WAIT_FOR(!subscriber.newest("jw/here/lost").isEmpty());
}

void TestJwbridgeInterruptions::brokerWithoutMemoryGetsEverythingAgain()
{
    BrokerRun broker;
    broker.start();
    const QString left = uniquePortName();
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1"), boardOn("BoardB", left, "serial=S2,pull-after=1500")},
                     broker.url(), m_spool->path());
    {
        Subscriber subscriber(broker);
        subscriber.start();
        WAIT_FOR(subscriber.newest("jw/here/boards/S2:1.0/state").contains("lost"));
    }
    broker.stop(BrokerRun::WithoutMemory);
    broker.start();
    Subscriber subscriber(broker);
    subscriber.start();
    WAIT_FOR(subscriber.newest(m_board + "/state").contains("ready"));
    WAIT_FOR(subscriber.newest("jw/here/boards/S2:1.0/state").contains("lost"));
    WAIT_FOR(subscriber.newest("jw/here/online") == "true");
    WAIT_FOR(subscriber.newest("jw/here/ports").contains("handedOver"));
    publish(broker, QString::fromLatin1(m_board + "/tx"), "PJWVER");
    WAIT_FOR(!subscriber.newest(m_board + "/rx").isEmpty());
}

void TestJwbridgeInterruptions::payloadsWaitForTheBroker()
{
    BrokerRun broker;
    broker.start();
    auto subscriber = std::make_unique<Subscriber>(broker);
    subscriber->start();
    BridgeRun bridge({boardOn("BoardA", m_port, streaming)}, broker.url(), m_spool->path());
    WAIT_FOR(subscriber->messages(m_board + "/rx").size() >= 20);
    broker.stop();
    const int before = spooled();
    WAIT_FOR(spooled() > before + 200);
    broker.start();
    WAIT_FOR(subscriber->messages(m_board + "/rx").size() >= replies - 1);
    publish(broker, QString::fromLatin1(m_board + "/tx"), "PJWVER");
    WAIT_FOR(withoutRepeats(seqsOf(subscriber->messages(m_board + "/rx"))).size() >= 2 * replies - 1);
    const QList<qint64> seqs = withoutRepeats(seqsOf(subscriber->messages(m_board + "/rx")));
    QVERIFY(isAscending(seqs));
    QCOMPARE(seqs.first(), 1);
    QCOMPARE(seqs.last(), seqs.size()); // no number is missing
    QCOMPARE(subscriber->newest("jw/here/lost"), QByteArray(R"({"age":0,"disk":0,"refused":0,"size":0})"));
}

void TestJwbridgeInterruptions::storedPayloadsSurviveAKill()
{
    BrokerRun broker;
    QList<qint64> stored;
    {
        BridgeRun bridge({boardOn("BoardA", m_port, streaming)}, broker.url(), m_spool->path());
        WAIT_FOR(spooled() > 400);
        const int pid = bridgePid(m_spool->path());
        QVERIFY(pid > 0);
        QCOMPARE(::kill(pid, SIGKILL), 0);
        WAIT_FOR(bridge.isOver());
        JwBridge::Database database;
        QString error;
        QVERIFY2(database.open(m_spool->filePath(QStringLiteral("jwbridge.db")), &error), qPrintable(error));
        JwBridge::Statement rows(database, "SELECT seq FROM payloads ORDER BY seq");
        while (rows.next())
            stored.append(rows.number(0));
    }
    QVERIFY(stored.size() > 20);
    QCOMPARE(stored.first(), 1);
    QCOMPARE(stored.last(), stored.size());

    broker.start();
    Subscriber subscriber(broker);
    subscriber.start();
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1,replies=3")}, broker.url(), m_spool->path());
    WAIT_FOR(subscriber.messages(m_board + "/rx").size() >= stored.size() + 2);
    const QList<qint64> seqs = withoutRepeats(seqsOf(subscriber.messages(m_board + "/rx")));
    QCOMPARE(seqs.mid(0, stored.size()), stored);
    QVERIFY(isAscending(seqs));
    QVERIFY(seqs.at(stored.size()) > replies); // none that the killed bridge may have used
}

void TestJwbridgeInterruptions::payloadsGivenUpAreCounted()
{
    BrokerRun broker;
    broker.start();
    Subscriber subscriber(broker);
    subscriber.start();
    broker.stop();
    // Together about 1.2 MiB in the spool.
    constexpr int boardCount = 16;
    constexpr int repliesOfEach = 1000;
    QStringList boards;
    for (int i = 0; i < boardCount; ++i)
        boards.append(boardOn("BoardA", uniquePortName(), "replies=1000"));
    BridgeRun bridge(boards, broker.url(), m_spool->path(), {QStringLiteral("--spool-size"), QStringLiteral("1M")});
    WAIT_FOR(bridge.error().contains("payloads are given up"));
    broker.start();
    const auto lost = [&subscriber] {
        return QJsonDocument::fromJson(subscriber.newest("jw/here/lost")).object()[QLatin1String("size")].toInt();
    };
    const auto received = [&subscriber] {
        QSet<qint64> seqs;
        const QList<ReceivedMessage> all = subscriber.messages();
        for (const ReceivedMessage &message : all) {
            if (message.topic.endsWith("/rx"))
                seqs.insert(message.property("seq"));
        }
        return seqs.size();
    };
    const auto newest = [&subscriber] {
        qint64 seq = 0;
        const QList<ReceivedMessage> all = subscriber.messages();
        for (const ReceivedMessage &message : all)
            seq = std::max(seq, message.property("seq"));
        return seq;
    };
    // Each board's first reply finds the board, and is no payload. On a busy machine a query is repeated, and more
    // payloads come.
    WAIT_FOR(lost() > 0 && lost() + received() >= boardCount * (repliesOfEach - 1));
    WAIT_FOR(lost() + received() == newest());
}

void TestJwbridgeInterruptions::forgottenBoardIsEmptiedLater()
{
    BrokerRun broker;
    broker.start();
    auto subscriber = std::make_unique<Subscriber>(broker);
    subscriber->start();
    {
        BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1")}, broker.url(), m_spool->path());
        WAIT_FOR(subscriber->newest(m_board + "/state").contains("ready"));
    }
    broker.stop();
    {
        BridgeRun bridge({}, broker.url(), m_spool->path(), {QStringLiteral("--forget-after"), QStringLiteral("1s")});
        const auto isForgotten = [this] {
            const Outcome outcome =
                runProgram(QStringLiteral("strings"), {m_spool->filePath(QStringLiteral("jwbridge.db-wal"))});
            return outcome.output.contains("bridgeStopped");
        };
        WAIT_FOR(isForgotten());
    }
    broker.start();
    BridgeRun bridge({}, broker.url(), m_spool->path(), {QStringLiteral("--forget-after"), QStringLiteral("1s")});
    WAIT_FOR(subscriber->messages(m_board + "/state").size() >= 2 && subscriber->newest(m_board + "/state").isEmpty());
}

void TestJwbridgeInterruptions::fullDiskLosesNothing()
{
    BrokerRun broker;
    broker.start();
    Subscriber subscriber(broker); // before the bridge, so that the broker keeps each payload for it
    subscriber.start();
    broker.stop();
    BridgeRun bridge({boardOn("BoardA", m_port, streaming)}, broker.url(), m_spool->path());
    WAIT_FOR(spooled() > 50);
    const int pid = bridgePid(m_spool->path());
    limitFiles(pid, 4096);
    WAIT_FOR(bridge.error().contains("can't write the spool: disk I/O error. Payloads stay in memory"));
    broker.start();
    // While the disk is full, payloads still go from the boards to the broker.
    WAIT_FOR(subscriber.messages(m_board + "/rx").size() >= replies - 1);
    limitFiles(pid, RLIM_INFINITY);
    WAIT_FOR(bridge.error().contains("the spool can be written again"));
    publish(broker, QString::fromLatin1(m_board + "/tx"), "PJWVER");
    WAIT_FOR(withoutRepeats(seqsOf(subscriber.messages(m_board + "/rx"))).size() >= 2 * replies - 1);
    const QList<qint64> seqs = withoutRepeats(seqsOf(subscriber.messages(m_board + "/rx")));
    QVERIFY(isAscending(seqs));
    QCOMPARE(seqs.first(), 1);
    QCOMPARE(seqs.last(), seqs.size()); // no number is missing
    QVERIFY(!bridge.isOver());
}

void TestJwbridgeInterruptions::fullDiskAtTheStartLosesNothing()
{
    constexpr int count = 50;
    const qint64 before = QDateTime::currentMSecsSinceEpoch() * 1000;
    fillSpool(m_spool->path(), count);
    BrokerRun broker;
    broker.start();
    Subscriber subscriber(broker);
    subscriber.start();
    ProgramRun bridge(jwsimProgram(),
                      withFullDisk(bridgeUnderJwsim({boardOn("BoardA", m_port, "serial=S1,replies=3")}, broker.url(),
                                                    m_spool->path())));
    bridge.start();
    WAIT_FOR(bridge.error().contains("can't write the spool: "));
    WAIT_FOR(subscriber.messages(m_board + "/rx").size() >= count + 2);
    const QList<qint64> seqs = seqsOf(subscriber.messages(m_board + "/rx"));
    for (int i = 0; i < count; ++i)
        QCOMPARE(seqs[i], i + 1);
    QVERIFY(seqs[count] >= before); // no number that an earlier bridge may have used
    QVERIFY(!bridge.isOver());
}

void TestJwbridgeInterruptions::fullDiskAtTheFirstStartEndsTheProgram()
{
    const Outcome outcome = runProgram(
        jwsimProgram(), withFullDisk(bridgeUnderJwsim({}, QStringLiteral("mqtt://localhost"), m_spool->path())));
    QCOMPARE(outcome.status, 1);
    QVERIFY2(outcome.error.endsWith("jwbridge: can't use " + m_spool->filePath(QStringLiteral("jwbridge.db")).toUtf8()
                                    + ": disk I/O error\n"),
             outcome.error.constData());
}

void TestJwbridgeInterruptions::fullDiskAtTheEndIsReported()
{
    BrokerRun broker;
    BridgeRun bridge({boardOn("BoardA", m_port, streaming)}, broker.url(), m_spool->path());
    WAIT_FOR(spooled() > 50);
    const int pid = bridgePid(m_spool->path());
    limitFiles(pid, 4096);
    WAIT_FOR(bridge.error().contains("Payloads stay in memory"));
    ::kill(pid, SIGTERM);
    WAIT_FOR(bridge.isOver());
    QVERIFY2(bridge.error().contains(" payloads are lost, because the spool can't be written: disk I/O error"),
             bridge.error().constData());
}

void TestJwbridgeInterruptions::damagedSpoolIsSetAside()
{
    BrokerRun broker;
    broker.start();
    Subscriber subscriber(broker);
    subscriber.start();
    qint64 last = 0;
    {
        BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1,replies=3")}, broker.url(), m_spool->path());
        WAIT_FOR(subscriber.messages(m_board + "/rx").size() == 2);
        last = subscriber.messages(m_board + "/rx").last().property("seq");
    }
    QFile file(m_spool->filePath(QStringLiteral("jwbridge.db")));
    QVERIFY(file.open(QIODevice::ReadWrite));
    file.write(QByteArray(100, 'x'));
    file.close();
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1,replies=3")}, broker.url(), m_spool->path());
    WAIT_FOR(
        bridge.error().contains(file.fileName().toUtf8() + " is damaged (file is not a database). It is kept as "));
    WAIT_FOR(subscriber.messages(m_board + "/rx").size() == 4);
    QVERIFY(subscriber.messages(m_board + "/rx").at(2).property("seq") > last);
}

QTEST_GUILESS_MAIN(TestJwbridgeInterruptions)
#include "tst_jwbridge_interruptions.moc"

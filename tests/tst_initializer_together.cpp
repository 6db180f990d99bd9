// Boards on real lines that answer in the same moment: their sentences arrive in pieces, side by side.
#include "support/probebench.h"
#include "support/simulatedportsmain.h"
#include "support/timelinetexts.h"

#include <device/wholelines.h>

#include <QTest>

using JwDevice::Communicator;
using JwDevice::WholeLines;
using JwDevice::WholeLinesBase;
using JwSimulator::Board;

namespace {

const char *const kinds[] = {"BoardA", "BoardB", "BoardC"};

/// Every payload that came to a Communicator, as the log has them.
QStringList payloadsInLog(const ProbeBench &bench)
{
    QStringList payloads;
    for (const LogRecord &record : qAsConst(bench.log.sink->records)) {
        if (record.category == "Communication" && record.text.startsWith(QLatin1String(" <- ")))
            payloads << record.text.mid(static_cast<int>(qstrlen(" <-  \""))).chopped(1);
    }
    return payloads;
}

/// The reply of a board to its own query.
QString replyOf(const Board *board)
{
    using Kind = JwSimulator::BoardConfig::Kind;
    const JwSimulator::BoardConfig &config = board->config();
    return QString::fromLatin1(config.kind == Kind::BoardC ? informationReply("INF")
                                                           : versionReply(config.hwversion.toLatin1()))
        .trimmed();
}

} // namespace

class InitializerTogetherTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void portsHoldUnfinishedLinesBack();
    void allTypesAreFoundAndNoReplyIsSpoilt_data();
    void allTypesAreFoundAndNoReplyIsSpoilt();
    void repliesInTurnsAreFound();
    void handedOverBoardsThatAnswerTogetherAreNotSpoilt();
    void portLostWithinItsReplySpoilsNoOther();
    void portClosedWithTheInitializerSpoilsNoOther();
};

void InitializerTogetherTest::portsHoldUnfinishedLinesBack()
{
    ProbeBench bench;
    const Board *const silent = bench.attach("silent");
    const Board *const found = bench.attach("BoardA");
    bench.probe({JwDevice::BoardA});
    QSerialPort *const probed = bench.port(silent);
    auto *const lines = dynamic_cast<WholeLinesBase *>(probed);
    QVERIFY(lines && lines->wholeLines());
    QCOMPARE(probed->metaObject()->className(), "QSerialPort");
    QTRY_COMPARE(bench.state(found), PortState::HandedOver);
    // An application may cast: every port is of this class.
    const Communicator *const board = bench.handOver(found).comm;
    auto *const port = dynamic_cast<WholeLines<QSerialPort> *>(board->device());
    QVERIFY(port && port->wholeLines());
    QCOMPARE(static_cast<WholeLines<QSerialPort> *>(board->device()), port);
}

void InitializerTogetherTest::allTypesAreFoundAndNoReplyIsSpoilt_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("speed");
    QTest::addColumn<int>("runs");
    QTest::addColumn<QByteArray>("usb");
    QTest::newRow("BoardA and BoardB, 115200 baud") << 2 << 115200 << 10 << QByteArray();
    QTest::newRow("BoardA and BoardB, 9600 baud") << 2 << 9600 << 5 << QByteArray();
    QTest::newRow("BoardA and BoardB, 921600 baud") << 2 << 921600 << 5 << QByteArray();
    for (const int count : {3, 8, 16, 48}) {
        QTest::addRow("%d boards, 115200 baud", count) << count << 115200 << (count > 16 ? 2 : 4) << QByteArray();
        QTest::addRow("%d boards, 9600 baud", count) << count << 9600 << (count > 16 ? 1 : 3) << QByteArray();
        QTest::addRow("%d boards behind bridges", count)
            << count << 115200 << (count > 16 ? 1 : 3) << QByteArray("bridge");
    }
}

void InitializerTogetherTest::allTypesAreFoundAndNoReplyIsSpoilt()
{
    QFETCH(int, count);
    QFETCH(int, speed);
    QFETCH(int, runs);
    QFETCH(QByteArray, usb);
    TypeList types{JwDevice::BoardA, JwDevice::BoardB};
    QStringList expected{foundA, foundB};
    if (count > 2) {
        types << JwDevice::BoardC;
        expected << foundC;
    }
    for (int run = 0; run < runs; ++run) {
        ProbeBench bench;
        QStringList replies;
        for (int i = 0; i < count; ++i) {
            const QByteArray text = QByteArray(kinds[i % 3]) + ",speed=" + QByteArray::number(speed)
                + (usb.isEmpty() ? QByteArray() : ",usb=" + usb);
            replies << replyOf(bench.attach(text.constData()));
        }
        bench.probe(types);
        QVERIFY(runUntil([&bench] { return bench.isOver(); }));
        QStringList found = bench.decisions().filter(QStringLiteral("deviceInitialized"));
        found.sort();
        QCOMPARE(found, expected);
        const QStringList payloads = payloadsInLog(bench);
        QVERIFY(payloads.size() >= types.size());
        for (const QString &payload : payloads)
            QVERIFY2(replies.contains(payload), qPrintable(payload));
    }
}

void InitializerTogetherTest::repliesInTurnsAreFound()
{
    ProbeBench bench;
    Board *const first = bench.attach("silent");
    Board *const second = bench.attach("silent");
    bench.initializer->setMaxRetries(0);
    bench.probe({JwDevice::BoardA, JwDevice::BoardB});
    for (const Board *board : {first, second})
        QTRY_COMPARE(received(board), versionQuery);
    const QByteArray replyOfFirst = versionReply("7300022");
    const QByteArray replyOfSecond = versionReply("7300021");
    for (int at = 0; at < replyOfFirst.size(); ++at) { // byte by byte
        QVERIFY(first->send(replyOfFirst.mid(at, 1)));
        settle();
        QVERIFY(second->send(replyOfSecond.mid(at, 1)));
        settle();
    }
    QCOMPARE(bench.decisions(), QStringList({foundA, foundB, over}));
    QCOMPARE(bench.handOver(first).type, JwDevice::BoardA);
    QCOMPARE(bench.handOver(second).type, JwDevice::BoardB);
}

void InitializerTogetherTest::handedOverBoardsThatAnswerTogetherAreNotSpoilt()
{
    ProbeBench bench;
    for (const char *const kind : kinds)
        bench.attach((QByteArray(kind) + ",speed=115200").constData());
    bench.probe({JwDevice::BoardA, JwDevice::BoardB, JwDevice::BoardC});
    QVERIFY(runUntil([&bench] { return bench.isOver(); }));
    const QList<Board *> boards = bench.testbed.boards();
    for (int round = 0; round < 30; ++round) {
        for (const Board *board : boards) {
            Communicator *const communicator = bench.handOver(board).comm;
            const bool isC = board->config().kind == JwSimulator::BoardConfig::Kind::BoardC;
            communicator->writePayload(QString::fromLatin1(isC ? informationRequest : versionQuery));
        }
        for (const Board *board : boards) {
            QString payload;
            QTRY_VERIFY(!payload.isEmpty() || bench.handOver(board).comm->readPayload(payload));
            QCOMPARE(payload.trimmed(), replyOf(board));
        }
    }
}

void InitializerTogetherTest::portLostWithinItsReplySpoilsNoOther()
{
    ProbeBench bench;
    Board *const lost = bench.attach("silent");
    Board *const found = bench.attach("silent");
    bench.initializer->setMaxRetries(0);
    bench.probe({JwDevice::BoardA});
    for (const Board *board : {lost, found})
        QTRY_COMPARE(received(board), versionQuery);
    QSerialPort *const port = bench.port(lost);
    QVERIFY(found->send("$PJWVER,7300"));
    settle();
    QVERIFY(lost->send("$PJWVER,73"));
    settle();
    lost->pull();
    QTRY_VERIFY(!port->isOpen());
    QVERIFY(found->send(versionReply("7300022").mid(12)));
    QTRY_COMPARE(bench.state(found), PortState::HandedOver);

    QVERIFY(found->send("!M\r\n"));
    QString payload;
    QTRY_VERIFY(!payload.isEmpty() || bench.handOver(found).comm->readPayload(payload));
    QCOMPARE(payload, QStringLiteral("!M\r\n"));
}

void InitializerTogetherTest::portClosedWithTheInitializerSpoilsNoOther()
{
    ProbeBench bench;
    Board *const closed = bench.attach("silent");
    Board *const found = bench.attach("BoardA");
    bench.probe({JwDevice::BoardA});
    QTRY_COMPARE(bench.state(found), PortState::HandedOver);
    QVERIFY(closed->send("$PJWVER,73"));
    settle();
    delete bench.initializer;
    QVERIFY(found->send("!M\r\n"));
    QString payload;
    QTRY_VERIFY(!payload.isEmpty() || bench.handOver(found).comm->readPayload(payload));
    QCOMPARE(payload, QStringLiteral("!M\r\n"));
}

SIMULATED_PORTS_MAIN(InitializerTogetherTest)
#include "tst_initializer_together.moc"

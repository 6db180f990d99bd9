// Tests boards that answer at the same time. Their sentences arrive in pieces, and the pieces of different boards
// alternate, as on real serial lines.
#include "support/initializer/probefixture.h"
#include "support/common/simulatedportsmain.h"
#include "support/initializer/timelinetexts.h"

#include <device/wholelines.h>

#include <QTest>

#include <utility>

using JwDevice::Communicator;
using JwDevice::WholeLines;
using JwDevice::WholeLinesBase;
using JwSimulator::Board;

namespace {

const char *const kinds[] = {"BoardA", "BoardB", "BoardC"};

/// Returns the payloads that all Communicators received, in the order of the log.
QStringList payloadsInLog(const ProbeFixture &fixture)
{
    QStringList payloads;
    for (const LogRecord &record : std::as_const(fixture.log.sink->records)) {
        if (record.category == "Communication" && record.text.startsWith(QLatin1String(" <- ")))
            payloads << record.text.mid(static_cast<int>(qstrlen(" <-  \""))).chopped(1);
    }
    return payloads;
}

/// Returns the board's reply to the query for its type.
QString replyOf(const Board *board)
{
    using Kind = JwSimulator::BoardConfig::Kind;
    const JwSimulator::BoardConfig &config = board->config();
    return QString::fromLatin1(config.kind == Kind::BoardC ? informationReply("INF")
                                                           : versionReply(config.hwversion.toLatin1()))
        .trimmed();
}

} // namespace

class TestInitializerTogether : public QObject
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

void TestInitializerTogether::portsHoldUnfinishedLinesBack()
{
    ProbeFixture fixture;
    const Board *const silent = fixture.attach("silent");
    const Board *const found = fixture.attach("BoardA");
    fixture.probe({JwDevice::BoardA});
    QSerialPort *const probed = fixture.port(silent);
    auto *const lines = dynamic_cast<WholeLinesBase *>(probed);
    QVERIFY(lines && lines->wholeLines());
    QCOMPARE(probed->metaObject()->className(), "QSerialPort");
    QTRY_COMPARE(fixture.state(found), PortState::HandedOver);
    // The Initializer opens every port as WholeLines<QSerialPort>, so an application may cast the device to this class.
    const Communicator *const board = fixture.handOver(found).comm;
    auto *const port = dynamic_cast<WholeLines<QSerialPort> *>(board->device());
    QVERIFY(port && port->wholeLines());
    QCOMPARE(static_cast<WholeLines<QSerialPort> *>(board->device()), port);
}

void TestInitializerTogether::allTypesAreFoundAndNoReplyIsSpoilt_data()
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

void TestInitializerTogether::allTypesAreFoundAndNoReplyIsSpoilt()
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
        ProbeFixture fixture;
        QStringList replies;
        for (int i = 0; i < count; ++i) {
            const QByteArray text = QByteArray(kinds[i % 3]) + ",speed=" + QByteArray::number(speed)
                + (usb.isEmpty() ? QByteArray() : ",usb=" + usb);
            replies << replyOf(fixture.attach(text.constData()));
        }
        fixture.probe(types);
        QVERIFY(runUntil([&fixture] { return fixture.isOver(); }));
        QStringList found = fixture.decisions().filter(QStringLiteral("deviceInitialized"));
        found.sort();
        QCOMPARE(found, expected);
        const QStringList payloads = payloadsInLog(fixture);
        QVERIFY(payloads.size() >= types.size());
        for (const QString &payload : payloads)
            QVERIFY2(replies.contains(payload), qPrintable(payload));
    }
}

void TestInitializerTogether::repliesInTurnsAreFound()
{
    ProbeFixture fixture;
    Board *const first = fixture.attach("silent");
    Board *const second = fixture.attach("silent");
    fixture.initializer->setMaxRetries(0);
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
    for (const Board *board : {first, second})
        QTRY_COMPARE(received(board), versionQuery);
    const QByteArray replyOfFirst = versionReply("7300022");
    const QByteArray replyOfSecond = versionReply("7300021");
    for (int at = 0; at < replyOfFirst.size(); ++at) { // the boards send in turn, one byte each
        QVERIFY(first->send(replyOfFirst.mid(at, 1)));
        settle();
        QVERIFY(second->send(replyOfSecond.mid(at, 1)));
        settle();
    }
    QCOMPARE(fixture.decisions(), QStringList({foundA, foundB, over}));
    QCOMPARE(fixture.handOver(first).type, JwDevice::BoardA);
    QCOMPARE(fixture.handOver(second).type, JwDevice::BoardB);
}

void TestInitializerTogether::handedOverBoardsThatAnswerTogetherAreNotSpoilt()
{
    ProbeFixture fixture;
    for (const char *const kind : kinds)
        fixture.attach((QByteArray(kind) + ",speed=115200").constData());
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB, JwDevice::BoardC});
    QVERIFY(runUntil([&fixture] { return fixture.isOver(); }));
    const QList<Board *> boards = fixture.testbed.boards();
    for (int round = 0; round < 30; ++round) {
        for (const Board *board : boards) {
            Communicator *const communicator = fixture.handOver(board).comm;
            const bool isC = board->config().kind == JwSimulator::BoardConfig::Kind::BoardC;
            communicator->writePayload(QString::fromLatin1(isC ? informationRequest : versionQuery));
        }
        for (const Board *board : boards) {
            QString payload;
            QTRY_VERIFY(!payload.isEmpty() || fixture.handOver(board).comm->readPayload(payload));
            QCOMPARE(payload.trimmed(), replyOf(board));
        }
    }
}

void TestInitializerTogether::portLostWithinItsReplySpoilsNoOther()
{
    ProbeFixture fixture;
    Board *const lost = fixture.attach("silent");
    Board *const found = fixture.attach("silent");
    fixture.initializer->setMaxRetries(0);
    fixture.probe({JwDevice::BoardA});
    for (const Board *board : {lost, found})
        QTRY_COMPARE(received(board), versionQuery);
    QSerialPort *const port = fixture.port(lost);
    QVERIFY(found->send("$PJWVER,7300"));
    settle();
    QVERIFY(lost->send("$PJWVER,73"));
    settle();
    lost->pull();
    QTRY_VERIFY(!port->isOpen());
    QVERIFY(found->send(versionReply("7300022").mid(12)));
    QTRY_COMPARE(fixture.state(found), PortState::HandedOver);

    QVERIFY(found->send("!M\r\n"));
    QString payload;
    QTRY_VERIFY(!payload.isEmpty() || fixture.handOver(found).comm->readPayload(payload));
    QCOMPARE(payload, QStringLiteral("!M\r\n"));
}

void TestInitializerTogether::portClosedWithTheInitializerSpoilsNoOther()
{
    ProbeFixture fixture;
    Board *const closed = fixture.attach("silent");
    Board *const found = fixture.attach("BoardA");
    fixture.probe({JwDevice::BoardA});
    QTRY_COMPARE(fixture.state(found), PortState::HandedOver);
    QVERIFY(closed->send("$PJWVER,73"));
    settle();
    delete fixture.initializer;
    QVERIFY(found->send("!M\r\n"));
    QString payload;
    QTRY_VERIFY(!payload.isEmpty() || fixture.handOver(found).comm->readPayload(payload));
    QCOMPARE(payload, QStringLiteral("!M\r\n"));
}

SIMULATED_PORTS_MAIN(TestInitializerTogether)
#include "tst_initializer_together.moc"

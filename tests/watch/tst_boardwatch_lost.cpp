#include "support/common/eventloop.h"
#include "support/common/portname.h"
#include "support/common/simulatedportsmain.h"
#include "support/device/otherreader.h"
#include "support/watch/watchfixture.h"

#include <QTest>

#include <utility>

using JwDevice::BoardWatch;
using JwDevice::PortReport;
using JwSimulator::Board;

namespace {

const QString found1 = QStringLiteral("found SIM1:1.0");
const QString back1 = QStringLiteral("back SIM1:1.0");
const QString pulled1 = QStringLiteral("lost SIM1:1.0 cablePulled");
const QString released1 = QStringLiteral("lost SIM1:1.0 released");

} // namespace

class TestBoardWatchLost : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pulledBoardIsLostAndItsObjectsAreDeletedLater();
    void boardIsBackAtTheSamePort();
    void boardIsBackAtAnotherPort();
    void boardIsBackUnderAnotherPortName();
    void boardThatWasPulledAndPluggedInUnseenIsLostAndBack();
    void cablePulledDuringTheProbeOfANewBoard();
    void boardThatCameAsAnotherTypeIsFound();
    void failingPortIsLostAndAskedAgain();
    void portThatFailsBeforeItIsRemovedIsAPulledCable();
    void deletedCommunicatorReleasesTheBoard_data();
    void deletedCommunicatorReleasesTheBoard();
    void releasedBoardIsFoundAfterAReplug();
    void receivedPayloadsComeBeforeTheLoss();
    void loseAllBoardsAtOnce();
};

void TestBoardWatchLost::pulledBoardIsLostAndItsObjectsAreDeletedLater()
{
    WatchFixture fixture;
    Board *const board = fixture.attach("BoardA");
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{found1});
    const JwDevice::Board there = fixture.found(board);
    const QPointer<QObject> communicator(there.communicator);
    const QPointer<QObject> port(portOf(there));
    bool existed = false;
    fixture.onLost = [&](const JwDevice::Board &) { existed = communicator && port; };
    board->pull();
    QTRY_COMPARE(fixture.timeline, QStringList({found1, pulled1}));
    QVERIFY(existed);
    QTRY_VERIFY(!communicator);
    QVERIFY(!port);
    const JwDevice::Board lost = fixture.lost.first();
    QCOMPARE(lost.communicator, there.communicator); // receivers may compare this pointer to know which board was lost
    QCOMPARE(lost.portName, there.portName);
    QCOMPARE(lost.type, JwDevice::BoardA);
    QCOMPARE(lost.hardwareVersion, QStringLiteral("7300022"));
    QCOMPARE(lost.since, there.since);
    QVERIFY(fixture.watch->boards().isEmpty());
    QTRY_VERIFY(fixture.watch->portReports().isEmpty());
    settle();
    QVERIFY(fixture.isAtRest()); // no timer of the watch looks for a board whose port is gone
}

void TestBoardWatchLost::boardIsBackAtTheSamePort()
{
    WatchFixture fixture;
    Board *const board = fixture.attach("BoardA");
    fixture.watch->start();
    QStringList expected{found1};
    QTRY_COMPARE(fixture.timeline, expected);
    for (int round = 0; round < 3; ++round) {
        board->pull();
        expected << pulled1;
        QTRY_COMPARE(fixture.timeline, expected);
        QVERIFY(board->plug());
        expected << back1;
        QTRY_COMPARE(fixture.timeline, expected);
        QVERIFY(fixture.found(board).since >= fixture.lost.last().since);
    }
    QCOMPARE(fixture.watch->boards().size(), 1);
    QCOMPARE(fixture.report(board).verdict, PortReport::HandedOver);
}

void TestBoardWatchLost::boardIsBackAtAnotherPort()
{
    WatchFixture fixture;
    Board *const board = fixture.attach("BoardA", QStringLiteral("MINE"));
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline.size(), 1);
    const JwDevice::Board before = fixture.found(board);
    board->pull();
    QTRY_COMPARE(fixture.timeline.size(), 2);
    const Board *const elsewhere = fixture.attach("BoardA", QStringLiteral("MINE"));
    QTRY_COMPARE(fixture.timeline,
                 QStringList({QStringLiteral("found MINE:1.0"), QStringLiteral("lost MINE:1.0 cablePulled"),
                              QStringLiteral("back MINE:1.0")}));
    const JwDevice::Board after = fixture.found(elsewhere);
    QCOMPARE(after.id, before.id);
    QVERIFY(!after.sharesSerialNumber);
    QVERIFY(after.portName != before.portName);
    QVERIFY(after.place != before.place);
}

void TestBoardWatchLost::boardIsBackUnderAnotherPortName()
{
    WatchFixture fixture;
    const QString name = uniquePortName();
    const QByteArray config = "BoardA,pull-after=300,replug-after=100,replug-port=" + name.toLatin1();
    const Board *const board = fixture.attach(config);
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{found1});
    const JwDevice::Board before = fixture.found(board);
    QTRY_COMPARE(fixture.timeline, QStringList({found1, pulled1, back1}));
    const JwDevice::Board after = fixture.watch->boards().first();
    QCOMPARE(after.portName, name);
    QCOMPARE(after.place, before.place);
    QVERIFY(before.portName != name);
}

void TestBoardWatchLost::boardThatWasPulledAndPluggedInUnseenIsLostAndBack()
{
    WatchFixture fixture;
    Board *const board = fixture.attach("BoardA");
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline.size(), 1);
    const JwDevice::Board before = fixture.found(board);
    // No event loop runs between pull() and plug(), so the watch sees the same list of ports before and after.
    board->pull();
    QVERIFY(board->plug());
    QTRY_COMPARE(fixture.timeline, QStringList({found1, pulled1, back1}));
    QVERIFY(fixture.found(board).since >= before.since);
    // The watch opened the new port: the connection works.
    QVERIFY(board->send("$HELLO*00\r\n"));
    QString payload;
    QVERIFY(QTest::qWaitFor([&] { return fixture.found(board).communicator->readPayload(payload); }));
    settle();
    QCOMPARE(fixture.timeline.size(), 3);
}

void TestBoardWatchLost::cablePulledDuringTheProbeOfANewBoard()
{
    WatchFixture fixture;
    Board *const board = fixture.attach("BoardA,ignore=1");
    fixture.watch->start();
    QTRY_COMPARE(board->queryCount(), 1);
    board->pull();
    QTRY_VERIFY(fixture.watch->portReports().isEmpty());
    QVERIFY(board->plug());
    QTRY_COMPARE(fixture.timeline, QStringList{found1}); // found, not back: the watch never reported it before
    // Pull the cable in the middle of the board's answer.
    Board *const half = fixture.attach("BoardB,pull-after-bytes=8");
    QTRY_VERIFY(!half->isPlugged());
    QVERIFY(half->plug());
    QTRY_COMPARE(fixture.timeline, QStringList({found1, QStringLiteral("found SIM2:1.0")}));
}

void TestBoardWatchLost::boardThatCameAsAnotherTypeIsFound()
{
    WatchFixture fixture;
    Board *const before = fixture.attach("BoardA", QStringLiteral("MINE"));
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline.size(), 1);
    before->pull();
    QTRY_COMPARE(fixture.timeline.size(), 2);
    const Board *const after = fixture.attach("BoardC", QStringLiteral("MINE"));
    QTRY_COMPARE(fixture.watch->boards().size(), 1);
    QCOMPARE(fixture.found(after).type, JwDevice::BoardC);
    QCOMPARE(fixture.found(after).id, QStringLiteral("MINE:1.0"));
}

void TestBoardWatchLost::failingPortIsLostAndAskedAgain()
{
    WatchFixture fixture;
    Board *const board = fixture.attach("BoardA");
    OtherReader other(QStringLiteral("/dev/") + board->portName(), 0);
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{found1});
    // Another program reads all bytes before the watch can read them. Each time, the port reports an error.
    other.start(portOf(fixture.found(board)));
    QVERIFY(runUntil([&] { return !portOf(fixture.found(board))->isOpen() || !board->send("stolen\r\n"); }));
    QTRY_COMPARE(fixture.timeline.last(), QStringLiteral("lost SIM1:1.0 portFailed"));
    const PortReport report = fixture.report(board);
    QCOMPARE(report.verdict, PortReport::Lost);
    QVERIFY(report.error != QSerialPort::NoError && report.error != QSerialPort::ResourceError);
    QVERIFY(!report.errorText.isEmpty());
    other.stop();
    QTRY_COMPARE(fixture.timeline.last(), back1);
    QCOMPARE(fixture.timeline.size(), 3);
}

void TestBoardWatchLost::portThatFailsBeforeItIsRemovedIsAPulledCable()
{
    WatchFixture fixture;
    Board *const board = fixture.attach("BoardA");
    OtherReader other(QStringLiteral("/dev/") + board->portName(), 0);
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{found1});
    QSerialPort *const port = portOf(fixture.found(board));
    other.start(port);
    QVERIFY(runUntil([&] { return !port->isOpen() || !board->send("stolen\r\n"); }));
    other.stop();
    QCOMPARE(fixture.timeline, QStringList{found1});
    const PortReport report = fixture.report(board);
    QCOMPARE(report.verdict, PortReport::HandedOver);
    QCOMPARE(report.error, QSerialPort::NoError);
    board->pull();
    QTRY_COMPARE(fixture.timeline, QStringList({found1, QStringLiteral("lost SIM1:1.0 cablePulled")}));
}

void TestBoardWatchLost::deletedCommunicatorReleasesTheBoard_data()
{
    QTest::addColumn<bool>("isPortDeleted");
    QTest::newRow("Communicator") << false;
    QTest::newRow("port, by deleteLater()") << true;
}

void TestBoardWatchLost::deletedCommunicatorReleasesTheBoard()
{
    QFETCH(bool, isPortDeleted);
    WatchFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{found1});
    const QPointer<QObject> communicator(fixture.found(board).communicator);
    const QPointer<QObject> port(portOf(fixture.found(board)));
    if (isPortDeleted)
        port->deleteLater();
    else
        delete communicator;
    QTRY_COMPARE(fixture.timeline, QStringList({found1, released1}));
    QTRY_VERIFY(!port);
    QVERIFY(!communicator);
    QVERIFY(fixture.watch->boards().isEmpty());
    QVERIFY(canBeOpened(board));
    const PortReport report = fixture.report(board);
    QCOMPARE(report.verdict, PortReport::NotOpened);
    QCOMPARE(report.error, QSerialPort::NoError);
    QCOMPARE(report.errorText, QStringLiteral("given up, because the application deleted the Communicator"));
    // The watch leaves the board alone until takeBack().
    fixture.watch->lookAgain();
    settle();
    QCOMPARE(fixture.attempts(board), 1);
    QVERIFY(fixture.isAtRest());
    QVERIFY(fixture.watch->takeBack(QStringLiteral("SIM1:1.0")));
    QTRY_COMPARE(fixture.timeline, QStringList({found1, released1, back1}));
}

void TestBoardWatchLost::releasedBoardIsFoundAfterAReplug()
{
    WatchFixture fixture;
    Board *const board = fixture.attach("BoardA");
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{found1});
    delete fixture.found(board).communicator;
    QTRY_COMPARE(fixture.timeline, QStringList({found1, released1}));
    board->pull();
    QVERIFY(board->plug());
    QTRY_COMPARE(fixture.timeline, QStringList({found1, released1, back1}));
}

void TestBoardWatchLost::receivedPayloadsComeBeforeTheLoss()
{
    WatchFixture fixture;
    Board *const board = fixture.attach("BoardA");
    fixture.onFound = [&](const JwDevice::Board &there) {
        JwDevice::Communicator *const communicator = there.communicator;
        QObject::connect(communicator, qOverload<uint>(&JwDevice::Communicator::readyRead), communicator,
                         [&fixture, communicator](uint id) {
                             QString payload;
                             QVERIFY(communicator->readPayload(payload, id));
                             fixture.timeline << payload.trimmed();
                         });
    };
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{found1});
    QVERIFY(board->send("$LAST*00\r\n"));
    QTRY_COMPARE(fixture.timeline.size(), 2);
    board->pull();
    QTRY_COMPARE(fixture.timeline, QStringList({found1, QStringLiteral("$LAST*00"), pulled1}));
}

void TestBoardWatchLost::loseAllBoardsAtOnce()
{
    WatchFixture fixture;
    QList<Board *> boards;
    for (int i = 0; i < 3; ++i)
        boards << fixture.attach("BoardA");
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boards().size(), 3);
    for (Board *const board : std::as_const(boards))
        board->pull();
    QTRY_COMPARE(fixture.lost.size(), 3);
    QTRY_VERIFY(fixture.watch->portReports().isEmpty());
    for (Board *const board : std::as_const(boards))
        QVERIFY(board->plug());
    QTRY_COMPARE(fixture.watch->boards().size(), 3);
    QCOMPARE(fixture.timeline.size(), 9);
}

SIMULATED_PORTS_MAIN(TestBoardWatchLost)
#include "tst_boardwatch_lost.moc"

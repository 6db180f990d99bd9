#include "support/common/eventloop.h"
#include "support/common/simulatedportsmain.h"
#include "support/watch/watchfixture.h"

#include <QElapsedTimer>
#include <QTest>

#include <sys/stat.h>

using JwSimulator::Board;

namespace {

/// After the next start, adds 1 to `lists` for each port in each list that the watch makes.
void countLists(WatchFixture &fixture, int &lists)
{
    fixture.watch->setCandidateRule([&lists](const QSerialPortInfo &) {
        ++lists;
        return true;
    });
}

} // namespace

/// Tests a watch on a system without udev, which support/watch/withoutudev.cpp simulates. On such a system, the watch
/// lists the ports at each poll interval.
class TestBoardWatchPoll : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void boardAtTheStartAndLater();
    void pollIntervalIsOneSecondByDefault();
    void pulledBoardIsBack();
    void replugBetweenTwoListsIsNoticed();
    void boardIsBackAtAnotherPort();
    void idIsThePlaceWithoutASerialNumber();
    void boardsWithOneSerialNumberAreToldApartByThePlace();
    void openPortIsNoChange();
    void newPermissionsAreNoReplug();
    void excludedPortIsNeverOpened();
    void nothingRunsAfterStop();
    void lookAgainListsThePorts();
};

void TestBoardWatchPoll::boardAtTheStartAndLater()
{
    WatchFixture fixture;
    fixture.attach("BoardA");
    fixture.watch->setPollInterval(20);
    QCOMPARE(fixture.watch->pollInterval(), 20);
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{QStringLiteral("found SIM1:1.0")});
    const JwDevice::Board board = fixture.watch->boards().first();
    QCOMPARE(board.idBasis, JwDevice::Board::SerialNumber);
    QCOMPARE(board.place, QStringLiteral("1-01:1.0"));
    fixture.attach("BoardB");
    QTRY_COMPARE(fixture.timeline.size(), 2);
    QCOMPARE(fixture.timeline.last(), QStringLiteral("found SIM2:1.0"));
}

void TestBoardWatchPoll::pollIntervalIsOneSecondByDefault()
{
    WatchFixture fixture;
    QCOMPARE(fixture.watch->pollInterval(), 1000);
    QElapsedTimer clock;
    clock.start();
    fixture.watch->start();
    settle();
    fixture.attach("BoardA");
    QTRY_COMPARE(fixture.watch->boards().size(), 1);
    QVERIFY2(clock.elapsed() >= 950, QByteArray::number(clock.elapsed())); // coarse timers are up to 5 % early
    QVERIFY2(clock.elapsed() < 2500, QByteArray::number(clock.elapsed()));
}

void TestBoardWatchPoll::pulledBoardIsBack()
{
    WatchFixture fixture;
    Board *const board = fixture.attach("BoardA");
    fixture.watch->setPollInterval(20);
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline.size(), 1);
    // The watch learns of the loss from an error of the port. The next list of the ports would show it too, but later.
    board->pull();
    QTRY_COMPARE(fixture.timeline.size(), 2);
    QTRY_VERIFY(fixture.watch->portReports().isEmpty());
    QVERIFY(board->plug());
    QTRY_COMPARE(fixture.timeline,
                 QStringList({QStringLiteral("found SIM1:1.0"), QStringLiteral("lost SIM1:1.0 cablePulled"),
                              QStringLiteral("back SIM1:1.0")}));
}

void TestBoardWatchPoll::replugBetweenTwoListsIsNoticed()
{
    WatchFixture fixture;
    Board *const board = fixture.attach("BoardA");
    Board *const lent = fixture.attach("BoardA");
    fixture.watch->setPollInterval(200);
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline.size(), 2);
    QVERIFY(fixture.watch->lend(QStringLiteral("SIM2:1.0"), JwDevice::BoardWatch::UntilPluggedAgain));
    for (Board *const replugged : {board, lent}) {
        replugged->pull();
        QVERIFY(replugged->plug());
    }
    QTRY_COMPARE(fixture.watch->boards().size(), 2);
    QCOMPARE(fixture.timeline.count(QStringLiteral("back SIM1:1.0")), 1);
    QCOMPARE(fixture.timeline.count(QStringLiteral("back SIM2:1.0")), 1);
}

void TestBoardWatchPoll::boardIsBackAtAnotherPort()
{
    WatchFixture fixture;
    Board *const board = fixture.attach("BoardA", QStringLiteral("MINE"));
    fixture.watch->setPollInterval(20);
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline.size(), 1);
    board->pull();
    QTRY_COMPARE(fixture.timeline.size(), 2);
    const Board *const elsewhere = fixture.attach("BoardA", QStringLiteral("MINE"));
    QTRY_COMPARE(fixture.timeline.last(), QStringLiteral("back MINE:1.0"));
    QCOMPARE(fixture.watch->boards().first().portName, elsewhere->portName());
}

void TestBoardWatchPoll::idIsThePlaceWithoutASerialNumber()
{
    WatchFixture fixture;
    Board *const board = fixture.attach("BoardA", QStringLiteral(""));
    fixture.watch->setPollInterval(20);
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{QStringLiteral("found 1-01:1.0")});
    QCOMPARE(fixture.watch->boards().first().idBasis, JwDevice::Board::Place);
    board->pull();
    QTRY_VERIFY(fixture.watch->portReports().isEmpty());
    QVERIFY(board->plug());
    QTRY_COMPARE(fixture.timeline.last(), QStringLiteral("back 1-01:1.0"));
}

void TestBoardWatchPoll::boardsWithOneSerialNumberAreToldApartByThePlace()
{
    WatchFixture fixture;
    fixture.attach("BoardA", QStringLiteral("TWIN"));
    fixture.watch->setPollInterval(20);
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline.size(), 1);
    const Board *const second = fixture.attach("BoardA", QStringLiteral("TWIN"));
    QTRY_COMPARE(fixture.timeline.size(), 2);
    QCOMPARE(fixture.timeline.last(), QStringLiteral("found 1-02:1.0"));
    QCOMPARE(fixture.found(second).idBasis, JwDevice::Board::Place);
    QVERIFY(fixture.found(second).sharesSerialNumber);
}

void TestBoardWatchPoll::openPortIsNoChange()
{
    WatchFixture fixture;
    Board *const board = fixture.attach("BoardA");
    fixture.watch->setPollInterval(10);
    int lists = 0;
    countLists(fixture, lists);
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline.size(), 1);
    // Reads and writes change the times of the port's node in /dev. The watch must not take that for a new port.
    const int before = lists;
    while (lists < before + 50) {
        QVERIFY(board->send("$DATA*00\r\n"));
        fixture.watch->boards().first().communicator->writePayload(QStringLiteral("$TO*00\r\n"));
        QVERIFY(runUntil([&, now = lists] { return lists > now; }));
    }
    QCOMPARE(fixture.timeline, QStringList{QStringLiteral("found SIM1:1.0")});
    QCOMPARE(fixture.attempts(board), 1);
}

void TestBoardWatchPoll::newPermissionsAreNoReplug()
{
    WatchFixture fixture;
    Board *const board = fixture.attach("BoardA");
    fixture.watch->setPollInterval(10);
    int lists = 0;
    countLists(fixture, lists);
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline.size(), 1);
    QCOMPARE(::fchmod(portOf(fixture.found(board))->handle(), 0600), 0);
    QVERIFY(runUntil([&, now = lists] { return lists > now + 5; }));
    QCOMPARE(fixture.timeline, QStringList{QStringLiteral("found SIM1:1.0")});
    QCOMPARE(fixture.attempts(board), 1);
}

void TestBoardWatchPoll::excludedPortIsNeverOpened()
{
    WatchFixture fixture;
    const Board *const excluded = fixture.attach("BoardA", QStringLiteral("SECRET"));
    fixture.attach("BoardA");
    fixture.watch->setPollInterval(20);
    fixture.watch->setNeverOpened({QStringLiteral("SECRET")});
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boards().size(), 1);
    QCOMPARE(fixture.attempts(excluded), 0);
}

void TestBoardWatchPoll::nothingRunsAfterStop()
{
    WatchFixture fixture;
    int lists = 0;
    fixture.watch->setPollInterval(10);
    countLists(fixture, lists);
    fixture.attach("silent");
    fixture.watch->start();
    QTRY_VERIFY(lists >= 5);
    fixture.watch->stop();
    settle();
    QVERIFY(fixture.isAtRest());
    const int before = lists;
    QTimer timer;
    int ticks = 0;
    QObject::connect(&timer, &QTimer::timeout, &timer, [&ticks] { ++ticks; });
    timer.start(10);
    QTRY_VERIFY(ticks >= 10);
    QCOMPARE(lists, before);
}

void TestBoardWatchPoll::lookAgainListsThePorts()
{
    WatchFixture fixture;
    fixture.watch->setPollInterval(3600 * 1000);
    fixture.watch->start();
    settle();
    const Board *const board = fixture.attach("BoardA");
    settle();
    QVERIFY(fixture.watch->portReports().isEmpty());
    fixture.watch->lookAgain();
    QTRY_COMPARE(fixture.watch->boards().size(), 1);
    QCOMPARE(fixture.watch->boards().first().portName, board->portName());
}

SIMULATED_PORTS_MAIN(TestBoardWatchPoll)
#include "tst_boardwatch_poll.moc"

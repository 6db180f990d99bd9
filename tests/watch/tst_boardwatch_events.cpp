#include "support/common/eventloop.h"
#include "support/common/simulatedportsmain.h"
#include "support/watch/lostevents.h"
#include "support/watch/usbtree.h"
#include "support/watch/watchfixture.h"

#include <QTest>

using JwDevice::PortReport;
using JwSimulator::Board;

/// Tests what a watch makes of the kernel's events: events that were lost, and events that bring new data of a port.
class TestBoardWatchEvents : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void boardIsFoundAlthoughItsEventIsLost();
    void pullIsNoticedAlthoughItsEventIsLost();
    void replugIsNoticedAlthoughItsEventsAreLost();
    void lostEventsDoNotDisturbABoard();
    void portThatUdevIgnoresLaterIsClosed();
    void serialNumberThatComesLaterIsInTheId();
    void eventWithoutNewDataDisturbsNoBoard();
    void portIsReadAgainOnlyForItsOwnEvent();
};

void TestBoardWatchEvents::boardIsFoundAlthoughItsEventIsLost()
{
    WatchFixture fixture;
    fixture.watch->start();
    settle();
    loseEvents();
    fixture.attach("BoardA");
    QTRY_COMPARE(fixture.timeline, QStringList{QStringLiteral("found SIM1:1.0")});
}

void TestBoardWatchEvents::pullIsNoticedAlthoughItsEventIsLost()
{
    WatchFixture fixture;
    Board *const silent = fixture.attach("silent");
    fixture.watch->setMaxRetries(0);
    fixture.watch->start();
    QTRY_COMPARE(fixture.report(silent).verdict, PortReport::TimedOut);
    loseEvents();
    silent->pull();
    QTRY_VERIFY(fixture.watch->portReports().isEmpty());
}

void TestBoardWatchEvents::replugIsNoticedAlthoughItsEventsAreLost()
{
    WatchFixture fixture;
    Board *const silent = fixture.attach("silent");
    fixture.watch->setMaxRetries(0);
    fixture.watch->start();
    QTRY_COMPARE(fixture.report(silent).verdict, PortReport::TimedOut);
    // The watch keeps a port without a board closed, so no error of the port reports the replug.
    loseEvents();
    silent->pull();
    QVERIFY(silent->plug());
    QTRY_COMPARE(fixture.attempts(silent), 2);
}

void TestBoardWatchEvents::lostEventsDoNotDisturbABoard()
{
    WatchFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boards().size(), 1);
    loseEvents();
    fixture.attach("BoardB");
    QTRY_COMPARE(fixture.timeline, QStringList({QStringLiteral("found SIM1:1.0"), QStringLiteral("found SIM2:1.0")}));
    QCOMPARE(fixture.attempts(board), 1);
}

void TestBoardWatchEvents::portThatUdevIgnoresLaterIsClosed()
{
    WatchFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boards().size(), 1);
    UsbTree::addProperty(board->portName(), UsbTree::Port, "JWDEVICE_IGNORE=1");
    UsbTree::announceChange(board->portName());
    QTRY_COMPARE(fixture.timeline,
                 QStringList({QStringLiteral("found SIM1:1.0"), QStringLiteral("lost SIM1:1.0 cablePulled")}));
    QTRY_COMPARE(fixture.report(board).errorText,
                 QStringLiteral("not opened, because the udev property JWDEVICE_IGNORE is set"));
    QVERIFY(canBeOpened(board));
    settle();
    QCOMPARE(fixture.attempts(board), 1);
}

void TestBoardWatchEvents::serialNumberThatComesLaterIsInTheId()
{
    WatchFixture fixture;
    const Board *const board = fixture.attach("BoardA", QStringLiteral(""));
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{QStringLiteral("found 1-01:1.0")});
    UsbTree::addProperty(board->portName(), UsbTree::Port, "ID_SERIAL_SHORT=LATE");
    UsbTree::announceChange(board->portName());
    QTRY_COMPARE(fixture.timeline,
                 QStringList({QStringLiteral("found 1-01:1.0"), QStringLiteral("lost 1-01:1.0 cablePulled"),
                              QStringLiteral("found LATE:1.0")}));
    QCOMPARE(fixture.found(board).idBasis, JwDevice::Board::SerialNumber);
}

void TestBoardWatchEvents::eventWithoutNewDataDisturbsNoBoard()
{
    WatchFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boards().size(), 1);
    UsbTree::announceChange(board->portName());
    settle();
    QCOMPARE(fixture.timeline, QStringList{QStringLiteral("found SIM1:1.0")});
    QCOMPARE(fixture.attempts(board), 1);
}

void TestBoardWatchEvents::portIsReadAgainOnlyForItsOwnEvent()
{
    WatchFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boards().size(), 1);
    // Only the port's own event makes the watch read its data again. Otherwise, many ports that appear at once would
    // cost time that grows with the square of their number.
    UsbTree::addProperty(board->portName(), UsbTree::Port, "JWDEVICE_IGNORE=1");
    fixture.attach("BoardB");
    QTRY_COMPARE(fixture.watch->boards().size(), 2);
    settle();
    QCOMPARE(fixture.timeline, QStringList({QStringLiteral("found SIM1:1.0"), QStringLiteral("found SIM2:1.0")}));
}

SIMULATED_PORTS_MAIN(TestBoardWatchEvents)
#include "tst_boardwatch_events.moc"

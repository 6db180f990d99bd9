#include "support/common/eventloop.h"
#include "support/common/simulatedportsmain.h"
#include "support/watch/watchfixture.h"

#include <QSerialPortInfo>
#include <QTest>

using JwDevice::BoardWatch;
using JwSimulator::Board;

namespace {

const QString id1 = QStringLiteral("SIM1:1.0");
const QString found1 = QStringLiteral("found SIM1:1.0");
const QString back1 = QStringLiteral("back SIM1:1.0");
const QString lent1 = QStringLiteral("lost SIM1:1.0 lent");

/// A WatchFixture with one board that the watch found.
class LendFixture : public WatchFixture
{
public:
    LendFixture()
        : board(attach("BoardA"))
    {
        watch->start();
        QTRY_COMPARE(timeline, QStringList{found1});
    }

    /// Runs the event loop longer than the watch waits before it tries a port again, and returns whether the watch left
    /// the board alone.
    bool isLeftAlone() const
    {
        const int before = attempts(board);
        static_cast<void>(QTest::qWaitFor([&] { return attempts(board) != before; }, 1200));
        return attempts(board) == before;
    }

    Board *const board;
};

} // namespace

Q_DECLARE_METATYPE(BoardWatch::Lending)

class TestBoardWatchLend : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lentPortIsFreeUntilTakenBack_data();
    void lentPortIsFreeUntilTakenBack();
    void lentUntilTakenBackStaysLentAtEveryPort();
    void lentUntilPluggedAgainIsBackAfterAReplug();
    void lentUntilPluggedAgainIsBackAtAnotherPort();
    void takenBackWhileUnplugged();
    void takenBackWhileAnotherProgramHasThePort();
    void lentBoardStaysLentOverStopAndStart();
    void onlyABoardThatIsThereCanBeLent();
    void otherBoardsAreNotAffected();
};

void TestBoardWatchLend::lentPortIsFreeUntilTakenBack_data()
{
    QTest::addColumn<BoardWatch::Lending>("lending");
    QTest::newRow("until taken back") << BoardWatch::UntilTakenBack;
    QTest::newRow("until plugged again") << BoardWatch::UntilPluggedAgain;
}

void TestBoardWatchLend::lentPortIsFreeUntilTakenBack()
{
    QFETCH(BoardWatch::Lending, lending);
    LendFixture fixture;
    QVERIFY(fixture.watch->lend(id1, lending));
    // boardLost() came before lend() returned, so the port is free now.
    QCOMPARE(fixture.timeline, QStringList({found1, lent1}));
    QVERIFY(fixture.watch->boards().isEmpty());
    QCOMPARE(fixture.report(fixture.board).errorText, QStringLiteral("lent to another program"));
    QSerialPort flasher{QSerialPortInfo(fixture.board->portName())};
    QVERIFY(flasher.open(QIODevice::ReadWrite));
    fixture.watch->lookAgain();
    fixture.watch->checkBoards();
    QVERIFY(fixture.isLeftAlone());
    QVERIFY(fixture.isAtRest());
    flasher.close();
    QVERIFY(fixture.watch->takeBack(id1));
    QCOMPARE(fixture.timeline.size(), 2); // takeBack() emits no signal; boardBack() comes later, from the event loop
    QTRY_COMPARE(fixture.timeline, QStringList({found1, lent1, back1}));
    QVERIFY(!fixture.watch->takeBack(id1));
}

void TestBoardWatchLend::lentUntilTakenBackStaysLentAtEveryPort()
{
    WatchFixture fixture;
    Board *const board = fixture.attach("BoardA", QStringLiteral("MINE"));
    const QString id = QStringLiteral("MINE:1.0");
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline.size(), 1);
    QVERIFY(fixture.watch->lend(id));
    board->pull();
    QTRY_VERIFY(fixture.watch->portReports().isEmpty());
    QVERIFY(board->plug()); // for example because a flasher restarts the board
    QTRY_COMPARE(fixture.report(board).errorText, QStringLiteral("lent to another program"));
    board->pull();
    const Board *const elsewhere = fixture.attach("BoardA", QStringLiteral("MINE"));
    QTRY_COMPARE(fixture.report(elsewhere).errorText, QStringLiteral("lent to another program"));
    settle();
    QCOMPARE(fixture.attempts(board), 1);
    QCOMPARE(fixture.attempts(elsewhere), 0);
    QVERIFY(fixture.watch->takeBack(id));
    QTRY_COMPARE(fixture.timeline.last(), QStringLiteral("back MINE:1.0"));
    QCOMPARE(fixture.watch->boards().first().portName, elsewhere->portName());
    QCOMPARE(fixture.timeline.size(), 3);
}

void TestBoardWatchLend::lentUntilPluggedAgainIsBackAfterAReplug()
{
    LendFixture fixture;
    QVERIFY(fixture.watch->lend(id1, BoardWatch::UntilPluggedAgain));
    fixture.board->pull();
    QVERIFY(fixture.board->plug());
    QTRY_COMPARE(fixture.timeline, QStringList({found1, lent1, back1}));
    QVERIFY(!fixture.watch->takeBack(id1));
    // The lending is over, also for the next replug.
    fixture.board->pull();
    QTRY_COMPARE(fixture.timeline.size(), 4);
    QVERIFY(fixture.board->plug());
    QTRY_COMPARE(fixture.timeline.last(), back1);
}

void TestBoardWatchLend::lentUntilPluggedAgainIsBackAtAnotherPort()
{
    WatchFixture fixture;
    Board *const board = fixture.attach("BoardA", QStringLiteral("MINE"));
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline.size(), 1);
    QVERIFY(fixture.watch->lend(QStringLiteral("MINE:1.0"), BoardWatch::UntilPluggedAgain));
    board->pull();
    const Board *const elsewhere = fixture.attach("BoardA", QStringLiteral("MINE"));
    QTRY_COMPARE(fixture.timeline.last(), QStringLiteral("back MINE:1.0"));
    QCOMPARE(fixture.watch->boards().first().portName, elsewhere->portName());
}

void TestBoardWatchLend::takenBackWhileUnplugged()
{
    LendFixture fixture;
    QVERIFY(fixture.watch->lend(id1));
    fixture.board->pull();
    QTRY_VERIFY(fixture.watch->portReports().isEmpty());
    QVERIFY(fixture.watch->takeBack(id1));
    QVERIFY(!fixture.watch->takeBack(id1));
    QVERIFY(fixture.board->plug());
    QTRY_COMPARE(fixture.timeline, QStringList({found1, lent1, back1}));
}

void TestBoardWatchLend::takenBackWhileAnotherProgramHasThePort()
{
    LendFixture fixture;
    QVERIFY(fixture.watch->lend(id1));
    QSerialPort flasher{QSerialPortInfo(fixture.board->portName())};
    QVERIFY(flasher.open(QIODevice::ReadWrite));
    QVERIFY(fixture.watch->takeBack(id1));
    QTRY_COMPARE(fixture.report(fixture.board).error, QSerialPort::PermissionError);
    flasher.close();
    QTRY_COMPARE(fixture.timeline, QStringList({found1, lent1, back1}));
}

void TestBoardWatchLend::lentBoardStaysLentOverStopAndStart()
{
    LendFixture fixture;
    fixture.attach("BoardB");
    QTRY_COMPARE(fixture.watch->boards().size(), 2);
    QVERIFY(fixture.watch->lend(id1));
    fixture.watch->stop();
    fixture.watch->start();
    QTRY_COMPARE(fixture.report(fixture.board).errorText, QStringLiteral("lent to another program"));
    QTRY_COMPARE(fixture.watch->boards().size(), 1);
    QCOMPARE(fixture.attempts(fixture.board), 1);
    QVERIFY(fixture.watch->takeBack(id1));
    QTRY_COMPARE(fixture.watch->boards().size(), 2);
}

void TestBoardWatchLend::onlyABoardThatIsThereCanBeLent()
{
    WatchFixture fixture;
    QVERIFY(!fixture.watch->lend(id1)); // the watch is not started
    QVERIFY(!fixture.watch->takeBack(id1));
    Board *const board = fixture.attach("BoardA");
    fixture.attach("silent");
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline.size(), 1);
    QVERIFY(!fixture.watch->lend(QStringLiteral("SIM2:1.0"))); // no board answered there
    QVERIFY(!fixture.watch->lend(QStringLiteral("unknown")));
    QVERIFY(!fixture.watch->lend(QString()));
    QVERIFY(!fixture.watch->takeBack(id1)); // the board is neither lent nor released
    QVERIFY(fixture.watch->lend(id1));
    QVERIFY(!fixture.watch->lend(id1)); // the board is lent already
    QVERIFY(fixture.watch->takeBack(id1));
    QTRY_COMPARE(fixture.timeline.size(), 3);
    board->pull();
    QTRY_COMPARE(fixture.timeline.size(), 4);
    QVERIFY(!fixture.watch->lend(id1)); // the board is gone
}

void TestBoardWatchLend::otherBoardsAreNotAffected()
{
    LendFixture fixture;
    Board *const other = fixture.attach("BoardB");
    QTRY_COMPARE(fixture.timeline.size(), 2);
    QVERIFY(fixture.watch->lend(id1));
    QVERIFY(portOf(fixture.found(other))->isOpen());
    other->pull();
    QVERIFY(other->plug());
    QTRY_COMPARE(fixture.timeline.last(), QStringLiteral("back SIM2:1.0"));
    QCOMPARE(fixture.attempts(fixture.board), 1);
}

SIMULATED_PORTS_MAIN(TestBoardWatchLend)
#include "tst_boardwatch_lend.moc"

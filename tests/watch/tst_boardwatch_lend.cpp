#include "support/common/eventloop.h"
#include "support/common/simulatedportsmain.h"
#include "support/watch/usbtree.h"
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
    void otherPortOfALentBoardIsLeftAlone_data();
    void otherPortOfALentBoardIsLeftAlone();
    void otherPortIsLeftAloneBeforeTheLentPortAppears();
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
    const JwDevice::PortReport report = fixture.report(fixture.board);
    QCOMPARE(report.errorText, QStringLiteral("lent to another program"));
    QCOMPARE(report.verdict, JwDevice::PortReport::NotOpened);
    QCOMPARE(report.error, QSerialPort::NoError);
    QCOMPARE(report.type, JwDevice::Unknown);
    QCOMPARE(report.serialNumber, QStringLiteral("SIM1"));
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

void TestBoardWatchLend::otherPortOfALentBoardIsLeftAlone_data()
{
    QTest::addColumn<bool>("isSilent"); // whether the other port was asked before lend(), and did not answer
    QTest::newRow("the other port was silent") << true;
    QTest::newRow("the other port appears while the board is lent") << false;
}

void TestBoardWatchLend::otherPortOfALentBoardIsLeftAlone()
{
    QFETCH(bool, isSilent);
    WatchFixture fixture;
    const Board *const board = fixture.attach("BoardA,delay=50");
    const Board *other = nullptr;
    const auto attachOther = [&] {
        other = fixture.attach("BoardA,ignore=1", QStringLiteral("SIM1"));
        UsbTree::moveTo(other->portName(), board->portName(), QStringLiteral("1.2"));
    };
    QSerialPort holder{QSerialPortInfo(board->portName())};
    fixture.watch->setMaxRetries(0);
    if (isSilent) {
        attachOther();
        QVERIFY(holder.open(QIODevice::ReadWrite)); // so that the other port is asked first
    }
    fixture.watch->start();
    if (isSilent) {
        QTRY_COMPARE(fixture.report(other).verdict, JwDevice::PortReport::TimedOut);
        holder.close();
    }
    QTRY_COMPARE(fixture.timeline, QStringList{found1});
    QVERIFY(fixture.watch->lend(id1));
    if (!isSilent)
        attachOther();
    const int before = fixture.attempts(other);
    fixture.watch->lookAgain();
    QTRY_COMPARE(fixture.report(other).errorText,
                 QStringLiteral("not opened, because %1 of the same device is a board").arg(board->portName()));
    QVERIFY(!QTest::qWaitFor([&] { return fixture.attempts(other) != before; }, 800));
    QVERIFY(fixture.isAtRest());
    QVERIFY(fixture.watch->takeBack(id1));
    QTRY_COMPARE(fixture.timeline.last(), back1);
    QCOMPARE(fixture.attempts(other), before);
}

void TestBoardWatchLend::otherPortIsLeftAloneBeforeTheLentPortAppears()
{
    LendFixture fixture;
    QVERIFY(fixture.watch->lend(id1));
    fixture.board->pull();
    QTRY_VERIFY(fixture.watch->portReports().isEmpty());
    // The lent device is plugged in at another place. Its ports appear one by one, the other port first.
    const Board *const silent = fixture.attach("silent");
    const Board *const other = fixture.attach("BoardA", QStringLiteral("SIM1"));
    UsbTree::moveTo(other->portName(), silent->portName(), QStringLiteral("1.2"));
    QTRY_COMPARE(fixture.report(other).errorText,
                 QStringLiteral("not opened, because another port of the same device is lent"));
    const Board *const lent = fixture.attach("BoardA", QStringLiteral("SIM1"));
    QTRY_COMPARE(fixture.report(lent).errorText, QStringLiteral("lent to another program"));
    settle();
    QCOMPARE(fixture.attempts(other), 0);
    QVERIFY(fixture.watch->takeBack(id1));
    QTRY_COMPARE(fixture.timeline.last(), back1);
    QCOMPARE(fixture.watch->boards().size(), 1);
}

SIMULATED_PORTS_MAIN(TestBoardWatchLend)
#include "tst_boardwatch_lend.moc"

#include "support/common/eventloop.h"
#include "support/common/processusage.h"
#include "support/device/discardedoutput.h"
#include "support/device/otherreader.h"
#include "support/jwmonitor/finderfixture.h"
#include "support/jwmonitor/simulatedwindowmain.h"

#include <device/wholelines.h>

#include <QPointer>
#include <QSerialPort>
#include <QSignalSpy>

#include <cerrno>
#include <utility>

using namespace JwDevice;
using namespace JwMonitor;

namespace {

/// What has happened to a board's answer when stop() is called.
enum class Answer { NotSent, NotRead, NotReported };

/// Returns whether a program can open the port of `board` now.
bool canBeOpened(const JwSimulator::Board *board)
{
    QSerialPort port(board->portName());
    return port.open(QIODevice::ReadWrite);
}

} // namespace

Q_DECLARE_METATYPE(Answer)

/// Tests the rows of ports and boards in jwmonitor.
class TestFinder : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void listsThePortsBeforeTheFirstSearch();
    void findsTheWantedBoards();
    void findsAllBoardsOfAType();
    void handsOutAConnectionToEachBoard();
    void searchesUntilEveryPortHasAResult();
    void searchesNothingWithoutAPort();
    void listsPortsThatAreNotAsked();
    void asksOnlyThePortsThatAreNamed();
    void tellsOfANamedPortThatIsNotThere();
    void aPulledCableIsALostBoard();
    void anErrorThatPassesLosesNoBoard_data();
    void anErrorThatPassesLosesNoBoard();
    void aLostBoardComesBackInItsRow();
    void aBoardOnAnotherPortKeepsItsRow();
    void somethingElseOnTheLostPortIsNotLost();
    void keepsOnlyTheNewestLostBoards();
    void aBoardThatIsPluggedInLaterIsFound();
    void theDelayCountsForBoardCAlone();
    void stopGivesThePortsBack();
    void theRowsStayWhileItStopsAndStarts();
    void unsentOutputIsDiscardedWhenABoardIsLetGo_data();
    void unsentOutputIsDiscardedWhenABoardIsLetGo();
    void anAnswerThatStopOvertakesLeavesNothing_data();
    void anAnswerThatStopOvertakesLeavesNothing();
    void stopForgetsLostBoards();
    void afterStopNoPortIsAsked();
    void startAgainFindsTheSameBoards();
    void startWithinASearchFindsTheBoards();
    void aReceiverMayStartAndStop_data();
    void aReceiverMayStartAndStop();
    void canBeDeletedWhileItSearches();
};

void TestFinder::initTestCase()
{
    qRegisterMetaType<BoardLink>();
    ProcessUsage::watchObjects();
}

void TestFinder::listsThePortsBeforeTheFirstSearch()
{
    FinderFixture fixture;
    auto *board = fixture.attach("BoardA,product=a12b,serial=S1");
    QTRY_COMPARE(fixture.finder.ports().size(), 1);
    QCOMPARE(fixture.entry(board).port.usbId, QStringLiteral("0483:a12b"));
    QCOMPARE(fixture.entry(board).port.serialNumber, QStringLiteral("S1"));
    QVERIFY(fixture.entry(board).isPresent);
    QVERIFY(!fixture.entry(board).report);
    QCOMPARE(board->queryCount(), 0);
    board->pull();
    QTRY_COMPARE(fixture.finder.ports().size(), 0);
}

void TestFinder::findsTheWantedBoards()
{
    FinderFixture fixture;
    const auto *a = fixture.attach("BoardA");
    const auto *b = fixture.attach("BoardB");
    const auto *c = fixture.attach("BoardC,delay=30");
    fixture.searchToTheEnd({BoardA, BoardC}, 0);
    QCOMPARE(fixture.entry(a).stay, PortEntry::Found);
    QCOMPARE(fixture.entry(a).type, BoardA);
    QCOMPARE(fixture.entry(b).stay, PortEntry::NoBoard);
    QCOMPARE(int(fixture.entry(b).report->verdict), int(PortReport::Silenced));
    QCOMPARE(fixture.entry(c).stay, PortEntry::Found);
    QCOMPARE(fixture.entry(c).type, BoardC);
    QVERIFY(fixture.entry(c).milliseconds >= 30);
}

void TestFinder::findsAllBoardsOfAType()
{
    FinderFixture fixture;
    const auto *first = fixture.attach("BoardA");
    const auto *second = fixture.attach("BoardA,delay=50");
    QSignalSpy found(&fixture.finder, &BoardFinder::boardFound);
    fixture.searchToTheEnd({BoardA}, 0);
    QCOMPARE(found.size(), 2);
    for (const auto *board : {first, second}) {
        QCOMPARE(fixture.entry(board).stay, PortEntry::Found);
        QCOMPARE(fixture.entry(board).type, BoardA);
    }
    QVERIFY(fixture.entry(second).milliseconds >= 50);
}

void TestFinder::handsOutAConnectionToEachBoard()
{
    FinderFixture fixture;
    auto *board = fixture.attach("BoardA");
    QSignalSpy found(&fixture.finder, &BoardFinder::boardFound);
    fixture.start({BoardA});
    QTRY_COMPARE(found.size(), 1);
    const auto link = found.at(0).at(0).value<BoardLink>();
    QCOMPARE(link.port, board->portName());
    QCOMPARE(link.type, BoardA);
    QVERIFY(link.communicator);
    QSignalSpy heard(board, &JwSimulator::Board::sentenceReceived);
    link.communicator->writePayload(QStringLiteral("$PJWVER*0c\r\n"));
    QTRY_COMPARE(heard.size(), 1);
}

void TestFinder::searchesUntilEveryPortHasAResult()
{
    FinderFixture fixture;
    const auto *board = fixture.attach("BoardA");
    const auto *silent = fixture.attach("silent");
    const auto *busy = fixture.attach("BoardB,open=busy");
    QVERIFY(!fixture.finder.isSearching());
    fixture.start({BoardA, BoardB}, 0);
    QVERIFY(fixture.finder.isSearching());
    QTRY_COMPARE(fixture.entry(board).stay, PortEntry::Found);
    QVERIFY(fixture.finder.isSearching()); // because `silent` may still answer
    QCOMPARE(fixture.entry(silent).milliseconds, -1.0);
    QTRY_VERIFY(!fixture.finder.isSearching());
    QCOMPARE(int(fixture.entry(board).report->verdict), int(PortReport::HandedOver));
    QCOMPARE(int(fixture.entry(silent).report->verdict), int(PortReport::TimedOut));
    QVERIFY(fixture.entry(silent).milliseconds >= 400);
    QCOMPARE(fixture.entry(busy).report->error, QSerialPort::PermissionError);
}

void TestFinder::searchesNothingWithoutAPort()
{
    FinderFixture fixture;
    fixture.start({BoardA});
    QVERIFY(fixture.finder.isSearching());
    QTRY_VERIFY(!fixture.finder.isSearching());
    QVERIFY(fixture.finder.isStarted());
}

void TestFinder::listsPortsThatAreNotAsked()
{
    FinderFixture fixture;
    auto *board = fixture.attach("BoardA,manufacturer=FTDI,vendor=0403,product=6001,serial=F9");
    const auto *wanted = fixture.attach("BoardA");
    fixture.searchToTheEnd({BoardA}, 0);
    QCOMPARE(fixture.entry(wanted).stay, PortEntry::Found);
    QCOMPARE(fixture.entry(board).port.usbId, QStringLiteral("0403:6001"));
    QCOMPARE(fixture.entry(board).port.manufacturer, QStringLiteral("FTDI"));
    QCOMPARE(fixture.entry(board).port.serialNumber, QStringLiteral("F9"));
    QVERIFY(!fixture.entry(board).report);
    QCOMPARE(board->queryCount(), 0);
}

void TestFinder::asksOnlyThePortsThatAreNamed()
{
    FinderFixture fixture;
    auto *other = fixture.attach("BoardA");
    const auto *named = fixture.attach("BoardA,manufacturer=FTDI,vendor=0403");
    JwTools::SearchSettings settings;
    settings.types = {BoardA};
    settings.ports = QStringList{named->portName()};
    fixture.finder.start(settings);
    QTRY_COMPARE(fixture.entry(named).stay, PortEntry::Found);
    QVERIFY(!fixture.entry(other).report);
    QCOMPARE(other->queryCount(), 0);
    fixture.start({BoardA}); // no named ports any more
    QTRY_COMPARE(fixture.entry(other).stay, PortEntry::Found);
    QVERIFY(!fixture.entry(named).report);
}

void TestFinder::tellsOfANamedPortThatIsNotThere()
{
    FinderFixture fixture;
    auto *board = fixture.attach("BoardA");
    board->pull();
    JwTools::SearchSettings settings;
    settings.types = {BoardA};
    settings.ports = QStringList{board->portName()};
    fixture.finder.start(settings);
    QTRY_VERIFY(!fixture.finder.isSearching());
    QCOMPARE(fixture.finder.ports().size(), 1);
    QCOMPARE(fixture.entry(board).report->error, QSerialPort::DeviceNotFoundError);
    QVERIFY(!fixture.entry(board).isPresent);
    QVERIFY(board->plug());
    QTRY_COMPARE(fixture.entry(board).stay, PortEntry::Found);
    QCOMPARE(fixture.finder.ports().size(), 1);
}

void TestFinder::aPulledCableIsALostBoard()
{
    FinderFixture fixture;
    auto *board = fixture.attach("BoardA");
    QSignalSpy found(&fixture.finder, &BoardFinder::boardFound);
    bool isThere = false; // whether the Communicator still exists in boardLost()
    QStringList lost;
    fixture.start({BoardA}, 0);
    QTRY_COMPARE(fixture.entry(board).stay, PortEntry::Found);
    const auto communicator = found.at(0).at(0).value<BoardLink>().communicator;
    connect(&fixture.finder, &BoardFinder::boardLost, &fixture.finder, [&](const QString &port) {
        lost.append(port);
        isThere = communicator;
    });
    board->pull();
    QTRY_COMPARE(lost, QStringList{board->portName()});
    QVERIFY(isThere);
    QTRY_VERIFY(!fixture.entry(board).isPresent);
    QCOMPARE(fixture.entry(board).stay, PortEntry::Lost);
    QCOMPARE(fixture.entry(board).type, BoardA);
    QTRY_VERIFY(!communicator);
}

void TestFinder::anErrorThatPassesLosesNoBoard_data()
{
    QTest::addColumn<int>("staleError");
    QTest::addColumn<QByteArray>("held");
    QTest::newRow("ReadError") << 0 << QByteArray();
    QTest::newRow("ResourceError") << EAGAIN << QByteArray();
    QTest::newRow("while an unfinished line is held back") << EAGAIN << QByteArray("$PJWVER,7300022");
}

void TestFinder::anErrorThatPassesLosesNoBoard()
{
    QFETCH(int, staleError);
    QFETCH(QByteArray, held);
    const QByteArray reply = "$PJWVER,7300022,1,4,0*0d\r\n";
    FinderFixture fixture;
    auto *board = fixture.attach("BoardA");
    OtherReader other(QStringLiteral("/dev/") + board->portName(), staleError);
    QSignalSpy found(&fixture.finder, &BoardFinder::boardFound);
    fixture.start({BoardA}, 0);
    QTRY_COMPARE(fixture.entry(board).stay, PortEntry::Found);
    const auto link = found.at(0).at(0).value<BoardLink>();
    auto *port = qobject_cast<QSerialPort *>(link.communicator->device());
    QVERIFY(port);
    QVERIFY(held.isEmpty() || board->send(held));
    QTRY_COMPARE(qobject_cast<WholeLinesBase *>(port)->bytesReceived(), qint64(held.size()));
    int errors = 0;
    bool isResourceError = false;
    connect(port, &QSerialPort::errorOccurred, port, [&](QSerialPort::SerialPortError error) {
        ++errors;
        isResourceError |= error == QSerialPort::ResourceError;
    });
    other.start(port);
    QTRY_VERIFY(board->send(reply) && errors > 0);
    // QSerialPort finds no bytes, so it derives its error from errno, which OtherReader set to staleError
    QCOMPARE(isResourceError, staleError == EAGAIN);
    other.stop();
    QCOMPARE(fixture.entry(board).stay, PortEntry::Found);
    QVERIFY(port->isOpen());
    QSignalSpy read(link.communicator.data(), QOverload<>::of(&Communicator::readyRead));
    QVERIFY(board->send(reply.mid(held.size())));
    QTRY_VERIFY(!read.isEmpty());
    QCOMPARE(fixture.entry(board).stay, PortEntry::Found);
    QCOMPARE(found.size(), 1);
}

void TestFinder::aLostBoardComesBackInItsRow()
{
    FinderFixture fixture;
    auto *board = fixture.attach("BoardA");
    const auto *other = fixture.attach("BoardB");
    QSignalSpy found(&fixture.finder, &BoardFinder::boardFound);
    fixture.start({BoardA, BoardB}, 0);
    QTRY_COMPARE(found.size(), 2);
    const QString key = fixture.entry(board).key;
    board->pull();
    QTRY_VERIFY(!fixture.entry(board).isPresent);
    QVERIFY(board->plug());
    QTRY_COMPARE(fixture.entry(board).stay, PortEntry::Back);
    QCOMPARE(fixture.entry(board).key, key);
    QVERIFY(fixture.entry(board).isPresent);
    QCOMPARE(fixture.finder.ports().size(), 2);
    QCOMPARE(found.size(), 3);
    QVERIFY(found.at(2).at(0).value<BoardLink>().communicator);
    QTRY_COMPARE(fixture.entry(other).stay, PortEntry::Found);
    QCOMPARE(int(fixture.entry(other).report->verdict), int(PortReport::HandedOver));
}

void TestFinder::aBoardOnAnotherPortKeepsItsRow()
{
    FinderFixture fixture;
    auto *board = fixture.attach("BoardA,serial=S7");
    fixture.start({BoardA}, 0);
    QTRY_COMPARE(fixture.entry(board).stay, PortEntry::Found);
    const QString key = fixture.entry(board).key;
    QSignalSpy found(&fixture.finder, &BoardFinder::boardFound);
    QStringList keys; // of all rows, at each change
    connect(&fixture.finder, &BoardFinder::changed, &fixture.finder, [&] {
        for (const PortEntry &entry : fixture.finder.ports())
            keys.append(entry.key);
    });
    board->pull();
    QTRY_COMPARE(fixture.entry(board).stay, PortEntry::Lost);
    const auto *same = fixture.attach("BoardA,serial=S7,delay=50"); // the same board on another port
    QTRY_COMPARE(fixture.entry(same).stay, PortEntry::Back);
    QCOMPARE(found.size(), 1);
    QCOMPARE(found.at(0).at(0).value<BoardLink>().port, same->portName());
    QCOMPARE(found.at(0).at(0).value<BoardLink>().id, key);
    QCOMPARE(fixture.rows(board).size(), 0);
    keys.removeDuplicates();
    QCOMPARE(keys, QStringList{key}); // at no time was there another row
}

void TestFinder::somethingElseOnTheLostPortIsNotLost()
{
    FinderFixture fixture;
    auto *board = fixture.attach("silent");
    bool isBoard = true; // false: the device on this port no longer answers like a board
    connect(board, &JwSimulator::Board::sentenceReceived, board, [&] {
        if (isBoard)
            board->send("$PJWVER,7300022,1,4,0*0d\r\n");
    });
    fixture.start({BoardA}, 0);
    QTRY_COMPARE(fixture.entry(board).stay, PortEntry::Found);
    board->pull();
    isBoard = false;
    QTRY_COMPARE(fixture.entry(board).stay, PortEntry::Lost);
    QTRY_VERIFY(!fixture.entry(board).isPresent);
    QVERIFY(board->plug());
    QTRY_COMPARE(fixture.entry(board).stay, PortEntry::NoBoard);
    QCOMPARE(int(fixture.entry(board).report->verdict), int(PortReport::TimedOut));
    QCOMPARE(fixture.entry(board).type, Unknown);
}

void TestFinder::keepsOnlyTheNewestLostBoards()
{
    FinderFixture fixture;
    fixture.start({BoardA}, 0);
    QTRY_VERIFY(!fixture.finder.isSearching());
    auto *watch = fixture.finder.findChild<BoardWatch *>();
    Board board;
    board.type = BoardA;
    for (int i = 0; i <= BoardFinder::mostLost; ++i) {
        board.id = QString::number(i);
        board.portName = QStringLiteral("tty%1").arg(i);
        Q_EMIT watch->boardFound(board);
        board.loss = Board::CablePulled;
        Q_EMIT watch->boardLost(board);
    }
    QTRY_COMPARE(fixture.finder.ports().size(), BoardFinder::mostLost);
    QCOMPARE(fixture.finder.ports().at(0).key, QStringLiteral("1"));
}

void TestFinder::aBoardThatIsPluggedInLaterIsFound()
{
    FinderFixture fixture;
    const auto *first = fixture.attach("BoardA");
    fixture.searchToTheEnd({BoardA, BoardB}, 0);
    QSignalSpy lost(&fixture.finder, &BoardFinder::boardLost);
    const auto *late = fixture.attach("BoardB");
    QTRY_COMPARE(fixture.entry(late).stay, PortEntry::Found);
    QCOMPARE(fixture.entry(first).stay, PortEntry::Found);
    QCOMPARE(lost.size(), 0);
}

void TestFinder::theDelayCountsForBoardCAlone()
{
    FinderFixture fixture;
    const auto *board = fixture.attach("BoardB");
    JwTools::SearchSettings settings;
    settings.types = {BoardA};
    settings.retries = 0;
    settings.delay = JwTools::SearchSettings::maxDelay;
    fixture.finder.start(settings);
    QTRY_VERIFY(!fixture.finder.isSearching());
    settings.types = {BoardC};
    fixture.finder.start(settings);
    QTRY_VERIFY(fixture.entry(board).report);
    QCOMPARE(int(fixture.entry(board).report->verdict), int(PortReport::NotOpened));
    QVERIFY(fixture.finder.isSearching());
}

void TestFinder::stopGivesThePortsBack()
{
    FinderFixture fixture;
    const auto *board = fixture.attach("BoardA");
    const auto *silent = fixture.attach("silent");
    QSignalSpy lost(&fixture.finder, &BoardFinder::boardLost);
    QSignalSpy stopped(&fixture.finder, &BoardFinder::stopped);
    fixture.start({BoardA}, JwTools::SearchSettings::maxRetries);
    QTRY_COMPARE(fixture.entry(board).stay, PortEntry::Found);
    QTRY_VERIFY(fixture.entry(silent).report);
    QVERIFY(!canBeOpened(board));
    QVERIFY(!canBeOpened(silent));
    fixture.finder.stop();
    QVERIFY(canBeOpened(board));
    QVERIFY(canBeOpened(silent));
    QCOMPARE(lost.size(), 1);
    QCOMPARE(stopped.size(), 1);
    QVERIFY(!fixture.finder.isStarted());
    QVERIFY(!fixture.finder.isSearching());
    QCOMPARE(fixture.entry(board).stay, PortEntry::NoBoard);
    QVERIFY(!fixture.entry(board).report);
    QVERIFY(fixture.entry(silent).isOver);
    QCOMPARE(int(fixture.entry(silent).report->verdict), int(PortReport::Awaiting));
    fixture.finder.stop();
    QCOMPARE(stopped.size(), 1);
}

void TestFinder::theRowsStayWhileItStopsAndStarts()
{
    FinderFixture fixture;
    const auto *board = fixture.attach("BoardA");
    QTRY_COMPARE(fixture.finder.ports().size(), 1);
    auto fewest = fixture.finder.ports().size();
    connect(&fixture.finder, &BoardFinder::changed, &fixture.finder,
            [&] { fewest = std::min(fewest, fixture.finder.ports().size()); });
    fixture.start({BoardA}, 0);
    QTRY_COMPARE(fixture.entry(board).stay, PortEntry::Found);
    fixture.finder.stop();
    QSignalSpy changed(&fixture.finder, &BoardFinder::changed);
    QTRY_VERIFY(changed.size() > 0);
    fixture.start({BoardA}, 0);
    QTRY_COMPARE(fixture.entry(board).stay, PortEntry::Found);
    QCOMPARE(fewest, 1);
}

void TestFinder::unsentOutputIsDiscardedWhenABoardIsLetGo_data()
{
    QTest::addColumn<bool>("isLost");
    QTest::newRow("by stop()") << false;
    QTest::newRow("because its cable is pulled") << true;
}

void TestFinder::unsentOutputIsDiscardedWhenABoardIsLetGo()
{
    QFETCH(bool, isLost);
    FinderFixture fixture;
    auto *board = fixture.attach("BoardA");
    QSignalSpy found(&fixture.finder, &BoardFinder::boardFound);
    fixture.start({BoardA}, 0);
    QTRY_COMPARE(found.size(), 1);
    const auto communicator = found.at(0).at(0).value<BoardLink>().communicator;
    const auto descriptor = static_cast<int>(qobject_cast<QSerialPort *>(communicator->device())->handle());
    discardedOutput.clear();
    if (isLost) {
        board->pull();
        QTRY_COMPARE(fixture.entry(board).stay, PortEntry::Lost);
    } else {
        fixture.finder.stop();
    }
    QCOMPARE(discardedOutput, QVector<int>{descriptor});
}

void TestFinder::anAnswerThatStopOvertakesLeavesNothing_data()
{
    QTest::addColumn<Answer>("answer");
    QTest::newRow("the board answers after stop()") << Answer::NotSent;
    QTest::newRow("the answer is not read yet") << Answer::NotRead;
    QTest::newRow("the answer is read, but the board is not reported yet") << Answer::NotReported;
}

void TestFinder::anAnswerThatStopOvertakesLeavesNothing()
{
    QFETCH(Answer, answer);
    FinderFixture fixture;
    auto *board = fixture.attach("silent");
    QSignalSpy heard(board, &JwSimulator::Board::sentenceReceived);
    QSignalSpy found(&fixture.finder, &BoardFinder::boardFound);
    int handedOver = 0;
    connect(&fixture.finder, &BoardFinder::portEvent, &fixture.finder, [&](const PortEvent &event) {
        if (event.kind != PortEvent::HandedOver)
            return;
        ++handedOver;
        QMetaObject::invokeMethod(&fixture.finder, &BoardFinder::stop, Qt::QueuedConnection);
    });
    QList<qsizetype> objects; // number of existing QObjects after each search
    // The first search also creates objects that the process keeps, so only the second search must leave no object.
    for (int search = 1; search <= 2; ++search) {
        heard.clear();
        fixture.start({BoardA}, JwTools::SearchSettings::maxRetries);
        QTRY_VERIFY(!heard.isEmpty());
        if (answer == Answer::NotSent)
            fixture.finder.stop();
        QVERIFY(board->send("$PJWVER,7300022,1,4,0*0d\r\n"));
        if (answer == Answer::NotRead)
            fixture.finder.stop();
        QTRY_VERIFY(!fixture.finder.isStarted());
        settle();
        QCOMPARE(handedOver, answer == Answer::NotReported ? search : 0);
        QCOMPARE(found.size(), 0);
        QSerialPort port(board->portName());
        QVERIFY(port.open(QIODevice::ReadWrite));
        if (answer != Answer::NotReported)
            QVERIFY(port.waitForReadyRead(30000)); // otherwise the next search reads this answer
        port.close();
        settle();
        objects.append(ProcessUsage::now().objects);
    }
    QCOMPARE(objects.at(1), objects.at(0));
}

void TestFinder::stopForgetsLostBoards()
{
    FinderFixture fixture;
    auto *board = fixture.attach("BoardA");
    fixture.start({BoardA}, 0);
    QTRY_COMPARE(fixture.entry(board).stay, PortEntry::Found);
    board->pull();
    QTRY_COMPARE(fixture.entry(board).stay, PortEntry::Lost);
    fixture.finder.stop();
    QCOMPARE(fixture.entry(board).stay, PortEntry::NoBoard);
    QTRY_COMPARE(fixture.finder.ports().size(), 0);
}

void TestFinder::afterStopNoPortIsAsked()
{
    FinderFixture fixture;
    const auto *other = fixture.attach("silent");
    fixture.searchToTheEnd({BoardA}, 0);
    fixture.finder.stop();
    auto *board = fixture.attach("BoardA");
    QTRY_VERIFY(fixture.entry(board).isPresent);
    QVERIFY(!fixture.entry(board).report);
    QVERIFY(canBeOpened(board));
    QCOMPARE(board->queryCount(), 0);
    // The results of the search stay.
    QCOMPARE(int(fixture.entry(other).report->verdict), int(PortReport::TimedOut));
}

void TestFinder::startAgainFindsTheSameBoards()
{
    FinderFixture fixture;
    const auto *board = fixture.attach("BoardA");
    QSignalSpy found(&fixture.finder, &BoardFinder::boardFound);
    QSignalSpy lost(&fixture.finder, &BoardFinder::boardLost);
    fixture.start({BoardA});
    QTRY_COMPARE(found.size(), 1);
    fixture.start({BoardA});
    QCOMPARE(lost.size(), 1);
    QTRY_COMPARE(found.size(), 2);
    QCOMPARE(fixture.entry(board).stay, PortEntry::Found);
}

void TestFinder::startWithinASearchFindsTheBoards()
{
    FinderFixture fixture;
    const auto *slow = fixture.attach("BoardA,ignore=1");
    fixture.start({BoardA});
    QTRY_VERIFY(fixture.entry(slow).report);
    fixture.start({BoardA}, 1); // the first search has not ended
    QTRY_COMPARE(fixture.entry(slow).stay, PortEntry::Found);
}

void TestFinder::aReceiverMayStartAndStop_data()
{
    QTest::addColumn<bool>("isStart");
    QTest::addColumn<bool>("inFound");
    QTest::newRow("stop in boardFound") << false << true;
    QTest::newRow("start in boardFound") << true << true;
    QTest::newRow("stop in boardLost") << false << false;
    QTest::newRow("start in boardLost") << true << false;
}

void TestFinder::aReceiverMayStartAndStop()
{
    QFETCH(bool, isStart);
    QFETCH(bool, inFound);
    FinderFixture fixture;
    auto *first = fixture.attach("BoardA");
    const auto *second = fixture.attach("BoardA,delay=30");
    bool isDone = false;
    const auto act = [&] {
        if (std::exchange(isDone, true))
            return;
        if (isStart)
            fixture.start({BoardA}, 0);
        else
            fixture.finder.stop();
    };
    if (inFound)
        connect(&fixture.finder, &BoardFinder::boardFound, &fixture.finder, act);
    else
        connect(&fixture.finder, &BoardFinder::boardLost, &fixture.finder, act);
    fixture.start({BoardA}, 0);
    if (!inFound) {
        QTRY_COMPARE(fixture.entry(second).stay, PortEntry::Found);
        first->pull();
    }
    QTRY_VERIFY(isDone);
    if (isStart) {
        QTRY_COMPARE(fixture.entry(second).stay, PortEntry::Found);
    } else {
        QVERIFY(!fixture.finder.isStarted());
        QVERIFY(canBeOpened(second));
    }
}

void TestFinder::canBeDeletedWhileItSearches()
{
    JwSimulator::Testbed testbed;
    JwSimulator::BoardConfig config;
    config.kind = JwSimulator::BoardConfig::Kind::Silent;
    config.port = uniquePortName();
    testbed.add(config);
    auto *finder = new BoardFinder;
    JwTools::SearchSettings settings;
    settings.types = {BoardA};
    finder->start(settings);
    QTRY_VERIFY(!finder->ports().isEmpty());
    delete finder;
    QVERIFY(QSerialPort(config.port).open(QIODevice::ReadWrite));
}

SIMULATED_WINDOW_MAIN(TestFinder)
#include "tst_jwmonitor_finder.moc"

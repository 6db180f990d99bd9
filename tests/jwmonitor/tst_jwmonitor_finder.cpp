#include "support/device/discardedoutput.h"
#include "support/device/otherreader.h"
#include "support/jwmonitor/finderfixture.h"
#include "support/jwmonitor/simulatedwindowmain.h"

#include <device/initializer.h>
#include <device/wholelines.h>

#include <QEventLoop>
#include <QPointer>
#include <QSerialPort>
#include <QSignalSpy>
#include <QTimer>

#include <cerrno>

using namespace JwDevice;
using Stage = FinderFixture::Stage;

/// Tests how jwmonitor finds boards, and how jwmonitor finds a lost board again.
class TestFinder : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void findsTheWantedBoards();
    void handsOutAConnectionToEachBoard();
    void endsTheSearchOnceAllAreFound();
    void tellsWhatBecameOfEachPort();
    void listsPortsThatAreNotAsked();
    void asksOnlyThePortsThatAreNamed();
    void tellsOfANamedPortThatIsNotThere();
    void aPulledCableIsALostBoard();
    void anErrorThatPassesLosesNoBoard_data();
    void anErrorThatPassesLosesNoBoard();
    void aPortThatOnlyFailsIsLost();
    void aLostBoardComesBack();
    void aBoardThatIsBackWithinAMomentIsFound();
    void anotherBoardOfTheTypeTakesThePlace();
    void somethingElseOnTheLostPortIsNotLost();
    void theLostPortOfABoardThatIsReplacedIsForgottenWhenItComes();
    void aPortThatComesIsSearched();
    void aPortThatComesDuringASearchIsSearched();
    void aBoardThatIsNotWantedDoesNotKeepTheSearchOpen();
    void theDelayCountsForBoardCAlone();
    void stopLetsGoOfThePorts();
    void unsentOutputIsDiscardedWhenABoardIsLetGo_data();
    void unsentOutputIsDiscardedWhenABoardIsLetGo();
    void stopForgetsLostBoards();
    void stopEndsTheSearch();
    void anAnswerAfterStopIsLetGo();
    void afterStopNoSearchBeginsByItself();
    void startAgainFindsTheSameBoards();
    void startWithinASearchFindsTheBoards();
    void canBeDeletedWhileItSearches();
};

void TestFinder::initTestCase()
{
    qRegisterMetaType<JwMonitor::BoardLink>();
}

void TestFinder::findsTheWantedBoards()
{
    FinderFixture fixture;
    const auto *a = fixture.attach("BoardA");
    const auto *c = fixture.attach("BoardC,delay=30");
    fixture.start({BoardA, BoardC});
    QCOMPARE(fixture.stage(BoardA), Stage::Looking);
    QTRY_COMPARE(fixture.stage(BoardA), Stage::Found);
    QTRY_COMPARE(fixture.stage(BoardC), Stage::Found);
    QCOMPARE(fixture.finder.boards().value(BoardA).port, a->portName());
    QCOMPARE(fixture.finder.boards().value(BoardC).port, c->portName());
    QCOMPARE(fixture.entry(c).type, BoardC);
    QCOMPARE(fixture.entry(c).stay, JwMonitor::PortEntry::Found);
    QVERIFY(fixture.entry(c).milliseconds >= 30);
}

void TestFinder::handsOutAConnectionToEachBoard()
{
    FinderFixture fixture;
    auto *board = fixture.attach("BoardA");
    QSignalSpy found(&fixture.finder, &JwMonitor::BoardFinder::boardFound);
    fixture.start({BoardA});
    QTRY_COMPARE(found.size(), 1);
    const auto link = found.at(0).at(0).value<JwMonitor::BoardLink>();
    QCOMPARE(link.port, board->portName());
    QCOMPARE(link.type, BoardA);
    QVERIFY(link.communicator);
    QSignalSpy heard(board, &JwSimulator::Board::sentenceReceived);
    link.communicator->writePayload(QStringLiteral("$PJWVER*0c\r\n"));
    QTRY_COMPARE(heard.size(), 1);
}

void TestFinder::endsTheSearchOnceAllAreFound()
{
    FinderFixture fixture;
    fixture.attach("BoardA");
    const auto *silent = fixture.attach("silent");
    QSignalSpy ended(&fixture.finder, &JwMonitor::BoardFinder::searchEnded);
    fixture.start({BoardA});
    QVERIFY(fixture.finder.isSearching());
    QTRY_COMPARE(ended.size(), 1);
    QVERIFY(!fixture.finder.isSearching());
    QCOMPARE(fixture.stage(BoardA), Stage::Found);
    QCOMPARE(int(fixture.entry(silent).report->verdict),
             int(PortReport::Awaiting)); // the search ended before this port answered
}

void TestFinder::tellsWhatBecameOfEachPort()
{
    FinderFixture fixture;
    const auto *found = fixture.attach("BoardA");
    const auto *silent = fixture.attach("silent");
    const auto *second = fixture.attach("BoardA,delay=50");
    const auto *busy = fixture.attach("BoardB,open=busy");
    QSignalSpy ended(&fixture.finder, &JwMonitor::BoardFinder::searchEnded);
    fixture.start({BoardA, BoardB}, 0);
    QVERIFY(ended.wait());
    QCOMPARE(int(fixture.entry(found).report->verdict), int(PortReport::HandedOver));
    QCOMPARE(int(fixture.entry(silent).report->verdict), int(PortReport::TimedOut));
    QVERIFY(fixture.entry(silent).milliseconds >= 400);
    QCOMPARE(int(fixture.entry(second).report->verdict), int(PortReport::Duplicate));
    QCOMPARE(fixture.entry(second).type, BoardA);
    QVERIFY(fixture.entry(second).milliseconds >= 50);
    QCOMPARE(fixture.entry(busy).report->error, QSerialPort::PermissionError);
    QCOMPARE(fixture.stage(BoardB), Stage::Missing);
}

void TestFinder::listsPortsThatAreNotAsked()
{
    FinderFixture fixture;
    const auto *board = fixture.attach("BoardA,manufacturer=FTDI,vendor=0403,product=6001,serial=F9");
    fixture.start({BoardA}, 0);
    QTRY_COMPARE(fixture.entry(board).port.usbId, QStringLiteral("0403:6001"));
    QVERIFY(!fixture.entry(board).report);
    QCOMPARE(fixture.entry(board).port.manufacturer, QStringLiteral("FTDI"));
    QCOMPARE(fixture.entry(board).port.serialNumber, QStringLiteral("F9"));
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
    QTRY_COMPARE(fixture.stage(BoardA), Stage::Found);
    QCOMPARE(fixture.finder.boards().value(BoardA).port, named->portName());
    QCOMPARE(other->queryCount(), 0);
}

void TestFinder::tellsOfANamedPortThatIsNotThere()
{
    FinderFixture fixture;
    JwTools::SearchSettings settings;
    settings.types = {BoardA};
    settings.ports = QStringList{QStringLiteral("ttyNONE0")};
    // A port that does not exist has an empty name in QSerialPort, so all such ports share one lock file. Another test
    // may lock this file for a moment, so try again.
    const auto isSearched = [&] {
        fixture.finder.start(settings);
        return QTest::qWaitFor([&] { return !fixture.finder.isSearching(); }) && fixture.finder.ports().size() == 1
            && fixture.finder.ports().at(0).report->error != QSerialPort::PermissionError;
    };
    QTRY_VERIFY(isSearched());
    QCOMPARE(fixture.finder.ports().at(0).port.name, QStringLiteral("ttyNONE0"));
    QCOMPARE(fixture.finder.ports().at(0).report->error, QSerialPort::DeviceNotFoundError);
    QVERIFY(!fixture.finder.ports().at(0).isPresent);
}

void TestFinder::aPulledCableIsALostBoard()
{
    FinderFixture fixture;
    auto *board = fixture.attach("BoardA");
    QSignalSpy found(&fixture.finder, &JwMonitor::BoardFinder::boardFound);
    QSignalSpy lost(&fixture.finder, &JwMonitor::BoardFinder::boardLost);
    fixture.start({BoardA}, 0);
    QTRY_COMPARE(fixture.stage(BoardA), Stage::Found);
    const auto communicator = found.at(0).at(0).value<JwMonitor::BoardLink>().communicator;
    board->pull();
    QTRY_COMPARE(fixture.stage(BoardA), Stage::Lost);
    QCOMPARE(lost.size(), 1);
    QCOMPARE(lost.at(0).at(0).toString(), board->portName());
    QTRY_VERIFY(!communicator);
    QTRY_VERIFY(!fixture.entry(board).isPresent);
    QCOMPARE(fixture.entry(board).stay, JwMonitor::PortEntry::Lost);
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
    QSignalSpy found(&fixture.finder, &JwMonitor::BoardFinder::boardFound);
    fixture.start({BoardA}, 0);
    QTRY_COMPARE(fixture.stage(BoardA), Stage::Found);
    QTRY_VERIFY(!fixture.finder.isSearching());
    const auto link = found.at(0).at(0).value<JwMonitor::BoardLink>();
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
    QCOMPARE(fixture.stage(BoardA), Stage::Found);
    QVERIFY(port->isOpen());
    QSignalSpy read(link.communicator.data(), QOverload<>::of(&Communicator::readyRead));
    QVERIFY(board->send(reply.mid(held.size())));
    QTRY_VERIFY(!read.isEmpty());
    QCOMPARE(fixture.stage(BoardA), Stage::Found);
    QCOMPARE(found.size(), 1);
}

void TestFinder::aPortThatOnlyFailsIsLost()
{
    FinderFixture fixture;
    fixture.attach("BoardA");
    QSignalSpy found(&fixture.finder, &JwMonitor::BoardFinder::boardFound);
    QSignalSpy lost(&fixture.finder, &JwMonitor::BoardFinder::boardLost);
    fixture.start({BoardA}, 0);
    QTRY_COMPARE(found.size(), 1);
    auto *port = qobject_cast<QSerialPort *>(found.at(0).at(0).value<JwMonitor::BoardLink>().communicator->device());
    QVERIFY(port);
    int errors = 0;
    connect(port, &QSerialPort::errorOccurred, port, [&errors] { ++errors; });
    for (int i = 0; i < 100; ++i)
        port->setRequestToSend(true); // fails, because a simulated port has no RTS signal
    QVERIFY(errors >= 100);
    QCOMPARE(lost.size(), 0);
    QVERIFY(port->isOpen());
    for (int i = 0; i < 10000 && port->isOpen(); ++i)
        port->setRequestToSend(true);
    QCOMPARE(lost.size(), 1);
    QVERIFY(!port->isOpen());
}

void TestFinder::aLostBoardComesBack()
{
    FinderFixture fixture;
    auto *board = fixture.attach("BoardA");
    const auto *other = fixture.attach("BoardB");
    QSignalSpy found(&fixture.finder, &JwMonitor::BoardFinder::boardFound);
    fixture.start({BoardA, BoardB}, 0);
    QTRY_COMPARE(found.size(), 2);
    board->pull();
    QTRY_VERIFY(!fixture.entry(board).isPresent);
    QTRY_VERIFY(!fixture.finder.isSearching());
    QVERIFY(board->plug());
    QTRY_COMPARE(fixture.stage(BoardA), Stage::Back);
    QCOMPARE(fixture.entry(board).stay, JwMonitor::PortEntry::Back);
    QCOMPARE(found.size(), 3);
    QVERIFY(found.at(2).at(0).value<JwMonitor::BoardLink>().communicator);
    QCOMPARE(fixture.entry(other).stay, JwMonitor::PortEntry::Found);
    QCOMPARE(int(fixture.entry(other).report->verdict), int(PortReport::HandedOver));
}

void TestFinder::aBoardThatIsBackWithinAMomentIsFound()
{
    FinderFixture fixture;
    auto *board = fixture.attach("BoardA");
    fixture.start({BoardA}, 0);
    QTRY_COMPARE(fixture.stage(BoardA), Stage::Found);
    QTRY_VERIFY(fixture.entry(board).isPresent);
    // Repeated, because jwmonitor lists the ports between pull() and plug() only in some runs.
    for (int i = 0; i < 4; ++i) {
        QSignalSpy ended(&fixture.finder, &JwMonitor::BoardFinder::searchEnded);
        board->pull();
        QTRY_COMPARE(ended.size(), 1); // the loss of the board started a search, and this search has ended
        QVERIFY(board->plug());
        QTRY_COMPARE(fixture.stage(BoardA), Stage::Back);
    }
}

void TestFinder::anotherBoardOfTheTypeTakesThePlace()
{
    FinderFixture fixture;
    auto *first = fixture.attach("BoardA");
    const auto *second = fixture.attach("BoardA,delay=50");
    fixture.start({BoardA});
    QTRY_COMPARE(fixture.finder.boards().value(BoardA).port, first->portName());
    first->pull();
    QTRY_COMPARE(fixture.finder.boards().value(BoardA).port, second->portName());
    QVERIFY(fixture.stage(BoardA) != Stage::Lost);
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
    QTRY_COMPARE(fixture.stage(BoardA), Stage::Found);
    QTRY_VERIFY(fixture.entry(board).isPresent);
    board->pull();
    isBoard = false;
    QTRY_COMPARE(fixture.entry(board).stay, JwMonitor::PortEntry::Lost);
    QTRY_VERIFY(!fixture.entry(board).isPresent);
    QVERIFY(board->plug());
    QTRY_COMPARE(fixture.entry(board).stay, JwMonitor::PortEntry::NoBoard);
    QCOMPARE(int(fixture.entry(board).report->verdict), int(PortReport::TimedOut));
    QCOMPARE(fixture.entry(board).type, Unknown);
    QCOMPARE(fixture.stage(BoardA), Stage::Lost);
}

void TestFinder::theLostPortOfABoardThatIsReplacedIsForgottenWhenItComes()
{
    FinderFixture fixture;
    auto *first = fixture.attach("BoardA");
    const auto *second = fixture.attach("BoardA,delay=50");
    fixture.start({BoardA});
    QTRY_COMPARE(fixture.finder.boards().value(BoardA).port, first->portName());
    QTRY_VERIFY(fixture.entry(second).isPresent);
    first->pull();
    QTRY_COMPARE(fixture.finder.boards().value(BoardA).port, second->portName());
    QTRY_VERIFY(!fixture.entry(first).isPresent);
    QCOMPARE(fixture.entry(first).stay, JwMonitor::PortEntry::Lost);
    QVERIFY(first->plug());
    QTRY_VERIFY(fixture.entry(first).isPresent);
    QCOMPARE(fixture.entry(first).stay, JwMonitor::PortEntry::NoBoard);
    QCOMPARE(fixture.entry(first).type, Unknown);
}

void TestFinder::aPortThatComesIsSearched()
{
    FinderFixture fixture;
    fixture.attach("BoardA");
    fixture.start({BoardA, BoardB}, 0);
    QTRY_COMPARE(fixture.stage(BoardB), Stage::Missing);
    QTRY_VERIFY(!fixture.finder.ports().isEmpty() && fixture.finder.ports().at(0).isPresent);
    const auto *late = fixture.attach("BoardB");
    QTRY_COMPARE(fixture.stage(BoardB), Stage::Found);
    QCOMPARE(fixture.finder.boards().value(BoardB).port, late->portName());
    QCOMPARE(fixture.stage(BoardA), Stage::Found);
}

void TestFinder::aPortThatComesDuringASearchIsSearched()
{
    FinderFixture fixture;
    const auto *silent = fixture.attach("silent");
    fixture.start({BoardA}, 3);
    QTRY_VERIFY(fixture.entry(silent).isPresent);
    QVERIFY(fixture.finder.isSearching());
    fixture.attach("BoardA");
    QTRY_COMPARE(fixture.stage(BoardA), Stage::Found);
}

void TestFinder::aBoardThatIsNotWantedDoesNotKeepTheSearchOpen()
{
    FinderFixture fixture;
    const auto *board = fixture.attach("BoardB");
    QSignalSpy ended(&fixture.finder, &JwMonitor::BoardFinder::searchEnded);
    fixture.start({BoardA}, 0);
    QVERIFY(ended.wait());
    QCOMPARE(fixture.stage(BoardA), Stage::Missing);
    QCOMPARE(int(fixture.entry(board).report->verdict), int(PortReport::Silenced));
}

void TestFinder::theDelayCountsForBoardCAlone()
{
    FinderFixture fixture;
    fixture.attach("BoardB");
    QSignalSpy ended(&fixture.finder, &JwMonitor::BoardFinder::searchEnded);
    JwTools::SearchSettings settings;
    settings.types = {BoardA};
    settings.retries = 0;
    settings.delay = JwTools::SearchSettings::maxDelay;
    fixture.finder.start(settings);
    QVERIFY(ended.wait());
}

void TestFinder::stopLetsGoOfThePorts()
{
    FinderFixture fixture;
    const auto *board = fixture.attach("BoardA");
    QSignalSpy lost(&fixture.finder, &JwMonitor::BoardFinder::boardLost);
    fixture.start({BoardA});
    QTRY_COMPARE(fixture.stage(BoardA), Stage::Found);
    fixture.finder.stop();
    QCOMPARE(lost.size(), 1);
    QCOMPARE(fixture.stage(BoardA), Stage::Missing);
    QCOMPARE(fixture.entry(board).stay, JwMonitor::PortEntry::NoBoard);
    QSerialPort port(board->portName());
    QVERIFY2(port.open(QIODevice::ReadWrite), qPrintable(port.errorString()));
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
    QSignalSpy found(&fixture.finder, &JwMonitor::BoardFinder::boardFound);
    fixture.start({BoardA}, 0);
    QTRY_COMPARE(found.size(), 1);
    QTRY_VERIFY(!fixture.finder.isSearching());
    const auto communicator = found.at(0).at(0).value<JwMonitor::BoardLink>().communicator;
    const auto descriptor = static_cast<int>(qobject_cast<QSerialPort *>(communicator->device())->handle());
    discardedOutput.clear();
    if (isLost) {
        board->pull();
        QTRY_COMPARE(fixture.stage(BoardA), Stage::Lost);
    } else {
        fixture.finder.stop();
    }
    QCOMPARE(discardedOutput, QVector<int>{descriptor});
}

void TestFinder::stopForgetsLostBoards()
{
    FinderFixture fixture;
    auto *board = fixture.attach("BoardA");
    fixture.start({BoardA}, 0);
    QTRY_COMPARE(fixture.stage(BoardA), Stage::Found);
    board->pull();
    QTRY_COMPARE(fixture.stage(BoardA), Stage::Lost);
    fixture.finder.stop();
    QCOMPARE(fixture.stage(BoardA), Stage::Missing);
    QCOMPARE(fixture.entry(board).stay, JwMonitor::PortEntry::NoBoard);
}

void TestFinder::stopEndsTheSearch()
{
    FinderFixture fixture;
    const auto *silent = fixture.attach("silent");
    fixture.start({BoardA});
    QTRY_VERIFY(fixture.entry(silent).report);
    QSignalSpy ended(&fixture.finder, &JwMonitor::BoardFinder::searchEnded);
    fixture.finder.stop();
    QCOMPARE(ended.size(), 1);
    QVERIFY(!fixture.finder.isStarted());
    QTRY_VERIFY(QSerialPort(silent->portName()).open(QIODevice::ReadWrite));
}

void TestFinder::afterStopNoSearchBeginsByItself()
{
    FinderFixture fixture;
    const auto *other = fixture.attach("silent");
    fixture.start({BoardA}, 0);
    QTRY_VERIFY(!fixture.finder.isSearching());
    QTRY_VERIFY(fixture.entry(other).isPresent);
    fixture.finder.stop();
    QSignalSpy started(&fixture.finder, &JwMonitor::BoardFinder::searchStarted);
    auto *board = fixture.attach("BoardA");
    QTRY_VERIFY(fixture.entry(board).isPresent);
    QVERIFY(!started.wait(500));
    QCOMPARE(board->queryCount(), 0);
}

void TestFinder::anAnswerAfterStopIsLetGo()
{
    FinderFixture fixture;
    fixture.attach("BoardA");
    const auto *late = fixture.attach("BoardB,delay=50");
    QPointer<Communicator> lateCommunicator;
    QEventLoop window;
    // Runs inside a signal of the search; so after stop, the search still exists until this loop ends.
    QEventLoop dialog;
    connect(&fixture.finder, &JwMonitor::BoardFinder::searchStarted, &dialog, [&] {
        connect(fixture.finder.findChild<Initializer *>(), &Initializer::deviceInitialized, &dialog,
                [&](Type type, Communicator *communicator) {
                    if (type == BoardB) {
                        lateCommunicator = communicator;
                        dialog.quit();
                    }
                });
    });
    connect(&fixture.finder, &JwMonitor::BoardFinder::boardFound, &window, [&] {
        fixture.finder.stop();
        dialog.exec();
        QVERIFY(lateCommunicator);
        window.quit();
    });
    QTimer::singleShot(10000, &dialog, &QEventLoop::quit);
    fixture.start({BoardA, BoardB});
    window.exec();
    QTRY_VERIFY(!lateCommunicator);
    QVERIFY(QSerialPort(late->portName()).open(QIODevice::ReadWrite));
}

void TestFinder::startAgainFindsTheSameBoards()
{
    FinderFixture fixture;
    const auto *board = fixture.attach("BoardA");
    QSignalSpy found(&fixture.finder, &JwMonitor::BoardFinder::boardFound);
    fixture.start({BoardA});
    QTRY_COMPARE(found.size(), 1);
    fixture.start({BoardA});
    QTRY_COMPARE(found.size(), 2);
    QCOMPARE(fixture.entry(board).stay, JwMonitor::PortEntry::Found);
}

void TestFinder::startWithinASearchFindsTheBoards()
{
    FinderFixture fixture;
    const auto *slow = fixture.attach("BoardA,ignore=1");
    QSignalSpy started(&fixture.finder, &JwMonitor::BoardFinder::searchStarted);
    fixture.start({BoardA});
    QTRY_VERIFY(fixture.entry(slow).report);
    fixture.start({BoardA}, 1); // a second search, while the first one still has the port open
    QTRY_COMPARE(fixture.stage(BoardA), Stage::Found);
    QCOMPARE(started.size(), 2);
}

void TestFinder::canBeDeletedWhileItSearches()
{
    JwSimulator::Testbed testbed;
    JwSimulator::BoardConfig config;
    config.kind = JwSimulator::BoardConfig::Kind::Silent;
    config.port = uniquePortName();
    testbed.add(config);
    auto *finder = new JwMonitor::BoardFinder;
    JwTools::SearchSettings settings;
    settings.types = {BoardA};
    finder->start(settings);
    QTRY_VERIFY(!finder->ports().isEmpty());
    delete finder;
    QVERIFY(QSerialPort(config.port).open(QIODevice::ReadWrite));
}

SIMULATED_WINDOW_MAIN(TestFinder)
#include "tst_jwmonitor_finder.moc"

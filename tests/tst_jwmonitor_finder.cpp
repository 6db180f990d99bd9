#include "support/finderbench.h"
#include "support/simulatedwindowmain.h"

#include <device/initializer.h>

#include <QEventLoop>
#include <QFile>
#include <QPointer>
#include <QSerialPort>
#include <QSignalSpy>
#include <QSocketNotifier>
#include <QTimer>

#include <cerrno>

#include <fcntl.h>

using namespace JwDevice;
using Stage = FinderBench::Stage;

/// How the desktop program keeps its boards found.
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
    FinderBench bench;
    const auto *a = bench.attach("BoardA");
    const auto *c = bench.attach("BoardC,delay=30");
    bench.start({BoardA, BoardC});
    QCOMPARE(bench.stage(BoardA), Stage::Looking);
    QTRY_COMPARE(bench.stage(BoardA), Stage::Found);
    QTRY_COMPARE(bench.stage(BoardC), Stage::Found);
    QCOMPARE(bench.finder.boards().value(BoardA).port, a->portName());
    QCOMPARE(bench.finder.boards().value(BoardC).port, c->portName());
    QCOMPARE(bench.entry(c).type, BoardC);
    QCOMPARE(bench.entry(c).stay, JwMonitor::PortEntry::Found);
    QVERIFY(bench.entry(c).milliseconds >= 30);
}

void TestFinder::handsOutAConnectionToEachBoard()
{
    FinderBench bench;
    auto *board = bench.attach("BoardA");
    QSignalSpy found(&bench.finder, &JwMonitor::BoardFinder::boardFound);
    bench.start({BoardA});
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
    FinderBench bench;
    bench.attach("BoardA");
    const auto *silent = bench.attach("silent");
    QSignalSpy ended(&bench.finder, &JwMonitor::BoardFinder::searchEnded);
    bench.start({BoardA});
    QVERIFY(bench.finder.isSearching());
    QTRY_COMPARE(ended.size(), 1);
    QVERIFY(!bench.finder.isSearching());
    QCOMPARE(bench.stage(BoardA), Stage::Found);
    QCOMPARE(int(bench.entry(silent).report->verdict), int(PortReport::Awaiting)); // nobody waited for it
}

void TestFinder::tellsWhatBecameOfEachPort()
{
    FinderBench bench;
    const auto *found = bench.attach("BoardA");
    const auto *silent = bench.attach("silent");
    const auto *second = bench.attach("BoardA,delay=50");
    const auto *busy = bench.attach("BoardB,open=busy");
    QSignalSpy ended(&bench.finder, &JwMonitor::BoardFinder::searchEnded);
    bench.start({BoardA, BoardB}, 0);
    QVERIFY(ended.wait());
    QCOMPARE(int(bench.entry(found).report->verdict), int(PortReport::HandedOver));
    QCOMPARE(int(bench.entry(silent).report->verdict), int(PortReport::TimedOut));
    QVERIFY(bench.entry(silent).milliseconds >= 400);
    QCOMPARE(int(bench.entry(second).report->verdict), int(PortReport::Duplicate));
    QCOMPARE(bench.entry(second).type, BoardA);
    QVERIFY(bench.entry(second).milliseconds >= 50);
    QCOMPARE(bench.entry(busy).report->error, QSerialPort::PermissionError);
    QCOMPARE(bench.stage(BoardB), Stage::Missing);
}

void TestFinder::listsPortsThatAreNotAsked()
{
    FinderBench bench;
    const auto *board = bench.attach("BoardA,manufacturer=FTDI,vendor=0403,product=6001,serial=F9");
    bench.start({BoardA}, 0);
    QTRY_COMPARE(bench.entry(board).port.usbId, QStringLiteral("0403:6001"));
    QVERIFY(!bench.entry(board).report);
    QCOMPARE(bench.entry(board).port.manufacturer, QStringLiteral("FTDI"));
    QCOMPARE(bench.entry(board).port.serialNumber, QStringLiteral("F9"));
}

void TestFinder::asksOnlyThePortsThatAreNamed()
{
    FinderBench bench;
    auto *other = bench.attach("BoardA");
    const auto *named = bench.attach("BoardA,manufacturer=FTDI,vendor=0403");
    JwMonitor::FindSettings settings;
    settings.types = {BoardA};
    settings.ports = QStringList{named->portName()};
    bench.finder.start(settings);
    QTRY_COMPARE(bench.stage(BoardA), Stage::Found);
    QCOMPARE(bench.finder.boards().value(BoardA).port, named->portName());
    QCOMPARE(other->queryCount(), 0);
}

void TestFinder::tellsOfANamedPortThatIsNotThere()
{
    FinderBench bench;
    JwMonitor::FindSettings settings;
    settings.types = {BoardA};
    settings.ports = QStringList{QStringLiteral("ttyNONE0")};
    // All names that no port has share a lock file, which another process may have for a moment.
    const auto isSearched = [&] {
        bench.finder.start(settings);
        return QTest::qWaitFor([&] { return !bench.finder.isSearching(); }) && bench.finder.ports().size() == 1
            && bench.finder.ports().at(0).report->error != QSerialPort::PermissionError;
    };
    QTRY_VERIFY(isSearched());
    QCOMPARE(bench.finder.ports().at(0).port.name, QStringLiteral("ttyNONE0"));
    QCOMPARE(bench.finder.ports().at(0).report->error, QSerialPort::DeviceNotFoundError);
    QVERIFY(!bench.finder.ports().at(0).isPresent);
}

void TestFinder::aPulledCableIsALostBoard()
{
    FinderBench bench;
    auto *board = bench.attach("BoardA");
    QSignalSpy found(&bench.finder, &JwMonitor::BoardFinder::boardFound);
    QSignalSpy lost(&bench.finder, &JwMonitor::BoardFinder::boardLost);
    bench.start({BoardA}, 0);
    QTRY_COMPARE(bench.stage(BoardA), Stage::Found);
    const auto communicator = found.at(0).at(0).value<JwMonitor::BoardLink>().communicator;
    board->pull();
    QTRY_COMPARE(bench.stage(BoardA), Stage::Lost);
    QCOMPARE(lost.size(), 1);
    QCOMPARE(lost.at(0).at(0).toString(), board->portName());
    QTRY_VERIFY(!communicator);
    QTRY_VERIFY(!bench.entry(board).isPresent);
    QCOMPARE(bench.entry(board).stay, JwMonitor::PortEntry::Lost);
}

void TestFinder::anErrorThatPassesLosesNoBoard_data()
{
    QTest::addColumn<int>("staleError");
    QTest::newRow("ReadError") << 0;
    QTest::newRow("ResourceError") << EAGAIN;
}

void TestFinder::anErrorThatPassesLosesNoBoard()
{
    QFETCH(int, staleError);
    FinderBench bench;
    auto *board = bench.attach("BoardA");
    // Another program that reads the port, open before the search has the port for itself. Its turn comes first, when
    // the system has told both of the bytes.
    const QByteArray device = "/dev/" + board->portName().toLatin1();
    QFile other;
    QVERIFY(other.open(::open(device.constData(), O_RDONLY | O_NOCTTY | O_NONBLOCK), QIODevice::ReadOnly,
                       QFileDevice::AutoCloseHandle));
    QSocketNotifier arrival(other.handle(), QSocketNotifier::Read);
    bool isGreedy = false;
    connect(&arrival, &QSocketNotifier::activated, &other, [&] {
        if (isGreedy)
            other.readAll();
        errno = staleError;
    });
    QSignalSpy found(&bench.finder, &JwMonitor::BoardFinder::boardFound);
    bench.start({BoardA}, 0);
    QTRY_COMPARE(bench.stage(BoardA), Stage::Found);
    QTRY_VERIFY(!bench.finder.isSearching());
    const auto link = found.at(0).at(0).value<JwMonitor::BoardLink>();
    auto *port = qobject_cast<QSerialPort *>(link.communicator->device());
    QVERIFY(port);
    int errors = 0;
    bool isResourceError = false;
    connect(port, &QSerialPort::errorOccurred, port, [&](QSerialPort::SerialPortError error) {
        ++errors;
        isResourceError |= error == QSerialPort::ResourceError;
    });
    isGreedy = true;
    QTRY_VERIFY(board->send("$PJWVER,7300022,1,4,0*0d\r\n") && errors > 0);
    QCOMPARE(isResourceError, staleError == EAGAIN); // QSerialPort goes by the number that an earlier call left
    arrival.setEnabled(false);
    other.close();
    QCOMPARE(bench.stage(BoardA), Stage::Found);
    QVERIFY(port->isOpen());
    QSignalSpy read(link.communicator.data(), QOverload<>::of(&Communicator::readyRead));
    QTRY_VERIFY(board->send("$PJWVER,7300022,1,4,0*0d\r\n") && !read.isEmpty());
    QCOMPARE(bench.stage(BoardA), Stage::Found);
    QCOMPARE(found.size(), 1);
}

void TestFinder::aPortThatOnlyFailsIsLost()
{
    FinderBench bench;
    bench.attach("BoardA");
    QSignalSpy found(&bench.finder, &JwMonitor::BoardFinder::boardFound);
    QSignalSpy lost(&bench.finder, &JwMonitor::BoardFinder::boardLost);
    bench.start({BoardA}, 0);
    QTRY_COMPARE(found.size(), 1);
    auto *port = qobject_cast<QSerialPort *>(found.at(0).at(0).value<JwMonitor::BoardLink>().communicator->device());
    QVERIFY(port);
    int errors = 0;
    connect(port, &QSerialPort::errorOccurred, port, [&errors] { ++errors; });
    for (int i = 0; i < 100; ++i)
        port->setRequestToSend(true); // a simulated port has no such line
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
    FinderBench bench;
    auto *board = bench.attach("BoardA");
    const auto *other = bench.attach("BoardB");
    QSignalSpy found(&bench.finder, &JwMonitor::BoardFinder::boardFound);
    bench.start({BoardA, BoardB}, 0);
    QTRY_COMPARE(found.size(), 2);
    board->pull();
    QTRY_VERIFY(!bench.entry(board).isPresent);
    QTRY_VERIFY(!bench.finder.isSearching());
    QVERIFY(board->plug());
    QTRY_COMPARE(bench.stage(BoardA), Stage::Back);
    QCOMPARE(bench.entry(board).stay, JwMonitor::PortEntry::Back);
    QCOMPARE(found.size(), 3);
    QVERIFY(found.at(2).at(0).value<JwMonitor::BoardLink>().communicator);
    QCOMPARE(bench.entry(other).stay, JwMonitor::PortEntry::Found);
    QCOMPARE(int(bench.entry(other).report->verdict), int(PortReport::HandedOver));
}

void TestFinder::aBoardThatIsBackWithinAMomentIsFound()
{
    FinderBench bench;
    auto *board = bench.attach("BoardA");
    bench.start({BoardA}, 0);
    QTRY_COMPARE(bench.stage(BoardA), Stage::Found);
    QTRY_VERIFY(bench.entry(board).isPresent);
    for (int i = 0; i < 4; ++i) { // now and then the list of ports is looked at while the cable is out, mostly not
        QSignalSpy ended(&bench.finder, &JwMonitor::BoardFinder::searchEnded);
        board->pull();
        QTRY_COMPARE(ended.size(), 1); // the search that the loss began
        QVERIFY(board->plug());
        QTRY_COMPARE(bench.stage(BoardA), Stage::Back);
    }
}

void TestFinder::anotherBoardOfTheTypeTakesThePlace()
{
    FinderBench bench;
    auto *first = bench.attach("BoardA");
    const auto *second = bench.attach("BoardA,delay=50");
    bench.start({BoardA});
    QTRY_COMPARE(bench.finder.boards().value(BoardA).port, first->portName());
    first->pull();
    QTRY_COMPARE(bench.finder.boards().value(BoardA).port, second->portName());
    QVERIFY(bench.stage(BoardA) != Stage::Lost);
}

void TestFinder::somethingElseOnTheLostPortIsNotLost()
{
    FinderBench bench;
    auto *board = bench.attach("silent");
    bool isBoard = true; // what is plugged in next isn't
    connect(board, &JwSimulator::Board::sentenceReceived, board, [&] {
        if (isBoard)
            board->send("$PJWVER,7300022,1,4,0*0d\r\n");
    });
    bench.start({BoardA}, 0);
    QTRY_COMPARE(bench.stage(BoardA), Stage::Found);
    QTRY_VERIFY(bench.entry(board).isPresent);
    board->pull();
    isBoard = false;
    QTRY_COMPARE(bench.entry(board).stay, JwMonitor::PortEntry::Lost);
    QTRY_VERIFY(!bench.entry(board).isPresent);
    QVERIFY(board->plug());
    QTRY_COMPARE(bench.entry(board).stay, JwMonitor::PortEntry::NoBoard);
    QCOMPARE(int(bench.entry(board).report->verdict), int(PortReport::TimedOut));
    QCOMPARE(bench.entry(board).type, Unknown);
    QCOMPARE(bench.stage(BoardA), Stage::Lost);
}

void TestFinder::theLostPortOfABoardThatIsReplacedIsForgottenWhenItComes()
{
    FinderBench bench;
    auto *first = bench.attach("BoardA");
    const auto *second = bench.attach("BoardA,delay=50");
    bench.start({BoardA});
    QTRY_COMPARE(bench.finder.boards().value(BoardA).port, first->portName());
    QTRY_VERIFY(bench.entry(second).isPresent);
    first->pull();
    QTRY_COMPARE(bench.finder.boards().value(BoardA).port, second->portName());
    QTRY_VERIFY(!bench.entry(first).isPresent);
    QCOMPARE(bench.entry(first).stay, JwMonitor::PortEntry::Lost);
    QVERIFY(first->plug());
    QTRY_VERIFY(bench.entry(first).isPresent);
    QCOMPARE(bench.entry(first).stay, JwMonitor::PortEntry::NoBoard);
    QCOMPARE(bench.entry(first).type, Unknown);
}

void TestFinder::aPortThatComesIsSearched()
{
    FinderBench bench;
    bench.attach("BoardA");
    bench.start({BoardA, BoardB}, 0);
    QTRY_COMPARE(bench.stage(BoardB), Stage::Missing);
    QTRY_VERIFY(!bench.finder.ports().isEmpty() && bench.finder.ports().at(0).isPresent);
    const auto *late = bench.attach("BoardB");
    QTRY_COMPARE(bench.stage(BoardB), Stage::Found);
    QCOMPARE(bench.finder.boards().value(BoardB).port, late->portName());
    QCOMPARE(bench.stage(BoardA), Stage::Found);
}

void TestFinder::aPortThatComesDuringASearchIsSearched()
{
    FinderBench bench;
    const auto *silent = bench.attach("silent");
    bench.start({BoardA}, 3);
    QTRY_VERIFY(bench.entry(silent).isPresent);
    QVERIFY(bench.finder.isSearching());
    bench.attach("BoardA");
    QTRY_COMPARE(bench.stage(BoardA), Stage::Found);
}

void TestFinder::aBoardThatIsNotWantedDoesNotKeepTheSearchOpen()
{
    FinderBench bench;
    const auto *board = bench.attach("BoardB");
    QSignalSpy ended(&bench.finder, &JwMonitor::BoardFinder::searchEnded);
    bench.start({BoardA}, 0);
    QVERIFY(ended.wait());
    QCOMPARE(bench.stage(BoardA), Stage::Missing);
    QCOMPARE(int(bench.entry(board).report->verdict), int(PortReport::Silenced));
}

void TestFinder::theDelayCountsForBoardCAlone()
{
    FinderBench bench;
    bench.attach("BoardB");
    QSignalSpy ended(&bench.finder, &JwMonitor::BoardFinder::searchEnded);
    JwMonitor::FindSettings settings;
    settings.types = {BoardA};
    settings.retries = 0;
    settings.delay = JwMonitor::FindSettings::maxDelay;
    bench.finder.start(settings);
    QVERIFY(ended.wait());
}

void TestFinder::stopLetsGoOfThePorts()
{
    FinderBench bench;
    const auto *board = bench.attach("BoardA");
    QSignalSpy lost(&bench.finder, &JwMonitor::BoardFinder::boardLost);
    bench.start({BoardA});
    QTRY_COMPARE(bench.stage(BoardA), Stage::Found);
    bench.finder.stop();
    QCOMPARE(lost.size(), 1);
    QCOMPARE(bench.stage(BoardA), Stage::Missing);
    QCOMPARE(bench.entry(board).stay, JwMonitor::PortEntry::NoBoard);
    QSerialPort port(board->portName());
    QVERIFY2(port.open(QIODevice::ReadWrite), qPrintable(port.errorString()));
}

void TestFinder::stopForgetsLostBoards()
{
    FinderBench bench;
    auto *board = bench.attach("BoardA");
    bench.start({BoardA}, 0);
    QTRY_COMPARE(bench.stage(BoardA), Stage::Found);
    board->pull();
    QTRY_COMPARE(bench.stage(BoardA), Stage::Lost);
    bench.finder.stop();
    QCOMPARE(bench.stage(BoardA), Stage::Missing);
    QCOMPARE(bench.entry(board).stay, JwMonitor::PortEntry::NoBoard);
}

void TestFinder::stopEndsTheSearch()
{
    FinderBench bench;
    const auto *silent = bench.attach("silent");
    bench.start({BoardA});
    QTRY_VERIFY(bench.entry(silent).report);
    QSignalSpy ended(&bench.finder, &JwMonitor::BoardFinder::searchEnded);
    bench.finder.stop();
    QCOMPARE(ended.size(), 1);
    QVERIFY(!bench.finder.isStarted());
    QTRY_VERIFY(QSerialPort(silent->portName()).open(QIODevice::ReadWrite));
}

void TestFinder::afterStopNoSearchBeginsByItself()
{
    FinderBench bench;
    const auto *other = bench.attach("silent");
    bench.start({BoardA}, 0);
    QTRY_VERIFY(!bench.finder.isSearching());
    QTRY_VERIFY(bench.entry(other).isPresent);
    bench.finder.stop();
    QSignalSpy started(&bench.finder, &JwMonitor::BoardFinder::searchStarted);
    auto *board = bench.attach("BoardA");
    QTRY_VERIFY(bench.entry(board).isPresent);
    QVERIFY(!started.wait(500));
    QCOMPARE(board->queryCount(), 0);
}

void TestFinder::anAnswerAfterStopIsLetGo()
{
    FinderBench bench;
    bench.attach("BoardA");
    const auto *late = bench.attach("BoardB,delay=50");
    QPointer<Communicator> lateCommunicator;
    QEventLoop window;
    QEventLoop dialog; // the search that was ended lives on until the window leaves it
    connect(&bench.finder, &JwMonitor::BoardFinder::searchStarted, &dialog, [&] {
        connect(bench.finder.findChild<Initializer *>(), &Initializer::deviceInitialized, &dialog,
                [&](Type type, Communicator *communicator) {
                    if (type == BoardB) {
                        lateCommunicator = communicator;
                        dialog.quit();
                    }
                });
    });
    connect(&bench.finder, &JwMonitor::BoardFinder::boardFound, &window, [&] {
        bench.finder.stop();
        dialog.exec();
        QVERIFY(lateCommunicator);
        window.quit();
    });
    QTimer::singleShot(10000, &dialog, &QEventLoop::quit);
    bench.start({BoardA, BoardB});
    window.exec();
    QTRY_VERIFY(!lateCommunicator);
    QVERIFY(QSerialPort(late->portName()).open(QIODevice::ReadWrite));
}

void TestFinder::startAgainFindsTheSameBoards()
{
    FinderBench bench;
    const auto *board = bench.attach("BoardA");
    QSignalSpy found(&bench.finder, &JwMonitor::BoardFinder::boardFound);
    bench.start({BoardA});
    QTRY_COMPARE(found.size(), 1);
    bench.start({BoardA});
    QTRY_COMPARE(found.size(), 2);
    QCOMPARE(bench.entry(board).stay, JwMonitor::PortEntry::Found);
}

void TestFinder::startWithinASearchFindsTheBoards()
{
    FinderBench bench;
    const auto *slow = bench.attach("BoardA,ignore=1");
    QSignalSpy started(&bench.finder, &JwMonitor::BoardFinder::searchStarted);
    bench.start({BoardA});
    QTRY_VERIFY(bench.entry(slow).report);
    bench.start({BoardA}, 1); // the first search still had the port open
    QTRY_COMPARE(bench.stage(BoardA), Stage::Found);
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
    JwMonitor::FindSettings settings;
    settings.types = {BoardA};
    finder->start(settings);
    QTRY_VERIFY(!finder->ports().isEmpty());
    delete finder;
    QVERIFY(QSerialPort(config.port).open(QIODevice::ReadWrite));
}

SIMULATED_WINDOW_MAIN(TestFinder)
#include "tst_jwmonitor_finder.moc"

#include "support/common/eventloop.h"
#include "support/common/simulatedportsmain.h"
#include "support/watch/watchfixture.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QTest>
#include <QTimer>

#include <string>

using JwDevice::BoardWatch;
using JwDevice::Communicator;
using JwSimulator::Board;

namespace {

using Condition = std::function<bool()>;
using Wait = bool (*)(const Condition &done);

constexpr int longest = 10000; // ms; a longer wait fails

/// Waits in an event loop, like a dialog.
bool inEventLoop(const Condition &done)
{
    QEventLoop loop;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (done())
            loop.quit();
    });
    poll.start(1);
    QTimer::singleShot(longest, &loop, [&loop] { loop.exit(1); });
    return loop.exec() == 0;
}

/// Waits with processEvents() instead of an event loop, like a long calculation that still lets its window react.
bool byProcessEvents(const Condition &done)
{
    QTimer poll;
    poll.start(1);
    QElapsedTimer clock;
    clock.start();
    while (!done()) {
        if (clock.hasExpired(longest))
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
    }
    return true;
}

/// Returns a condition that is true some time after `done`, so that the watch has deleted what it deletes later.
Condition andThenSomeTime(const Condition &done)
{
    const auto clock = std::make_shared<QElapsedTimer>();
    return [done, clock] {
        if (!clock->isValid() && done())
            clock->start();
        return clock->isValid() && clock->hasExpired(60);
    };
}

/// A watch with two boards. Once, the receiver of a signal does something hostile to one of them, the subject.
struct Play
{
    using Act = std::function<void(Play &play)>;

    void act()
    {
        if (std::exchange(isActed, true))
            return;
        const QPointer<QSerialPort> port(newest.communicator ? portOf(newest) : nullptr);
        hostile(*this);
        isPortDeleted = !port;
        isOver = true;
    }
    bool isThere(const Board *which) const { return fixture.watch && !fixture.found(which).id.isEmpty(); }
    bool areBothThere() const { return isThere(subject) && isThere(other); }
    /// Pulls the subject's cable and waits until the watch has noticed it.
    bool pull(Wait wait)
    {
        subject->pull();
        return wait(andThenSomeTime([this] { return !isThere(subject); }));
    }
    bool plug(Wait wait)
    {
        return (subject->isPlugged() || subject->plug()) && wait(andThenSomeTime([this] { return isThere(subject); }));
    }
    Communicator *communicator() const { return fixture.found(subject).communicator; }

    Act hostile;
    WatchFixture fixture;
    Board *subject = nullptr;
    Board *other = nullptr;
    JwDevice::Board newest; // the subject, as the newest signal described it
    bool isActed = false;
    bool isOver = false; // whether the hostile receiver has returned
    bool isPortDeleted = false; // whether the subject's port was deleted before the hostile receiver returned
};

/// Makes a signal happen, and calls play.act() in a receiver of this signal.
using Trigger = void (*)(Play &play);

void attachSubject(Play &play)
{
    play.subject = play.fixture.attach("BoardA");
}

void findBoth(Play &play)
{
    attachSubject(play);
    QVERIFY(inEventLoop([&] { return play.areBothThere(); }));
    play.newest = play.fixture.found(play.subject);
}

void inBoardFound(Play &play)
{
    play.fixture.onFound = [&play](const JwDevice::Board &board) {
        play.newest = board;
        play.act();
    };
    attachSubject(play);
}

void inBoardLost(Play &play)
{
    findBoth(play);
    play.fixture.onLost = [&play](const JwDevice::Board &board) {
        play.newest = board;
        play.act();
    };
    play.subject->pull();
}

void inBoardBack(Play &play)
{
    findBoth(play);
    play.fixture.onBack = [&play](const JwDevice::Board &board) {
        play.newest = board;
        play.act();
    };
    play.subject->pull();
    QVERIFY(play.subject->plug());
}

void inPortsChanged(Play &play)
{
    findBoth(play);
    QVERIFY(inEventLoop([&] { return play.fixture.changes > 0; }));
    settle();
    play.fixture.onChange = [&play] { play.act(); };
    play.fixture.attach("silent");
}

void inReadyReadOfTheCommunicator(Play &play)
{
    findBoth(play);
    QObject::connect(play.communicator(), qOverload<uint>(&Communicator::readyRead), [&play] { play.act(); });
    QVERIFY(play.subject->send("$ONE*00\r\n"));
}

void inTransferred(Play &play)
{
    findBoth(play);
    QObject::connect(play.communicator(), &Communicator::transferred, [&play] { play.act(); });
    // This payload is longer than a query of the watch. Otherwise the Communicator could emit transferred() when the
    // port has written the query.
    play.communicator()->writePayload(QStringLiteral("$TO,THE,BOARD,A*00\r\n"));
}

void inReadyReadOfThePort(Play &play)
{
    findBoth(play);
    QObject::connect(portOf(play.newest), &QSerialPort::readyRead, [&play] { play.act(); });
    QVERIFY(play.subject->send("$ONE*00\r\n"));
}

void inBytesWrittenOfThePort(Play &play)
{
    findBoth(play);
    QObject::connect(portOf(play.newest), &QSerialPort::bytesWritten, [&play] { play.act(); });
    play.communicator()->writePayload(QStringLiteral("$TO*00\r\n"));
}

void inErrorOccurredOfThePort(Play &play)
{
    findBoth(play);
    QObject::connect(portOf(play.newest), &QSerialPort::errorOccurred, [&play] { play.act(); });
    play.subject->pull();
}

void deleteTheWatch(Play &play)
{
    delete play.fixture.watch;
}

void deleteTheCommunicator(Play &play)
{
    delete play.newest.communicator;
}

void deleteThePortLater(Play &play)
{
    portOf(play.newest)->deleteLater();
}

void deleteThePortLaterAndWait(Play &play)
{
    const QPointer<QSerialPort> port(portOf(play.newest));
    port->deleteLater();
    inEventLoop(andThenSomeTime([] { return true; }));
}

void stop(Play &play)
{
    play.fixture.watch->stop();
}

void stopAndStart(Play &play)
{
    play.fixture.watch->stop();
    play.fixture.watch->start();
}

void stopAndWait(Play &play)
{
    play.fixture.watch->stop();
    QVERIFY(inEventLoop(andThenSomeTime([] { return true; })));
}

void restartAndWait(Play &play)
{
    stopAndStart(play);
    play.subject->plug();
    QVERIFY(inEventLoop(andThenSomeTime([&] { return play.areBothThere(); })));
}

void lend(Play &play)
{
    play.fixture.watch->lend(play.newest.id);
}

void lendAndTakeBack(Play &play)
{
    play.fixture.watch->lend(play.newest.id);
    play.fixture.watch->takeBack(play.newest.id);
    play.subject->plug();
    QVERIFY(inEventLoop(andThenSomeTime([&] { return play.isThere(play.subject); })));
}

template <Wait wait>
void pullAndWait(Play &play)
{
    QVERIFY(play.pull(wait));
}

template <Wait wait>
void replugAndWait(Play &play)
{
    QVERIFY(play.pull(wait));
    QVERIFY(play.plug(wait));
}

template <Wait wait>
void deleteTheWatchAndWait(Play &play)
{
    delete play.fixture.watch;
    QVERIFY(wait(andThenSomeTime([] { return true; })));
}

struct NamedTrigger
{
    const char *name;
    Trigger trigger;
    bool isInPortSignal; // whether the receiver runs inside a signal that the port emits
};

struct NamedAct
{
    const char *name;
    void (*act)(Play &play);
};

const NamedTrigger triggers[] = {
    {"boardFound", inBoardFound, false},
    {"boardLost", inBoardLost, false},
    {"boardBack", inBoardBack, false},
    {"portsChanged", inPortsChanged, false},
    {"Communicator::readyRead", inReadyReadOfTheCommunicator, true},
    {"Communicator::transferred", inTransferred, true},
    {"QSerialPort::readyRead", inReadyReadOfThePort, true},
    {"QSerialPort::bytesWritten", inBytesWrittenOfThePort, true},
    {"QSerialPort::errorOccurred", inErrorOccurredOfThePort, true},
};

const NamedAct acts[] = {
    {"delete the watch", deleteTheWatch},
    {"delete the watch, run an event loop", deleteTheWatchAndWait<inEventLoop>},
    {"delete the watch, process events", deleteTheWatchAndWait<byProcessEvents>},
    {"delete the Communicator", deleteTheCommunicator},
    {"delete the port later", deleteThePortLater},
    {"delete the port later, run an event loop", deleteThePortLaterAndWait},
    {"stop", stop},
    {"stop, run an event loop", stopAndWait},
    {"stop and start", stopAndStart},
    {"stop and start, run an event loop", restartAndWait},
    {"lend", lend},
    {"lend, take back, run an event loop", lendAndTakeBack},
    {"run an event loop in which the cable is pulled", pullAndWait<inEventLoop>},
    {"run an event loop in which the cable is pulled and put back", replugAndWait<inEventLoop>},
    {"process events while the cable is pulled", pullAndWait<byProcessEvents>},
    {"process events while the cable is pulled and put back", replugAndWait<byProcessEvents>},
};

} // namespace

Q_DECLARE_METATYPE(Trigger)
Q_DECLARE_METATYPE(Play::Act)

class TestBoardWatchHostile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void receiverMayDoAsItLikes_data();
    void receiverMayDoAsItLikes();
    void boardLostOfEachBoardComesAlthoughAReceiverStartsAgain();
    void watchDeletedAtTheFirstOfSeveralLosses();
    void candidateRuleMayStopTheWatch();
    void candidateRuleMayDeleteTheWatch();
    void candidateRuleMayStartTheWatchWithAnotherRule();
    void candidateRuleMayRunAnEventLoop();
    void stopReportsABoardWhoseCommunicatorAReceiverDeleted();
    void stopReportsABoardThatIsPulledDuringAReceiver();
    void deletedPortReleasesABoardWhoseCommunicatorHasAnotherParent();
};

void TestBoardWatchHostile::receiverMayDoAsItLikes_data()
{
    QTest::addColumn<Trigger>("trigger");
    QTest::addColumn<bool>("isInPortSignal");
    QTest::addColumn<Play::Act>("hostile");
    for (const NamedTrigger &trigger : triggers) {
        for (const NamedAct &act : acts)
            QTest::addRow("%s: %s", trigger.name, act.name)
                << trigger.trigger << trigger.isInPortSignal << Play::Act(act.act);
    }
}

void TestBoardWatchHostile::receiverMayDoAsItLikes()
{
    QFETCH(Trigger, trigger);
    QFETCH(bool, isInPortSignal);
    QFETCH(Play::Act, hostile);
    Play play;
    play.hostile = hostile;
    play.other = play.fixture.attach("BoardB");
    play.fixture.watch->start();
    QVERIFY(inEventLoop([&] { return play.isThere(play.other); }));
    trigger(play);
    QVERIFY(inEventLoop([&] { return play.isOver; }));
    // Qt would use the deleted port when the signal returns. AddressSanitizer can't see that, because Qt is not built
    // with it.
    QVERIFY(!isInPortSignal || !play.isPortDeleted);
    QVERIFY(play.subject->isPlugged() || play.subject->plug());

    if (!play.fixture.watch) {
        QVERIFY(inEventLoop(andThenSomeTime([] { return true; })));
        QVERIFY(canBeOpened(play.subject));
        QVERIFY(canBeOpened(play.other));
        return;
    }
    // Whatever the receiver did: after start() and takeBack(), the watch has both boards again.
    play.fixture.watch->start();
    QVERIFY(inEventLoop(andThenSomeTime([] { return true; })));
    play.fixture.watch->takeBack(QStringLiteral("SIM2:1.0"));
    QVERIFY(inEventLoop(andThenSomeTime([&] { return play.areBothThere(); })));
    QString payload;
    QVERIFY(play.subject->send("$TWO*00\r\n"));
    QVERIFY(inEventLoop(
        [&] { return play.communicator()->readPayload(payload) && payload == QLatin1String("$TWO*00\r\n"); }));
}

void TestBoardWatchHostile::boardLostOfEachBoardComesAlthoughAReceiverStartsAgain()
{
    WatchFixture fixture;
    for (int i = 0; i < 4; ++i)
        fixture.attach("BoardA");
    fixture.watch->start();
    QVERIFY(inEventLoop([&] { return fixture.watch->boards().size() == 4; }));
    fixture.onLost = [&](const JwDevice::Board &) { fixture.watch->start(); };
    fixture.watch->stop();
    QCOMPARE(fixture.lost.size(), 4);
    QVERIFY(fixture.watch->isStarted());
    QVERIFY(inEventLoop([&] { return fixture.watch->boards().size() == 4; }));
}

void TestBoardWatchHostile::watchDeletedAtTheFirstOfSeveralLosses()
{
    WatchFixture fixture;
    for (int i = 0; i < 4; ++i)
        fixture.attach("BoardA");
    fixture.watch->start();
    QVERIFY(inEventLoop([&] { return fixture.watch->boards().size() == 4; }));
    fixture.onLost = [&](const JwDevice::Board &) { delete fixture.watch; };
    fixture.watch->stop();
    QCOMPARE(fixture.lost.size(), 1);
    const auto boards = fixture.testbed.boards();
    for (const Board *const board : boards)
        QVERIFY(canBeOpened(board));
}

void TestBoardWatchHostile::candidateRuleMayStopTheWatch()
{
    WatchFixture fixture;
    fixture.attach("BoardA");
    fixture.attach("BoardA");
    int calls = 0;
    fixture.watch->setCandidateRule([&](const QSerialPortInfo &) {
        fixture.watch->stop();
        return ++calls > 0;
    });
    fixture.watch->start();
    settle();
    QCOMPARE(calls, 1);
    QVERIFY(!fixture.watch->isStarted());
    QVERIFY(fixture.timeline.isEmpty());
    fixture.watch->setCandidateRule({});
    fixture.watch->start();
    QVERIFY(inEventLoop([&] { return fixture.watch->boards().size() == 2; }));
}

void TestBoardWatchHostile::candidateRuleMayDeleteTheWatch()
{
    WatchFixture fixture;
    fixture.attach("BoardA");
    fixture.attach("BoardA");
    int calls = 0;
    fixture.watch->setCandidateRule([&](const QSerialPortInfo &) {
        delete fixture.watch;
        return ++calls > 0;
    });
    fixture.watch->start();
    settle();
    QCOMPARE(calls, 1);
    QVERIFY(!fixture.watch);
}

void TestBoardWatchHostile::candidateRuleMayStartTheWatchWithAnotherRule()
{
    WatchFixture fixture;
    fixture.attach("BoardA");
    fixture.attach("BoardA");
    const std::string text(100, 'x'); // the rule has a copy, so AddressSanitizer reports if a deleted rule is used
    fixture.watch->setCandidateRule([&fixture, text](const QSerialPortInfo &) {
        fixture.watch->setCandidateRule({});
        fixture.watch->stop();
        fixture.watch->start();
        return text.empty();
    });
    fixture.watch->start();
    QVERIFY(inEventLoop([&] { return fixture.watch->boards().size() == 2; }));
}

void TestBoardWatchHostile::candidateRuleMayRunAnEventLoop()
{
    WatchFixture fixture;
    Board *const first = fixture.attach("BoardA");
    fixture.attach("BoardA");
    bool isNested = false;
    fixture.watch->setCandidateRule([&](const QSerialPortInfo &) {
        if (std::exchange(isNested, true))
            return true;
        first->pull();
        return inEventLoop([&] { return fixture.watch->boards().size() == 1; });
    });
    fixture.watch->start();
    QVERIFY(inEventLoop([&] { return isNested && fixture.watch->boards().size() == 1; }));
    QVERIFY(inEventLoop(andThenSomeTime([] { return true; })));
    // The watch must not use the list that it began before the pull, because that list contains the first board's port.
    QCOMPARE(fixture.watch->portReports().size(), 1);
    QCOMPARE(fixture.attempts(first), 0);
}

void TestBoardWatchHostile::stopReportsABoardWhoseCommunicatorAReceiverDeleted()
{
    WatchFixture fixture;
    fixture.attach("BoardA");
    fixture.attach("BoardB");
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boards().size(), 2);
    const QPointer<Communicator> other = fixture.watch->boards().at(1).communicator;
    fixture.onLost = [&](const JwDevice::Board &) { delete other; };
    fixture.stop();
    QCOMPARE(fixture.timeline.mid(2),
             QStringList({QStringLiteral("lost SIM1:1.0 stopped"), QStringLiteral("lost SIM2:1.0 released")}));
}

void TestBoardWatchHostile::stopReportsABoardThatIsPulledDuringAReceiver()
{
    WatchFixture fixture;
    fixture.attach("BoardA");
    Board *const other = fixture.attach("BoardB");
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boards().size(), 2);
    bool isReported = false;
    fixture.onLost = [&](const JwDevice::Board &) {
        if (!other->isPlugged())
            return;
        other->pull();
        isReported = inEventLoop([&] { return fixture.lost.size() == 2; });
    };
    fixture.stop();
    QVERIFY(isReported);
    QCOMPARE(fixture.timeline.mid(2),
             QStringList({QStringLiteral("lost SIM1:1.0 stopped"), QStringLiteral("lost SIM2:1.0 cablePulled")}));
}

void TestBoardWatchHostile::deletedPortReleasesABoardWhoseCommunicatorHasAnotherParent()
{
    WatchFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    QObject window;
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boards().size(), 1);
    const JwDevice::Board found = fixture.found(board);
    portOf(found)->deleteLater();
    found.communicator->setParent(&window);
    QTRY_COMPARE(fixture.timeline.last(), QStringLiteral("lost SIM1:1.0 released"));
    fixture.watch->checkBoards();
    QVERIFY(fixture.watch->takeBack(found.id));
    QTRY_COMPARE(fixture.timeline.last(), QStringLiteral("back SIM1:1.0"));
}

SIMULATED_PORTS_MAIN(TestBoardWatchHostile)
#include "tst_boardwatch_hostile.moc"

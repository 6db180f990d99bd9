// Causes every fault in every state in which a BoardWatch can have a port. The table in docs/testing.md shows what must
// happen. After each fault the process must be idle and use no more resources than before, and the watch must find the
// board again. tst_boardwatch_hostile tests what receivers of the signals may do.
#include "support/common/faultcell.h"
#include "support/common/simulatedportsmain.h"
#include "support/watch/sleepyboard.h"
#include "support/watch/usbtree.h"

#include <device/boardrules.h>

#include <QSerialPortInfo>
#include <QTest>

#include <memory>

#include <fcntl.h>

using JwDevice::BoardWatch;
using JwDevice::PortReport;

namespace {

constexpr int anHour = 3600 * 1000;
constexpr int patience = 20000; // ms

/// What the watch does with the port when the fault happens.
enum class State {
    Due, // not probed yet
    Delayed, // the probe waits before it opens the port
    Awaiting, // the board was asked
    Retry, // the board was asked again
    Ready, // the board is there
    Asked, // the board is there, but does not answer a check
    Rejected, // no board answered
    Waiting, // another program uses the port, and the watch tries again after pauses
    Silent, // the board was lost because it did not answer; the port is probed again and again
    Lent, // lend() closed the port
    Released, // the application deleted the Communicator
    OtherPort, // the board is on another port of the device
    NeverOpened, // the application excluded the port
    Stopped, // the watch is stopped
};

enum class Fault {
    Pulled, // the cable is pulled
    Renamed, // the cable is pulled, and the board appears under another port name
    Denied, // the system takes the permission away
    Flood, // the board sends many payloads
    EndlessLine, // the board sends a text without line end
    ReadsFail, // the open port can no longer be read
    Stop, // the application calls stop()
    Restart, // the application calls stop() and start()
    DeleteWatch, // the application deletes the watch
};

template <typename Value>
struct Named
{
    const char *name;
    Value value;
};

const Named<State> states[] = {
    {"due", State::Due},
    {"delayed", State::Delayed},
    {"awaiting", State::Awaiting},
    {"asked again", State::Retry},
    {"ready", State::Ready},
    {"checked", State::Asked},
    {"rejected", State::Rejected},
    {"busy", State::Waiting},
    {"silent", State::Silent},
    {"lent", State::Lent},
    {"released", State::Released},
    {"other port", State::OtherPort},
    {"never opened", State::NeverOpened},
    {"stopped", State::Stopped},
};

const Named<Fault> faults[] = {
    {"pulled", Fault::Pulled},
    {"renamed", Fault::Renamed},
    {"permission lost", Fault::Denied},
    {"flood", Fault::Flood},
    {"line without end", Fault::EndlessLine},
    {"reads fail", Fault::ReadsFail},
    {"stop", Fault::Stop},
    {"stop and start", Fault::Restart},
    {"watch deleted", Fault::DeleteWatch},
};

bool isOpen(State state)
{
    return state == State::Awaiting || state == State::Retry || state == State::Ready || state == State::Asked;
}

/// The signals that a fault must cause for the board.
QStringList signalsOf(State state, Fault fault)
{
    const bool isThere = state == State::Ready || state == State::Asked;
    const bool wasThere = isThere || state == State::Silent || state == State::Released || state == State::Lent;
    // While the watch is stopped or never opens the port, or while the board is lent, nobody looks for the board.
    const bool isSought = state != State::Stopped && state != State::NeverOpened && state != State::Lent
        && state != State::Due && state != State::Delayed;
    const QString back = wasThere ? QStringLiteral("back") : QStringLiteral("found");
    QStringList expected;
    switch (fault) {
    case Fault::Pulled:
    case Fault::Renamed:
        if (isThere)
            expected << QStringLiteral("lost cablePulled");
        if (fault == Fault::Renamed && isSought)
            expected << back;
        break;
    case Fault::Denied:
        if (state == State::Asked) // the open port still works, but this board does not answer
            expected << QStringLiteral("lost noAnswer");
        break;
    case Fault::ReadsFail:
        if (isThere)
            expected << QStringLiteral("lost portFailed") << back;
        break;
    case Fault::Stop:
    case Fault::Restart:
        if (isThere)
            expected << QStringLiteral("lost stopped");
        if (fault == Fault::Restart && state != State::OtherPort && state != State::Waiting
            && (isSought || state == State::Stopped))
            expected << QStringLiteral("found");
        break;
    case Fault::Flood:
    case Fault::EndlessLine:
    case Fault::DeleteWatch:
        break;
    }
    return expected;
}

QString nodeOf(const QString &portName)
{
    return QFile::decodeName(qgetenv("UMOCKDEV_DIR")) + QStringLiteral("/dev/") + portName;
}

/// Returns the descriptor with which this process has opened the port, or -1.
int descriptorOf(const QString &portName)
{
    const QString target = QFile::symLinkTarget(nodeOf(portName));
    const QStringList numbers = QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::System | QDir::Files);
    for (const QString &number : numbers) {
        const int descriptor = number.toInt();
        // The simulator has opened the port too, but not with O_NONBLOCK.
        if (QFile::symLinkTarget(QStringLiteral("/proc/self/fd/") + number) == target
            && (::fcntl(descriptor, F_GETFL) & O_NONBLOCK) != 0)
            return descriptor;
    }
    return -1;
}

/// Nobody can open the port while this object exists.
class DeniedPort
{
public:
    explicit DeniedPort(const QString &portName)
        : m_node(nodeOf(portName))
        , m_target(QFile::symLinkTarget(m_node))
    {
        setTarget(QStringLiteral("/proc/sys/kernel/ostype")); // a file that not even root can open for writing
    }
    ~DeniedPort()
    {
        setTarget(m_target);
        // A failed open() takes one of umockdev's few places for open ports; close(-1) frees these places.
        ::close(-1);
    }
    DeniedPort(const DeniedPort &) = delete;
    DeniedPort &operator=(const DeniedPort &) = delete;

private:
    void setTarget(const QString &target) { QVERIFY(QFile::remove(m_node) && QFile::link(target, m_node)); }

    const QString m_node;
    const QString m_target;
};

/// A watch that has the port of a board in a given state.
class WatchInState
{
public:
    explicit WatchInState(State state)
        : m_state(state)
    {
        m_other.board->pull();
    }

    void enter();
    void cause(Fault fault);
    /// Undoes the fault and the state. Then the watch must find the board.
    void verifyThatTheBoardIsFound();

    /// Returns the signals for the board since the last call of forget(), without its id.
    QStringList signalsOfBoard() const
    {
        QStringList texts;
        for (const QString &line : fixture.timeline) {
            QStringList words = line.split(QLatin1Char(' '));
            if (words.takeAt(1).startsWith(m_board.board->config().serial + QLatin1Char(':')))
                texts << words.join(QLatin1Char(' '));
        }
        return texts;
    }

    WatchFixture fixture;

private:
    QString id() const { return m_board.board->config().serial + QStringLiteral(":1.0"); }
    QString portName() const { return m_board.board->portName(); }
    bool isThere() const
    {
        return !fixture.found(m_board.board).id.isEmpty() || !fixture.found(m_other.board).id.isEmpty();
    }
    void find()
    {
        fixture.watch->start();
        QTRY_VERIFY_WITH_TIMEOUT(isThere(), patience);
    }
    void restart()
    {
        fixture.stop();
        fixture.watch->start();
    }

    const State m_state;
    SleepyBoard m_board{fixture};
    SleepyBoard m_other{fixture, "silent", m_board.board->config().serial}; // the board's other port
    std::unique_ptr<QSerialPort> m_holder; // keeps the port busy
    std::unique_ptr<DeniedPort> m_denied;
};

void WatchInState::enter()
{
    BoardWatch *const watch = fixture.watch;
    m_board.isAwake = false;
    switch (m_state) {
    case State::Due:
        watch->setTypes({});
        watch->start();
        QTRY_COMPARE(watch->portReports().size(), 1);
        break;
    case State::Delayed:
        watch->setDelay(anHour);
        watch->start();
        QTRY_COMPARE(watch->portReports().size(), 1);
        settle();
        QCOMPARE(fixture.attempts(m_board.board), 0);
        break;
    case State::Awaiting:
    case State::Retry:
        watch->setMaxRetries(1000);
        watch->start();
        QTRY_COMPARE(m_board.queries, m_state == State::Awaiting ? 1 : 2);
        break;
    case State::Rejected:
        watch->setMaxRetries(0);
        watch->start();
        QTRY_COMPARE(fixture.report(m_board.board).verdict, PortReport::TimedOut);
        QTRY_VERIFY(fixture.isAtRest());
        break;
    case State::Waiting:
        m_holder = std::make_unique<QSerialPort>(QSerialPortInfo(portName()));
        QVERIFY(m_holder->open(QIODevice::ReadWrite));
        closeWhenItFails(m_holder.get());
        watch->start();
        QTRY_COMPARE(fixture.attempts(m_board.board), 2);
        break;
    case State::OtherPort: {
        JwSimulator::Board *const first = fixture.attach("BoardA");
        UsbTree::moveTo(portName(), first->portName(), QStringLiteral("1.2"));
        watch->start();
        QTRY_VERIFY(!fixture.found(first).id.isEmpty());
        QTRY_VERIFY(fixture.report(m_board.board).errorText.contains(QLatin1String("of the same device")));
        break;
    }
    case State::NeverOpened:
        watch->setNeverOpened({m_board.board->config().serial});
        watch->start();
        QTRY_COMPARE(watch->portReports().size(), 1);
        break;
    case State::Stopped:
        break;
    case State::Ready:
    case State::Asked:
    case State::Silent:
    case State::Lent:
    case State::Released:
        m_board.isAwake = true;
        find();
        break;
    }
    m_board.isAwake = m_state == State::Ready;
    if (m_state == State::Asked || m_state == State::Silent) {
        const int before = m_board.queries;
        watch->checkBoards();
        QTRY_COMPARE(m_board.queries, before + 1);
    }
    if (m_state == State::Silent)
        QTRY_COMPARE(m_board.queries, 3); // the watch probes the port again
    if (m_state == State::Lent)
        QVERIFY(watch->lend(id()));
    if (m_state == State::Released) {
        delete fixture.found(m_board.board).communicator;
        QTRY_COMPARE(fixture.lost.size(), 1);
    }
    settle();
    fixture.timeline.clear();
}

void WatchInState::cause(Fault fault)
{
    switch (fault) {
    case Fault::Pulled:
        m_board.board->pull();
        break;
    case Fault::Renamed:
        m_board.board->pull();
        QVERIFY(m_other.board->plug());
        break;
    case Fault::Denied:
        m_denied = std::make_unique<DeniedPort>(portName());
        break;
    case Fault::Flood:
        QVERIFY(m_board.board->send(QByteArray("$FLOOD*00\r\n").repeated(20000)));
        break;
    case Fault::EndlessLine:
        QVERIFY(m_board.board->send(QByteArray(200000, 'x')));
        break;
    case Fault::ReadsFail: {
        QVERIFY(leaveOnly(O_WRONLY, descriptorOf(portName())));
        m_board.isAwake = m_state == State::Ready || m_state == State::Asked;
        QVERIFY(m_board.board->send("$ANY*00\r\n"));
        break;
    }
    case Fault::Stop:
        fixture.stop();
        break;
    case Fault::Restart:
        m_board.isAwake = m_state != State::OtherPort;
        restart();
        break;
    case Fault::DeleteWatch:
        delete fixture.watch;
        break;
    }
}

void WatchInState::verifyThatTheBoardIsFound()
{
    m_holder.reset();
    m_denied.reset();
    if (!m_board.board->isPlugged() && !m_other.board->isPlugged())
        QVERIFY(m_board.board->plug());
    JwSimulator::Board *const plugged = m_board.board->isPlugged() ? m_board.board : m_other.board;
    if (!fixture.watch) {
        QTRY_VERIFY(canBeOpened(plugged));
        return;
    }
    m_board.isAwake = true;
    if (m_state == State::OtherPort) { // the board gets a device of its own
        plugged->pull();
        QVERIFY(plugged->plug());
    }
    fixture.watch->takeBack(id());
    fixture.watch->setTypes(JwDevice::boardTypes());
    fixture.watch->setDelay(0);
    fixture.watch->setMaxRetries(1000); // because bytes of a flood may come before the answer
    fixture.watch->setNeverOpened({});
    restart();
    QTRY_VERIFY_WITH_TIMEOUT(isThere(), patience);
    QTRY_VERIFY_WITH_TIMEOUT(fixture.isAtRest(), patience);
}

} // namespace

Q_DECLARE_METATYPE(State)
Q_DECLARE_METATYPE(Fault)

class TestWatchFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { ProcessUsage::watchObjects(); }
    void faultInEachStateOfAPort_data();
    void faultInEachStateOfAPort();
    void pageHasTheTableOfThisTest();
};

void TestWatchFaults::faultInEachStateOfAPort_data()
{
    QTest::addColumn<State>("state");
    QTest::addColumn<Fault>("fault");
    for (const auto &state : states) {
        for (const auto &fault : faults) {
            if (fault.value != Fault::ReadsFail || isOpen(state.value)) // only an open port is read
                QTest::addRow("%s, %s", fault.name, state.name) << state.value << fault.value;
        }
    }
}

void TestWatchFaults::faultInEachStateOfAPort()
{
    QFETCH(State, state);
    QFETCH(Fault, fault);
    runCell([=](const IdleCheck &idle) {
        WatchInState cell(state);
        cell.enter();
        if (QTest::currentTestFailed())
            return;
        cell.cause(fault);
        if (QTest::currentTestFailed())
            return;
        QTRY_COMPARE_WITH_TIMEOUT(cell.signalsOfBoard(), signalsOf(state, fault), patience);
        idle.verify();
        QCOMPARE(cell.signalsOfBoard(), signalsOf(state, fault));
        cell.verifyThatTheBoardIsFound();
    });
}

void TestWatchFaults::pageHasTheTableOfThisTest()
{
    QFile page(QStringLiteral(PROJECT_FOLDER "/docs/testing.md"));
    QVERIFY(page.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(page.readAll());
    for (const auto &state : states) {
        QStringList cells{QLatin1String(state.name)};
        for (const auto &fault : faults) {
            const QString signalNames = signalsOf(state.value, fault.value).join(QStringLiteral(", "));
            if (fault.value == Fault::ReadsFail && !isOpen(state.value))
                cells << QString();
            else
                cells << (signalNames.isEmpty() ? QStringLiteral("-") : signalNames);
        }
        const QString row = QStringLiteral("| %1 |\n").arg(cells.join(QStringLiteral(" | ")));
        QVERIFY2(text.contains(row), qPrintable(QStringLiteral("docs/testing.md needs this row: ") + row));
    }
}

SIMULATED_PORTS_MAIN(TestWatchFaults)
#include "tst_watch_faults.moc"

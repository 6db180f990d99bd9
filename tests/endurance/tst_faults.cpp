// Causes every fault of a port in every state of a probed port. After each fault the process must be idle and use no
// more resources than before. docs/testing.md lists the faults. tst_initializer_cable and tst_initializer_ports test
// more faults.
#include "support/initializer/probefixture.h"
#include "support/common/faultcell.h"
#include "support/common/simulatedportsmain.h"
#include "support/initializer/timelinetexts.h"

#include <device/wholelines.h>

#include <QTest>
#include <QTimer>

#include <algorithm>
#include <functional>

#include <fcntl.h>
#include <unistd.h>

using JwDevice::Communicator;
using JwDevice::Initializer;
using JwDevice::Type;
using JwSimulator::Board;

namespace {

constexpr int anHour = 3600 * 1000;
constexpr int floodTimeout = 120 * 1000;

const QByteArray replyOfA = versionReply("7300022");
const QByteArray replyOfB = versionReply("7300021");

/// Returns the number of heap bytes that the journal of a simulated board uses. The journal keeps the bytes that the
/// board received and sent.
qint64 journalBytes(const Board *board)
{
    qint64 bytes = 0;
    const QList<JwSimulator::JournalEntry> journal = board->journal();
    for (const JwSimulator::JournalEntry &entry : journal)
        bytes += entry.bytes.capacity();
    return bytes;
}

/// A probe for BoardA in which one board's port is brought to a given state. A second board of another type keeps the
/// probe open. The reply timers run for an hour, so none fires during a test.
class ProbeInState
{
public:
    void enter(PortState state)
    {
        board = fixture.attach("silent");
        m_keeper = fixture.attach("silent");
        Board *const first = fixture.attach("silent");
        fixture.initializer->setMaxRetries(0);
        fixture.probe({JwDevice::BoardA});
        holdReplyTimers();
        QTRY_COMPARE(received(board), versionQuery);
        for (Board *silenced : {m_keeper, first}) {
            QVERIFY(silenced->send(replyOfB));
            QTRY_COMPARE(fixture.state(silenced), PortState::Silenced);
        }

        if (state == PortState::Duplicate) {
            QVERIFY(first->send(replyOfA));
            QTRY_COMPARE(fixture.state(first), PortState::HandedOver);
        }
        if (state == PortState::TimedOut)
            fixture.timeOut(board);
        else if (state == PortState::Silenced)
            QVERIFY(board->send(replyOfB));
        else if (state != PortState::AwaitingReply)
            QVERIFY(board->send(replyOfA));
        QTRY_COMPARE(fixture.state(board), state);

        const ProbeFixture::HandOver taken = fixture.handOver(board);
        comm = taken.comm ? taken.comm.data() : fixture.comm(board);
        port = qobject_cast<QSerialPort *>(comm->device());
        if (taken.port)
            closeWhenItFails(port);
    }

    void verifyThatTheProbeGoesOn()
    {
        const bool taken = fixture.timeline.contains(foundA);
        QVERIFY(m_keeper->send(replyOfA));
        QTRY_COMPARE(fixture.state(m_keeper), taken ? PortState::Duplicate : PortState::HandedOver);
    }

    ProbeFixture fixture;
    Board *board = nullptr;
    Communicator *comm = nullptr;
    QSerialPort *port = nullptr;

private:
    void holdReplyTimers()
    {
        const auto timers = replyTimers(*fixture.initializer);
        for (QTimer *timer : timers)
            timer->start(anHour);
    }

    Board *m_keeper = nullptr;
};

/// The test of one cell, run when the port is in the state of that cell.
using CellInState = std::function<void(ProbeInState &probe, const IdleCheck &idle)>;

void runCell(PortState state, const CellInState &cell)
{
    ::runCell([&](const IdleCheck &idle) {
        ProbeInState probe;
        probe.enter(state);
        if (!QTest::currentTestFailed())
            cell(probe, idle);
    });
}

enum class Fault { Pulled, Flood, EndlessLine };

using StateRow = QPair<const char *, PortState>;
const StateRow openStates[] = {
    {"awaiting", PortState::AwaitingReply}, {"timed out", PortState::TimedOut},  {"silenced", PortState::Silenced},
    {"handed over", PortState::HandedOver}, {"duplicate", PortState::Duplicate},
};

} // namespace

Q_DECLARE_METATYPE(Fault)

class TestFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { ProcessUsage::watchObjects(); }
    void portThatCannotBeOpenedIsReportedAndForgotten_data();
    void portThatCannotBeOpenedIsReportedAndForgotten();
    void portThatFailsIsClosedAndTheProbeGoesOn_data();
    void portThatFailsIsClosedAndTheProbeGoesOn();
    void writeThatFailsClosesThePort_data();
    void writeThatFailsClosesThePort();
    void writeThatFailsOnAPortHandedOverIsReportedByThePort();
    void floodLeavesTheStateTheStoreAndTheHeapAsTheyAre_data();
    void floodLeavesTheStateTheStoreAndTheHeapAsTheyAre();
    void lineWithoutEndIsDroppedInPartsAndTheReplyBehindItIsUnderstood_data();
    void lineWithoutEndIsDroppedInPartsAndTheReplyBehindItIsUnderstood();
    void lostPortGetsNothingFromABoardThatIsPluggedInAgain_data();
    void lostPortGetsNothingFromABoardThatIsPluggedInAgain();
    void faultAfterTheInitializerIsDestroyedReachesOnlyTheApplication_data();
    void faultAfterTheInitializerIsDestroyedReachesOnlyTheApplication();
    void allPortsAnswerInTheSameMoment();
};

void TestFaults::portThatCannotBeOpenedIsReportedAndForgotten_data()
{
    QTest::addColumn<QByteArray>("board");
    QTest::addColumn<int>("delay");
    QTest::newRow("busy, opening") << QByteArray("BoardC,open=busy") << 0;
    QTest::newRow("no permission, opening") << QByteArray("BoardC,open=denied") << 0;
    QTest::newRow("cable pulled, opening") << QByteArray("BoardC") << 1;
    QTest::newRow("no port in the system, opening") << QByteArray() << 0;
}

void TestFaults::portThatCannotBeOpenedIsReportedAndForgotten()
{
    QFETCH(QByteArray, board);
    QFETCH(int, delay);
    runCell([=](const IdleCheck &idle) {
        ProbeFixture fixture;
        Board *const attached = board.isEmpty() ? nullptr : fixture.attach(board.constData());
        QVERIFY(fixture.initializer->probe({JwDevice::BoardC}, delay));
        if (delay > 0)
            attached->pull();
        QTRY_COMPARE(fixture.decisions(), QStringList{missingC});
        // umockdev has a short list of open ports. A failed open() adds an entry for the descriptor -1 to this list,
        // and close(-1) removes the entry. Otherwise the list would become full.
        ::close(-1);
        QCOMPARE(fixture.timeline.size(), attached ? 2 : 1);
        QVERIFY(replyTimers(*fixture.initializer).isEmpty());
        idle.verify();
        QCOMPARE(fixture.timeline.size(), attached ? 2 : 1);
    });
}

void TestFaults::portThatFailsIsClosedAndTheProbeGoesOn_data()
{
    QTest::addColumn<bool>("pulled");
    QTest::addColumn<PortState>("state");
    for (const StateRow &row : openStates) {
        QTest::addRow("cable pulled, %s", row.first) << true << row.second;
        QTest::addRow("reads fail, %s", row.first) << false << row.second;
    }
}

void TestFaults::portThatFailsIsClosedAndTheProbeGoesOn()
{
    QFETCH(bool, pulled);
    QFETCH(PortState, state);
    runCell(state, [=](ProbeInState &probe, const IdleCheck &idle) {
        const QStringList timeline = probe.fixture.timeline;
        if (pulled) {
            probe.board->pull();
        } else {
            QVERIFY(leaveOnly(O_WRONLY, probe.port->handle()));
            QVERIFY(probe.board->send(replyOfA));
        }
        QTRY_VERIFY(!probe.port->isOpen());
        idle.verify();
        QCOMPARE(probe.fixture.state(probe.board), state);
        QCOMPARE(probe.fixture.timeline, timeline);
        probe.verifyThatTheProbeGoesOn();
    });
}

void TestFaults::writeThatFailsClosesThePort_data()
{
    QTest::addColumn<PortState>("state");
    QTest::newRow("writes fail, awaiting") << PortState::AwaitingReply;
    QTest::newRow("writes fail, timed out") << PortState::TimedOut;
    QTest::newRow("writes fail, duplicate") << PortState::Duplicate;
}

void TestFaults::writeThatFailsClosesThePort()
{
    QFETCH(PortState, state);
    runCell([=](const IdleCheck &idle) {
        ProbeFixture fixture;
        Board *const board = fixture.attach("silent");
        Board *const first = fixture.attach("silent");
        fixture.initializer->setMaxRetries(1);
        bool fails = false;
        if (state == PortState::AwaitingReply) {
            // The query is logged before the port sends it, so make writing fail when this record is logged.
            fixture.onRecord = [&](const LogRecord &record) {
                if (!fails && record.category == "Communication" && fixture.port(board))
                    fails = leaveOnly(O_RDONLY, fixture.port(board)->handle());
            };
        }
        fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
        fixture.onRecord = nullptr;
        QSerialPort *const port = fixture.port(board);
        for (const Board *each : {board, first})
            fixture.replyTimer(each)->start(anHour);
        if (state != PortState::AwaitingReply) {
            QTRY_COMPARE(received(board), versionQuery);
            fails = leaveOnly(O_RDONLY,
                              port->handle()); // the port can no longer write, so the query of the retry round fails
        }
        QVERIFY(fails);

        QVERIFY(first->send(replyOfA));
        QTRY_COMPARE(fixture.state(first), PortState::HandedOver);
        if (state == PortState::TimedOut)
            fixture.timeOut(board);
        else if (state == PortState::Duplicate)
            QVERIFY(board->send(replyOfA));
        QTRY_VERIFY(!port->isOpen());
        QCOMPARE(fixture.state(board), PortState::AwaitingReply);
        fixture.replyTimer(board)->start(anHour);
        idle.verify();

        while (!fixture.isOver()) {
            fixture.endReplyTimers();
            settle();
        }
        QCOMPARE(fixture.decisions(), QStringList({foundA, retry, missingB, over}));
        QCOMPARE(received(board), state == PortState::AwaitingReply ? QByteArray() : versionQuery);
    });
}

void TestFaults::writeThatFailsOnAPortHandedOverIsReportedByThePort()
{
    // This is the cell "writes fail, handed over" of the table in docs/testing.md.
    runCell(PortState::HandedOver, [](ProbeInState &probe, const IdleCheck &idle) {
        QVERIFY(leaveOnly(O_RDONLY, probe.port->handle()));
        QCOMPARE(probe.comm->writePayload(QStringLiteral("$LOST*00\r\n")), 2u); // id 2, because the query was payload 1
        QTRY_VERIFY(!probe.port->isOpen());
        idle.verify();
        probe.verifyThatTheProbeGoesOn();
    });
}

void TestFaults::floodLeavesTheStateTheStoreAndTheHeapAsTheyAre_data()
{
    QTest::addColumn<PortState>("state");
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<int>("count");
    const QByteArray noReply = "$FLOOD\r\n";
    QTest::newRow("flood, awaiting") << PortState::AwaitingReply << noReply << 50000;
    QTest::newRow("flood, timed out") << PortState::TimedOut << noReply << 50000;
    QTest::newRow("flood, silenced") << PortState::Silenced << replyOfB << 50000;
    QTest::newRow("flood, handed over") << PortState::HandedOver << noReply << 1000000;
    QTest::newRow("flood, duplicate") << PortState::Duplicate << replyOfA << 50000;
}

void TestFaults::floodLeavesTheStateTheStoreAndTheHeapAsTheyAre()
{
    QFETCH(PortState, state);
    QFETCH(QByteArray, payload);
    QFETCH(int, count);
    runCell(state, [=](ProbeInState &probe, const IdleCheck &idle) {
        constexpr int piece = 10000; // payloads that the board sends in one call
        constexpr qint64 heapChance = 600000; // allowed growth: less than one byte per payload of the longest flood
        loggerInstance()->setLevel(Logger::Fatal); // otherwise the fixture would keep millions of records
        for (QString payloadBefore; probe.comm->readPayload(payloadBefore);) { }
        int arrived = 0;
        uint lastId = 0;
        QObject::connect(probe.comm, qOverload<uint>(&Communicator::readyRead), probe.board, [&](uint id) {
            ++arrived;
            lastId = id;
        });
        const QStringList timeline = probe.fixture.timeline;
        const auto flood = [&](int payloads) {
            for (const int end = arrived + payloads; arrived < end;) {
                const int expected = arrived + piece;
                QVERIFY(probe.board->send(payload.repeated(piece)));
                QTRY_COMPARE_WITH_TIMEOUT(arrived, expected, floodTimeout);
            }
        };
        flood(piece); // lets buffers grow to their final size
        const qint64 journalBefore = journalBytes(probe.board);
        const ProcessUsage before = ProcessUsage::now();
        flood(count);
        const ProcessUsage after = ProcessUsage::now();
        const qint64 inJournal = journalBytes(probe.board) - journalBefore;
        QVERIFY2(after.heapBytes - before.heapBytes - inJournal < heapChance,
                 QByteArray::number(after.heapBytes - before.heapBytes - inJournal).constData());
        QCOMPARE(after.objects, before.objects);
        QCOMPARE(after.connections, before.connections);
        QCOMPARE(after.timers, before.timers);
        QCOMPARE(after.descriptors, before.descriptors);
        idle.verify();
        loggerInstance()->setLevel(Logger::Trace);
        QCOMPARE(probe.fixture.state(probe.board), state);
        QCOMPARE(probe.fixture.timeline, timeline);

        const bool isRead = state != PortState::HandedOver && state != PortState::Duplicate;
        QString stored;
        QVERIFY(!probe.comm->readPayload(stored, lastId - 6));
        for (uint id = lastId - 5; id != lastId + 1; ++id)
            QCOMPARE(probe.comm->readPayload(stored, id), !isRead);
        probe.verifyThatTheProbeGoesOn();
    });
}

void TestFaults::lineWithoutEndIsDroppedInPartsAndTheReplyBehindItIsUnderstood_data()
{
    QTest::addColumn<PortState>("state");
    for (const StateRow &row : openStates)
        QTest::addRow("line without end, %s", row.first) << row.second;
}

void TestFaults::lineWithoutEndIsDroppedInPartsAndTheReplyBehindItIsUnderstood()
{
    QFETCH(PortState, state);
    runCell(state, [=](ProbeInState &probe, const IdleCheck &idle) {
        loggerInstance()->setLevel(Logger::Warning);
        probe.fixture.log.sink->records.clear();
        constexpr int characters = 1000000;
        // A line without line end is offered by the port in parts of 512 bytes. When the receive buffer contains more
        // than 500 characters, it drops the oldest 450. So the number of drops can be computed.
        constexpr int taken = characters - characters % JwDevice::WholeLinesBase::longestHeld;
        constexpr int losses = 2221;
        static_assert(taken - losses * 450 <= 500 && taken - (losses - 1) * 450 > 500, "");
        const QString loss = QStringLiteral("Payload input buffer too large - truncating ...");
        QVERIFY(probe.board->send('$' + QByteArray(characters - 1, 'x')));
        QTRY_COMPARE_WITH_TIMEOUT(probe.fixture.log.sink->records.size(), losses, floodTimeout);
        QCOMPARE(probe.fixture.log.sink->withText(loss).size(), losses);
        idle.verify();
        QCOMPARE(probe.fixture.state(probe.board), state);

        loggerInstance()->setLevel(Logger::Trace);
        const bool wasListening = state != PortState::HandedOver && state != PortState::Duplicate;
        int arrived = 0;
        QObject::connect(probe.comm, qOverload<uint>(&Communicator::readyRead), probe.board, [&arrived] { ++arrived; });
        QVERIFY(probe.board->send(replyOfA));
        QTRY_COMPARE(arrived, 1);
        QCOMPARE(probe.fixture.state(probe.board), wasListening ? PortState::HandedOver : state);
        probe.verifyThatTheProbeGoesOn();
    });
}

void TestFaults::lostPortGetsNothingFromABoardThatIsPluggedInAgain_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("cable pulled, lost") << QByteArray();
    QTest::newRow("flood, lost") << replyOfA.repeated(1000);
    QTest::newRow("line without end, lost") << QByteArray(100000, 'x');
}

void TestFaults::lostPortGetsNothingFromABoardThatIsPluggedInAgain()
{
    QFETCH(QByteArray, bytes);
    runCell(PortState::AwaitingReply, [=](ProbeInState &probe, const IdleCheck &idle) {
        probe.board->pull();
        QTRY_VERIFY(!probe.port->isOpen());
        const auto records = probe.fixture.log.sink->records.size();
        QVERIFY(probe.board->plug());
        if (bytes.isEmpty())
            probe.board->pull();
        else
            QVERIFY(probe.board->send(bytes));
        idle.verify();
        QCOMPARE(probe.fixture.log.sink->records.size(), records);
        QVERIFY(!probe.port->isOpen());
        probe.fixture.timeOut(probe.board);
        QCOMPARE(probe.fixture.state(probe.board), PortState::TimedOut);
        probe.verifyThatTheProbeGoesOn();
    });
}

void TestFaults::faultAfterTheInitializerIsDestroyedReachesOnlyTheApplication_data()
{
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<PortState>("state");
    for (const StateRow &row : openStates) {
        QTest::addRow("cable pulled, closed when %s", row.first) << Fault::Pulled << row.second;
        QTest::addRow("flood, closed when %s", row.first) << Fault::Flood << row.second;
        QTest::addRow("line without end, closed when %s", row.first) << Fault::EndlessLine << row.second;
    }
}

void TestFaults::faultAfterTheInitializerIsDestroyedReachesOnlyTheApplication()
{
    QFETCH(Fault, fault);
    QFETCH(PortState, state);
    runCell(state, [=](ProbeInState &probe, const IdleCheck &idle) {
        const QPointer<Communicator> comm(probe.comm);
        const QPointer<QSerialPort> port(probe.port);
        const bool isOfTheApplication = state == PortState::HandedOver;
        delete probe.fixture.initializer;
        QCOMPARE(!comm.isNull(), isOfTheApplication);
        QCOMPARE(!port.isNull(), isOfTheApplication);
        probe.fixture.timeline.clear();
        probe.fixture.log.sink->records.clear();

        constexpr int payloads = 1000;
        if (fault == Fault::Pulled)
            probe.board->pull();
        else
            QVERIFY(probe.board->send(fault == Fault::Flood ? replyOfA.repeated(payloads) : QByteArray(payloads, 'x')));
        idle.verify();
        QCOMPARE(probe.fixture.timeline, QStringList());
        if (isOfTheApplication)
            QCOMPARE(port->isOpen(), fault != Fault::Pulled);
        else
            QVERIFY(probe.fixture.log.sink->records.isEmpty());
    });
}

void TestFaults::allPortsAnswerInTheSameMoment()
{
    runCell([=](const IdleCheck &idle) {
        constexpr int ports = JwSimulator::Testbed::maxBoards;
        ProbeFixture fixture;
        for (int i = 0; i < ports; ++i)
            fixture.attach("silent");
        const QList<Board *> boards = fixture.testbed.boards();
        fixture.initializer->setMaxRetries(0);
        fixture.probe({JwDevice::BoardA, JwDevice::BoardB, JwDevice::BoardC});
        const auto timers = replyTimers(*fixture.initializer);
        QCOMPARE(timers.size(), ports);
        for (QTimer *timer : timers)
            timer->start(anHour);
        const QByteArray query = versionQuery + informationRequest;
        for (const Board *board : boards)
            QTRY_COMPARE(received(board), query);

        const QByteArray replies[] = {replyOfA, replyOfB, informationReply("INF")};
        // No event loop runs here, so all replies are sent before the first one is read.
        for (int i = 0; i < ports; ++i)
            QVERIFY(boards[i]->send(replies[i % 3]));
        QTRY_VERIFY(fixture.isOver());
        idle.verify();

        QStringList decisions = fixture.decisions();
        QCOMPARE(decisions.takeLast(), over);
        decisions.sort();
        QCOMPARE(decisions, QStringList({foundA, foundB, foundC}));
        const auto isDuplicate = [&fixture](const Board *board) {
            return fixture.state(board) == PortState::Duplicate;
        };
        QCOMPARE(std::count_if(boards.begin(), boards.end(), isDuplicate), ports - 3);
    });
}

SIMULATED_PORTS_MAIN(TestFaults)
#include "tst_faults.moc"

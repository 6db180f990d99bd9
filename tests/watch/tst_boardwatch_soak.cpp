// Pulls a board's cable and puts it back many times in one process. Prints a table of the resources that the process
// uses after the first hundred rounds, halfway and at the end. A normal test run is short. Set this environment
// variable for a long run:
//
// JWDEVICE_SOAK_PLUGS=<n>  number of rounds
#include "support/common/environmentnumber.h"
#include "support/common/eventloop.h"
#include "support/common/portname.h"
#include "support/common/simulatedportsmain.h"
#include "support/common/soakusage.h"

#include <logger/logger.h>
#include <simulator/board.h>
#include <simulator/testbed.h>
#include <watch/boardwatch.h>

#include <QTest>

using JwDevice::BoardWatch;
using JwSimulator::Board;
using JwSimulator::BoardConfig;

namespace {

constexpr quint32 warmUp = 100;
constexpr qint64 heapChance = 200000; // allowed growth in bytes, because malloc keeps reserves of small blocks

/// A loose contact: one board comes and goes, while another stays.
class LooseContact
{
public:
    LooseContact()
        : m_board(add())
    {
        add();
        QObject::connect(&m_watch, &BoardWatch::boardFound, [this] { ++found; });
        QObject::connect(&m_watch, &BoardWatch::boardBack, [this] { ++back; });
        QObject::connect(&m_watch, &BoardWatch::boardLost, [this] { ++lost; });
        m_watch.start();
    }

    bool isComplete() const { return m_watch.boards().size() == 2; }

    /// Pulls the cable and puts it back `rounds` times. Returns false if the watch does not notice a pull or
    /// a plug.
    bool run(quint32 rounds)
    {
        for (quint32 round = 0; round < rounds; ++round) {
            m_board->pull();
            if (!runUntil([this, now = lost + 1] { return lost == now || !isComplete(); }) || !m_board->plug()
                || !runUntil([this] { return isComplete(); }))
                return false;
        }
        settle();
        // After a loss, the watch's timer for ports that can't be opened runs once more, although the port is gone.
        // Wait until this timer has ended.
        return QTest::qWaitFor([] { return ProcessUsage::now().timers == 0; });
    }

    /// Fills the journal of the board that comes and goes up to its limit, so that the journal no longer grows.
    void fillJournal()
    {
        for (int batch = 0; batch < 250; ++batch) {
            for (int payload = 0; payload < 100; ++payload)
                m_board->send("$AS,LONG,AS,A,REPLY*00\r\n");
            settle();
        }
    }

    /// Stops the watch, then pulls the cable and puts it back `rounds` times. Returns the number of heap bytes that the
    /// simulator keeps for these rounds.
    qint64 bytesOfSimulator(quint32 rounds)
    {
        m_watch.stop();
        settle();
        const qint64 before = ProcessUsage::now().heapBytes;
        for (quint32 round = 0; round < rounds; ++round) {
            m_board->pull();
            m_board->plug();
            settle();
        }
        return ProcessUsage::now().heapBytes - before;
    }

    qint64 journalBytes() const { return ::journalBytes(m_testbed); }

    quint32 found = 0;
    quint32 back = 0;
    quint32 lost = 0;

private:
    Board *add()
    {
        BoardConfig config;
        config.port = uniquePortName();
        return m_testbed.add(config);
    }

    JwSimulator::Testbed m_testbed;
    Board *const m_board;
    BoardWatch m_watch;
};

} // namespace

class TestBoardWatchSoak : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void looseContactLeavesNothingBehind();
};

void TestBoardWatchSoak::initTestCase()
{
    ProcessUsage::watchObjects();
    loggerInstance()->setLevel(Logger::Fatal);
}

void TestBoardWatchSoak::looseContactLeavesNothingBehind()
{
    const quint32 rounds = environmentNumber("JWDEVICE_SOAK_PLUGS", 300);
    LooseContact contact;
    QVERIFY(runUntil([&] { return contact.isComplete(); }));
    // The first rounds also create objects that the process keeps for good, so don't measure these rounds.
    contact.fillJournal();
    QVERIFY(contact.run(warmUp));

    const qint64 journalAtStart = contact.journalBytes();
    const ProcessUsage start = ProcessUsage::now();
    QVERIFY(contact.run(rounds / 2));
    const ProcessUsage middle = usageLike(start);
    QVERIFY(contact.run(rounds - rounds / 2));
    const ProcessUsage end = usageLike(start);
    const qint64 journalGrowth = contact.journalBytes() - journalAtStart;

    QCOMPARE(contact.found, 2u);
    QCOMPARE(contact.lost, warmUp + rounds);
    QCOMPARE(contact.back, warmUp + rounds);
    const qint64 simulatorGrowth = contact.bytesOfSimulator(warmUp) * rounds / warmUp;
    const qint64 growth = end.heapBytes - start.heapBytes - journalGrowth - simulatorGrowth;
    qInfo("%s", qPrintable(ProcessUsage::tableHead()));
    qInfo("%s", qPrintable(start.tableRow(QStringLiteral("after %1 rounds").arg(warmUp))));
    qInfo("%s", qPrintable(middle.tableRow(QStringLiteral("%1 more rounds").arg(rounds / 2))));
    qInfo("%s", qPrintable(end.tableRow(QStringLiteral("%1 more rounds").arg(rounds))));
    qInfo("heap: %lld bytes more, without %lld in the journals of the simulated boards and %lld in the simulator",
          static_cast<long long>(growth), static_cast<long long>(journalGrowth),
          static_cast<long long>(simulatorGrowth));

    QVERIFY(holdsNoMoreObjects(middle, start));
    QVERIFY(holdsNoMoreObjects(end, start));
    QVERIFY2(growth < heapChance, QByteArray::number(growth));
}

SIMULATED_PORTS_MAIN(TestBoardWatchSoak)
#include "tst_boardwatch_soak.moc"

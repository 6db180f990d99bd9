// Runs random schedules in virtual time on the real BoardWatch, with real QSerialPorts on simulated ports and the real
// monitor of libudev. A model follows each schedule and says whether what the watch does is allowed.
//
// JWDEVICE_MODEL_SCHEDULES=<n>  number of schedules (default 2000; CMakeLists.txt may set another for ctest)
// JWDEVICE_MODEL_SEED=<n>       seed of the first schedule (default 1); each next schedule has the next seed
// JWDEVICE_MODEL_TRACE=1        writes each event at once, to see the events before a crash
//
// A long run, split into parts that may run at the same time:
//   for seed in $(seq 1 10000 90001); do
//       JWDEVICE_MODEL_SEED=$seed JWDEVICE_MODEL_SCHEDULES=10000 build/release/tests/tst_watch_model || break
//   done
//
// The schedules don't contain:
// - a system without events of udev, where the watch lists the ports by a timer
// - a port that is there, but reports only errors
// - a real suspend: the application calls checkBoards() instead
// - a candidate rule, or more than four boards
#include "support/common/recordsink.h"
#include "support/model/runningseed.h"
#include "support/model/seedrows.h"
#include "support/model/virtualclock.h"
#include "support/model/watchplay.h"
#include "support/model/watchports.h"
#include "support/model/watchschedule.h"

#include <simulator/preload.h>

#include <QCoreApplication>
#include <QTest>

#include <algorithm>

namespace {

constexpr int schedulesInTestRun = 2000;
constexpr int linesShown = 60;

VirtualClock *virtualClock = nullptr;

} // namespace

class TestWatchModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void randomSchedulesKeepTheRules_data();
    void randomSchedulesKeepTheRules();
    void probeLastsAsLongAsItsRounds();

private:
    QString difference(const WatchSchedule &schedule);

    LogCapture m_silence{Logger::Fatal};
    WatchPorts m_ports;
};

/// Runs the schedule. If the watch breaks a rule, returns a text: what happened last, and the rule. Otherwise returns
/// an empty text.
QString TestWatchModel::difference(const WatchSchedule &schedule)
{
    WatchPlay play(schedule, m_ports, *virtualClock);
    const QString fault = play.run();
    if (fault.isEmpty())
        return QString();
    const QStringList trace = play.trace().mid(qMax(0, play.trace().size() - linesShown));
    return QStringLiteral("    %1\n  %2\n").arg(trace.join(QLatin1String("\n    ")), fault);
}

void TestWatchModel::randomSchedulesKeepTheRules_data()
{
    addSeedRows(schedulesInTestRun);
}

void TestWatchModel::randomSchedulesKeepTheRules()
{
    QFETCH(int, first);
    QFETCH(int, count);
    for (int i = 0; i < count; ++i) {
        const quint32 seed = static_cast<quint32>(first + i);
        runningSeed = seed;
        const WatchSchedule schedule = randomWatchSchedule(seed);
        const QString firstDifference = difference(schedule);
        if (firstDifference.isEmpty())
            continue;
        if (difference(schedule).isEmpty()) // passes the second time, so the schedule can't be shrunk
            QFAIL(qPrintable(QStringLiteral("seed %1 fails, but not every time:\n%2%3")
                                 .arg(QString::number(seed), schedule.toString(), firstDifference)));
        const WatchSchedule shortest = shortestWatchSchedule(
            schedule, [this](const WatchSchedule &candidate) { return !difference(candidate).isEmpty(); });
        QFAIL(qPrintable(QStringLiteral("seed %1 fails; its shortest form:\n%2%3")
                             .arg(QString::number(seed), shortest.toString(), difference(shortest))));
    }
}

/// The board answers in round 1501 of 2001, after ten minutes.
void TestWatchModel::probeLastsAsLongAsItsRounds()
{
    using Step = WatchSchedule::Step;
    WatchSchedule schedule;
    schedule.boards.resize(1);
    schedule.boards[0].ignores = 1500;
    schedule.settings.resize(1);
    schedule.settings[0].maxRetries = 2000;
    for (const Step::Action action : {Step::Plug, Step::Start, Step::Wait}) {
        Step step;
        step.action = action;
        step.number = action == Step::Wait ? 700000 : 0;
        schedule.steps.append(step);
    }
    const QString fault = difference(schedule);
    QVERIFY2(fault.isEmpty(), qPrintable(fault));
}

int main(int argc, char **argv)
{
    JwSimulator::ensurePreloaded(argv);
    reportSeedOnCrash();
    virtualClock = new VirtualClock;
    QCoreApplication::setEventDispatcher(virtualClock);
    QCoreApplication application(argc, argv);
    TestWatchModel test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_watch_model.moc"

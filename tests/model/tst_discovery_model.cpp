// Runs random schedules on the real Initializer with real QSerialPorts, and on a model: a second, simple
// implementation. A schedule is a list of events: boards send bytes, cables are pulled, the application acts. The
// Initializer and the model must give the same trace (record of what happened). The time is virtual, so the test does
// not wait for timers.
//
// JWDEVICE_MODEL_SCHEDULES=<n>  number of schedules (default 2000; CMakeLists.txt may set another for ctest)
// JWDEVICE_MODEL_SEED=<n>       seed of the first schedule (default 1); each next schedule has the next seed
//
// A long run, split into parts that may run at the same time:
//   for seed in $(seq 1 20000 180001); do
//       JWDEVICE_MODEL_SEED=$seed JWDEVICE_MODEL_SCHEDULES=20000 build/release/tests/tst_discovery_model || break
//   done
//
// The boards send bytes of any value in pieces. The pieces of different boards are mixed at random. They arrive in
// different turns of the event loop, some after a delay. The test also checks this rule: if a board sends only whole
// sentences of at most 50 bytes, its Communicator receives each sentence unchanged, whatever other boards send.
//
// The schedules don't contain:
// - faults other than a pulled cable and a port that can't be opened (see tst_faults)
// - a kernel that delivers one piece in several parts
// - another order of reading: if bytes wait at several ports, the ports are read in the order in which they were opened
// - an application that reads from a port itself or calls setWholeLines() (see tst_receive_model)
// - probe() in a nested event loop
// - the deletion of the Initializer in a nested event loop, except by deleteLater() or in deviceNotFound()
// - more than 8 ports
//
// The application closes a handed-over port at its first error. A schedule that gives different traces is shrunk (parts
// are removed while it still fails) and printed with its seed.
#include "support/model/discoverymodel.h"
#include "support/model/discoveryschedule.h"
#include "support/model/discoverysubject.h"
#include "support/common/recordsink.h"
#include "support/model/runningseed.h"
#include "support/model/seedrows.h"
#include "support/model/virtualclock.h"

#include <simulator/preload.h>

#include <QCoreApplication>
#include <QTest>

#include <algorithm>
#include <vector>

namespace {

constexpr int schedulesInTestRun = 2000;
constexpr int linesShown = 12;

VirtualClock *virtualClock = nullptr;

QString lines(const QStringList &trace, int from)
{
    QString text;
    for (const QString &line : trace.mid(from, linesShown))
        text += QStringLiteral("    %1\n").arg(line);
    return text;
}

} // namespace

class TestDiscoveryModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void virtualTimeRunsTimersInTheirOrder();
    void shrinksAFailingScheduleToItsShortestForm();
    void randomSchedulesGiveWhatTheModelGives_data();
    void randomSchedulesGiveWhatTheModelGives();

private:
    QString difference(const DiscoverySchedule &schedule);

    LogCapture m_silence{Logger::Warning};
    DiscoveryPorts m_ports;
};

/// Returns the first difference of the two traces. Empty if the traces are the same.
QString TestDiscoveryModel::difference(const DiscoverySchedule &schedule)
{
    DiscoverySubject subject(schedule, m_ports, *virtualClock);
    const QStringList &seen = subject.run();
    DiscoveryModel model(schedule, subject.reused());
    const QStringList &expected = model.run();
    m_silence.sink->records.clear();
    if (!subject.spoilt().isEmpty())
        return QStringLiteral("  spoilt sentences on ports that got whole sentences only: %1\n")
            .arg(subject.spoilt().join(QLatin1String(", ")));
    if (expected == seen)
        return QString();
    const auto common = std::min(expected.size(), seen.size());
    const auto at = static_cast<int>(std::mismatch(expected.begin(), expected.begin() + common, seen.begin()).first
                                     - expected.begin());
    const int before = std::max(0, at - linesShown);
    return QStringLiteral("  after\n%1  expected\n%2  but was\n%3")
        .arg(lines(seen.mid(0, at), before), lines(expected, at), lines(seen, at));
}

void TestDiscoveryModel::virtualTimeRunsTimersInTheirOrder()
{
    QStringList order;
    QObject parent;
    const auto addTimer = [&](const char *name, int milliseconds) {
        auto *const timer = new QTimer(&parent);
        timer->setSingleShot(true);
        timer->setInterval(milliseconds);
        connect(timer, &QTimer::timeout, &parent, [&order, name] { order << QLatin1String(name); });
        return timer;
    };
    QTimer *const first = addTimer("first", 400);
    QTimer *const second = addTimer("second", 400);
    QTimer *const soon = addTimer("soon", 399);
    QTimer *const late = addTimer("late", 24 * 3600 * 1000);
    for (QTimer *timer : {late, soon, second, first})
        timer->start();
    QMetaObject::invokeMethod(
        &parent, [&order] { order << QStringLiteral("posted"); }, Qt::QueuedConnection);

    const qint64 start = virtualClock->now();
    QVERIFY(virtualClock->run(400));
    QCOMPARE(virtualClock->now() - start, 400);
    QCOMPARE(order,
             QStringList() << QStringLiteral("posted") << QStringLiteral("soon") << QStringLiteral("first")
                           << QStringLiteral("second"));
    QCOMPARE(late->remainingTime(), 24 * 3600 * 1000 - 400);
    QVERIFY(virtualClock->run(24 * 3600 * 1000 - 400));
    QCOMPARE(order.last(), QStringLiteral("late"));
}

void TestDiscoveryModel::shrinksAFailingScheduleToItsShortestForm()
{
    using Step = DiscoverySchedule::Step;
    const auto sendsTwice = [](const DiscoverySchedule &schedule) {
        return std::count_if(schedule.steps.cbegin(), schedule.steps.cend(),
                             [](const Step &step) { return step.bytes.contains('$'); })
            >= 2;
    };
    quint32 seed = 1;
    while (!sendsTwice(randomSchedule(seed)))
        ++seed;
    const DiscoverySchedule shortest = shortestSchedule(randomSchedule(seed), sendsTwice);
    QCOMPARE(shortest.ports, 1);
    QCOMPARE(shortest.steps.size(), 2);
    QCOMPARE(shortest.steps[0].bytes, QByteArray("$"));
    QCOMPARE(shortest.steps[1].bytes, QByteArray("$"));
    QVERIFY(shortest.answers.value(0).isEmpty() && shortest.onInitialized.isEmpty() && shortest.onNotFound.isEmpty());
}

void TestDiscoveryModel::randomSchedulesGiveWhatTheModelGives_data()
{
    addSeedRows(schedulesInTestRun);
}

void TestDiscoveryModel::randomSchedulesGiveWhatTheModelGives()
{
    QFETCH(int, first);
    QFETCH(int, count);
    // Sort the schedules by their number of ports. Then few ports are plugged in between two schedules, and plugging in
    // a port takes much longer than running a schedule.
    std::vector<std::pair<int, quint32>> seeds;
    for (int i = 0; i < count; ++i) {
        const quint32 seed = static_cast<quint32>(first + i);
        seeds.emplace_back(randomSchedule(seed).ports, seed);
    }
    std::sort(seeds.begin(), seeds.end());
    for (const auto &[ports, seed] : seeds) {
        runningSeed = seed;
        const DiscoverySchedule schedule = randomSchedule(seed);
        const QString firstDifference = difference(schedule);
        if (firstDifference.isEmpty())
            continue;
        if (difference(schedule).isEmpty()) // passes this time; only a schedule that fails every time can be shrunk
            QFAIL(qPrintable(QStringLiteral("seed %1 fails, but not every time:\n%2%3")
                                 .arg(QString::number(seed), schedule.toString(), firstDifference)));
        const DiscoverySchedule shortest = shortestSchedule(
            schedule, [this](const DiscoverySchedule &candidate) { return !difference(candidate).isEmpty(); });
        const QString report = QStringLiteral("seed %1 fails; its shortest form:\n%2%3")
                                   .arg(QString::number(seed), shortest.toString(), difference(shortest));
        QFAIL(qPrintable(report));
    }
}

int main(int argc, char **argv)
{
    JwSimulator::ensurePreloaded(argv);
    reportSeedOnCrash();
    virtualClock = new VirtualClock;
    QCoreApplication::setEventDispatcher(virtualClock);
    QCoreApplication application(argc, argv);
    TestDiscoveryModel test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_discovery_model.moc"

#include "support/common/eventloop.h"
#include "support/common/simulatedportsmain.h"
#include "support/watch/sleepyboard.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>

namespace {

/// Sets the clock to the present time. The kernel reports that to programs in the same way as a resume. Returns false
/// if the system refuses.
bool setClock()
{
    timespec now;
    return ::clock_gettime(CLOCK_REALTIME, &now) == 0 && ::clock_settime(CLOCK_REALTIME, &now) == 0;
}

/// The number of timers of the kernel that this program has open.
int openTimers()
{
    const QDir open(QStringLiteral("/proc/self/fd"));
    int count = 0;
    for (const QString &number : open.entryList(QDir::System | QDir::Files))
        count += QFile::symLinkTarget(open.filePath(number)).endsWith(QLatin1String("anon_inode:[timerfd]"));
    return count;
}

} // namespace

class TestBoardWatchResume : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void clockSetChecksEveryBoard();
    void clockSetAfterStopDoesNothing();
};

void TestBoardWatchResume::clockSetChecksEveryBoard()
{
    WatchFixture fixture;
    SleepyBoard first(fixture);
    SleepyBoard second(fixture);
    fixture.watch->setMaxRetries(0);
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline.size(), 2);
    settle();
    for (int round = 1; round <= 2; ++round) {
        QVERIFY(setClock());
        QTRY_COMPARE(first.queries, 1 + round);
        QTRY_COMPARE(second.queries, 1 + round);
        settle(); // the watch reads the answers, which ends the check
    }
    second.isAwake = false;
    QVERIFY(setClock());
    QTRY_COMPARE(fixture.timeline.last(), QStringLiteral("lost SIM2:1.0 noAnswer"));
    QCOMPARE(fixture.timeline.size(), 3);
}

void TestBoardWatchResume::clockSetAfterStopDoesNothing()
{
    WatchFixture fixture;
    SleepyBoard sleepy(fixture);
    const int timersBefore = openTimers();
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline.size(), 1);
    QCOMPARE(openTimers(), timersBefore + 1);
    fixture.watch->stop();
    QCOMPARE(openTimers(), timersBefore); // no event of the clock wakes the program
    QVERIFY(setClock());
    settle();
    QCOMPARE(sleepy.queries, 1);
}

int main(int argc, char **argv)
{
    JwSimulator::ensurePreloaded(argv);
    // Two runs of this test at the same time would count each other's checks, because the machine has only one clock.
    // The lock ends with the program.
    const int folder = ::open(QFile::encodeName(QDir::tempPath()).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0 || ::flock(folder, LOCK_EX) != 0)
        qFatal("cannot lock %s: %s", qPrintable(QDir::tempPath()), std::strerror(errno));
    if (!setClock()) {
        constexpr int notRun = 77;
        std::printf("Left out: tst_boardwatch_resume: this system does not let this user set the clock (%s)\n",
                    std::strerror(errno));
        return notRun;
    }
    QCoreApplication application(argc, argv);
    TestBoardWatchResume test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_boardwatch_resume.moc"

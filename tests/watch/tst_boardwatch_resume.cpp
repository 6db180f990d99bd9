#include "support/common/eventloop.h"
#include "support/common/simulatedportsmain.h"
#include "support/watch/sleepyboard.h"

#include <QTest>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace {

/// Sets the clock to the present time. The kernel reports that to programs in the same way as a resume. Returns false
/// if the system refuses.
bool setClock()
{
    timespec now;
    return ::clock_gettime(CLOCK_REALTIME, &now) == 0 && ::clock_settime(CLOCK_REALTIME, &now) == 0;
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
        // Another run of this test on the machine may also set the clock. So a board may get more queries.
        const int queriesOfFirst = first.queries;
        const int queriesOfSecond = second.queries;
        QVERIFY(setClock());
        QTRY_VERIFY(first.queries > queriesOfFirst);
        QTRY_VERIFY(second.queries > queriesOfSecond);
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
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline.size(), 1);
    fixture.watch->stop();
    settle(); // the board reads what was sent before
    const int queries = sleepy.queries;
    QVERIFY(setClock());
    settle();
    QCOMPARE(sleepy.queries, queries);
}

int main(int argc, char **argv)
{
    JwSimulator::ensurePreloaded(argv);
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

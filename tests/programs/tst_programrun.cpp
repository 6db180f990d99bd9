#include "support/programs/neededprogram.h"
#include "support/programs/programrun.h"

#include <QTest>

#include <signal.h>

/// Tests ProgramRun, with which tests run programs.
class TestProgramRun : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void signalToAProgramThatHasEndedReachesNobody();
    void missingProgramNamesItsPackage();
    void presentProgramIsFound();
};

void TestProgramRun::signalToAProgramThatHasEndedReachesNobody()
{
    sigset_t blocked;
    ::sigemptyset(&blocked);
    ::sigaddset(&blocked, SIGUSR1);
    ::pthread_sigmask(SIG_BLOCK, &blocked, nullptr); // otherwise a wrongly sent SIGUSR1 would end this test
    ProgramRun run(QStringLiteral("true"), {});
    run.start();
    QVERIFY(run.finish());

    run.sendSignal(SIGUSR1);

    sigset_t pending;
    ::sigpending(&pending);
    QVERIFY(!::sigismember(&pending, SIGUSR1));
}

void TestProgramRun::missingProgramNamesItsPackage()
{
    const QString missing = missingProgram("no-such-program", "some-package");
    QVERIFY2(missing.contains(QLatin1String("no-such-program")), qPrintable(missing));
    QVERIFY2(missing.contains(QLatin1String("some-package")), qPrintable(missing));
}

void TestProgramRun::presentProgramIsFound()
{
    QCOMPARE(missingProgram("sh", "dash"), QString());
}

QTEST_GUILESS_MAIN(TestProgramRun)
#include "tst_programrun.moc"

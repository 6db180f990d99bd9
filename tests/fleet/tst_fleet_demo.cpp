#include "support/programs/neededprogram.h"
#include "support/programs/programrun.h"
#include "support/programs/terminalrun.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

/// Tests the script that "scripts/demo --fleet" calls after it has built the programs.
class TestFleetDemo : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { NEEDS_PROGRAM("mosquitto", "mosquitto"); }
    void init();
    void cleanup();

    void allMachinesAreShown();
    void terminalShowsTheTable();
    void optionsGoToJwprobe();
    void demosRunSideBySide();
    void signalEndsEverything();

private:
    QStringList command(const QStringList &options = {}) const
    {
        const QString build = QStringLiteral(JWSIM_PROGRAM).section(QStringLiteral("/simulator/"), 0, 0);
        return QStringList{QStringLiteral("TMPDIR=") + m_folder->path(),
                           QStringLiteral(PROJECT_FOLDER "/scripts/fleet"), build}
        + options;
    }
    QStringList remainingProcesses() const;

    std::unique_ptr<QTemporaryDir> m_folder;
};

void TestFleetDemo::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
}

// Returns the command lines of processes that use the folder, as the broker and the bridges do.
QStringList TestFleetDemo::remainingProcesses() const
{
    QStringList found;
    const QStringList processes = QDir(QStringLiteral("/proc")).entryList({QStringLiteral("[0-9]*")}, QDir::Dirs);
    for (const QString &process : processes) {
        QFile file(QStringLiteral("/proc/%1/cmdline").arg(process));
        if (!file.open(QIODevice::ReadOnly))
            continue;
        const QString line = QString::fromLocal8Bit(file.readAll().replace('\0', ' '));
        if (line.contains(m_folder->path()))
            found.append(line);
    }
    return found;
}

void TestFleetDemo::cleanup()
{
    QCOMPARE(remainingProcesses(), QStringList());
    QCOMPARE(QDir(m_folder->path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
}

void TestFleetDemo::allMachinesAreShown()
{
    const Outcome outcome = runProgram(QStringLiteral("env"), command());
    QCOMPARE(outcome.status, 0);
    const QByteArray first = outcome.output.left(outcome.output.indexOf("written to"));
    for (const char *machine : {"lab1", "lab2", "lab3"})
        QVERIFY2(first.contains("  " + QByteArray(machine) + "  online\n"), machine);
    QCOMPARE(first.count("  found  "), 18);
    QCOMPARE(first.count("  lost  "), 3);
    QCOMPARE(first.count("  back  "), 3);
    QVERIFY(outcome.output.contains("written to lab1/LAB1A:1.0 as payload "));
    QVERIFY(outcome.output.contains("  lab1/LAB1A:1.0  <-  $PJWVER,"));
    QVERIFY(outcome.output.contains("  lab2/LAB2A:1.0  <-  $PJWVER,"));
    QCOMPARE(outcome.output.count("  ->  $PJWVER*0c\n"), 2);
}

void TestFleetDemo::terminalShowsTheTable()
{
    TerminalRun demo(QStringLiteral("/usr/bin/env"), command());
    QTRY_VERIFY_WITH_TIMEOUT(demo.screen().contains("3 of 3 machines online, 18 of 18 boards there"), programPatience);
    QTRY_VERIFY_WITH_TIMEOUT(demo.screen().contains("3 of 3 machines online, 15 of 18 boards there"), programPatience);
    QTRY_VERIFY_WITH_TIMEOUT(demo.isOver(), programPatience);
    QCOMPARE(demo.status(), 0);
}

void TestFleetDemo::optionsGoToJwprobe()
{
    const Outcome outcome =
        runProgram(QStringLiteral("env"),
                   command({QStringLiteral("--json"), QStringLiteral("--type"), QStringLiteral("BoardB"),
                            QStringLiteral("--deadline"), QStringLiteral("6000")}));
    QCOMPARE(outcome.status, 0);
    QCOMPARE(outcome.output.count("\"event\":\"found\""), 6);
    QVERIFY(!outcome.output.contains("written to"));
}

void TestFleetDemo::demosRunSideBySide()
{
    const QStringList options{QStringLiteral("--json"), QStringLiteral("--deadline"), QStringLiteral("6000")};
    ProgramRun first(QStringLiteral("env"), command(options));
    ProgramRun second(QStringLiteral("env"), command(options));
    first.start();
    second.start();
    WAIT_FOR(first.isOver() && second.isOver());
    QCOMPARE(first.output().count("\"event\":\"found\""), 18);
    QCOMPARE(second.output().count("\"event\":\"found\""), 18);
}

void TestFleetDemo::signalEndsEverything()
{
    ProgramRun demo(QStringLiteral("env"), command({QStringLiteral("--monitor")}));
    demo.start();
    WAIT_FOR(demo.output().count("  found  ") == 18);
    QVERIFY(remainingProcesses().size() >= 7); // the broker, and a jwsim and a jwbridge for each machine
    demo.sendSignal(SIGTERM);
    QVERIFY(demo.finish());
    QCOMPARE(demo.status(), 143);
}

QTEST_GUILESS_MAIN(TestFleetDemo)
#include "tst_fleet_demo.moc"

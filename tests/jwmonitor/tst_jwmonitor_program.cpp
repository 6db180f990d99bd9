#include "support/programs/jwsimrun.h"

#include <QFile>
#include <QImage>
#include <QTemporaryDir>
#include <QTest>

/// Tests how jwmonitor starts.
class TestProgram : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tellsItsVersionWithoutADisplay();
    void saysThatThereIsNoDisplay();
    void refusesAWrongOption_data();
    void refusesAWrongOption();
    void takesThePlatformWithOneDashOrTwo_data();
    void takesThePlatformWithOneDashOrTwo();
    void savesPicturesOfBoardsThatTalk();
    void picturesNeedAFolder();
    void theDesktopFileStartsIt();

private:
    // Runs jwmonitor. `environment` contains arguments of env: "NAME=VALUE" sets a variable, "-u NAME" removes it.
    static Outcome run(const QStringList &environment, const QStringList &arguments)
    {
        return runProgram(QStringLiteral("env"),
                          environment + QStringList{QStringLiteral(JWMONITOR_PROGRAM)} + arguments);
    }
    static QStringList noDisplay()
    {
        return QStringLiteral("-u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM").split(QLatin1Char(' '));
    }
    static QString offscreen() { return QStringLiteral("QT_QPA_PLATFORM=offscreen"); }
    static Outcome takePictures(const QString &folder)
    {
        return runProgram(jwsimProgram(),
                          {QStringLiteral("--scenario"),
                           QStringLiteral(PROJECT_FOLDER "/examples/scenarios/six-boards.json"), QStringLiteral("--"),
                           QStringLiteral("env"), offscreen(), QStringLiteral(SCREENSHOTS_PROGRAM), folder});
    }
};

void TestProgram::tellsItsVersionWithoutADisplay()
{
    const Outcome outcome = run(noDisplay(), {QStringLiteral("--version")});
    QCOMPARE(outcome.output, QByteArray("jwmonitor " PROJECT_VERSION "\n"));
    QCOMPARE(outcome.status, 0);
}

void TestProgram::saysThatThereIsNoDisplay()
{
    const Outcome outcome = run(noDisplay(), {});
    QVERIFY2(outcome.error.contains("jwmonitor: there is no display here"), outcome.error);
    QCOMPARE(outcome.status, 1);
}

void TestProgram::refusesAWrongOption_data()
{
    QTest::addColumn<QStringList>("environment");
    QTest::newRow("with a display") << QStringList(offscreen());
    QTest::newRow("without one") << noDisplay();
}

void TestProgram::refusesAWrongOption()
{
    QFETCH(QStringList, environment);
    const Outcome outcome = run(environment, {QStringLiteral("--type"), QStringLiteral("Toaster")});
    QVERIFY2(
        outcome.error.contains("jwmonitor: --type \"Toaster\" is not known: allowed are BoardA, BoardB and BoardC"),
        outcome.error);
    QCOMPARE(outcome.status, 2);
}

void TestProgram::takesThePlatformWithOneDashOrTwo_data()
{
    QTest::addColumn<QString>("option");
    QTest::newRow("one") << QStringLiteral("-platform");
    QTest::newRow("two") << QStringLiteral("--platform");
}

void TestProgram::takesThePlatformWithOneDashOrTwo()
{
    QFETCH(QString, option);
    const QString port = uniquePortName();
    ProgramRun run(
        jwsimProgram(),
        simulated({boardOn("BoardA", port)},
                  QStringList{QStringLiteral("env")} + noDisplay()
                      + QStringList{QStringLiteral(JWMONITOR_PROGRAM), option, QStringLiteral("offscreen")}));
    run.start();
    // The first search locks the port and starts with the window, so a lock file shows that the window is open.
    WAIT_FOR(run.isOver() || QFile::exists(QStringLiteral("/var/lock/LCK..") + port));
    QVERIFY2(!run.isOver(), run.error());
    run.sendSignal(SIGTERM);
    QVERIFY(run.finish());
}

void TestProgram::savesPicturesOfBoardsThatTalk()
{
    const QTemporaryDir folder;
    const Outcome outcome = takePictures(folder.path());
    QVERIFY2(outcome.status == 0, outcome.error);
    const std::pair<const char *, bool> pictures[] = {
        {"ports-light", false}, {"traffic-light", false}, {"plot-dark", true}, {"log-dark", true}};
    for (const auto &[name, isDark] : pictures) {
        const QImage picture(folder.filePath(QStringLiteral("jwmonitor-%1.png").arg(QLatin1String(name))));
        QVERIFY2(picture.width() > 600 && picture.height() > 400, name);
        QVERIFY2((picture.pixelColor(2, picture.height() / 2).lightness() < 60) == isDark, name);
    }
}

void TestProgram::picturesNeedAFolder()
{
    const QTemporaryDir folder;
    const Outcome outcome = takePictures(folder.filePath(QStringLiteral("none")));
    QVERIFY2(outcome.error.contains("FOLDER exists"), outcome.error);
    QCOMPARE(outcome.status, 2);
}

void TestProgram::theDesktopFileStartsIt()
{
    QFile file(QStringLiteral(PROJECT_FOLDER "/packaging/desktop/jwmonitor.desktop"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QList<QByteArray> lines = linesOf(file.readAll());
    QVERIFY(lines.contains("Exec=jwmonitor"));
    QVERIFY(lines.contains("Icon=jwmonitor"));
    QVERIFY(QFile::exists(QStringLiteral(PROJECT_FOLDER "/packaging/desktop/jwmonitor.svg")));
}

QTEST_GUILESS_MAIN(TestProgram)
#include "tst_jwmonitor_program.moc"

#include "support/programs/jwsimrun.h"

#include <QFile>
#include <QImage>
#include <QTemporaryDir>
#include <QTest>

/// The desktop program as it is started.
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
    void tellsWhenAPictureCantBeWritten();
    void theDesktopFileStartsIt();

private:
    // env takes what is missing from the environment.
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
        return runProgram(
            jwsimProgram(),
            {QStringLiteral("--scenario"), QStringLiteral(PROJECT_FOLDER "/examples/scenarios/bench.json"),
             QStringLiteral("--"), QStringLiteral("env"), offscreen(), QStringLiteral(JWMONITOR_PROGRAM),
             QStringLiteral("--palette"), QStringLiteral("dark"), QStringLiteral("--screenshots"), folder});
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
    const QTemporaryDir folder;
    const Outcome outcome = run(noDisplay(),
                                {option, QStringLiteral("offscreen"), QStringLiteral("--screenshots"),
                                 folder.filePath(QStringLiteral("none"))});
    QVERIFY2(outcome.error.contains("can't be written"), outcome.error); // so there was a window
    QCOMPARE(outcome.status, 1);
}

void TestProgram::savesPicturesOfBoardsThatTalk()
{
    const QTemporaryDir folder;
    const Outcome outcome = takePictures(folder.path());
    QVERIFY2(outcome.status == 0, outcome.error);
    for (const char *view : {"ports", "traffic", "plot", "log"}) {
        const QImage picture(folder.filePath(QStringLiteral("jwmonitor-%1-dark.png").arg(QLatin1String(view))));
        QVERIFY2(picture.width() > 600 && picture.height() > 400, view);
        QVERIFY2(picture.pixelColor(2, picture.height() / 2).lightness() < 60, view);
    }
}

void TestProgram::tellsWhenAPictureCantBeWritten()
{
    const QTemporaryDir folder;
    const Outcome outcome = takePictures(folder.filePath(QStringLiteral("none")));
    QVERIFY2(outcome.error.contains("can't be written: give --screenshots a folder that is there"), outcome.error);
    QCOMPARE(outcome.status, 1);
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

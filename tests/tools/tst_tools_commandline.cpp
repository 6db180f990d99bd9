#include <common/commandline.h>

#include <QTest>

using JwTools::CommandLine;
using JwTools::SearchSettings;

/// Tests the part of the command line that all programs share.
class TestCommandLine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void withoutOptionsAllTypesAreWanted();
    void optionsOfASearchAreRead();
    void ownOptionIsRead();
    void helpAndVersionComeBeforeTheRest_data();
    void helpAndVersionComeBeforeTheRest();
    void wrongUseIsOneLineThatSaysWhatIsAllowed_data();
    void wrongUseIsOneLineThatSaysWhatIsAllowed();
    void helpNamesTheOptionsInTheirOrder();
};

namespace {

struct Line
{
    explicit Line(const QString &text)
    {
        const QStringList arguments = QStringLiteral("jwtool %1").arg(text).split(QLatin1Char(' '), Qt::SkipEmptyParts);
        outcome = commandLine.parse(arguments, &error);
        if (outcome == CommandLine::Run
            && (!commandLine.readSearch(settings, &error) || !commandLine.readNumber(speed, 1, 9, number, &error)))
            outcome = CommandLine::WrongUse;
    }

    const QCommandLineOption speed = JwTools::makeOption("speed", QStringLiteral("How fast."), "N");
    CommandLine commandLine{QStringLiteral("jwtool"), QStringLiteral("Does things."), {speed}};
    CommandLine::Outcome outcome;
    SearchSettings settings;
    int number = 5;
    QString error;
};

} // namespace

void TestCommandLine::withoutOptionsAllTypesAreWanted()
{
    const Line line{QString()};
    QCOMPARE(line.outcome, CommandLine::Run);
    QCOMPARE(line.settings.types, QList<JwDevice::Type>({JwDevice::BoardA, JwDevice::BoardB, JwDevice::BoardC}));
    QVERIFY(line.settings.ports.isEmpty());
    QCOMPARE(line.settings.delay, 0);
    QCOMPARE(line.settings.retries, 3);
    QCOMPARE(line.number, 5);
}

void TestCommandLine::optionsOfASearchAreRead()
{
    const Line line(
        QStringLiteral("--type boardc --type BOARDA --type BoardC --port /dev/ttyACM1 --port ttyUSB0 --port "
                       "ttyACM1 --delay 3600000 --retries 0"));
    QCOMPARE(line.outcome, CommandLine::Run);
    QCOMPARE(line.settings.types, QList<JwDevice::Type>({JwDevice::BoardC, JwDevice::BoardA}));
    QCOMPARE(line.settings.ports, QStringList({QStringLiteral("ttyACM1"), QStringLiteral("ttyUSB0")}));
    QCOMPARE(line.settings.delay, 3600000);
    QCOMPARE(line.settings.retries, 0);
}

void TestCommandLine::ownOptionIsRead()
{
    const Line line(QStringLiteral("--speed 9"));
    QCOMPARE(line.outcome, CommandLine::Run);
    QVERIFY(line.commandLine.isSet(line.speed));
    QCOMPARE(line.number, 9);
}

void TestCommandLine::helpAndVersionComeBeforeTheRest_data()
{
    QTest::addColumn<int>("outcome");
    QTest::newRow("--help") << static_cast<int>(CommandLine::ShowHelp);
    QTest::newRow("-h") << static_cast<int>(CommandLine::ShowHelp);
    QTest::newRow("--version") << static_cast<int>(CommandLine::ShowVersion);
    QTest::newRow("-v --type Toaster") << static_cast<int>(CommandLine::ShowVersion);
    QTest::newRow("--version --help") << static_cast<int>(CommandLine::ShowHelp);
}

void TestCommandLine::helpAndVersionComeBeforeTheRest()
{
    const Line line(QString::fromLatin1(QTest::currentDataTag()));
    QTEST(static_cast<int>(line.outcome), "outcome");
}

void TestCommandLine::wrongUseIsOneLineThatSaysWhatIsAllowed_data()
{
    QTest::addColumn<QString>("error");
    const auto row = [](const char *line, const char *error) { QTest::newRow(line) << QString::fromLatin1(error); };
    row("--colour red", "Unknown option 'colour'; \"jwtool --help\" shows what is allowed");
    row("--type", "Missing value after '--type'; \"jwtool --help\" shows what is allowed");
    row("ttyACM0", "unexpected argument \"ttyACM0\": jwtool takes options only, a port is given as --port ttyACM0");
    row("--type Toaster", "--type \"Toaster\" is not known: allowed are BoardA, BoardB and BoardC");
    row("--type Unknown", "--type \"Unknown\" is not known: allowed are BoardA, BoardB and BoardC");
    row("--port=", "--port needs the name of a port, such as ttyACM0; \"jwprobe --list\" shows all");
    row("--port /dev/", "--port needs the name of a port, such as ttyACM0; \"jwprobe --list\" shows all");
    row("--delay soon", "--delay \"soon\" is not allowed: give a whole number from 0 to 3600000");
    row("--delay -1", "--delay \"-1\" is not allowed: give a whole number from 0 to 3600000");
    row("--retries 10001", "--retries \"10001\" is not allowed: give a whole number from 0 to 10000");
    row("--retries 2.5", "--retries \"2.5\" is not allowed: give a whole number from 0 to 10000");
    row("--retries 99999999999", "--retries \"99999999999\" is not allowed: give a whole number from 0 to 10000");
    row("--speed 0", "--speed \"0\" is not allowed: give a whole number from 1 to 9");
}

void TestCommandLine::wrongUseIsOneLineThatSaysWhatIsAllowed()
{
    const Line line(QString::fromLatin1(QTest::currentDataTag()));
    QCOMPARE(line.outcome, CommandLine::WrongUse);
    QTEST(line.error, "error");
}

void TestCommandLine::helpNamesTheOptionsInTheirOrder()
{
    const QString help = Line(QString()).commandLine.help();
    QVERIFY(help.startsWith(QLatin1String("Usage: jwtool [options]\nDoes things.\n")));
    QString::size_type last = 0;
    for (const char *name : {"--type", "--port", "--delay", "--retries", "--speed", "--version", "--help"}) {
        const auto position = help.indexOf(QLatin1String(name));
        QVERIFY2(position > last, name);
        last = position;
    }
    QVERIFY(help.contains(QLatin1String("BoardA, BoardB or BoardC")));
}

QTEST_GUILESS_MAIN(TestCommandLine)
#include "tst_tools_commandline.moc"

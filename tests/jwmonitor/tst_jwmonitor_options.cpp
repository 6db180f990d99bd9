#include <jwmonitor/find/findbar.h>
#include <jwmonitor/app/options.h>

#include <QCheckBox>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTest>

using namespace JwDevice;
using namespace JwMonitor;

Q_DECLARE_METATYPE(JwTools::SearchSettings)

namespace {

std::optional<Options> parse(const char *line, QString *error = nullptr)
{
    QString ignored;
    return parseOptions(
        QStringLiteral("jwmonitor %1").arg(QLatin1String(line)).split(QLatin1Char(' '), Qt::SkipEmptyParts),
        error ? error : &ignored);
}

} // namespace

/// Tests how the command line and the controls of the window set the settings of a search.
class TestOptions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void withoutOptionsAllBoardsAreWanted();
    void takesAllOptions();
    void takesPortsByTheirDevice();
    void takesTheBrokerOfAFleet();
    void refusesWhatItDoesNotKnow_data();
    void refusesWhatItDoesNotKnow();
    void helpAndVersionNeedNothingElse();
    void theControlsShowTheSettings();
    void theControlsGiveTheSettings();
    void findNeedsAType();
    void findByReturnInThePorts();
    void stopOnlyWhenStarted();
};

void TestOptions::withoutOptionsAllBoardsAreWanted()
{
    const auto options = parse("");
    QVERIFY(options);
    QCOMPARE(options->action, Options::ShowWindow);
    QCOMPARE(options->settings.types, QList<Type>({BoardA, BoardB, BoardC}));
    QVERIFY(options->settings.ports.isEmpty());
    QCOMPARE(options->settings.delay, 0);
    QCOMPARE(options->settings.retries, 3);
    QVERIFY(!options->palette);
}

void TestOptions::takesAllOptions()
{
    const auto options = parse("--type boardc --type BoardA --type BoardC --port ttyACM3 --delay 250 --retries 7 "
                               "--palette dark");
    QVERIFY(options);
    QCOMPARE(options->settings.types, QList<Type>({BoardC, BoardA}));
    QCOMPARE(options->settings.ports, QStringList(QStringLiteral("ttyACM3")));
    QCOMPARE(options->settings.delay, 250);
    QCOMPARE(options->settings.retries, 7);
    QCOMPARE(*options->palette, Theme::Palette::Dark);
}

void TestOptions::takesPortsByTheirDevice()
{
    const auto options = parse("--port /dev/ttyACM3 --port ttyACM3 --port ttyUSB0");
    QVERIFY(options);
    QCOMPARE(options->settings.ports, QStringList({QStringLiteral("ttyACM3"), QStringLiteral("ttyUSB0")}));
}

void TestOptions::takesTheBrokerOfAFleet()
{
    QVERIFY(!parse("")->broker);
    const auto options = parse("--fleet mqtts://broker.example --prefix lab/1 --ca ca.pem --palette dark");
    QVERIFY(options);
    QCOMPARE(options->broker->address.text(), QStringLiteral("mqtts://broker.example:8883"));
    QCOMPARE(options->broker->caFile, QStringLiteral("ca.pem"));
    QCOMPARE(options->prefix, QStringLiteral("lab/1"));
    QCOMPARE(*options->palette, Theme::Palette::Dark);
    QCOMPARE(parse("--fleet mqtt://broker.example")->prefix, QStringLiteral("jw"));
}

void TestOptions::refusesWhatItDoesNotKnow_data()
{
    QTest::addColumn<QString>("error");
    const auto row = [](const char *line, const char *error) { QTest::newRow(line) << QString::fromLatin1(error); };
    row("--colour red", "Unknown option 'colour'; \"jwmonitor --help\" shows what is allowed");
    row("ttyACM0", "unexpected argument \"ttyACM0\": jwmonitor takes options only, a port is given as --port ttyACM0");
    row("--type Toaster", "--type \"Toaster\" is not known: allowed are BoardA, BoardB and BoardC");
    row("--port=", "--port needs the name of a port, such as ttyACM0; \"jwprobe --list\" shows all");
    row("--delay soon", "--delay \"soon\" is not allowed: give a whole number from 0 to 3600000");
    row("--delay -1", "--delay \"-1\" is not allowed: give a whole number from 0 to 3600000");
    row("--retries 10001", "--retries \"10001\" is not allowed: give a whole number from 0 to 10000");
    row("--fleet broker.example",
        "\"broker.example\" is no address of a broker: give mqtt://HOST:PORT or mqtts://HOST:PORT");
    for (const char *option : {"--type BoardA", "--port ttyACM0", "--delay 20", "--retries 1"}) {
        row(qPrintable(QStringLiteral("--fleet mqtt://x ") + QLatin1String(option)),
            qPrintable(QStringLiteral("%1 is for ports of this machine, and --fleet opens none: leave one of them out")
                           .arg(QString::fromLatin1(option).section(QLatin1Char(' '), 0, 0))));
    }
    for (const char *option : {"--prefix", "--login", "--ca", "--certificate", "--key"}) {
        row(qPrintable(QLatin1String(option) + QStringLiteral(" x")),
            qPrintable(QLatin1String(option) + QStringLiteral(" is for --fleet: give --fleet BROKER too")));
    }
    row("--fleet mqtt://x --prefix +",
        "--prefix \"+\" is not allowed: give at most 200 printable characters without blanks, \"+\" and \"#\", not "
        "beginning with \"$\"; a \"/\" must stand between two names");
    row("--palette red", "--palette \"red\" is not known: allowed are light and dark");
}

void TestOptions::refusesWhatItDoesNotKnow()
{
    QString error;
    QVERIFY(!parse(QTest::currentDataTag(), &error));
    QTEST(error, "error");
}

void TestOptions::helpAndVersionNeedNothingElse()
{
    QCOMPARE(parse("--help")->action, Options::ShowHelp);
    QCOMPARE(parse("--type Toaster -v")->action, Options::ShowVersion);
    QVERIFY(helpText().startsWith(QLatin1String("Usage: jwmonitor [options]\n")));
}

void TestOptions::theControlsShowTheSettings()
{
    FindBar bar;
    JwTools::SearchSettings settings;
    settings.types = QList<Type>{BoardB};
    settings.ports = QStringList{QStringLiteral("ttyACM1"), QStringLiteral("ttyACM2")};
    settings.delay = 120;
    settings.retries = 5;
    bar.setSettings(settings);
    QVERIFY(!bar.findChild<QCheckBox *>(QStringLiteral("BoardA"))->isChecked());
    QVERIFY(bar.findChild<QCheckBox *>(QStringLiteral("BoardB"))->isChecked());
    QCOMPARE(bar.findChild<QSpinBox *>(QStringLiteral("delay"))->value(), 120);
    QCOMPARE(bar.findChild<QSpinBox *>(QStringLiteral("retries"))->value(), 5);
    QCOMPARE(bar.findChild<QLineEdit *>(QStringLiteral("ports"))->text(), QStringLiteral("ttyACM1 ttyACM2"));
}

void TestOptions::theControlsGiveTheSettings()
{
    qRegisterMetaType<JwTools::SearchSettings>();
    FindBar bar;
    QSignalSpy requested(&bar, &FindBar::findRequested);
    QTest::keyClick(bar.findChild<QCheckBox *>(QStringLiteral("BoardC")), Qt::Key_Space);
    auto *ports = bar.findChild<QLineEdit *>(QStringLiteral("ports"));
    QTest::keyClicks(ports, QStringLiteral("ttyACM4, /dev/ttyACM5;ttyACM4 "));
    auto *delay = bar.findChild<QSpinBox *>(QStringLiteral("delay"));
    delay->selectAll();
    QTest::keyClicks(delay, QStringLiteral("70"));
    auto *retries = bar.findChild<QSpinBox *>(QStringLiteral("retries"));
    retries->selectAll();
    QTest::keyClicks(retries, QStringLiteral("0"));
    QTest::mouseClick(bar.findChild<QPushButton *>(QStringLiteral("find")), Qt::LeftButton);
    QCOMPARE(requested.size(), 1);
    const auto settings = requested.at(0).at(0).value<JwTools::SearchSettings>();
    QCOMPARE(settings.types, QList<Type>{BoardC});
    QCOMPARE(settings.ports, QStringList({QStringLiteral("ttyACM4"), QStringLiteral("ttyACM5")}));
    QCOMPARE(settings.delay, 70);
    QCOMPARE(settings.retries, 0);
}

void TestOptions::findNeedsAType()
{
    FindBar bar;
    QSignalSpy requested(&bar, &FindBar::findRequested);
    auto *find = bar.findChild<QPushButton *>(QStringLiteral("find"));
    QVERIFY(!find->isEnabled());
    QVERIFY(find->toolTip().contains(QLatin1String("at least one")));
    bar.find();
    QCOMPARE(requested.size(), 0);
    bar.findChild<QCheckBox *>(QStringLiteral("BoardA"))->click();
    QVERIFY(find->isEnabled());
}

void TestOptions::findByReturnInThePorts()
{
    FindBar bar;
    QSignalSpy requested(&bar, &FindBar::findRequested);
    bar.findChild<QCheckBox *>(QStringLiteral("BoardA"))->click();
    QTest::keyClick(bar.findChild<QLineEdit *>(QStringLiteral("ports")), Qt::Key_Return);
    QCOMPARE(requested.size(), 1);
}

void TestOptions::stopOnlyWhenStarted()
{
    FindBar bar;
    QSignalSpy requested(&bar, &FindBar::stopRequested);
    auto *stop = bar.findChild<QPushButton *>(QStringLiteral("stop"));
    QVERIFY(!stop->isEnabled());
    bar.setStarted(true);
    QTest::mouseClick(stop, Qt::LeftButton);
    QCOMPARE(requested.size(), 1);
}

QTEST_MAIN(TestOptions)
#include "tst_jwmonitor_options.moc"

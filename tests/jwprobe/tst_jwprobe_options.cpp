#include <jwprobe/app/options.h>

#include <QTest>

using namespace JwProbe;

class TestJwprobeOptions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void withoutOptionsAllTypesAreSearchedOnAllPorts();
    void everyOptionIsTaken();
    void watchHasNoDeadlineUnlessGiven();
    void oneBoardIsEnoughWithoutAType_data();
    void oneBoardIsEnoughWithoutAType();
    void actionsTakeThePortsAndTheFormatAlong_data();
    void actionsTakeThePortsAndTheFormatAlong();
    void fleetHasItsOwnOptions();
    void fleetHasNoDeadlineUnlessItSends();
    void typesAreTakenInAnyLetterCaseAndOnce();
    void portsAreTakenWithTheirFolderAndOnce();
    void helpAndVersionComeBeforeTheRest_data();
    void helpAndVersionComeBeforeTheRest();
    void wrongUseIsOneLineThatSaysWhatIsAllowed_data();
    void wrongUseIsOneLineThatSaysWhatIsAllowed();
    void helpNamesEveryOptionWithin80Columns();
};

namespace {

std::optional<Options> parse(const QStringList &arguments, QString *error)
{
    return parseOptions(QStringList(QStringLiteral("jwprobe")) + arguments, error);
}

QStringList words(const char *text)
{
    return QString::fromLatin1(text).split(QLatin1Char(' '));
}

} // namespace

void TestJwprobeOptions::withoutOptionsAllTypesAreSearchedOnAllPorts()
{
    QString error;
    const std::optional<Options> options = parse({}, &error);
    QVERIFY2(options, qPrintable(error));
    QCOMPARE(options->action, Options::Find);
    QCOMPARE(options->types, (QList<JwDevice::Type>{JwDevice::BoardA, JwDevice::BoardB, JwDevice::BoardC}));
    QVERIFY(options->ports.isEmpty());
    QCOMPARE(options->delay, 0);
    QCOMPARE(options->retries, 3);
    QCOMPARE(options->deadline, 5000);
    QVERIFY(options->id.isEmpty() && !options->anyType);
    QVERIFY(!options->json && !options->traffic && !options->rawTraffic && !options->logLevel);
}

void TestJwprobeOptions::everyOptionIsTaken()
{
    QString error;
    const std::optional<Options> options = parse(words("--type BoardB --port ttyACM3 --id SIM1:1.0 --delay 20 "
                                                       "--retries 0 --deadline 700 --json --monitor --log warning "
                                                       "--traffic --raw-traffic"),
                                                 &error);
    QVERIFY2(options, qPrintable(error));
    QCOMPARE(options->action, Options::Monitor);
    QCOMPARE(options->types, QList<JwDevice::Type>{JwDevice::BoardB});
    QCOMPARE(options->ports, words("ttyACM3"));
    QCOMPARE(options->id, QStringLiteral("SIM1:1.0"));
    QCOMPARE(options->delay, 20);
    QCOMPARE(options->retries, 0);
    QCOMPARE(options->deadline, 700);
    QVERIFY(options->json && options->traffic && options->rawTraffic);
    QVERIFY(options->logLevel == Logger::Warning);
}

void TestJwprobeOptions::watchHasNoDeadlineUnlessGiven()
{
    QString error;
    QCOMPARE(parse(words("--watch"), &error)->action, Options::Watch);
    QCOMPARE(parse(words("--watch"), &error)->deadline, 0);
    QCOMPARE(parse(words("--watch --delay 6000"), &error)->delay, 6000); // no deadline that it could exceed
    QCOMPARE(parse(words("--watch --deadline 700"), &error)->deadline, 700);
}

void TestJwprobeOptions::oneBoardIsEnoughWithoutAType_data()
{
    QTest::addColumn<QString>("arguments");
    QTest::addColumn<bool>("isEnough");
    QTest::newRow("watch") << QStringLiteral("--watch") << true;
    QTest::newRow("id") << QStringLiteral("--id SIM1:1.0") << true;
    QTest::newRow("watch and type") << QStringLiteral("--watch --type BoardA") << false;
    QTest::newRow("id and type") << QStringLiteral("--id SIM1:1.0 --type BoardA") << false;
    QTest::newRow("monitor") << QStringLiteral("--monitor") << false;
}

void TestJwprobeOptions::oneBoardIsEnoughWithoutAType()
{
    QFETCH(QString, arguments);
    QString error;
    const std::optional<Options> options = parse(arguments.split(QLatin1Char(' ')), &error);
    QVERIFY2(options, qPrintable(error));
    QTEST(options->anyType, "isEnough");
}

void TestJwprobeOptions::actionsTakeThePortsAndTheFormatAlong_data()
{
    QTest::addColumn<QString>("option");
    QTest::addColumn<int>("action");
    QTest::newRow("--list") << QStringLiteral("--list") << static_cast<int>(Options::List);
    QTest::newRow("--doctor") << QStringLiteral("--doctor") << static_cast<int>(Options::Doctor);
}

void TestJwprobeOptions::actionsTakeThePortsAndTheFormatAlong()
{
    QFETCH(QString, option);
    QFETCH(int, action);
    QString error;
    const std::optional<Options> options = parse(words("--json --port ttyACM1") + QStringList(option), &error);
    QVERIFY2(options, qPrintable(error));
    QCOMPARE(static_cast<int>(options->action), action);
    QCOMPARE(options->ports, words("ttyACM1"));
    QVERIFY(options->json);
}

void TestJwprobeOptions::fleetHasItsOwnOptions()
{
    QString error;
    const std::optional<Options> options =
        parse(words("--fleet mqtts://x --prefix lab/1 --send SIM1:1.0 $PJWVER*0c --json"), &error);
    QVERIFY2(options, qPrintable(error));
    QCOMPARE(options->action, Options::Fleet);
    QCOMPARE(options->fleet.broker.address.text(), QStringLiteral("mqtts://x:8883"));
    QCOMPARE(options->fleet.prefix, QStringLiteral("lab/1"));
    QCOMPARE(options->fleet.sendTo, QStringLiteral("SIM1:1.0"));
    QCOMPARE(options->fleet.line, QStringLiteral("$PJWVER*0c"));
    QVERIFY(options->json && options->anyType && !options->fleet.withPayloads);

    const std::optional<Options> monitor = parse(words("--monitor --fleet mqtt://x --type BoardA"), &error);
    QVERIFY2(monitor, qPrintable(error));
    QCOMPARE(monitor->action, Options::Fleet);
    QCOMPARE(monitor->fleet.prefix, QStringLiteral("jw"));
    QVERIFY(monitor->fleet.withPayloads && !monitor->anyType);
}

void TestJwprobeOptions::fleetHasNoDeadlineUnlessItSends()
{
    QString error;
    QCOMPARE(parse(words("--fleet mqtt://x"), &error)->deadline, 0);
    QCOMPARE(parse(words("--fleet mqtt://x --deadline 20"), &error)->deadline, 20);
    QCOMPARE(parse(words("--fleet mqtt://x --send SIM1:1.0 PJWVER"), &error)->deadline, 5000);
}

void TestJwprobeOptions::typesAreTakenInAnyLetterCaseAndOnce()
{
    QString error;
    const std::optional<Options> options = parse(words("--type boardc --type BOARDA --type BoardC"), &error);
    QVERIFY2(options, qPrintable(error));
    QCOMPARE(options->types, (QList<JwDevice::Type>{JwDevice::BoardC, JwDevice::BoardA}));
}

void TestJwprobeOptions::portsAreTakenWithTheirFolderAndOnce()
{
    QString error;
    const std::optional<Options> options = parse(words("--port /dev/ttyACM1 --port ttyUSB0 --port ttyACM1"), &error);
    QVERIFY2(options, qPrintable(error));
    QCOMPARE(options->ports, words("ttyACM1 ttyUSB0"));
}

void TestJwprobeOptions::helpAndVersionComeBeforeTheRest_data()
{
    QTest::addColumn<QString>("option");
    QTest::addColumn<int>("action");
    QTest::newRow("--help") << QStringLiteral("--help") << static_cast<int>(Options::ShowHelp);
    QTest::newRow("-h") << QStringLiteral("-h") << static_cast<int>(Options::ShowHelp);
    QTest::newRow("--version") << QStringLiteral("--version") << static_cast<int>(Options::ShowVersion);
    QTest::newRow("-v") << QStringLiteral("-v") << static_cast<int>(Options::ShowVersion);
}

void TestJwprobeOptions::helpAndVersionComeBeforeTheRest()
{
    QFETCH(QString, option);
    QFETCH(int, action);
    QString error;
    const std::optional<Options> options = parse(words("--delay never") + QStringList(option), &error);
    QVERIFY2(options, qPrintable(error));
    QCOMPARE(static_cast<int>(options->action), action);
}

void TestJwprobeOptions::wrongUseIsOneLineThatSaysWhatIsAllowed_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("hint");
    const auto row = [](const char *arguments, const char *hint) {
        QTest::newRow(arguments) << words(arguments) << QString::fromLatin1(hint);
    };
    row("--type Toaster", "BoardA, BoardB and BoardC");
    row("--type Unknown", "BoardA, BoardB and BoardC");
    row("--type", "--help");
    row("--frobnicate", "--help");
    row("ttyACM0", "--port ttyACM0");
    row("--port /dev/", "--list");
    row("--delay -1", "0 to 3600000");
    row("--delay soon", "0 to 3600000");
    row("--retries 2.5", "0 to 10000");
    row("--retries 10001", "0 to 10000");
    row("--retries 99999999999", "0 to 10000");
    row("--deadline 0", "1 to 3600000");
    row("--log loud", "trace, debug, info, warning, error, fatal");
    row("--list --monitor", "--list and --monitor");
    row("--doctor --monitor", "--doctor and --monitor");
    row("--monitor --watch", "--monitor and --watch");
    row("--list --watch", "--list and --watch");
    row("--udev-rules --id SIM1:1.0", "--id has no effect on --udev-rules");
    row("--id=", "--list");
    row("--watch --deadline 0", "1 to 3600000");
    row("--watch --delay 300 --deadline 300", "--deadline");
    row("--udev-rules --list", "--list and --udev-rules");
    row("--list --type BoardA", "--type is for a search");
    row("--list --deadline 300", "--deadline is for a search");
    row("--list --log trace", "--log is for a search");
    row("--doctor --delay 20", "--delay is for a search");
    row("--doctor --retries 0", "--retries is for a search");
    row("--doctor --traffic", "--traffic is for a search");
    row("--udev-rules --raw-traffic", "--raw-traffic is for a search");
    row("--udev-rules --port ttyACM0", "--port has no effect on --udev-rules");
    row("--udev-rules --json", "--json has no effect on --udev-rules");
    row("--json=yes", "--help");
    row("--delay 5000", "--deadline");
    row("--type BoardC --delay 300 --deadline 300", "--deadline");
    row("--fleet localhost", "give mqtt://HOST:PORT");
    row("--fleet mqtt://x --watch", "--watch and --fleet");
    row("--fleet mqtt://x --list", "--list and --fleet");
    row("--fleet mqtt://x --port ttyACM0", "--port is for ports of this machine");
    row("--fleet mqtt://x --delay 20", "--delay is for ports of this machine");
    row("--fleet mqtt://x --traffic", "--traffic is for ports of this machine");
    row("--fleet mqtt://x --prefix a//b", "--prefix");
    row("--fleet mqtt://x --ca /x", "give mqtts://");
    row("--fleet mqtt://x --login /does/not/exist", "/does/not/exist");
    row("--fleet mqtt://x --send SIM1:1.0", "--send needs two arguments");
    row("--fleet mqtt://x --send SIM1:1.0 PJWVER more", "unexpected argument \"more\"");
    row("--fleet mqtt://x --monitor --send SIM1:1.0 PJWVER", "--send and --monitor");
    row("--fleet mqtt://x PJWVER", "unexpected argument");
    row("--send SIM1:1.0 PJWVER", "give --fleet BROKER too");
    row("--prefix jw", "--prefix is for --fleet");
}

void TestJwprobeOptions::wrongUseIsOneLineThatSaysWhatIsAllowed()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, hint);
    QString error;
    QVERIFY(!parse(arguments, &error));
    QVERIFY2(error.contains(hint), qPrintable(error));
    QVERIFY2(!error.contains(QLatin1Char('\n')), qPrintable(error));
}

void TestJwprobeOptions::helpNamesEveryOptionWithin80Columns()
{
    const QString help = helpText();
    const QStringList names =
        words("--type --port --delay --retries --deadline --json --log --traffic --raw-traffic "
              "--list --doctor --monitor --watch --id --fleet --send --prefix --login --ca --certificate "
              "--key --udev-rules --version --help");
    for (const QString &name : names)
        QVERIFY2(help.contains(name), qPrintable(name));
    const QStringList lines = help.split(QLatin1Char('\n'));
    for (const QString &line : lines)
        QVERIFY2(line.size() <= 80, qPrintable(line));
}

QTEST_GUILESS_MAIN(TestJwprobeOptions)
#include "tst_jwprobe_options.moc"

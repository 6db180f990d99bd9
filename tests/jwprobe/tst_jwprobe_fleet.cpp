#include "support/jwbridge/bridgerun.h"
#include "support/programs/terminalrun.h"

#include <jwprobe/fleet/fleettable.h>

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

namespace {

QStringList fleet(const BrokerRun &broker, const QStringList &options = {})
{
    return QStringList{QStringLiteral("--fleet"), broker.url()} + options;
}

/// Returns the events that jwprobe has printed so far, as "EVENT MACHINE ID REASON".
QStringList eventsOf(const QByteArray &output)
{
    QStringList events;
    const QList<QByteArray> lines = linesOf(output.left(output.lastIndexOf('\n') + 1));
    for (const QByteArray &line : lines) {
        const QJsonObject object = QJsonDocument::fromJson(line).object();
        QStringList words;
        for (const char *key : {"event", "machine", "id", "reason"})
            words.append(object[QLatin1String(key)].toString());
        words.removeAll(QString());
        events.append(words.join(QLatin1Char(' ')));
    }
    return events;
}

QJsonObject lastObject(const QByteArray &output)
{
    return QJsonDocument::fromJson(linesOf(output).last()).object();
}

JwProbe::FleetEvent tableEvent(JwProbe::FleetEvent::Kind kind, const QString &host, const QString &id = QString())
{
    JwProbe::FleetEvent event{kind, {}, {}, {}};
    event.board.host = host;
    event.board.id = id;
    event.board.state = kind == JwProbe::FleetEvent::Lost ? QStringLiteral("lost") : QStringLiteral("ready");
    event.board.since = QDateTime::currentDateTimeUtc();
    return event;
}

} // namespace

/// Tests jwprobe --fleet: with its output in a pipe and on a terminal, with --monitor and --send.
class TestJwprobeFleet : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        NEEDS_MOSQUITTO;
        NEEDS_PROGRAM("bash", "bash");
    }
    void init();

    void eventsAreJson();
    void eventsAreLines();
    void terminalShowsATable();
    void tableIsNoHigherThanTheTerminal();
    void tableCountsLosses();
    void optionsSelectBoards_data();
    void optionsSelectBoards();
    void monitorShowsPayloadsAndSendsLines();
    void monitorSaysWhyALineIsNotSent_data();
    void monitorSaysWhyALineIsNotSent();
    void sendPrintsTheResult();
    void sendPrintsTheResultAsJson();
    void sendSaysWhyTheLineIsNotWritten_data();
    void sendSaysWhyTheLineIsNotWritten();
    void sendNeedsTheMachineIfItHasToChoose();
    void sendEndsAtTheDeadline();
    void brokerThatIsAwayIsAwaited();
    void lostReaderEndsTheProgram();

private:
    QString folder(const char *name) const
    {
        const QString path = m_folder->filePath(QLatin1String(name));
        QDir().mkpath(path);
        return path;
    }

    QString m_port;
    std::unique_ptr<QTemporaryDir> m_folder;
};

void TestJwprobeFleet::init()
{
    m_port = uniquePortName();
    m_folder = std::make_unique<QTemporaryDir>();
}

void TestJwprobeFleet::eventsAreJson()
{
    BrokerRun broker;
    broker.start();
    ProgramRun jwprobe(jwprobeProgram(), fleet(broker, {QStringLiteral("--json")}));
    jwprobe.start();
    auto bridge = std::make_unique<BridgeRun>(
        QStringList{boardOn("BoardA", m_port, "serial=S1"), boardOn("silent", uniquePortName())}, broker.url(),
        folder("here"));
    const auto events = [&jwprobe] { return eventsOf(jwprobe.output()); };
    WAIT_FOR(events().contains(QStringLiteral("found here S1:1.0")) && events().contains(QStringLiteral("online here"))
             && events().contains(QStringLiteral("refused here silent")));
    bridge.reset();
    WAIT_FOR(events().contains(QStringLiteral("lost here S1:1.0 offline")));
    QCOMPARE(events().count(QStringLiteral("refused here silent")), 1);
    QVERIFY(events().contains(QStringLiteral("offline here bridgeAway")));
    jwprobe.sendSignal(SIGINT);
    QVERIFY(jwprobe.finish());
    QCOMPARE(jwprobe.status(), 0);
    QCOMPARE(jwprobe.error(), QByteArray());

    const QJsonObject lost = lastObject(jwprobe.output());
    QCOMPARE(lost[QLatin1String("type")].toString(), QStringLiteral("BoardA"));
    QCOMPARE(lost[QLatin1String("port")].toString(), m_port);
    QCOMPARE(lost[QLatin1String("serialNumber")].toString(), QStringLiteral("S1"));
    QCOMPARE(lost[QLatin1String("hardwareVersion")].toString(), QStringLiteral("7300022"));
    QVERIFY(QDateTime::fromString(lost[QLatin1String("since")].toString(), Qt::ISODateWithMs).isValid());
    QVERIFY(QDateTime::fromString(lost[QLatin1String("time")].toString(), Qt::ISODateWithMs).isValid());
    QVERIFY(lost[QLatin1String("milliseconds")].toDouble() > 0);
}

void TestJwprobeFleet::eventsAreLines()
{
    BrokerRun broker;
    broker.start();
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1,pull-after=2000,replug-after=500")}, broker.url(),
                     folder("here"));
    ProgramRun jwprobe(jwprobeProgram(), fleet(broker));
    jwprobe.start();
    WAIT_FOR(jwprobe.output().contains("  back  "));
    const QByteArray board = m_port.toLatin1();
    QVERIFY(jwprobe.output().contains("  here  online\n"));
    QVERIFY(jwprobe.output().contains("  here/S1:1.0  lost  BoardA on " + board + ", cable pulled\n"));
    QVERIFY(jwprobe.output().contains("  here/S1:1.0  back  BoardA on " + board + ", hardware 7300022\n"));
    QVERIFY(!jwprobe.output().contains("<-"));
}

void TestJwprobeFleet::terminalShowsATable()
{
    BrokerRun broker;
    broker.start();
    const QString silent = uniquePortName();
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1,pull-after=3000"), boardOn("silent", silent)}, broker.url(),
                     folder("here"));
    TerminalRun jwprobe(jwprobeProgram(), fleet(broker));
    WAIT_FOR(jwprobe.screen().contains("1 of 1 machines online, 1 of 1 boards there"));
    WAIT_FOR(jwprobe.screen().contains("1 of 1 machines online, 0 of 1 boards there"));
    WAIT_FOR(jwprobe.screen().contains("  here/" + silent.toLatin1()));
    const QByteArray last = jwprobe.screen().mid(jwprobe.screen().lastIndexOf("MACHINE"));
    QVERIFY2(last.contains("here     BoardA  " + m_port.toLatin1() + "  S1:1.0  7300022   cable pulled  "), last);
    broker.stop();
    WAIT_FOR(jwprobe.screen().contains("No connection to mqtt://localhost:"));
    jwprobe.sendSignal(SIGTERM);
    WAIT_FOR(jwprobe.isOver());
    QCOMPARE(jwprobe.status(), 0);
}

void TestJwprobeFleet::tableIsNoHigherThanTheTerminal()
{
    JwProbe::FleetTable table(QStringLiteral("mqtt://x:1883"));
    table.add(tableEvent(JwProbe::FleetEvent::Online, QStringLiteral("a")));
    table.add(tableEvent(JwProbe::FleetEvent::Online, QStringLiteral("b")));
    for (int i = 0; i < 1000; ++i)
        table.add(tableEvent(JwProbe::FleetEvent::Found, QStringLiteral("b"), QString::number(i)));
    const QStringList lines = table.redrawn(80, 24).split(QLatin1Char('\n'));
    QCOMPARE(lines.size(), 24);
    QVERIFY(lines.first().contains(QLatin1String("2 of 2 machines online, 1000 of 1000 boards there")));
    // 3 lines of head and the line of the machine a, then 18 boards; the rest is hidden
    QCOMPARE(lines[22], QStringLiteral("(982 more lines)"));
    QCOMPARE(table.redrawn(80, 24), QString());
}

void TestJwprobeFleet::tableCountsLosses()
{
    JwProbe::FleetTable table(QStringLiteral("mqtt://x:1883"));
    const QString a = QStringLiteral("a");
    const QString id = QStringLiteral("S1");
    table.add(tableEvent(JwProbe::FleetEvent::Online, a));
    const auto row = [&table] { return table.redrawn(80, 24).split(QLatin1Char('\n')).value(3).simplified(); };
    table.add(tableEvent(JwProbe::FleetEvent::Lost, a, id)); // was lost when the program started
    QVERIFY(row().endsWith(QLatin1String(" 0")));
    table.add(tableEvent(JwProbe::FleetEvent::Found, a, id));
    table.add(tableEvent(JwProbe::FleetEvent::Lost, a, id));
    table.add(tableEvent(JwProbe::FleetEvent::Lost, a, id)); // for another reason
    QVERIFY(row().endsWith(QLatin1String(" 1")));
    table.add(tableEvent(JwProbe::FleetEvent::Forgotten, a, id));
    table.add(tableEvent(JwProbe::FleetEvent::Offline, a));
    QCOMPARE(row(), QStringLiteral("a - - - - offline"));
}

void TestJwprobeFleet::optionsSelectBoards_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QStringList>("found");
    QTest::addColumn<int>("status");
    const auto row = [](const char *name, const char *options, const QStringList &found) {
        QTest::newRow(name) << QString::fromLatin1(options).split(QLatin1Char(' ')) << found
                            << (found.isEmpty() ? 1 : 0);
    };
    row("type", "--type BoardB", {QStringLiteral("found here S2:1.0")});
    row("id", "--id S1:1.0", {QStringLiteral("found here S1:1.0")});
    row("machine and id", "--id here/S1:1.0", {QStringLiteral("found here S1:1.0")});
    row("other machine", "--id there/S1:1.0", {});
    row("type that is not there", "--type BoardC", {});
}

void TestJwprobeFleet::optionsSelectBoards()
{
    QFETCH(QStringList, options);
    QFETCH(QStringList, found);
    QFETCH(int, status);
    BrokerRun broker;
    broker.start();
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1"), boardOn("BoardB", uniquePortName(), "serial=S2")},
                     broker.url(), folder("here"));
    ProgramRun all(jwprobeProgram(), fleet(broker, {QStringLiteral("--json")}));
    all.start();
    WAIT_FOR(eventsOf(all.output()).filter(QStringLiteral("found ")).size() == 2);
    const Outcome outcome = runProgram(
        jwprobeProgram(),
        fleet(broker,
              options + QStringList{QStringLiteral("--json"), QStringLiteral("--deadline"), QStringLiteral("2000")}));
    QCOMPARE(eventsOf(outcome.output).filter(QStringLiteral("found ")), found);
    QCOMPARE(outcome.status, status);
}

void TestJwprobeFleet::monitorShowsPayloadsAndSendsLines()
{
    BrokerRun broker;
    broker.start();
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1")}, broker.url(), folder("here"));
    ProgramRun jwprobe(jwprobeProgram(), fleet(broker, {QStringLiteral("--monitor")}));
    jwprobe.start();
    WAIT_FOR(jwprobe.output().contains("here/S1:1.0  found"));
    jwprobe.write("S1:1.0: PJWVER\n");
    WAIT_FOR(jwprobe.output().contains("  here/S1:1.0  <-  $PJWVER,"));
    WAIT_FOR(jwprobe.output().contains("  here/S1:1.0  ->  $PJWVER*0c\n"));
    jwprobe.write("here/S1:1.0: $PJWVER*0c\n");
    WAIT_FOR(jwprobe.output().count("  here/S1:1.0  ->  $PJWVER*0c\n") == 2);
    WAIT_FOR(jwprobe.output().count("  <-  $PJWVER,") >= 2); // more if the bridge checks the board
    QCOMPARE(jwprobe.error(), QByteArray());
}

void TestJwprobeFleet::monitorSaysWhyALineIsNotSent_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QByteArray>("error");
    QTest::newRow("without a board") << QByteArray("PJWVER") << QByteArray("begin the line with the id of a board");
    QTest::newRow("unknown board") << QByteArray("S2:1.0: PJWVER") << QByteArray("there is no board \"S2:1.0\"");
    QTest::newRow("wrong checksum") << QByteArray("S1:1.0: PJWVER*00") << QByteArray("checksum");
    QTest::newRow("colon in the sentence") << QByteArray("PJWVER,a:b") << QByteArray("begin the line with the id");
}

void TestJwprobeFleet::monitorSaysWhyALineIsNotSent()
{
    QFETCH(QByteArray, line);
    QFETCH(QByteArray, error);
    BrokerRun broker;
    broker.start();
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1")}, broker.url(), folder("here"));
    ProgramRun jwprobe(jwprobeProgram(), fleet(broker, {QStringLiteral("--monitor")}));
    jwprobe.start();
    WAIT_FOR(jwprobe.output().contains("here/S1:1.0  found"));
    jwprobe.write(line + '\n');
    WAIT_FOR(jwprobe.error().contains("not sent: "));
    QVERIFY2(jwprobe.error().contains(error), jwprobe.error());
    QVERIFY(!jwprobe.output().contains("->"));
}

void TestJwprobeFleet::sendPrintsTheResult()
{
    BrokerRun broker;
    broker.start();
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1")}, broker.url(), folder("here"));
    Subscriber subscriber(broker);
    subscriber.start();
    WAIT_FOR(subscriber.newest("jw/here/boards/S1:1.0/state").contains("ready"));
    WAIT_FOR(subscriber.newest("jw/here/online") == "true");
    const Outcome outcome =
        runProgram(jwprobeProgram(),
                   fleet(broker, {QStringLiteral("--send"), QStringLiteral("S1:1.0"), QStringLiteral("PJWVER")}));
    QCOMPARE(outcome.error, QByteArray());
    QVERIFY2(outcome.output.startsWith("written to here/S1:1.0 as payload "), outcome.output);
    QCOMPARE(outcome.status, 0);
    WAIT_FOR(!subscriber.messages("jw/here/boards/S1:1.0/rx").isEmpty());
    QVERIFY(subscriber.messages("jw/here/boards/S1:1.0/tx/result").isEmpty()); // the result went to jwprobe alone
}

void TestJwprobeFleet::sendPrintsTheResultAsJson()
{
    BrokerRun broker;
    broker.start();
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1")}, broker.url(), folder("here"));
    Subscriber subscriber(broker);
    subscriber.start();
    WAIT_FOR(subscriber.newest("jw/here/boards/S1:1.0/state").contains("ready"));
    WAIT_FOR(subscriber.newest("jw/here/online") == "true");
    const auto send = [&broker](const QString &id) {
        return runProgram(
            jwprobeProgram(),
            fleet(broker, {QStringLiteral("--json"), QStringLiteral("--send"), id, QStringLiteral("PJWVER")}));
    };
    const Outcome good = send(QStringLiteral("here/S1:1.0"));
    QCOMPARE(good.status, 0);
    const QJsonObject written = lastObject(good.output);
    QCOMPARE(written[QLatin1String("event")].toString(), QStringLiteral("result"));
    QCOMPARE(written[QLatin1String("machine")].toString(), QStringLiteral("here"));
    QCOMPARE(written[QLatin1String("id")].toString(), QStringLiteral("S1:1.0"));
    QVERIFY(written[QLatin1String("payloadId")].toInt() > 0);
    QVERIFY(written[QLatin1String("error")].isNull());

    const Outcome bad = send(QStringLiteral("S9:1.0"));
    QCOMPARE(bad.status, 1);
    const QJsonObject refused = lastObject(bad.output);
    QCOMPARE(refused[QLatin1String("id")].toString(), QStringLiteral("S9:1.0"));
    QVERIFY(refused[QLatin1String("payloadId")].isNull());
    QVERIFY(refused[QLatin1String("error")].toString().contains(QLatin1String("there is no board \"S9:1.0\"")));
}

void TestJwprobeFleet::sendSaysWhyTheLineIsNotWritten_data()
{
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("line");
    QTest::addColumn<QByteArray>("error");
    const QString good = QStringLiteral("PJWVER");
    QTest::newRow("unknown board") << QStringLiteral("S2:1.0") << good << QByteArray("there is no board \"S2:1.0\"");
    QTest::newRow("lost board") << QStringLiteral("S3:1.0") << good
                                << QByteArray("the board here/S3:1.0 is not there: cable pulled since ");
    QTest::newRow("wrong checksum") << QStringLiteral("S1:1.0") << QStringLiteral("PJWVER*00")
                                    << QByteArray("checksum");
}

void TestJwprobeFleet::sendSaysWhyTheLineIsNotWritten()
{
    QFETCH(QString, id);
    QFETCH(QString, line);
    QFETCH(QByteArray, error);
    BrokerRun broker;
    broker.start();
    BridgeRun bridge(
        {boardOn("BoardA", m_port, "serial=S1"), boardOn("BoardB", uniquePortName(), "serial=S3,pull-after=1500")},
        broker.url(), folder("here"));
    Subscriber subscriber(broker);
    subscriber.start();
    WAIT_FOR(subscriber.newest("jw/here/boards/S1:1.0/state").contains("ready"));
    WAIT_FOR(subscriber.newest("jw/here/boards/S3:1.0/state").contains("cablePulled"));
    const Outcome outcome = runProgram(jwprobeProgram(), fleet(broker, {QStringLiteral("--send"), id, line}));
    QVERIFY2(outcome.error.contains("not sent: ") && outcome.error.contains(error), outcome.error);
    QCOMPARE(outcome.status, 1);
}

void TestJwprobeFleet::sendNeedsTheMachineIfItHasToChoose()
{
    BrokerRun broker;
    broker.start();
    BridgeRun here({boardOn("BoardA", m_port, "serial=S1")}, broker.url(), folder("here"));
    BridgeRun there({boardOn("BoardA", uniquePortName(), "serial=S1")}, broker.url(), folder("there"),
                    {QStringLiteral("--host"), QStringLiteral("there")});
    Subscriber subscriber(broker);
    subscriber.start();
    WAIT_FOR(subscriber.newest("jw/here/boards/S1:1.0/state").contains("ready"));
    WAIT_FOR(subscriber.newest("jw/there/boards/S1:1.0/state").contains("ready"));
    WAIT_FOR(subscriber.newest("jw/here/online") == "true" && subscriber.newest("jw/there/online") == "true");
    const auto send = [&broker](const QString &id) {
        return runProgram(jwprobeProgram(), fleet(broker, {QStringLiteral("--send"), id, QStringLiteral("PJWVER")}));
    };
    const Outcome unclear = send(QStringLiteral("S1:1.0"));
    QVERIFY2(unclear.error.contains("give one of here/S1:1.0, there/S1:1.0"), unclear.error);
    QCOMPARE(unclear.status, 1);
    const Outcome clear = send(QStringLiteral("there/S1:1.0"));
    QVERIFY2(clear.output.startsWith("written to there/S1:1.0 "), clear.output + clear.error);
    WAIT_FOR(!subscriber.messages("jw/there/boards/S1:1.0/rx").isEmpty());
    QVERIFY(subscriber.messages("jw/here/boards/S1:1.0/rx").isEmpty());
}

void TestJwprobeFleet::sendEndsAtTheDeadline()
{
    BrokerRun broker; // not started
    const Outcome outcome =
        runProgram(jwprobeProgram(),
                   fleet(broker,
                         {QStringLiteral("--deadline"), QStringLiteral("500"), QStringLiteral("--send"),
                          QStringLiteral("S1:1.0"), QStringLiteral("PJWVER")}));
    QVERIFY2(outcome.error.contains("not sent: no connection to mqtt://localhost:"), outcome.error);
    QCOMPARE(outcome.status, 1);
}

void TestJwprobeFleet::brokerThatIsAwayIsAwaited()
{
    BrokerRun broker;
    ProgramRun jwprobe(jwprobeProgram(), fleet(broker));
    jwprobe.start();
    WAIT_FOR(jwprobe.error().contains("no connection to mqtt://localhost:"));
    broker.start();
    publish(broker, QStringLiteral("jw/here/online"), "true");
    WAIT_FOR(broker.log().contains("Sending SUBACK to jw-"));
    publish(broker, QStringLiteral("jw/here/online"), "false");
    WAIT_FOR(jwprobe.output().contains("  here  offline  bridge away\n"));
}

void TestJwprobeFleet::lostReaderEndsTheProgram()
{
    BrokerRun broker;
    broker.start();
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1")}, broker.url(), folder("here"));
    const Outcome outcome = runProgram(QStringLiteral("bash"),
                                       {QStringLiteral("-o"), QStringLiteral("pipefail"), QStringLiteral("-c"),
                                        QStringLiteral("\"$@\" | head -n 1"), QStringLiteral("bash"), jwprobeProgram(),
                                        QStringLiteral("--fleet"), broker.url()});
    QCOMPARE(linesOf(outcome.output).size(), 1);
    QVERIFY2(outcome.error.contains("nobody reads it any more") || outcome.error.contains("Broken pipe"),
             outcome.error);
    QCOMPARE(outcome.status, 1);
}

QTEST_GUILESS_MAIN(TestJwprobeFleet)
#include "tst_jwprobe_fleet.moc"

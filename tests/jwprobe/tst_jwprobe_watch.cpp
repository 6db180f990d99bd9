#include "support/programs/jwsimrun.h"
#include "support/programs/terminalrun.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <utility>

namespace {

const QString watchOption = QStringLiteral("--watch");
const QString json = QStringLiteral("--json");

QStringList watching(const char *options)
{
    const QString text = QString::fromLatin1(options);
    return QStringList{watchOption} + (text.isEmpty() ? QStringList() : text.split(QLatin1Char(' ')));
}

/// Returns the objects that the watch printed so far. An incomplete last line is left out.
QList<QJsonObject> eventsOf(const QByteArray &output)
{
    QList<QJsonObject> events;
    const QList<QByteArray> lines = linesOf(output.left(output.lastIndexOf('\n') + 1));
    for (const QByteArray &line : lines)
        events.append(QJsonDocument::fromJson(line).object());
    return events;
}

QList<QJsonObject> eventsOf(const QByteArray &output, const char *event)
{
    QList<QJsonObject> events;
    const QList<QJsonObject> all = eventsOf(output);
    for (const QJsonObject &object : all) {
        if (object[QLatin1String("event")] == QLatin1String(event))
            events.append(object);
    }
    return events;
}

/// Returns the events except payloads. If somebody sets the machine's clock, for example another run of the tests,
/// jwprobe asks its boards, and their answers are payloads.
QList<QJsonObject> statesOf(const QByteArray &output)
{
    QList<QJsonObject> events = eventsOf(output);
    const auto isPayload = [](const QJsonObject &event) {
        return event[QLatin1String("event")] == QLatin1String("payload");
    };
    events.erase(std::remove_if(events.begin(), events.end(), isPayload), events.end());
    return events;
}

QString text(const QJsonObject &object, const char *key)
{
    return object[QLatin1String(key)].toString();
}

QStringList texts(const QList<QJsonObject> &objects, const char *key)
{
    QStringList list;
    for (const QJsonObject &object : objects)
        list.append(text(object, key));
    return list;
}

QStringList sorted(QStringList list)
{
    list.sort();
    return list;
}

/// Returns whether jwprobe wrote something to the board on `port`. `report` is the name of the file with jwsim's
/// report.
bool wasAsked(const QString &report, const QString &port)
{
    QFile file(report);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QJsonArray boards = QJsonDocument::fromJson(file.readAll()).object()[QLatin1String("boards")].toArray();
    for (const QJsonValue board : boards) {
        if (board[QLatin1String("port")].toString() == port)
            return !board[QLatin1String("received")].toArray().isEmpty();
    }
    return false;
}

} // namespace

/// Tests two options of jwprobe: --watch, with its output in a pipe or on a terminal, and --id.
class TestJwprobeWatch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void boardIsFoundLostAndBackWithOneId();
    void jsonHasAllOfABoard();
    void allBoardsOfATypeAreFound();
    void payloadsOfEachBoardAreShown();
    void payloadsAfterAReturnAreShown();
    void refusedPortSaysWhy_data();
    void refusedPortSaysWhy();
    void refusedPortIsReportedOnce();
    void refusedPortMayBecomeABoard();
    void lostBoardIsNoRefusedPort();
    void sharedSerialNumberIsReported();
    void eventsAreLinesWithoutATerminal();
    void eventsArePrintedAtOnce();

    void signalEndsItCleanly_data();
    void signalEndsItCleanly();
    void deadlineGivesTheStatusOfASearch_data();
    void deadlineGivesTheStatusOfASearch();
    void otherBoardsAreLeftAlone_data();
    void otherBoardsAreLeftAlone();
    void absentIdIsSaidAndAwaited();
    void delayHoldsTheProbeBack();
    void retriesSayHowOftenAPortIsAsked();

    void terminalShowsATable();
    void terminalShowsRefusedPorts();
    void logOnTheTerminalLeavesNoTable();

    void idSelectsTheBoardOfASearch_data();
    void idSelectsTheBoardOfASearch();
    void idMayBeThePlaceOfABoardWithASerialNumber();
    void idSelectsTheBoardOfTheMonitor();
    void idLimitsToThePortsNamed();
    void absentIdNamesTheIdsThatAreThere();
    void idNeedsNoBoardsIdentity();
    void listShowsTheIdsOfTheWatch();

private:
    QStringList m_ports;
};

void TestJwprobeWatch::init()
{
    m_ports = QStringList{uniquePortName(), uniquePortName(), uniquePortName()};
}

void TestJwprobeWatch::boardIsFoundLostAndBackWithOneId()
{
    const QString keys = QStringLiteral("plug-after=300,pull-after=900,replug-after=400,replug-port=") + m_ports[1];
    const Outcome outcome =
        runJwprobe({boardOn("BoardA", m_ports[0], keys.toLatin1().constData())}, watching("--json --deadline 4000"));
    QCOMPARE(outcome.status, 0);
    QCOMPARE(outcome.error, QByteArray());
    const QList<QJsonObject> events = statesOf(outcome.output);
    QCOMPARE(texts(events, "event").join(QLatin1Char(' ')), QStringLiteral("found lost back"));
    QCOMPARE(texts(events, "port"), (QStringList{m_ports[0], m_ports[0], m_ports[1]}));
    const QString id = text(events[0], "id");
    QVERIFY(id.endsWith(QLatin1String(":1.0")));
    QCOMPARE(texts(events, "id"), (QStringList{id, id, id}));
    QCOMPARE(text(events[1], "reason"), QStringLiteral("cablePulled"));
    double before = 0;
    for (const QJsonObject &event : events) {
        const double milliseconds = event[QLatin1String("milliseconds")].toDouble();
        QVERIFY(milliseconds > before && milliseconds < 4000);
        before = milliseconds;
    }
    // The board is away for 400 ms. The times of the events are not exact, so this accepts 350 ms too.
    QVERIFY(events[2][QLatin1String("milliseconds")].toDouble() - events[1][QLatin1String("milliseconds")].toDouble()
            >= 350);
}

void TestJwprobeWatch::jsonHasAllOfABoard()
{
    const QDateTime start = QDateTime::currentDateTime();
    const Outcome outcome =
        runJwprobe({boardOn("BoardB", m_ports[0], "serial=S-9")}, watching("--json --deadline 1000"));
    const QList<QJsonObject> events = statesOf(outcome.output);
    QCOMPARE(events.size(), 1);
    QJsonObject event = events[0];
    const QDateTime time = QDateTime::fromString(event.take(QLatin1String("time")).toString(), Qt::ISODateWithMs);
    QVERIFY(time >= start && time <= QDateTime::currentDateTime());
    QVERIFY(event.take(QLatin1String("milliseconds")).isDouble());
    QCOMPARE(event,
             (QJsonObject{{QStringLiteral("event"), QStringLiteral("found")},
                          {QStringLiteral("id"), QStringLiteral("S-9:1.0")},
                          {QStringLiteral("type"), QStringLiteral("BoardB")},
                          {QStringLiteral("port"), m_ports[0]},
                          {QStringLiteral("location"), QStringLiteral("/dev/") + m_ports[0]},
                          {QStringLiteral("serialNumber"), QStringLiteral("S-9")},
                          {QStringLiteral("hardwareVersion"), QStringLiteral("7300021")},
                          {QStringLiteral("sharesSerialNumber"), false}}));
}

void TestJwprobeWatch::allBoardsOfATypeAreFound()
{
    QStringList boards;
    for (const QString &port : std::as_const(m_ports))
        boards.append(boardOn("BoardC", port));
    ProgramRun run(jwsimProgram(), jwprobe(boards, watching("--json --type BoardC")));
    run.start();
    WAIT_FOR(eventsOf(run.output(), "found").size() == 3);
    QCOMPARE(sorted(texts(eventsOf(run.output(), "found"), "port")), sorted(m_ports));
}

void TestJwprobeWatch::payloadsOfEachBoardAreShown()
{
    const char *const keys = "replies=4,chunk=26,gap=50";
    ProgramRun run(
        jwsimProgram(),
        jwprobe({boardOn("BoardA", m_ports[0], keys), boardOn("BoardB", m_ports[1], keys)}, watching("--json")));
    run.start();
    const auto countOn = [&run](const QString &port) {
        return texts(eventsOf(run.output(), "payload"), "port").count(port);
    };
    WAIT_FOR(countOn(m_ports[0]) >= 3 && countOn(m_ports[1]) >= 3);
    const QList<QJsonObject> payloads = eventsOf(run.output(), "payload");
    for (const QJsonObject &payload : payloads) {
        const bool isFirst = text(payload, "port") == m_ports[0];
        QCOMPARE(text(payload, "text"),
                 isFirst ? QStringLiteral("$PJWVER,7300022,1,4,0*0d") : QStringLiteral("$PJWVER,7300021,1,4,0*0e"));
        QCOMPARE(text(payload, "type"), isFirst ? QStringLiteral("BoardA") : QStringLiteral("BoardB"));
        QCOMPARE(text(payload, "direction"), QStringLiteral("received"));
        QVERIFY(!text(payload, "id").isEmpty() && !text(payload, "time").isEmpty());
    }
}

void TestJwprobeWatch::payloadsAfterAReturnAreShown()
{
    ProgramRun run(
        jwsimProgram(),
        jwprobe({boardOn("BoardA", m_ports[0], "pull-after=500,replug-after=100,replies=100,chunk=26,gap=50")},
                watching("--json")));
    run.start();
    const auto isShown = [&run] {
        const QStringList names = texts(eventsOf(run.output()), "event");
        return names.indexOf(QStringLiteral("back")) >= 0
            && names.lastIndexOf(QStringLiteral("payload")) > names.indexOf(QStringLiteral("back"));
    };
    WAIT_FOR(isShown());
}

void TestJwprobeWatch::refusedPortSaysWhy_data()
{
    QTest::addColumn<QString>("board");
    QTest::addColumn<QString>("reason");
    QTest::addColumn<QString>("summary");
    QTest::newRow("silent") << QStringLiteral("silent") << QStringLiteral("silent") << QStringLiteral("no sentence");
    QTest::newRow("held") << QStringLiteral("BoardA,open=busy") << QStringLiteral("held") << QStringLiteral("jwsim");
    QTest::newRow("denied") << QStringLiteral("BoardA,open=denied") << QStringLiteral("noPermission")
                            << QStringLiteral("no permission");
    QTest::newRow("answers as an unwanted type")
        << QStringLiteral("BoardB") << QStringLiteral("otherType") << QStringLiteral("BoardB");
    QTest::newRow("talks, but is no board")
        << QStringLiteral("BoardA,checksum=wrong") << QStringLiteral("unreadable") << QStringLiteral("can't be read");
}

void TestJwprobeWatch::refusedPortSaysWhy()
{
    QFETCH(QString, board);
    QFETCH(QString, reason);
    QFETCH(QString, summary);
    ProgramRun run(jwsimProgram(),
                   jwprobe({board + QStringLiteral(",serial=S-1,port=") + m_ports[0]},
                           watching("--json --type BoardA --retries 0")));
    run.start();
    WAIT_FOR(!eventsOf(run.output()).isEmpty());
    const QJsonObject event = eventsOf(run.output()).first();
    QCOMPARE(text(event, "event"), QStringLiteral("refused"));
    QCOMPARE(text(event, "port"), m_ports[0]);
    QCOMPARE(text(event, "id"), QStringLiteral("S-1:1.0"));
    QCOMPARE(text(event, "serialNumber"), QStringLiteral("S-1"));
    QCOMPARE(event[QLatin1String("type")], QJsonValue(QJsonValue::Null));
    QCOMPARE(text(event, "reason"), reason);
    QVERIFY2(text(event, "summary").contains(summary), run.output().constData());
}

void TestJwprobeWatch::refusedPortIsReportedOnce()
{
    // The watch tries to open the port again and again, but jwprobe must report it only once.
    const Outcome outcome =
        runJwprobe({boardOn("BoardA", m_ports[0], "open=busy")}, watching("--json --deadline 2500"));
    QCOMPARE(texts(eventsOf(outcome.output), "event"), QStringList(QStringLiteral("refused")));
    QCOMPARE(outcome.status, 1);
}

void TestJwprobeWatch::refusedPortMayBecomeABoard()
{
    ProgramRun run(jwsimProgram(), jwprobe({boardOn("BoardA", m_ports[0], "late-permission=300")}, watching("--json")));
    run.start();
    WAIT_FOR(eventsOf(run.output(), "found").size() == 1);
    QCOMPARE(texts(statesOf(run.output()), "event").join(QLatin1Char(' ')), QStringLiteral("refused found"));
}

void TestJwprobeWatch::lostBoardIsNoRefusedPort()
{
    // Often the port reports the pull before udev does. Then the watch still lists the port for a moment, and jwprobe
    // must not report it as refused.
    const Outcome outcome =
        runJwprobe({boardOn("BoardA", m_ports[0], "pull-after=60,replug-after=40,cycles=40,replies=50,chunk=10,gap=1")},
                   watching("--json --deadline 6000"));
    const QList<QJsonObject> events = eventsOf(outcome.output);
    QVERIFY(texts(events, "event").count(QStringLiteral("lost")) >= 10);
    // On a busy machine, the cable may be pulled before the board has answered. Then jwprobe may report the port as
    // refused, but not as a port where something answered.
    const QStringList summaries = texts(eventsOf(outcome.output, "refused"), "summary");
    for (const QString &summary : summaries)
        QVERIFY2(!summary.contains(QLatin1String("answered")), qPrintable(summary));
}

void TestJwprobeWatch::sharedSerialNumberIsReported()
{
    ProgramRun run(jwsimProgram(),
                   jwprobe({boardOn("BoardA", m_ports[0], "serial=SAME"), boardOn("BoardB", m_ports[1], "serial=SAME")},
                           watching("--json")));
    run.start();
    WAIT_FOR(eventsOf(run.output(), "found").size() == 2);
    const QList<QJsonObject> events = eventsOf(run.output(), "found");
    const QStringList ids = texts(events, "id");
    QVERIFY(ids.contains(QStringLiteral("SAME:1.0")));
    QVERIFY2(QRegularExpression(QStringLiteral("^[0-9]+-[0-9.]+:1\\.0$"))
                 .match(ids[0] == QLatin1String("SAME:1.0") ? ids[1] : ids[0])
                 .hasMatch(),
             run.output().constData());
    QCOMPARE(events[1][QLatin1String("sharesSerialNumber")], QJsonValue(true));
}

void TestJwprobeWatch::eventsAreLinesWithoutATerminal()
{
    const QString keys =
        QStringLiteral("serial=S-9,replies=2,pull-after=500,replug-after=200,replug-port=") + m_ports[1];
    ProgramRun run(jwsimProgram(),
                   jwprobe({boardOn("BoardA", m_ports[0], keys.toLatin1().constData()),
                            boardOn("BoardC", m_ports[2], "open=busy")},
                           watching("")));
    run.start();
    WAIT_FOR(run.output().contains("  back  ") && run.output().contains("  refused  "));
    const QString clock = QStringLiteral("^[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}  ");
    const QString lines[] = {
        m_ports[0] + QStringLiteral("  found  BoardA, id S-9:1\\.0, hardware 7300022$"),
        m_ports[0] + QStringLiteral("  <-  \\$PJWVER,7300022,1,4,0\\*0d$"),
        m_ports[0] + QStringLiteral("  lost  BoardA, id S-9:1\\.0, cable pulled$"),
        m_ports[1] + QStringLiteral("  back  BoardA, id S-9:1\\.0, hardware 7300022$"),
        m_ports[2] + QStringLiteral("  refused  held by another program: jwsim .*$"),
    };
    for (const QString &line : lines) {
        QVERIFY2(QRegularExpression(clock + line, QRegularExpression::MultilineOption)
                     .match(QString::fromUtf8(run.output()))
                     .hasMatch(),
                 run.output().constData());
    }
    QVERIFY(!run.output().contains('\033'));
}

void TestJwprobeWatch::eventsArePrintedAtOnce()
{
    for (const char *options : {"--json", ""}) {
        ProgramRun run(jwsimProgram(), jwprobe({boardOn("BoardA", m_ports[0])}, watching(options)));
        run.start();
        WAIT_FOR(run.output().contains("found"));
        QVERIFY(run.output().endsWith('\n'));
        QVERIFY(!run.isOver());
    }
}

void TestJwprobeWatch::signalEndsItCleanly_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
}

void TestJwprobeWatch::signalEndsItCleanly()
{
    QFETCH(int, number);
    ProgramRun run(jwsimProgram(),
                   jwprobe({boardOn("BoardA", m_ports[0]), boardOn("silent", m_ports[1])}, watching("--json")));
    run.start();
    WAIT_FOR(!eventsOf(run.output(), "found").isEmpty());
    run.sendSignal(number);
    QVERIFY(run.finish());
    QCOMPARE(run.status(), 0);
    QCOMPARE(run.error(), QByteArray());
    QVERIFY(eventsOf(run.output(), "lost").isEmpty()); // the end of jwprobe is not a loss of the board
}

void TestJwprobeWatch::deadlineGivesTheStatusOfASearch_data()
{
    QTest::addColumn<QString>("board");
    QTest::addColumn<QString>("options");
    QTest::addColumn<int>("status");
    const QString boardA = QStringLiteral("BoardA,port=%1");
    const QString pulled = QStringLiteral("BoardA,pull-after=300,port=%1");
    const QString none;
    QTest::newRow("one board of any type") << boardA << none << 0;
    QTest::newRow("board that was lost again") << pulled << none << 0;
    QTest::newRow("named type") << boardA << QStringLiteral("--type BoardA") << 0;
    QTest::newRow("one of two named types") << boardA << QStringLiteral("--type BoardA --type BoardC") << 1;
    QTest::newRow("no board on the port") << QStringLiteral("silent,port=%1") << none << 1;
    QTest::newRow("no candidate") << QStringLiteral("BoardA,vendor=1234,manufacturer=Acme,port=%1") << none << 3;
}

void TestJwprobeWatch::deadlineGivesTheStatusOfASearch()
{
    QFETCH(QString, board);
    QFETCH(QString, options);
    const QStringList rest = options.isEmpty() ? QStringList() : options.split(QLatin1Char(' '));
    const Outcome outcome = runJwprobe({board.arg(m_ports[0])}, watching("--deadline 1500") + rest);
    QTEST(outcome.status, "status");
    QCOMPARE(outcome.error, QByteArray());
}

void TestJwprobeWatch::otherBoardsAreLeftAlone_data()
{
    QTest::addColumn<QString>("option");
    QTest::newRow("--port") << QStringLiteral("--port=%1");
    QTest::newRow("--id") << QStringLiteral("--id=ONE:1.0");
    QTest::newRow("--id, the port") << QStringLiteral("--id=%1");
}

void TestJwprobeWatch::otherBoardsAreLeftAlone()
{
    QFETCH(QString, option);
    if (option.contains(QLatin1Char('%')))
        option = option.arg(m_ports[0]);
    const QTemporaryDir folder;
    const QString report = folder.filePath(QStringLiteral("report"));
    const QStringList boards{boardOn("BoardA", m_ports[0], "serial=ONE"), boardOn("BoardA", m_ports[1], "serial=TWO")};
    const Outcome outcome = runProgram(jwsimProgram(),
                                       QStringList{QStringLiteral("--report"), report}
                                           + jwprobe(boards, watching("--json --deadline 1500") + QStringList(option)));
    QCOMPARE(outcome.status, 0);
    QCOMPARE(texts(statesOf(outcome.output), "port"), QStringList(m_ports[0]));
    QVERIFY(wasAsked(report, m_ports[0]));
    QVERIFY(!wasAsked(report, m_ports[1]));
}

void TestJwprobeWatch::absentIdIsSaidAndAwaited()
{
    ProgramRun run(jwsimProgram(),
                   jwprobe({boardOn("BoardA", m_ports[0], "serial=ONE"),
                            boardOn("BoardB", m_ports[1], "serial=TWO,plug-after=1000")},
                           watching("--json --id TWO:1.0")));
    run.start();
    WAIT_FOR(!eventsOf(run.output()).isEmpty());
    QCOMPARE(linesOf(run.error()).size(), 1);
    for (const QString &part : {QStringLiteral("TWO:1.0"), QStringLiteral("ONE:1.0 (%1)").arg(m_ports[0])})
        QVERIFY2(run.error().contains(part.toLatin1()), run.error().constData());
    QCOMPARE(texts(statesOf(run.output()), "id"), QStringList(QStringLiteral("TWO:1.0")));
}

void TestJwprobeWatch::delayHoldsTheProbeBack()
{
    ProgramRun run(jwsimProgram(),
                   jwprobe({boardOn("BoardC", m_ports[0])}, watching("--json --type BoardC --delay 700")));
    run.start();
    WAIT_FOR(!eventsOf(run.output(), "found").isEmpty());
    QVERIFY(eventsOf(run.output(), "found").first()[QLatin1String("milliseconds")].toDouble() >= 700);
}

void TestJwprobeWatch::retriesSayHowOftenAPortIsAsked()
{
    ProgramRun run(jwsimProgram(),
                   jwprobe({boardOn("silent", m_ports[0])}, watching("--json --type BoardA --retries 2")));
    run.start();
    WAIT_FOR(!eventsOf(run.output()).isEmpty());
    QVERIFY2(text(eventsOf(run.output()).first(), "summary").contains(QLatin1String("3 queries")),
             run.output().constData());
}

void TestJwprobeWatch::terminalShowsATable()
{
    const QString keys = QStringLiteral("serial=S-9,pull-after=600,replug-after=600,replug-port=") + m_ports[1];
    TerminalRun run(jwsimProgram(),
                    jwprobe({boardOn("BoardA", m_ports[0], keys.toLatin1().constData())}, watching("")));
    const auto row = [](const QString &port, const char *state) {
        return QRegularExpression(
            QStringLiteral("BoardA +%1 +S-9:1\\.0 +7300022 +%2 +[0-9:]{8} ").arg(port, QLatin1String(state)));
    };
    const auto shows = [&run](const QRegularExpression &line) {
        return line.match(QString::fromUtf8(run.screen())).hasMatch();
    };
    WAIT_FOR(shows(row(m_ports[0], "found")));
    WAIT_FOR(shows(row(m_ports[0], "cable pulled")));
    WAIT_FOR(shows(row(m_ports[1], "back")));
    QVERIFY(run.screen().contains("\033[J")); // jwprobe clears the old table before it draws a new one
    QVERIFY(run.type("\x03"));
    WAIT_FOR(run.isOver());
    QCOMPARE(run.status(), 0);
}

void TestJwprobeWatch::terminalShowsRefusedPorts()
{
    TerminalRun run(jwsimProgram(),
                    jwprobe({boardOn("BoardA", m_ports[0], "open=busy"), boardOn("BoardB", m_ports[1])}, watching("")));
    WAIT_FOR(run.screen().contains("held by another program: jwsim"));
    WAIT_FOR(run.screen().contains("7300021"));
}

void TestJwprobeWatch::logOnTheTerminalLeavesNoTable()
{
    TerminalRun run(jwsimProgram(), jwprobe({boardOn("BoardA", m_ports[0])}, watching("--traffic")));
    WAIT_FOR(run.screen().contains("found  BoardA"));
    QVERIFY(!run.screen().contains('\033'));
}

void TestJwprobeWatch::idSelectsTheBoardOfASearch_data()
{
    QTest::addColumn<QString>("id");
    QTest::newRow("serial number") << QStringLiteral("TWO:1.0");
    QTest::newRow("place") << QStringLiteral("place");
    QTest::newRow("port") << QStringLiteral("port");
}

void TestJwprobeWatch::idSelectsTheBoardOfASearch()
{
    QFETCH(QString, id);
    // Without a serial number, the list shows the place of the board as its id.
    const bool isPlace = id == QLatin1String("place");
    const QStringList boards{boardOn("BoardA", m_ports[0], isPlace ? "serial=" : "serial=ONE"),
                             boardOn("BoardA", m_ports[1], isPlace ? "serial=" : "serial=TWO")};
    const QString script =
        QStringLiteral("id=$(\"$0\" --list --json --port \"$2\" | sed -n 's/^ *\"id\": \"\\(.*\\)\",$/\\1/p' "
                       "| tail -n 1); case $1 in place) ;; port) id=$2 ;; *) id=$1 ;; esac; "
                       "\"$0\" --json --id \"$id\"");
    const Outcome outcome = runProgram(
        jwsimProgram(),
        simulated(boards, {QStringLiteral("sh"), QStringLiteral("-c"), script, jwprobeProgram(), id, m_ports[1]}));
    QCOMPARE(outcome.status, 0); // success, although no BoardB and no BoardC was found
    const QJsonObject document = QJsonDocument::fromJson(outcome.output).object();
    const QJsonArray found = document[QLatin1String("boards")].toArray();
    QCOMPARE(found.size(), 1);
    QCOMPARE(found[0][QLatin1String("port")].toString(), m_ports[1]);
    QVERIFY(document[QLatin1String("ports")].toArray().isEmpty());
    QCOMPARE(document[QLatin1String("wanted")], QJsonValue(QJsonArray{QStringLiteral("BoardA")}));
    QVERIFY(document[QLatin1String("missing")].toArray().isEmpty());
}

void TestJwprobeWatch::idMayBeThePlaceOfABoardWithASerialNumber()
{
    const QStringList boards{boardOn("BoardA", m_ports[0], "serial=SAME"),
                             boardOn("BoardB", m_ports[1], "serial=SAME")};
    const QString script = QStringLiteral("id=$(\"$0\" --list --json | sed -n 's/^ *\"id\": \"\\(.*\\)\",$/\\1/p' "
                                          "| grep -v SAME); echo \"$id\"; \"$0\" --json --id \"$id\"");
    const Outcome outcome = runProgram(
        jwsimProgram(), simulated(boards, {QStringLiteral("sh"), QStringLiteral("-c"), script, jwprobeProgram()}));
    QVERIFY2(outcome.output.startsWith("1-"), outcome.output.constData());
    const QJsonArray found = QJsonDocument::fromJson(outcome.output.mid(outcome.output.indexOf('\n')))
                                 .object()[QLatin1String("boards")]
                                 .toArray();
    QCOMPARE(found.size(), 1);
}

void TestJwprobeWatch::idSelectsTheBoardOfTheMonitor()
{
    const QStringList boards{boardOn("BoardA", m_ports[0], "serial=ONE"), boardOn("BoardA", m_ports[1], "serial=TWO")};
    ProgramRun run(jwsimProgram(), jwprobe(boards, {QStringLiteral("--monitor"), QStringLiteral("--id=TWO:1.0")}));
    run.start();
    run.write("PJWVER\n");
    WAIT_FOR(run.output().contains("<-"));
    QVERIFY(run.output().contains(m_ports[1].toLatin1()));
    QVERIFY(!run.output().contains(m_ports[0].toLatin1()));
}

void TestJwprobeWatch::idLimitsToThePortsNamed()
{
    const Outcome outcome = runJwprobe({boardOn("BoardA", m_ports[0], "serial=ONE"), boardOn("BoardA", m_ports[1])},
                                       {QStringLiteral("--id=ONE:1.0"), QStringLiteral("--port"), m_ports[1]});
    QCOMPARE(outcome.status, 3);
    QVERIFY2(!outcome.output.contains("7300022"), outcome.output.constData());
}

void TestJwprobeWatch::absentIdNamesTheIdsThatAreThere()
{
    const QStringList boards{boardOn("BoardA", m_ports[0], "serial=ONE"), boardOn("BoardB", m_ports[1], "serial=TWO"),
                             boardOn("BoardB", m_ports[2], "serial=OTHER,vendor=1234,manufacturer=Acme")};
    const Outcome outcome = runJwprobe(boards, {QStringLiteral("--id=THREE:1.0")});
    QCOMPARE(outcome.status, 3);
    QVERIFY2(outcome.output.contains("No port has the id \"THREE:1.0\""), outcome.output.constData());
    QVERIFY(outcome.output.contains(QStringLiteral("ONE:1.0 (%1)").arg(m_ports[0]).toLatin1()));
    QVERIFY(outcome.output.contains(QStringLiteral("TWO:1.0 (%1)").arg(m_ports[1]).toLatin1()));
    QVERIFY(!outcome.output.contains("OTHER")); // the port is no candidate, so it is not in the list
    QVERIFY(!outcome.output.contains("7300022")); // the hardware version, which only an asked board tells

    QCOMPARE(runJwprobe(boards, {QStringLiteral("--id=THREE:1.0"), QStringLiteral("--doctor")}).status, 3);
}

void TestJwprobeWatch::idNeedsNoBoardsIdentity()
{
    const QStringList boards{boardOn("BoardA", m_ports[0], "serial=ONE,vendor=1234,manufacturer=Acme")};
    QCOMPARE(runJwprobe(boards, {QStringLiteral("--id=ONE:1.0")}).status, 0);
}

void TestJwprobeWatch::listShowsTheIdsOfTheWatch()
{
    const QStringList boards{boardOn("BoardA", m_ports[0], "serial=SAME"), boardOn("BoardB", m_ports[1], "serial=SAME"),
                             boardOn("BoardC", m_ports[2], "serial=")};
    const QString script = QStringLiteral("\"$0\" --list --json; \"$0\" --watch --json --deadline 1500");
    const Outcome outcome = runProgram(
        jwsimProgram(), simulated(boards, {QStringLiteral("sh"), QStringLiteral("-c"), script, jwprobeProgram()}));
    const auto end = outcome.output.indexOf("\n}\n") + 3;
    QHash<QString, QString> listed;
    const QJsonArray ports =
        QJsonDocument::fromJson(outcome.output.left(end)).object()[QLatin1String("ports")].toArray();
    for (const QJsonValue port : ports)
        listed.insert(port[QLatin1String("port")].toString(), port[QLatin1String("id")].toString());
    QHash<QString, QString> found;
    const QList<QJsonObject> events = eventsOf(outcome.output.mid(end), "found");
    for (const QJsonObject &event : events)
        found.insert(text(event, "port"), text(event, "id"));
    QCOMPARE(found.size(), 3);
    QCOMPARE(found, listed);
    QCOMPARE(outcome.error, QByteArray());
}

QTEST_GUILESS_MAIN(TestJwprobeWatch)
#include "tst_jwprobe_watch.moc"

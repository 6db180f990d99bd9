#include "support/programs/jwsimrun.h"
#include "support/programs/terminalrun.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTest>

namespace {

const QString monitorOption = QStringLiteral("--monitor");

/// Returns an expression that matches one line that jwprobe --monitor prints: time of day, port, direction and text of
/// a payload.
QRegularExpression payloadLine(const QString &port, const QString &direction, const QString &text)
{
    return QRegularExpression(QStringLiteral("^[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} +%1 +%2 +%3$")
                                  .arg(port, direction, QRegularExpression::escape(text)),
                              QRegularExpression::MultilineOption);
}

bool shows(const QByteArray &output, const QRegularExpression &line)
{
    return line.match(QString::fromUtf8(output)).hasMatch();
}

} // namespace

/// Tests jwprobe --monitor with pipes and on a terminal.
class TestJwprobeMonitor : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void payloadsAreShownBothWays();
    void typedLineIsFramed_data();
    void typedLineIsFramed();
    void typedLineIsRefused_data();
    void typedLineIsRefused();
    void prefixChoosesTheBoard_data();
    void prefixChoosesTheBoard();
    void lineWithoutAPrefixGoesToAll();
    void unaskedPayloadsAreShown();
    void pulledCableIsSaidAndOthersGoOn();
    void lossOfTheLastBoardEndsIt();
    void signalEndsItCleanly_data();
    void signalEndsItCleanly();
    void endOfInputDoesNotEndIt();
    void lastLineNeedsNoEnd();
    void closedInputIsNoTrouble();
    void staysOnWhatWasFound();
    void withoutABoardItEndsAsASearch();
    void jsonIsOneObjectALine();

    void progressShowsOnATerminalOnly();
    void progressStaysAwayFromTheLog();
    void tableFitsTheTerminal();
    void ctrlCEndsTheMonitor();
    void ctrlCEndsTheSearch();

private:
    QStringList m_ports;
    QStringList m_boards; // values for jwsim's option --board: a BoardA and a BoardC
    QStringList m_options; // options with which jwprobe monitors both boards
};

void TestJwprobeMonitor::init()
{
    m_ports = QStringList{uniquePortName(), uniquePortName()};
    m_boards = QStringList{boardOn("BoardA", m_ports[0]), boardOn("BoardC", m_ports[1])};
    m_options = QStringList{monitorOption, QStringLiteral("--type=BoardA"), QStringLiteral("--type=BoardC")};
}

void TestJwprobeMonitor::payloadsAreShownBothWays()
{
    ProgramRun run(jwsimProgram(), jwprobe({m_boards[0]}, {monitorOption, QStringLiteral("--type=BoardA")}));
    run.start();
    run.write("PJWVER\n");
    const auto answer = payloadLine(m_ports[0], QStringLiteral("<-"), QStringLiteral("$PJWVER,7300022,1,4,0*0d"));
    WAIT_FOR(shows(run.output(), answer));
    QVERIFY(shows(run.output(), payloadLine(m_ports[0], QStringLiteral("->"), QStringLiteral("$PJWVER*0c"))));
    QVERIFY(run.output().startsWith("TYPE")); // jwprobe prints the table before the first payload
    QCOMPARE(run.error(), QByteArray());
    run.sendSignal(SIGTERM);
    QVERIFY(run.finish());
    QCOMPARE(run.status(), 0);
}

void TestJwprobeMonitor::typedLineIsFramed_data()
{
    QTest::addColumn<QByteArray>("typed");
    QTest::addColumn<QString>("sent");

    const QString version = QStringLiteral("$PJWVER*0c");
    QTest::newRow("text alone") << QByteArray("PJWVER\n") << version;
    QTest::newRow("start flag") << QByteArray("$PJWVER\n") << version;
    QTest::newRow("checksum") << QByteArray("PJWVER*0c\n") << version;
    QTest::newRow("whole sentence") << QByteArray("$PJWVER*0c\r\n") << version;
    QTest::newRow("blanks around") << QByteArray("  PJWVER \n") << version;
    QTest::newRow("checksum in capitals") << QByteArray("$PJWVER*0C\n") << QStringLiteral("$PJWVER*0C");
    QTest::newRow("fields") << QByteArray("PTJWWR,INF\n") << QStringLiteral("$PTJWWR,INF*71");
    QTest::newRow("Latin-1") << QByteArray("P\xc3\xa9*b9\n") << QStringLiteral("$P\u00e9*b9");
    QTest::newRow("exclamation mark") << QByteArray("!PTJWWR,INF\n") << QStringLiteral("!PTJWWR,INF*71");
}

void TestJwprobeMonitor::typedLineIsFramed()
{
    QFETCH(QByteArray, typed);
    QFETCH(QString, sent);

    ProgramRun run(jwsimProgram(), jwprobe({m_boards[0]}, {monitorOption, QStringLiteral("--type=BoardA")}));
    run.start();
    run.write(typed);
    const auto line = payloadLine(m_ports[0], QStringLiteral("->"), sent);
    WAIT_FOR(shows(run.output(), line));
    run.sendSignal(SIGTERM);
    QVERIFY(run.finish());
    QCOMPARE(run.error(), QByteArray());
}

void TestJwprobeMonitor::typedLineIsRefused_data()
{
    QTest::addColumn<QByteArray>("typed");
    QTest::addColumn<QByteArray>("says");

    QTest::newRow("wrong checksum") << QByteArray("$PJWVER*0d\n") << QByteArray("0c");
    QTest::newRow("checksum cut short") << QByteArray("$PJWVER*\n") << QByteArray("0c");
    QTest::newRow("text behind the checksum") << QByteArray("$PJWVER*0cX\n") << QByteArray("0c");
    QTest::newRow("start flag alone") << QByteArray("$\n") << QByteArray("not sent");
    QTest::newRow("beyond Latin-1") << QByteArray("PJWVER,\xc5\x82\n") << QByteArray("Latin-1");
    QTest::newRow("too long") << QByteArray(100, 'A') + "\n" << QByteArray("at most 74");
    QTest::newRow("start flag within") << QByteArray("PJW$VER\n") << QByteArray("not sent");
    QTest::newRow("no such port") << QByteArray("ttyNOPE0: PJWVER\n") << QByteArray("ttyNOPE0");
}

void TestJwprobeMonitor::typedLineIsRefused()
{
    QFETCH(QByteArray, typed);
    QFETCH(QByteArray, says);

    ProgramRun run(jwsimProgram(), jwprobe({m_boards[0]}, {monitorOption, QStringLiteral("--type=BoardA")}));
    run.start();
    run.write(typed + "\nPTJWWR,INF\n"); // jwprobe ignores the blank line
    WAIT_FOR(run.output().contains("$PTJWWR,INF*71"));
    QCOMPARE(run.output().count("->"), 1);
    WAIT_FOR(!run.error().isEmpty());
    QCOMPARE(linesOf(run.error()).size(), 1);
    QVERIFY2(run.error().contains(says), run.error().constData());
}

void TestJwprobeMonitor::prefixChoosesTheBoard_data()
{
    QTest::addColumn<QString>("prefix");
    QTest::newRow("port") << QString();
    QTest::newRow("type") << QStringLiteral("BoardC");
}

void TestJwprobeMonitor::prefixChoosesTheBoard()
{
    QFETCH(QString, prefix);

    ProgramRun run(jwsimProgram(), jwprobe(m_boards, m_options));
    run.start();
    run.write((prefix.isEmpty() ? m_ports[1] : prefix).toLatin1() + ": PTJWWR,INF\n");
    const auto answer =
        payloadLine(m_ports[1], QStringLiteral("<-"), QStringLiteral("$PTJWRD,INF,CTRL,3,17,2,1.04,7300030,1*5d"));
    WAIT_FOR(shows(run.output(), answer));
    QVERIFY(!shows(run.output(), payloadLine(m_ports[0], QStringLiteral("->"), QStringLiteral("$PTJWWR,INF*71"))));
}

void TestJwprobeMonitor::lineWithoutAPrefixGoesToAll()
{
    ProgramRun run(jwsimProgram(), jwprobe(m_boards, m_options));
    run.start();
    run.write("PJWVER\n");
    WAIT_FOR(shows(run.output(), payloadLine(m_ports[0], QStringLiteral("->"), QStringLiteral("$PJWVER*0c"))));
    WAIT_FOR(shows(run.output(), payloadLine(m_ports[1], QStringLiteral("->"), QStringLiteral("$PJWVER*0c"))));
}

void TestJwprobeMonitor::unaskedPayloadsAreShown()
{
    ProgramRun run(jwsimProgram(),
                   jwprobe({boardOn("BoardA", m_ports[0], "replies=2,chunk=26,gap=200")},
                           {monitorOption, QStringLiteral("--type=BoardA")}));
    run.start();
    const auto second = payloadLine(m_ports[0], QStringLiteral("<-"), QStringLiteral("$PJWVER,7300022,1,4,0*0d"));
    WAIT_FOR(shows(run.output(), second));
}

void TestJwprobeMonitor::pulledCableIsSaidAndOthersGoOn()
{
    // Each answer has 26 bytes, so the cable is pulled after the answers to the search and to the typed line.
    m_boards[0] = boardOn("BoardA", m_ports[0], "pull-after-bytes=52");
    ProgramRun run(jwsimProgram(), jwprobe(m_boards, m_options));
    run.start();
    run.write("BoardA: PJWVER\n");
    WAIT_FOR(run.output().contains("cable pulled"));
    const QRegularExpression line(QStringLiteral("^[0-9:.]+ +%1 +cable pulled$").arg(m_ports[0]),
                                  QRegularExpression::MultilineOption);
    QVERIFY2(shows(run.output(), line), run.output().constData());
    QVERIFY(!run.isOver());
    run.write("PTJWWR,INF\n");
    WAIT_FOR(shows(run.output(), payloadLine(m_ports[1], QStringLiteral("->"), QStringLiteral("$PTJWWR,INF*71"))));
    QVERIFY(!shows(run.output(), payloadLine(m_ports[0], QStringLiteral("->"), QStringLiteral("$PTJWWR,INF*71"))));
    run.sendSignal(SIGINT);
    QVERIFY(run.finish());
    QCOMPARE(run.status(), 0);
}

void TestJwprobeMonitor::lossOfTheLastBoardEndsIt()
{
    ProgramRun run(jwsimProgram(),
                   jwprobe({boardOn("BoardA", m_ports[0], "pull-after-bytes=40")},
                           {monitorOption, QStringLiteral("--type=BoardA")}));
    run.start();
    run.write("PJWVER\n");
    QVERIFY(run.finish());
    QCOMPARE(run.status(), 1);
    QVERIFY2(run.output().contains("cable pulled"), run.output().constData());
}

void TestJwprobeMonitor::signalEndsItCleanly_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
}

void TestJwprobeMonitor::signalEndsItCleanly()
{
    QFETCH(int, number);

    ProgramRun run(jwsimProgram(), jwprobe(m_boards, m_options));
    run.start();
    run.write("PJWVER\n");
    WAIT_FOR(run.output().contains("<-"));
    run.sendSignal(number);
    QVERIFY(run.finish());
    QCOMPARE(run.status(), 0);
    QCOMPARE(run.error(), QByteArray());
}

void TestJwprobeMonitor::endOfInputDoesNotEndIt()
{
    ProgramRun run(
        jwsimProgram(),
        jwprobe({boardOn("BoardA", m_ports[0], "delay=150")}, {monitorOption, QStringLiteral("--type=BoardA")}));
    run.start();
    run.write("PJWVER\n");
    run.closeInput();
    WAIT_FOR(run.output().contains("<-")); // payloads still arrive after the end of the input
    QVERIFY(!run.isOver());
    run.sendSignal(SIGTERM);
    QVERIFY(run.finish());
    QCOMPARE(run.status(), 0);
}

void TestJwprobeMonitor::lastLineNeedsNoEnd()
{
    ProgramRun run(jwsimProgram(), jwprobe({m_boards[0]}, {monitorOption, QStringLiteral("--type=BoardA")}));
    run.start();
    run.write("PJWVER");
    run.closeInput();
    WAIT_FOR(run.output().contains("<-"));
}

void TestJwprobeMonitor::closedInputIsNoTrouble()
{
    ProgramRun run(jwsimProgram(),
                   simulated({m_boards[0]},
                             {QStringLiteral("sh"), QStringLiteral("-c"), QStringLiteral("exec \"$0\" \"$@\" <&-"),
                              jwprobeProgram(), monitorOption, QStringLiteral("--type=BoardA")}));
    run.start();
    WAIT_FOR(run.output().contains("BoardA"));
    run.sendSignal(SIGTERM);
    QVERIFY(run.finish());
    QCOMPARE(run.status(), 0);
    QCOMPARE(run.error(), QByteArray());
}

void TestJwprobeMonitor::staysOnWhatWasFound()
{
    ProgramRun run(jwsimProgram(), jwprobe({m_boards[0]}, m_options + QStringList{QStringLiteral("--retries=0")}));
    run.start();
    run.write("PJWVER\n");
    WAIT_FOR(run.output().contains("<-"));
    QVERIFY(run.output().contains("missing"));
}

void TestJwprobeMonitor::withoutABoardItEndsAsASearch()
{
    QCOMPARE(runJwprobe({}, {monitorOption}).status, 3);
    QCOMPARE(runJwprobe({boardOn("silent", m_ports[0])}, {monitorOption, QStringLiteral("--retries=0")}).status, 1);
}

void TestJwprobeMonitor::jsonIsOneObjectALine()
{
    ProgramRun run(jwsimProgram(),
                   jwprobe({boardOn("BoardA", m_ports[0], "pull-after-bytes=260")},
                           {monitorOption, QStringLiteral("--type=BoardA"), QStringLiteral("--json")}));
    run.start();
    // The cable is pulled after 260 bytes, which are ten replies. The search uses at least one of these replies, so ten
    // typed lines are enough to reach the last reply.
    for (int i = 0; i < 10; ++i)
        run.write("PJWVER\n");
    QVERIFY(run.finish());
    QStringList events;
    for (const QByteArray &line : linesOf(run.output())) {
        const QJsonObject event = QJsonDocument::fromJson(line).object();
        QVERIFY2(!event.isEmpty(), line.constData());
        QString text = event[QLatin1String("event")].toString();
        if (text == QLatin1String("payload"))
            text += QLatin1Char(' ') + event[QLatin1String("direction")].toString() + QLatin1Char(' ')
                + event[QLatin1String("text")].toString();
        if (text != QLatin1String("search")) {
            QCOMPARE(event[QLatin1String("port")].toString(), m_ports[0]);
            QCOMPARE(event[QLatin1String("type")].toString(), QStringLiteral("BoardA"));
            QVERIFY(QDateTime::fromString(event[QLatin1String("time")].toString(), Qt::ISODateWithMs).isValid());
        }
        events.append(text);
    }
    QCOMPARE(events.takeFirst(), QStringLiteral("search"));
    QCOMPARE(events.takeLast(), QStringLiteral("lost"));
    events.removeDuplicates();
    events.sort();
    QCOMPARE(events,
             (QStringList{QStringLiteral("payload received $PJWVER,7300022,1,4,0*0d"),
                          QStringLiteral("payload sent $PJWVER*0c")}));
}

void TestJwprobeMonitor::progressShowsOnATerminalOnly()
{
    TerminalRun run(
        jwsimProgram(),
        simulated({boardOn("silent", m_ports[0])},
                  {QStringLiteral("sh"), QStringLiteral("-c"), QStringLiteral("\"$0\" \"$@\" > /dev/null; echo end"),
                   jwprobeProgram(), QStringLiteral("--retries=0")}));
    WAIT_FOR(run.isOver());
    const auto progress = run.screen().indexOf("Looking for BoardA, BoardB and BoardC");
    QVERIFY2(progress >= 0, run.screen().constData());
    // jwprobe erases its progress line at the end. The line never wraps, so the screen has only one line end.
    QVERIFY2(run.screen().endsWith("\r\x1b[Kend\r\n"), run.screen().constData());
    QCOMPARE(run.screen().count('\n'), 1);
}

void TestJwprobeMonitor::progressStaysAwayFromTheLog()
{
    TerminalRun run(
        jwsimProgram(),
        jwprobe({boardOn("silent", m_ports[0])}, {QStringLiteral("--retries=0"), QStringLiteral("--traffic")}));
    WAIT_FOR(run.isOver());
    QVERIFY(run.screen().contains("$PJWVER*0c"));
    QVERIFY2(!run.screen().contains("Looking for"), run.screen().constData());
}

void TestJwprobeMonitor::tableFitsTheTerminal()
{
    const QString longName = QString(100, QLatin1Char('M'));
    TerminalRun run(jwsimProgram(),
                    simulated({boardOn("BoardA", m_ports[0]) + QStringLiteral(",manufacturer=") + longName,
                               boardOn("silent", m_ports[1]), boardOn("BoardC", uniquePortName(), "open=denied")},
                              {QStringLiteral("sh"), QStringLiteral("-c"), QStringLiteral("\"$0\" \"$@\" 2> /dev/null"),
                               jwprobeProgram(), QStringLiteral("--retries=0")}));
    WAIT_FOR(run.isOver());
    QCOMPARE(run.status(), 1);
    for (const QByteArray &line : linesOf(run.screen())) {
        const bool isToCopy = line.contains("SUBSYSTEM") || line.contains("sudo ");
        QVERIFY2(isToCopy || line.trimmed().size() <= 80, line.constData());
    }
}

void TestJwprobeMonitor::ctrlCEndsTheMonitor()
{
    TerminalRun run(jwsimProgram(), jwprobe(m_boards, m_options));
    WAIT_FOR(run.screen().contains("Ctrl-C ends"));
    QVERIFY(run.type("PJWVER\n"));
    WAIT_FOR(run.screen().contains("$PJWVER,7300022,1,4,0*0d\r\n"));
    QVERIFY(run.type("\x03"));
    WAIT_FOR(run.isOver());
    QCOMPARE(run.status(), 0);
}

void TestJwprobeMonitor::ctrlCEndsTheSearch()
{
    TerminalRun run(jwsimProgram(),
                    jwprobe({boardOn("silent", m_ports[0])},
                            {QStringLiteral("--retries=10000"), QStringLiteral("--deadline=3600000")}));
    WAIT_FOR(run.screen().contains("Looking for"));
    QVERIFY(run.type("\x03"));
    WAIT_FOR(run.isOver());
    QCOMPARE(run.status(), 128 + SIGINT);
}

QTEST_GUILESS_MAIN(TestJwprobeMonitor)
#include "tst_jwprobe_monitor.moc"

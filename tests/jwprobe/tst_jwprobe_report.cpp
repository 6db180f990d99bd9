#include "support/programs/jwsimrun.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTest>

namespace {

QStringList options(std::initializer_list<const char *> texts)
{
    QStringList list;
    for (const char *text : texts)
        list.append(QLatin1String(text));
    return list;
}

QJsonObject document(const Outcome &outcome)
{
    return QJsonDocument::fromJson(outcome.output).object();
}

QStringList texts(const QJsonValue &array)
{
    QStringList list;
    const QJsonArray values = array.toArray();
    for (const QJsonValue value : values)
        list.append(value.toString());
    return list;
}

QStringList cells(const QByteArray &line)
{
    return QString::fromUtf8(line).split(QRegularExpression(QStringLiteral("  +")), Qt::SkipEmptyParts);
}

const QStringList columns{QStringLiteral("TYPE"),   QStringLiteral("PORT"),     QStringLiteral("MANUFACTURER"),
                          QStringLiteral("SERIAL"), QStringLiteral("HARDWARE"), QStringLiteral("TIME")};

} // namespace

/// Tests what jwprobe prints after a search, and the exit status of jwprobe.
class TestJwprobeReport : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void tableHasARowForEachBoard();
    void tableNamesWhatIsMissing();
    void cellWithoutATextIsADash();
    void jsonHasAllOfABoard();
    void jsonTellsOfMissingBoards();
    void jsonTellsWhatBecameOfAPort_data();
    void jsonTellsWhatBecameOfAPort();
    void jsonTellsOfASecondBoardOfAType();
    void jsonTellsHowOftenABoardWasAsked();
    void jsonStaysADocumentWithoutAPort();
    void duplicateIsNotADefect();

    void statusIs0WhenAllWantedAreFound();
    void statusIs1WhenSomeAreMissing();
    void statusIs3WithoutACandidate();
    void statusIs2OnWrongUse_data();
    void statusIs2OnWrongUse();

    void typeLimitsTheSearch();
    void repeatedTypesAreAllWanted();
    void portLimitsTheSearch();
    void repeatedPortsAreAllProbed();
    void portTakesThePathOfADevice();
    void portNeedsNoBoardsIdentity();
    void portThatIsNotThereIsNamed();
    void delayHoldsTheSearchBackForBoardC();
    void delayIsLeftOutWithoutBoardC();
    void retriesSayHowOftenPortsAreAsked_data();
    void retriesSayHowOftenPortsAreAsked();
    void deadlineEndsASearchThatAPortLeavesOpen();
    void logShowsRecordsFromItsLevelOn_data();
    void logShowsRecordsFromItsLevelOn();
    void trafficShowsPayloads();
    void rawTrafficShowsBytes();
    void quietSearchWritesNothingToStandardError();
    void signalEndsTheSearch_data();
    void signalEndsTheSearch();
    void closedOutputIsReported();

    void versionIsThatOfTheProject();
    void helpNamesAllOptions();

private:
    QStringList m_ports;
};

void TestJwprobeReport::init()
{
    m_ports = QStringList{uniquePortName(), uniquePortName(), uniquePortName()};
}

void TestJwprobeReport::tableHasARowForEachBoard()
{
    const Outcome outcome =
        runJwprobe({boardOn("BoardC", m_ports[0], "serial=S-1"),
                    boardOn("BoardA", m_ports[1], "serial=S-2,manufacturer=Acme,hwversion=x7300022y"),
                    boardOn("BoardB", m_ports[2], "serial=S-3,vendor=1234")},
                   {});
    QCOMPARE(outcome.error, QByteArray());
    QCOMPARE(outcome.status, 0);
    const QList<QByteArray> lines = linesOf(outcome.output);
    QCOMPARE(lines.size(), 4);
    QCOMPARE(cells(lines[0]), columns);
    const QString st = QStringLiteral("STMicroelectronics.");
    const QStringList rows[] = {
        {QStringLiteral("BoardA"), m_ports[1], QStringLiteral("Acme"), QStringLiteral("S-2"),
         QStringLiteral("x7300022y")},
        {QStringLiteral("BoardB"), m_ports[2], st, QStringLiteral("S-3"), QStringLiteral("7300021")},
        {QStringLiteral("BoardC"), m_ports[0], st, QStringLiteral("S-1"), QStringLiteral("7300030")}};
    const QRegularExpression time(QStringLiteral("^[0-9]+(\\.[0-9])? ms$"));
    for (int i = 0; i < 3; ++i) {
        const QStringList row = cells(lines[i + 1]);
        QCOMPARE(row.mid(0, 5), rows[i]);
        QVERIFY2(time.match(row.value(5)).hasMatch(), lines[i + 1].constData());
        QVERIFY(lines[i + 1].size() <= 80);
    }
}

void TestJwprobeReport::tableNamesWhatIsMissing()
{
    const Outcome outcome = runJwprobe({boardOn("BoardB", m_ports[0])}, {});
    QCOMPARE(outcome.status, 1);
    const QList<QByteArray> lines = linesOf(outcome.output);
    QVERIFY(lines.size() > 3);
    QCOMPARE(cells(lines[1]), (QStringList{QStringLiteral("BoardA"), QStringLiteral("missing")}));
    QCOMPARE(cells(lines[2]).mid(0, 2), (QStringList{QStringLiteral("BoardB"), m_ports[0]}));
    QCOMPARE(cells(lines[3]), (QStringList{QStringLiteral("BoardC"), QStringLiteral("missing")}));
}

void TestJwprobeReport::cellWithoutATextIsADash()
{
    const Outcome outcome =
        runJwprobe({boardOn("BoardC", m_ports[0], "serial=,manufacturer=,hwversion=")}, options({"--type", "BoardC"}));
    QCOMPARE(outcome.status, 0);
    const QString dash = QStringLiteral("-");
    QCOMPARE(cells(linesOf(outcome.output).value(1)).mid(0, 5),
             (QStringList{QStringLiteral("BoardC"), m_ports[0], dash, dash, dash}));
}

void TestJwprobeReport::jsonHasAllOfABoard()
{
    const Outcome outcome =
        runJwprobe({boardOn("BoardC", m_ports[0], "serial=S-1,product=00ab")}, options({"--json", "--type", "BoardC"}));
    QCOMPARE(outcome.status, 0);
    QCOMPARE(outcome.error, QByteArray());
    const QJsonObject found = document(outcome);
    QCOMPARE(texts(found[QLatin1String("wanted")]), QStringList(QStringLiteral("BoardC")));
    QCOMPARE(texts(found[QLatin1String("missing")]), QStringList());
    QCOMPARE(found[QLatin1String("exitStatus")].toInt(-1), 0);
    QCOMPARE(found[QLatin1String("deadlineReached")], QJsonValue(false));
    QCOMPARE(found[QLatin1String("version")].toString(), QStringLiteral(PROJECT_VERSION));
    QVERIFY(found[QLatin1String("ports")].toArray().isEmpty());
    QVERIFY(found[QLatin1String("advice")].isArray());

    QCOMPARE(found[QLatin1String("boards")].toArray().size(), 1);
    QJsonObject board = found[QLatin1String("boards")].toArray().first().toObject();
    const double time = board.take(QLatin1String("milliseconds")).toDouble(-1);
    QVERIFY(time >= 0);
    QVERIFY(found[QLatin1String("milliseconds")].toDouble(-1) >= time);
    QCOMPARE(board,
             (QJsonObject{{QStringLiteral("type"), QStringLiteral("BoardC")},
                          {QStringLiteral("port"), m_ports[0]},
                          {QStringLiteral("id"), QStringLiteral("S-1:1.0")},
                          {QStringLiteral("location"), QStringLiteral("/dev/") + m_ports[0]},
                          {QStringLiteral("manufacturer"), QStringLiteral("STMicroelectronics.")},
                          {QStringLiteral("serialNumber"), QStringLiteral("S-1")},
                          {QStringLiteral("vendorId"), QStringLiteral("0483")},
                          {QStringLiteral("productId"), QStringLiteral("00ab")},
                          {QStringLiteral("product"), QStringLiteral("Simulated board")},
                          {QStringLiteral("verdict"), QStringLiteral("handedOver")},
                          {QStringLiteral("error"), QJsonValue::Null},
                          {QStringLiteral("errorText"), QJsonValue::Null},
                          {QStringLiteral("unreadable"), QJsonValue::Null},
                          {QStringLiteral("queries"), 1},
                          {QStringLiteral("payloads"), 1},
                          {QStringLiteral("hardwareVersion"), QStringLiteral("7300030")},
                          {QStringLiteral("reply"), QStringLiteral("$PTJWRD,INF,CTRL,3,17,2,1.04,7300030,1*5d")},
                          {QStringLiteral("connected"), true}}));
}

void TestJwprobeReport::jsonTellsOfMissingBoards()
{
    const Outcome outcome = runJwprobe({boardOn("silent", m_ports[0])}, options({"--json", "--retries", "0"}));
    QCOMPARE(outcome.status, 1);
    const QJsonObject found = document(outcome);
    QCOMPARE(texts(found[QLatin1String("missing")]),
             (QStringList{QStringLiteral("BoardA"), QStringLiteral("BoardB"), QStringLiteral("BoardC")}));
    QCOMPARE(found[QLatin1String("exitStatus")].toInt(), 1);
    QVERIFY(found[QLatin1String("boards")].toArray().isEmpty());
    const QJsonObject port = found[QLatin1String("ports")].toArray().first().toObject();
    QCOMPARE(port[QLatin1String("port")].toString(), m_ports[0]);
    QCOMPARE(port[QLatin1String("state")].toString(), QStringLiteral("silent"));
    QVERIFY(!port[QLatin1String("summary")].toString().isEmpty());
    QVERIFY(!texts(port[QLatin1String("advice")]).isEmpty());
}

void TestJwprobeReport::jsonTellsWhatBecameOfAPort_data()
{
    QTest::addColumn<QString>("board");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("verdict");
    QTest::addColumn<QString>("state");
    QTest::addColumn<QString>("error"); // pattern, because the error of a pulled cable depends on the system
    QTest::addColumn<QJsonValue>("reply");
    QTest::addColumn<QJsonValue>("unreadable");
    QTest::addColumn<int>("queries");
    QTest::addColumn<int>("payloads");

    const auto row = [](const char *name, const char *kind, const char *keys,
                        std::initializer_list<const char *> arguments, const char *verdict, const char *state,
                        const char *error, const QJsonValue &reply, const QJsonValue &unreadable, int queries,
                        int payloads) {
        QTest::newRow(name) << boardOn(kind, QStringLiteral("%1"), keys) << options(arguments)
                            << QString::fromLatin1(verdict) << QString::fromLatin1(state) << QString::fromLatin1(error)
                            << reply << unreadable << queries << payloads;
    };
    const QJsonValue none = QJsonValue::Null;
    const QJsonValue boardA = QStringLiteral("$PJWVER,7300022,1,4,0*0d");
    row("not opened", "BoardB", "open=denied", {"--retries", "0"}, "notOpened", "noPermission", "PermissionError", none,
        none, 0, 0);
    row("awaiting", "silent", "", {"--deadline", "100"}, "awaiting", "unheard", "", none, none, 1, 0);
    row("timed out", "silent", "", {"--retries", "2"}, "timedOut", "silent", "", none, none, 3, 0);
    row("two queries a round", "silent", "", {"--retries", "1", "--type", "BoardC"}, "timedOut", "silent", "", none,
        none, 4, 0);
    row("bytes that are no payload", "babble", "", {"--retries", "0"}, "timedOut", "silent", "", none, none, 1, 0);
    row("damaged answers", "BoardA", "checksum=wrong", {"--retries", "1"}, "timedOut", "unreadable", "", none,
        QStringLiteral("$PJWVER,7300022,1,4,0*58"), 2, 2);
    row("silenced", "BoardA", "", {"--deadline", "2000"}, "silenced", "otherType", "", boardA, none, 1, 1);
    row("lost", "BoardB", "pull-after-bytes=3", {"--retries", "0"}, "lost", "unplugged", "(Read|Write|Resource)Error",
        none, none, 1, 0);
}

void TestJwprobeReport::jsonTellsWhatBecameOfAPort()
{
    QFETCH(QString, board);
    QFETCH(QStringList, arguments);
    QFETCH(QString, error);

    const Outcome outcome = runJwprobe({board.arg(m_ports[0])}, options({"--json", "--type", "BoardB"}) + arguments);
    QCOMPARE(outcome.status, 1);
    const QJsonObject port = document(outcome)[QLatin1String("ports")].toArray().first().toObject();
    QCOMPARE(port[QLatin1String("port")].toString(), m_ports[0]);
    QCOMPARE(port[QLatin1String("product")].toString(), QStringLiteral("Simulated board"));
    QTEST(port[QLatin1String("verdict")].toString(), "verdict");
    QTEST(port[QLatin1String("state")].toString(), "state");
    const QString found = port[QLatin1String("error")].toString();
    QVERIFY2(QRegularExpression(QRegularExpression::anchoredPattern(error)).match(found).hasMatch(), qPrintable(found));
    QCOMPARE(port[QLatin1String("errorText")].isNull(), port[QLatin1String("error")].isNull());
    QTEST(port[QLatin1String("reply")], "reply");
    QTEST(port[QLatin1String("unreadable")], "unreadable");
    QTEST(port[QLatin1String("queries")].toInt(-1), "queries");
    QTEST(port[QLatin1String("payloads")].toInt(-1), "payloads");
}

void TestJwprobeReport::jsonTellsOfASecondBoardOfAType()
{
    const Outcome outcome = runJwprobe({boardOn("BoardB", m_ports[0]), boardOn("BoardB", m_ports[1], "delay=100")},
                                       options({"--json", "--type", "BoardB", "--type", "BoardC", "--retries", "0"}));
    QCOMPARE(outcome.status, 1);
    const QJsonObject port = document(outcome)[QLatin1String("ports")].toArray().first().toObject();
    QCOMPARE(port[QLatin1String("port")].toString(), m_ports[1]);
    QCOMPARE(port[QLatin1String("verdict")].toString(), QStringLiteral("duplicate"));
    QCOMPARE(port[QLatin1String("state")].toString(), QStringLiteral("duplicate"));
    QCOMPARE(port[QLatin1String("reply")].toString(), QStringLiteral("$PJWVER,7300021,1,4,0*0e"));
}

void TestJwprobeReport::jsonTellsHowOftenABoardWasAsked()
{
    // The board ignores the first query, so jwprobe sends a second query.
    const Outcome outcome =
        runJwprobe({boardOn("BoardA", m_ports[0], "ignore=1")}, options({"--json", "--type", "BoardA"}));
    QCOMPARE(outcome.status, 0);
    const QJsonObject board = document(outcome)[QLatin1String("boards")].toArray().first().toObject();
    QCOMPARE(board[QLatin1String("queries")].toInt(), 2);
    QCOMPARE(board[QLatin1String("payloads")].toInt(), 1);
}

void TestJwprobeReport::jsonStaysADocumentWithoutAPort()
{
    const Outcome outcome = runJwprobe({}, options({"--json"}));
    QCOMPARE(outcome.status, 3);
    const QJsonObject found = document(outcome);
    QCOMPARE(found[QLatin1String("exitStatus")].toInt(), 3);
    QCOMPARE(texts(found[QLatin1String("missing")]).size(), 3);
    QVERIFY(!texts(found[QLatin1String("advice")]).isEmpty());
}

void TestJwprobeReport::duplicateIsNotADefect()
{
    const Outcome outcome = runJwprobe({boardOn("BoardB", m_ports[0]), boardOn("BoardB", m_ports[1], "delay=50")},
                                       options({"--json", "--type", "BoardB"}));
    QCOMPARE(outcome.status, 0);
    QCOMPARE(document(outcome)[QLatin1String("boards")].toArray().size(), 1);
    QCOMPARE(document(outcome)[QLatin1String("ports")].toArray().size(), 1);
}

void TestJwprobeReport::statusIs0WhenAllWantedAreFound()
{
    QCOMPARE(runJwprobe({boardOn("BoardA", m_ports[0]), boardOn("silent", m_ports[1])}, options({"--type", "BoardA"}))
                 .status,
             0);
}

void TestJwprobeReport::statusIs1WhenSomeAreMissing()
{
    const QStringList retries = options({"--retries", "0"});
    QCOMPARE(runJwprobe({boardOn("BoardA", m_ports[0]), boardOn("silent", m_ports[1])}, retries).status, 1);
    QCOMPARE(runJwprobe({boardOn("silent", m_ports[0])}, retries).status, 1);
    QCOMPARE(runJwprobe({boardOn("BoardA", m_ports[0], "open=denied")}, retries).status, 1);
}

void TestJwprobeReport::statusIs3WithoutACandidate()
{
    QCOMPARE(runJwprobe({}, {}).status, 3);
    QCOMPARE(runJwprobe({boardOn("BoardA", m_ports[0], "vendor=1234,manufacturer=Acme")}, {}).status, 3);
    // A similar manufacturer is not enough, because the name must match exactly.
    QCOMPARE(runJwprobe({boardOn("BoardA", m_ports[0], "vendor=1234,manufacturer=STMicroelectronics")}, {}).status, 3);
}

void TestJwprobeReport::statusIs2OnWrongUse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("says");

    const auto row = [](const char *name, std::initializer_list<const char *> arguments, const char *says) {
        QTest::newRow(name) << options(arguments) << QString::fromLatin1(says);
    };
    row("unknown option", {"--frob"}, "frob");
    row("argument", {"ttyACM0"}, "--port");
    row("type unknown", {"--type", "Toaster"}, "BoardA, BoardB and BoardC");
    row("type is no board", {"--type", "Unknown"}, "BoardA");
    row("type empty", {"--type", ""}, "BoardA");
    row("type without value", {"--type"}, "type");
    row("one of two types unknown", {"--type", "BoardA", "--type", "x"}, "BoardA");
    row("port empty", {"--port", ""}, "ttyACM0");
    row("delay below 0", {"--delay", "-1"}, "0 to");
    row("delay no number", {"--delay", "soon"}, "0 to");
    row("delay with unit", {"--delay", "10ms"}, "0 to");
    row("retries below 0", {"--retries", "-1"}, "0 to");
    row("retries beyond int", {"--retries", "99999999999"}, "0 to");
    row("retries a fraction", {"--retries", "1.5"}, "0 to");
    row("deadline 0", {"--deadline", "0"}, "1 to");
    row("deadline no number", {"--deadline", ""}, "1 to");
    row("log level unknown", {"--log", "loud"}, "trace, debug, info, warning, error, fatal");
    row("list and monitor", {"--list", "--monitor"}, "--monitor");
    row("delay beyond the deadline", {"--delay", "6000"}, "--deadline");
    row("value for a switch", {"--json=yes"}, "json");
}

void TestJwprobeReport::statusIs2OnWrongUse()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, says);

    const Outcome outcome = runProgram(jwprobeProgram(), arguments);
    QCOMPARE(outcome.status, 2);
    QCOMPARE(outcome.output, QByteArray());
    QCOMPARE(linesOf(outcome.error).size(), 1);
    QVERIFY2(QString::fromUtf8(outcome.error).contains(says), outcome.error.constData());
}

void TestJwprobeReport::typeLimitsTheSearch()
{
    const Outcome outcome = runJwprobe({boardOn("BoardA", m_ports[0])}, options({"--type", "BoardA", "--json"}));
    QCOMPARE(outcome.status, 0);
    QCOMPARE(texts(document(outcome)[QLatin1String("wanted")]), QStringList(QStringLiteral("BoardA")));
}

void TestJwprobeReport::repeatedTypesAreAllWanted()
{
    const Outcome outcome = runJwprobe({boardOn("BoardA", m_ports[0]), boardOn("BoardC", m_ports[1])},
                                       options({"--json", "--type", "BoardC", "--type", "BoardA", "--type", "BoardC"}));
    QCOMPARE(outcome.status, 0);
    QCOMPARE(texts(document(outcome)[QLatin1String("wanted")]),
             (QStringList{QStringLiteral("BoardC"), QStringLiteral("BoardA")}));
    QCOMPARE(document(outcome)[QLatin1String("boards")].toArray().size(), 2);
}

void TestJwprobeReport::portLimitsTheSearch()
{
    const Outcome outcome = runJwprobe({boardOn("BoardA", m_ports[0]), boardOn("BoardA", m_ports[1])},
                                       options({"--type", "BoardA", "--json", "--port"}) + QStringList{m_ports[1]});
    QCOMPARE(outcome.status, 0);
    const QJsonArray boards = document(outcome)[QLatin1String("boards")].toArray();
    QCOMPARE(boards.size(), 1);
    QCOMPARE(boards.first().toObject()[QLatin1String("port")].toString(), m_ports[1]);
    QVERIFY(document(outcome)[QLatin1String("ports")].toArray().isEmpty());
}

void TestJwprobeReport::repeatedPortsAreAllProbed()
{
    const QString port = QStringLiteral("--port");
    const Outcome outcome = runJwprobe(
        {boardOn("BoardA", m_ports[0]), boardOn("BoardB", m_ports[1]), boardOn("BoardC", m_ports[2])},
        {QStringLiteral("--type"), QStringLiteral("BoardA"), QStringLiteral("--type"), QStringLiteral("BoardC"),
         QStringLiteral("--json"), port, m_ports[2], port, m_ports[0], port, m_ports[2]});
    QCOMPARE(outcome.status, 0);
    QCOMPARE(document(outcome)[QLatin1String("boards")].toArray().size(), 2);
    QVERIFY(document(outcome)[QLatin1String("ports")].toArray().isEmpty());
}

void TestJwprobeReport::portTakesThePathOfADevice()
{
    const Outcome outcome =
        runJwprobe({boardOn("BoardA", m_ports[0])},
                   options({"--type", "BoardA", "--port"}) + QStringList{QStringLiteral("/dev/") + m_ports[0]});
    QCOMPARE(outcome.status, 0);
}

void TestJwprobeReport::portNeedsNoBoardsIdentity()
{
    const Outcome outcome = runJwprobe({boardOn("BoardA", m_ports[0], "vendor=1234,manufacturer=Acme")},
                                       options({"--type", "BoardA", "--port"}) + QStringList{m_ports[0]});
    QCOMPARE(outcome.status, 0);
}

void TestJwprobeReport::portThatIsNotThereIsNamed()
{
    const Outcome outcome =
        runJwprobe({boardOn("BoardA", m_ports[0])}, options({"--json", "--port"}) + QStringList{m_ports[1]});
    QCOMPARE(outcome.status, 1);
    const QJsonObject port = document(outcome)[QLatin1String("ports")].toArray().first().toObject();
    QCOMPARE(port[QLatin1String("port")].toString(), m_ports[1]);
    QCOMPARE(port[QLatin1String("state")].toString(), QStringLiteral("noSuchPort"));
    QVERIFY(texts(port[QLatin1String("advice")]).join(QLatin1Char(' ')).contains(QLatin1String("--list")));
}

void TestJwprobeReport::delayHoldsTheSearchBackForBoardC()
{
    const Outcome outcome =
        runJwprobe({boardOn("BoardC", m_ports[0])}, options({"--json", "--type", "BoardC", "--delay", "300"}));
    QCOMPARE(outcome.status, 0);
    const QJsonObject board = document(outcome)[QLatin1String("boards")].toArray().first().toObject();
    // Timers of Qt may fire 5 % early, so accept a little less than 300 ms.
    QVERIFY(board[QLatin1String("milliseconds")].toDouble() >= 300 * 0.95 - 1);
}

void TestJwprobeReport::delayIsLeftOutWithoutBoardC()
{
    // Only a BoardC needs the delay. If jwprobe waited here, the deadline would end the search first.
    const Outcome outcome = runJwprobe({boardOn("BoardA", m_ports[0])},
                                       options({"--type", "BoardA", "--delay", "3600000", "--deadline", "50000"}));
    QCOMPARE(outcome.error, QByteArray());
    QCOMPARE(outcome.status, 0);
}

void TestJwprobeReport::retriesSayHowOftenPortsAreAsked_data()
{
    QTest::addColumn<int>("retries");
    QTest::newRow("none") << 0;
    QTest::newRow("two") << 2;
}

void TestJwprobeReport::retriesSayHowOftenPortsAreAsked()
{
    QFETCH(int, retries);

    const Outcome outcome =
        runJwprobe({boardOn("BoardA", m_ports[0], "ignore=1000")},
                   options({"--type", "BoardA", "--traffic", "--retries"}) + QStringList{QString::number(retries)});
    QCOMPARE(outcome.status, 1);
    QCOMPARE(outcome.error.count("$PJWVER*0c"), retries + 1);
}

void TestJwprobeReport::deadlineEndsASearchThatAPortLeavesOpen()
{
    // A BoardA answers, but jwprobe wants a BoardB. So the search stays open until the deadline.
    const Outcome outcome =
        runJwprobe({boardOn("BoardA", m_ports[0])}, options({"--json", "--type", "BoardB", "--deadline", "250"}));
    QCOMPARE(outcome.status, 1);
    const QJsonObject found = document(outcome);
    QCOMPARE(found[QLatin1String("deadlineReached")], QJsonValue(true));
    QCOMPARE(texts(found[QLatin1String("missing")]), QStringList(QStringLiteral("BoardB")));
    QVERIFY(found[QLatin1String("milliseconds")].toDouble() >= 250 * 0.95 - 1);
}

void TestJwprobeReport::logShowsRecordsFromItsLevelOn_data()
{
    QTest::addColumn<QString>("level");
    QTest::addColumn<QStringList>("shown");
    QTest::addColumn<QStringList>("hidden");

    const QString opened = QStringLiteral("Serial port opened for probing");
    const QString end = QStringLiteral("Disconnect from signals");
    const QString retry = QStringLiteral("Retry probing");
    const QString fault = QStringLiteral("Parse failed: ");
    QTest::newRow("trace") << QStringLiteral("trace") << QStringList{opened, end, retry, fault} << QStringList{};
    QTest::newRow("debug") << QStringLiteral("debug") << QStringList{end, retry, fault} << QStringList{opened};
    QTest::newRow("info") << QStringLiteral("info") << QStringList{retry, fault} << QStringList{opened, end};
    QTest::newRow("warning") << QStringLiteral("Warning") << QStringList{retry, fault} << QStringList{opened, end};
    QTest::newRow("error") << QStringLiteral("ERROR") << QStringList{fault} << QStringList{opened, end, retry};
    QTest::newRow("fatal") << QStringLiteral("fatal") << QStringList{} << QStringList{opened, end, retry, fault};
}

void TestJwprobeReport::logShowsRecordsFromItsLevelOn()
{
    QFETCH(QString, level);
    QFETCH(QStringList, shown);
    QFETCH(QStringList, hidden);

    const Outcome outcome = runJwprobe({boardOn("BoardA", m_ports[0], "checksum=wrong")},
                                       options({"--type", "BoardA", "--retries", "1", "--log"}) + QStringList{level});
    QCOMPARE(outcome.status, 1);
    for (const QString &text : shown)
        QVERIFY2(outcome.error.contains(text.toLatin1()), outcome.error.constData());
    for (const QString &text : hidden)
        QVERIFY2(!outcome.error.contains(text.toLatin1()), outcome.error.constData());
}

void TestJwprobeReport::trafficShowsPayloads()
{
    const Outcome outcome = runJwprobe({boardOn("BoardA", m_ports[0])}, options({"--type", "BoardA", "--traffic"}));
    QCOMPARE(outcome.status, 0);
    const QList<QByteArray> lines = linesOf(outcome.error);
    QCOMPARE(lines.size(), 2);
    QVERIFY2(lines[0].contains("->") && lines[0].contains("\"$PJWVER*0c\""), lines[0].constData());
    QVERIFY2(lines[1].contains("<-") && lines[1].contains("\"$PJWVER,7300022,1,4,0*0d\""), lines[1].constData());
}

void TestJwprobeReport::rawTrafficShowsBytes()
{
    const Outcome outcome =
        runJwprobe({boardOn("BoardA", m_ports[0], "noise=5")}, options({"--type", "BoardA", "--raw-traffic"}));
    QCOMPARE(outcome.status, 0);
    QVERIFY(outcome.error.contains("RawCommunication"));
    QVERIFY(outcome.error.contains("$PJWVER*0c"));
    QVERIFY(outcome.error.contains("$PJWVER,7300022,1,4,0*0d"));
    QVERIFY(!outcome.error.contains(" Communication"));
}

void TestJwprobeReport::quietSearchWritesNothingToStandardError()
{
    const Outcome outcome =
        runJwprobe({boardOn("BoardA", m_ports[0], "checksum=wrong")}, options({"--type", "BoardA", "--retries", "1"}));
    QCOMPARE(outcome.status, 1);
    QCOMPARE(outcome.error, QByteArray());
}

void TestJwprobeReport::signalEndsTheSearch_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
}

void TestJwprobeReport::signalEndsTheSearch()
{
    QFETCH(int, number);

    ProgramRun run(jwsimProgram(),
                   jwprobe({boardOn("silent", m_ports[0])},
                           options({"--log", "trace", "--retries", "10000", "--deadline", "3600000"})));
    run.start();
    WAIT_FOR(run.error().contains("Retry probing"));
    run.sendSignal(number);
    QVERIFY(run.finish());
    QCOMPARE(run.status(), 128 + number);
    QVERIFY(run.error().contains("*** Initializer deleted ***"));
}

void TestJwprobeReport::closedOutputIsReported()
{
    const QStringList command{
        QStringLiteral("sh"), QStringLiteral("-c"),     QStringLiteral("\"$0\" \"$@\" > /dev/full"),
        jwprobeProgram(),     QStringLiteral("--type"), QStringLiteral("BoardA")};
    const Outcome outcome = runProgram(jwsimProgram(), simulated({boardOn("BoardA", m_ports[0])}, command));
    QVERIFY(outcome.status != 0);
    QCOMPARE(linesOf(outcome.error).size(), 1);
    QVERIFY2(outcome.error.contains("standard output"), outcome.error.constData());
}

void TestJwprobeReport::versionIsThatOfTheProject()
{
    const Outcome outcome = runProgram(jwprobeProgram(), options({"--version"}));
    QCOMPARE(outcome.status, 0);
    QCOMPARE(outcome.output, QByteArray("jwprobe " PROJECT_VERSION "\n"));
    QCOMPARE(outcome.error, QByteArray());
}

void TestJwprobeReport::helpNamesAllOptions()
{
    const Outcome outcome = runProgram(jwprobeProgram(), options({"--help"}));
    QCOMPARE(outcome.status, 0);
    QCOMPARE(outcome.error, QByteArray());
    for (const char *option : {"--type", "--port", "--delay", "--retries", "--deadline", "--json", "--log", "--traffic",
                               "--raw-traffic", "--list", "--monitor", "--version", "--help"})
        QVERIFY2(outcome.output.contains(option), option);
    for (const QByteArray &line : linesOf(outcome.output))
        QVERIFY2(line.size() <= 80, line.constData());
}

QTEST_GUILESS_MAIN(TestJwprobeReport)
#include "tst_jwprobe_report.moc"

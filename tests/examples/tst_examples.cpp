#include "support/common/portname.h"
#include "support/programs/programrun.h"
#include "support/common/simulatedportsmain.h"
#include "support/device/otherreader.h"
#include "support/examples/pagefolder.h"

#include <08-test-your-application/lamp.h>
#include <simulator/testbed.h>

#include <QDir>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTemporaryDir>

#include <algorithm>
#include <cerrno>

using JwSimulator::Board;
using JwSimulator::BoardConfig;

namespace {

const QByteArray noBoardYet = "no BoardA yet; jwprobe --type BoardA says why";
const QByteArray reply = "$PJWVER,7300022,1,4,0*0d";

QString program(const char *example)
{
    return QStringLiteral(EXAMPLES_PROGRAMS "/%1/%1").arg(QLatin1String(example));
}

/// Returns the lines of `text`, sorted. If several boards answer, a program may print its lines in any order.
QList<QByteArray> sortedLines(const QByteArray &text)
{
    QList<QByteArray> lines = linesOf(text);
    std::sort(lines.begin(), lines.end());
    return lines;
}

} // namespace

/// Runs each example as a user does, on simulated boards of this process.
class TestExamples : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup() { m_testbed.reset(); }

    void eachIsShort();
    void findBoardsNamesThePortOfEach();
    void findBoardsNamesWhatIsMissing();
    void findBoardsEndsWithoutAnyPort();
    void exchangePayloadsPrintsProgressAndAnswers();
    void ownSentencesAreReadAndBuilt();
    void ownSentencesSaysWhyThereAreNone_data();
    void ownSentencesSaysWhyThereAreNone();
    void lostBoardIsTakenAgainWhenItReturns();
    void missingBoardIsReportedOnce();
    void boardIsTakenBesideOneThatIsNotWanted();
    void loggingWritesTrafficToTheFileAndAllToQt();
    void loggingSaysThatThereIsNoBoard();
    void loggingSaysThatTheFileCannotBeWritten();
    void boundProbeSaysWhatKeptItOpen();
    void boundProbeEndsEarlyWhenAllIsSettled();
    void commandsOfThePageDoWhatItSays_data();
    void commandsOfThePageDoWhatItSays();
    void networkExampleSaysThatItsPortIsTaken();
    void networkErrorIsReported();
    void testOfTheApplicationPasses();
    void lampStaysOnWhileAnotherProgramReads();
    void binaryBlockIsReadBeforeAnyLineEnd();
    void binaryProtocolSaysThatThereIsNoBoard();

private:
    Board *add(const QString &text);
    /// Runs `program` until it ends. Meanwhile the boards answer, because this process runs its event loop.
    Outcome run(const QString &program, const QStringList &arguments = {}) const;

    std::unique_ptr<JwSimulator::Testbed> m_testbed;
};

void TestExamples::init()
{
    m_testbed = std::make_unique<JwSimulator::Testbed>();
}

Board *TestExamples::add(const QString &text)
{
    BoardConfig config = BoardConfig::fromText(text).value();
    config.port = uniquePortName();
    return m_testbed->add(config);
}

Outcome TestExamples::run(const QString &program, const QStringList &arguments) const
{
    ProgramRun run(program, arguments);
    run.start();
    const bool ended = QTest::qWaitFor([&run] { return run.isOver(); }, programPatience) && run.finish();
    return {ended ? run.status() : -1, run.output(), run.error()};
}

void TestExamples::eachIsShort()
{
    const QDir examples(QStringLiteral(EXAMPLES_SOURCES));
    const QStringList names = examples.entryList({QStringLiteral("[0-9]*")}, QDir::Dirs);
    QCOMPARE(names.size(), 10);
    for (const QString &name : names) {
        const QDir example(examples.filePath(name));
        const QStringList files = example.entryList(QDir::Files);
        QByteArray::size_type lines = 0;
        for (const QString &file : files) {
            if (file != QLatin1String("CMakeLists.txt"))
                lines += readFile(example.filePath(file)).count('\n');
        }
        QVERIFY2(lines > 0 && lines < 60, qPrintable(QStringLiteral("%1 has %2 lines").arg(name).arg(lines)));
    }
}

void TestExamples::findBoardsNamesThePortOfEach()
{
    const QByteArray portB = add(QStringLiteral("BoardB"))->portName().toLatin1();
    const QByteArray portA = add(QStringLiteral("BoardA"))->portName().toLatin1();

    const Outcome outcome = run(program("01-find-boards"));

    QCOMPARE(sortedLines(outcome.output), QList<QByteArray>({"BoardA is on " + portA, "BoardB is on " + portB}));
    QCOMPARE(outcome.status, 0);
}

void TestExamples::findBoardsNamesWhatIsMissing()
{
    const QByteArray portA = add(QStringLiteral("BoardA"))->portName().toLatin1();
    add(QStringLiteral("silent"));

    const Outcome outcome = run(program("01-find-boards"));

    QCOMPARE(linesOf(outcome.output), QList<QByteArray>({"BoardA is on " + portA, "BoardB was not found"}));
    QCOMPARE(outcome.status, 1);
}

void TestExamples::findBoardsEndsWithoutAnyPort()
{
    const Outcome outcome = run(program("01-find-boards"));

    QCOMPARE(linesOf(outcome.output), QList<QByteArray>({"BoardA was not found", "BoardB was not found"}));
    QCOMPARE(outcome.status, 1);
}

void TestExamples::exchangePayloadsPrintsProgressAndAnswers()
{
    Board *const board = add(QStringLiteral("BoardA"));

    const Outcome outcome = run(program("02-exchange-payloads"));

    // On a busy machine an answer may come before the example is told that its payload was sent.
    QList<QByteArray> progress;
    QList<QByteArray> answers;
    for (const QByteArray &line : linesOf(outcome.output))
        (line.startsWith("answer") ? answers : progress).append(line);
    QCOMPARE(progress, QList<QByteArray>({"payload 2 is on its way", "payload 3 is on its way"}));
    QCOMPARE(answers, QList<QByteArray>({"answer 1 is " + reply, "answer 2 is " + reply, "answer 3 is " + reply}));
    QCOMPARE(board->queryCount(), 4); // one query by the search, three by the example
    QCOMPARE(outcome.status, 0);
}

void TestExamples::ownSentencesAreReadAndBuilt()
{
    const Outcome outcome = run(program("03-own-sentences"), {add(QStringLiteral("BoardA"))->portName()});

    QCOMPARE(outcome.error, QByteArray("hardware 7300022; a board sends it as $PJWVER,7300022,*38\n"));
    QCOMPARE(outcome.status, 0);
}

void TestExamples::ownSentencesSaysWhyThereAreNone_data()
{
    QTest::addColumn<QString>("board");
    QTest::addColumn<QByteArray>("why");

    QTest::newRow("no such port") << QString() << QByteArray("No such file or directory");
    const auto row = [](const char *board) {
        QTest::newRow(board) << QString::fromLatin1(board) << QByteArray("no version came");
    };
    row("silent");
    row("BoardA,checksum=wrong");
    // These boards send bytes again and again, so each wait of the example ends early. The example must end all the
    // same.
    row("babble");
    row("BoardA,noise=3,replies=1000,chunk=1,gap=300");
    row("other");
}

void TestExamples::ownSentencesSaysWhyThereAreNone()
{
    QFETCH(const QString, board);
    QFETCH(const QByteArray, why);
    const QString port = board.isEmpty() ? uniquePortName() : add(board)->portName();

    const Outcome outcome = run(program("03-own-sentences"), {port});

    QVERIFY2(outcome.error.endsWith(port.toLatin1() + ": " + why + '\n'), outcome.error);
    QCOMPARE(outcome.status, 1);
}

void TestExamples::lostBoardIsTakenAgainWhenItReturns()
{
    Board *const board = add(QStringLiteral("BoardA"));
    const QByteArray there = "the board is on " + board->portName().toLatin1();
    const QByteArray gone = "lost the board on " + board->portName().toLatin1();
    ProgramRun run(program("04-lose-and-return"), {});
    run.start();
    WAIT_FOR(linesOf(run.output()) == QList<QByteArray>({there}));

    board->pull();
    WAIT_FOR(linesOf(run.output()) == QList<QByteArray>({there, gone}));
    QVERIFY(board->plug());
    WAIT_FOR(linesOf(run.output()) == QList<QByteArray>({there, gone, there}));
    board->pull();
    WAIT_FOR(linesOf(run.output()) == QList<QByteArray>({there, gone, there, gone}));
    QVERIFY(!run.isOver());
}

void TestExamples::missingBoardIsReportedOnce()
{
    Board *const silent = add(QStringLiteral("BoardA,ignore=1000"));
    ProgramRun run(program("04-lose-and-return"), {});
    run.start();
    WAIT_FOR(silent->queryCount() == 9); // a search sends four queries, so the ninth query begins the third search

    QCOMPARE(run.output(), noBoardYet + '\n');
}

void TestExamples::boardIsTakenBesideOneThatIsNotWanted()
{
    Board *const other = add(QStringLiteral("BoardB"));
    ProgramRun run(program("04-lose-and-return"), {});
    run.start();
    // This board answers with a type that is not wanted. So the search waits for a later answer and does not end.
    WAIT_FOR(other->queryCount() == 1);

    Board *const board = add(QStringLiteral("BoardA"));

    WAIT_FOR(linesOf(run.output())
             == QList<QByteArray>({noBoardYet, "the board is on " + board->portName().toLatin1()}));
}

void TestExamples::loggingWritesTrafficToTheFileAndAllToQt()
{
    add(QStringLiteral("BoardA,ignore=1")); // causes a retry round, which the library logs as a warning
    const QTemporaryDir folder;
    const QString file = folder.filePath(QStringLiteral("traffic.log"));

    const Outcome outcome = run(program("05-logging"), {file});

    const QList<QByteArray> messages = {"Communication: ->  \"$PJWVER*0c\"", "Retry probing",
                                        "Communication: ->  \"$PJWVER*0c\"", "Communication:  <-  \"" + reply + '"'};
    QCOMPARE(linesOf(outcome.error), messages);
    QList<QByteArray> records = linesOf(readFile(file));
    for (QByteArray &record : records)
        record.remove(0, static_cast<int>(qstrlen("2026-01-01 12:00:00.000 ")));
    QCOMPARE(records,
             QList<QByteArray>({"Communication ->  \"$PJWVER*0c\"", " Retry probing",
                                "Communication ->  \"$PJWVER*0c\"", "Communication  <-  \"" + reply + '"'}));
    QCOMPARE(outcome.status, 0);
}

void TestExamples::loggingSaysThatThereIsNoBoard()
{
    const QTemporaryDir folder;

    const Outcome outcome = run(program("05-logging"), {folder.filePath(QStringLiteral("traffic.log"))});

    QVERIFY2(outcome.error.endsWith("no BoardA; jwprobe --type BoardA says why\n"), outcome.error);
    QCOMPARE(outcome.status, 1);
}

void TestExamples::loggingSaysThatTheFileCannotBeWritten()
{
    const Outcome outcome = run(program("05-logging"), {QStringLiteral("/proc/version/traffic.log")});

    QVERIFY2(outcome.error.contains("/proc/version/traffic.log"), outcome.error);
    QVERIFY2(outcome.error.contains("give the name of a file that can be written"), outcome.error);
    QCOMPARE(outcome.status, 1);
}

void TestExamples::boundProbeSaysWhatKeptItOpen()
{
    const QByteArray portA = add(QStringLiteral("BoardA"))->portName().toLatin1();
    const QByteArray portB = add(QStringLiteral("BoardB"))->portName().toLatin1();

    const Outcome outcome = run(program("06-bound-a-probe"));

    QCOMPARE(linesOf(outcome.output),
             QList<QByteArray>({"BoardA is on " + portA, "BoardC did not come in time",
                                portB + " answered with $PJWVER,7300021,1,4,0*0e"}));
    QCOMPARE(outcome.status, 1);
}

void TestExamples::boundProbeEndsEarlyWhenAllIsSettled()
{
    const QByteArray portA = add(QStringLiteral("BoardA"))->portName().toLatin1();
    const QByteArray portC = add(QStringLiteral("BoardC"))->portName().toLatin1();

    const Outcome outcome = run(program("06-bound-a-probe"));

    QCOMPARE(sortedLines(outcome.output), QList<QByteArray>({"BoardA is on " + portA, "BoardC is on " + portC}));
    QCOMPARE(outcome.status, 0);
}

void TestExamples::commandsOfThePageDoWhatItSays_data()
{
    QTest::addColumn<QString>("output");

    const auto row = [](const char *number, const char *output) {
        QTest::newRow(number) << QString::fromLatin1(output);
    };
    row("01", "BoardB is on ttyACM\\d+");
    row("02", "answer 3 is \\$PJWVER,7300022,1,4,0\\*0d");
    row("03", "hardware 7300022; a board sends it as \\$PJWVER,7300022,\\*38");
    row("04", "the board is on (ttyACM\\d+)\n(?:.*\n)*the board is on (?!\\1\n)ttyACM\\d+");
    row("05", "Communication:  <-  \"\\$PJWVER,7300022,1,4,0\\*0d\"");
    row("06", "ttyACM\\d+ answered with \\$PJWVER,7300021,1,4,0\\*0e");
    row("08", "PASS   : TestLamp::isOnAsLongAsTheBoardIsThere\\(\\)");
    row("09", "8 bytes from ttyACM\\d+");
    row("10",
        "(SIM\\d+:1\\.0) is a BoardA on (ttyACM\\d+)\n(?:.*\n)*\\1 is gone: cablePulled\n"
        "(?:.*\n)*\\1 is a BoardA on (?!\\2\n)tty\\w+");
}

void TestExamples::commandsOfThePageDoWhatItSays()
{
    QFETCH(const QString, output);
    m_testbed.reset(); // jwsim makes its own testbed
    const PageFolder folder(freeTcpPort());
    ProgramRun run(QStringLiteral("sh"), folder.command(QTest::currentDataTag()));
    const QRegularExpression expression(QLatin1Char('^') + output + QStringLiteral("\n"),
                                        QRegularExpression::MultilineOption);
    const auto says = [&] { return QString::fromUtf8(run.output() + run.error()).contains(expression); };
    run.start();

    // Do not wait for the program's end, because one of the programs runs until it is stopped.
    WAIT_FOR(run.isOver() || says());

    QVERIFY2(says(), run.output() + run.error());
}

void TestExamples::networkExampleSaysThatItsPortIsTaken()
{
    m_testbed.reset();
    QTcpServer other;
    QVERIFY(other.listen(QHostAddress::LocalHost));
    const PageFolder folder(other.serverPort());
    ProgramRun run(QStringLiteral("sh"), folder.command("07"));
    run.start();

    WAIT_FOR(run.isOver());

    QVERIFY2(run.error().contains("TCP port " + QByteArray::number(other.serverPort()) + " is taken"), run.error());
    QCOMPARE(run.status(), 1);
}

void TestExamples::networkErrorIsReported()
{
    const Outcome outcome =
        run(program("07-board-over-network"), {QStringLiteral("127.0.0.1"), QString::number(freeTcpPort())});

    QCOMPARE(outcome.output, QByteArray("no answer: Connection refused\n"));
    QCOMPARE(outcome.status, 1);
}

void TestExamples::testOfTheApplicationPasses()
{
    m_testbed.reset(); // the program makes its own testbed
    const Outcome outcome = run(program("08-test-your-application"));

    QVERIFY2(outcome.output.contains("PASS   : TestLamp::isOnAsLongAsTheBoardIsThere()"), outcome.output);
    QCOMPARE(outcome.status, 0);
}

void TestExamples::lampStaysOnWhileAnotherProgramReads()
{
    Board *const board = add(QStringLiteral("BoardA"));
    OtherReader other(QStringLiteral("/dev/") + board->portName(), EAGAIN);
    Lamp lamp;
    QTRY_VERIFY(lamp.isOn());
    auto *const port = lamp.findChild<QSerialPort *>();
    int errors = 0;
    QObject::connect(port, &QSerialPort::errorOccurred, port, [&errors] { ++errors; });

    other.start(port);
    QTRY_VERIFY(board->send(reply + "\r\n") && errors > 0);
    other.stop();

    QVERIFY(lamp.isOn());
}

void TestExamples::binaryBlockIsReadBeforeAnyLineEnd()
{
    Board *const board = add(QStringLiteral("silent"));
    int requests = 0;
    QObject::connect(board, &Board::sentenceReceived, board, [&] {
        // Answer the search's query like a BoardA, and the example's request with binary bytes.
        board->send(++requests == 1 ? reply + "\r\n" : QByteArray("\0\x7f\n$\xff!\r\0", 8));
    });

    const Outcome outcome = run(program("09-binary-protocol"));

    QCOMPARE(linesOf(outcome.output),
             QList<QByteArray>({"block 00 7f 0a 24 ff 21 0d 00", "8 bytes from " + board->portName().toLatin1()}));
    QCOMPARE(outcome.status, 0);
}

void TestExamples::binaryProtocolSaysThatThereIsNoBoard()
{
    const Outcome outcome = run(program("09-binary-protocol"));

    QCOMPARE(outcome.output, QByteArray("no BoardA; jwprobe --type BoardA says why\n"));
    QCOMPARE(outcome.status, 1);
}

SIMULATED_PORTS_MAIN(TestExamples)
#include "tst_examples.moc"

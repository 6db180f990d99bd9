#include "support/probebench.h"
#include "support/simulatedportsmain.h"
#include "support/timelinetexts.h"

#include <device/portreport.h>

#include <QTest>
#include <QTimer>

#include <algorithm>
#include <limits>
#include <type_traits>

using JwDevice::Initializer;
using JwDevice::PortReport;
using JwDevice::Type;
using JwSimulator::Board;
using JwSimulator::frameSentence;

Q_DECLARE_METATYPE(PortReport::Verdict)

static_assert(std::is_same_v<decltype(&Initializer::portReports), QList<PortReport> (Initializer::*)() const>);
// A flooding board sends more than 2^31 payloads within a day.
static_assert(std::numeric_limits<decltype(PortReport::payloads)>::max() > std::numeric_limits<int>::max());
static_assert(std::is_copy_constructible_v<PortReport> && std::is_copy_assignable_v<PortReport>);

namespace {

const TypeList boardA = {JwDevice::BoardA};
const char *const versionA = "7300022";
const char *const versionB = "7300021";

/// The one report on the port of `board`.
PortReport reportOn(const ProbeBench &bench, const Board *board)
{
    QList<PortReport> found;
    const QList<PortReport> reports = bench.initializer->portReports();
    std::copy_if(reports.begin(), reports.end(), std::back_inserter(found),
                 [board](const PortReport &report) { return report.portName == board->portName(); });
    if (found.size() != 1)
        qFatal("%d reports on %s", found.size(), qUtf8Printable(board->portName()));
    return found.first();
}

PortReport::Verdict verdictOn(const ProbeBench &bench, const Board *board)
{
    return reportOn(bench, board).verdict;
}

QStringList reportedPorts(const ProbeBench &bench)
{
    QStringList names;
    const QList<PortReport> reports = bench.initializer->portReports();
    for (const PortReport &report : reports)
        names << report.portName;
    return names;
}

/// A reply as a report shows it.
QString shown(const QByteArray &reply)
{
    return QString::fromLatin1(reply.chopped(2));
}

/// Sends `payload`, one or more in one piece, and waits until the reports count `payloads` of them in all.
void sendAndCount(const ProbeBench &bench, Board *board, const QByteArray &payload, int payloads)
{
    QVERIFY(board->send(payload));
    QTRY_COMPARE(reportOn(bench, board).payloads, payloads);
}

/// Brings the port of `board`, a silent one of a probe for a BoardA with `found`, to `verdict`.
void bringTo(PortReport::Verdict verdict, ProbeBench &bench, Board *board, const Board *found)
{
    QTRY_COMPARE(verdictOn(bench, found), PortReport::HandedOver);
    if (verdict == PortReport::TimedOut)
        bench.timeOut(board);
    else if (verdict == PortReport::Silenced)
        sendAndCount(bench, board, versionReply(versionB), 1);
    else if (verdict == PortReport::Duplicate)
        sendAndCount(bench, board, versionReply(versionA), 1);
    QCOMPARE(verdictOn(bench, board), verdict);
}

void verifyNothingCameIn(const PortReport &report)
{
    QCOMPARE(report.type, JwDevice::Unknown);
    QCOMPARE(report.reply, QString());
    QCOMPARE(report.unreadable, QString());
    QCOMPARE(report.payloads, 0);
}

void verifyNoError(const PortReport &report)
{
    QCOMPARE(report.error, QSerialPort::NoError);
    QCOMPARE(report.errorText, QString());
}

/// Nothing is reported but this.
void verifyOnly(const PortReport &report, PortReport::Verdict verdict, int queries)
{
    QCOMPARE(report.verdict, verdict);
    QCOMPARE(report.queries, queries);
    verifyNothingCameIn(report);
    verifyNoError(report);
}

void verifyError(const PortReport &report, const QSerialPort &refused)
{
    QCOMPARE(report.error, refused.error());
    QCOMPARE(report.errorText, refused.errorString());
    QVERIFY(!report.errorText.isEmpty());
}

} // namespace

class InitializerReportsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void emptyBeforeAProbe()
    {
        ProbeBench bench;
        bench.attach("BoardA");
        QVERIFY(bench.initializer->portReports().isEmpty());
        QVERIFY(!bench.initializer->probe({}, 0, bench.portNames())); // refused
        QVERIFY(bench.initializer->portReports().isEmpty());
    }

    void emptyWhereNoPortIsACandidate()
    {
        ProbeBench bench;
        bench.attach("BoardA,manufacturer=Somebody,vendor=1a86");
        QVERIFY(bench.initializer->probe(boardA));
        QVERIFY(bench.initializer->portReports().isEmpty());
    }

    void newReportSaysNothing() { verifyOnly(PortReport(), PortReport::NotOpened, 0); }

    void everyReportTellsWhichDeviceItIsOn_data()
    {
        QTest::addColumn<QByteArray>("board");
        QTest::addColumn<QString>("manufacturer");
        QTest::addColumn<PortReport::Verdict>("verdict");
        const QString maker = QStringLiteral("STMicroelectronics.");
        QTest::newRow("opened") << QByteArray("silent,serial=S-4711") << maker << PortReport::Awaiting;
        QTest::newRow("held by another program")
            << QByteArray("silent,serial=S-4711,open=busy") << maker << PortReport::NotOpened;
        QTest::newRow("no permission") << QByteArray("silent,serial=S-4711,open=denied") << maker
                                       << PortReport::NotOpened;
        QTest::newRow("of another manufacturer") << QByteArray("silent,serial=S-4711,manufacturer=Somebody")
                                                 << QStringLiteral("Somebody") << PortReport::Awaiting;
        QTest::newRow("of none") << QByteArray("silent,serial=S-4711,manufacturer=") << QString()
                                 << PortReport::Awaiting;
    }
    void everyReportTellsWhichDeviceItIsOn()
    {
        QFETCH(QByteArray, board);
        QFETCH(QString, manufacturer);
        QFETCH(PortReport::Verdict, verdict);
        ProbeBench bench;
        const Board *const attached = bench.attach(board.constData());
        bench.probe(boardA);
        const PortReport report = reportOn(bench, attached);
        QCOMPARE(report.verdict, verdict);
        QCOMPARE(report.location, QStringLiteral("/dev/") + attached->portName());
        QCOMPARE(report.manufacturer, manufacturer);
        QCOMPARE(report.product, QStringLiteral("Simulated board"));
        QCOMPARE(report.serialNumber, QStringLiteral("S-4711"));
    }

    void reportsStandInTheOrderOfTheNamesGiven()
    {
        ProbeBench bench;
        const QString first = bench.attach("silent,open=denied")->portName();
        const QString second = bench.attach("silent")->portName();
        const QString third = bench.attach("BoardA")->portName();
        const QString unknown = QStringLiteral("ttyNONE1");
        QVERIFY(bench.initializer->probe(boardA, 0, {third, unknown, first, second}));
        QCOMPARE(reportedPorts(bench), QStringList({third, unknown, first, second}));
        QTRY_VERIFY(bench.isOver());
        QCOMPARE(reportedPorts(bench), QStringList({third, unknown, first, second}));
    }

    void reportsStandInTheOrderOfTheSearchAndOnItsCandidatesOnly()
    {
        ProbeBench bench;
        bench.attach("silent");
        const Board *const other = bench.attach("silent,manufacturer=Somebody,vendor=1a86");
        bench.attach("silent,open=busy");
        bench.attach("silent,vendor=1a86");
        QStringList expected;
        const auto available = QSerialPortInfo::availablePorts();
        for (const QSerialPortInfo &info : available) {
            if (info.portName() != other->portName())
                expected << info.portName();
        }
        QVERIFY(bench.initializer->probe(boardA));
        QCOMPARE(expected.size(), 3);
        QCOMPARE(reportedPorts(bench), expected);
    }

    void portThatCannotBeOpenedIsReportedWithItsError_data()
    {
        QTest::addColumn<QByteArray>("board");
        QTest::newRow("held by another program") << QByteArray("BoardA,open=busy");
        QTest::newRow("no permission") << QByteArray("BoardA,open=denied");
    }
    void portThatCannotBeOpenedIsReportedWithItsError()
    {
        QFETCH(QByteArray, board);
        ProbeBench bench;
        const Board *const attached = bench.attach(board.constData());
        bench.probe(boardA);
        QSerialPort attempt(attached->portName());
        QVERIFY(!attempt.open(QIODevice::ReadWrite));
        const PortReport report = reportOn(bench, attached);
        QCOMPARE(report.verdict, PortReport::NotOpened);
        QCOMPARE(report.error, QSerialPort::PermissionError);
        verifyError(report, attempt);
        verifyNothingCameIn(report);
        QCOMPARE(report.queries, 0);
    }

    void nameThatNoPortHasIsReportedAsItWasGiven()
    {
        ProbeBench bench;
        const QString name = QStringLiteral("ttyNONE1");
        // All names that no port has share a lock file, which another process may have for a moment.
        PortReport report;
        const auto isProbed = [&] {
            report = bench.renew()->probe(boardA, 0, {name}) ? bench.initializer->portReports().value(0) : PortReport();
            return report.error != QSerialPort::PermissionError;
        };
        QTRY_VERIFY(isProbed());
        QCOMPARE(bench.initializer->portReports().size(), 1);
        QSerialPort attempt(name);
        QTRY_VERIFY(!attempt.open(QIODevice::ReadWrite) && attempt.error() != QSerialPort::PermissionError);
        QCOMPARE(report.portName, name);
        QCOMPARE(report.verdict, PortReport::NotOpened);
        QCOMPARE(report.error, QSerialPort::DeviceNotFoundError);
        verifyError(report, attempt);
        QCOMPARE(report.location + report.manufacturer + report.product + report.serialNumber, QString());
        verifyNothingCameIn(report);
        QCOMPARE(report.queries, 0);
    }

    void noPortWasTriedDuringTheDelay()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("BoardC,serial=S-4711");
        const Board *const denied = bench.attach("BoardC,open=denied");
        QVERIFY(bench.initializer->probe({JwDevice::BoardC}, 60000, bench.portNames()));
        QCOMPARE(reportedPorts(bench), bench.portNames());
        verifyOnly(reportOn(bench, board), PortReport::NotOpened, 0);
        verifyOnly(reportOn(bench, denied), PortReport::NotOpened, 0);
        QCOMPARE(reportOn(bench, board).serialNumber, QStringLiteral("S-4711"));
        QTimer *const delay = bench.initializer->findChild<QTimer *>();
        delay->start(0);
        QTRY_COMPARE(verdictOn(bench, board), PortReport::HandedOver);
        QCOMPARE(reportOn(bench, denied).error, QSerialPort::PermissionError);
    }

    void portPulledDuringTheDelayKeepsItsNames()
    {
        ProbeBench bench;
        Board *const board = bench.attach("BoardC,serial=S-4711");
        QVERIFY(bench.initializer->probe({JwDevice::BoardC}, 1, {board->portName()}));
        board->pull();
        QTRY_VERIFY(reportOn(bench, board).error != QSerialPort::NoError);
        const PortReport report = reportOn(bench, board);
        QCOMPARE(report.verdict, PortReport::NotOpened);
        QCOMPARE(report.error, QSerialPort::DeviceNotFoundError);
        QCOMPARE(report.serialNumber, QStringLiteral("S-4711"));
    }

    void askedPortIsAwaiting()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("BoardA");
        bench.probe(boardA);
        verifyOnly(reportOn(bench, board), PortReport::Awaiting, 1);
    }

    void portWithoutAnAnswerInTimeIsTimedOut()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("silent");
        bench.initializer->setMaxRetries(0);
        bench.probe(boardA);
        QTRY_VERIFY(bench.isOver());
        verifyOnly(reportOn(bench, board), PortReport::TimedOut, 1);
    }

    void answerOfNoWantedTypeSilencesThePort_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::newRow("board of another type") << versionReply(versionB);
        QTest::newRow("hardware that is not known") << versionReply("7300099");
        QTest::newRow("information of a board of another type") << informationReply("INF");
        QTest::newRow("echo of the query") << versionQuery;
        QTest::newRow("other start character") << QByteArray("!PJWVER,7300099\r\n");
        QTest::newRow("carriage return within it") << QByteArray("$PJWVER,73\r00099\r\n");
    }
    void answerOfNoWantedTypeSilencesThePort()
    {
        QFETCH(QByteArray, reply);
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.probe(boardA);
        sendAndCount(bench, board, reply, 1);
        const PortReport report = reportOn(bench, board);
        QCOMPARE(report.verdict, PortReport::Silenced);
        QCOMPARE(report.reply, shown(reply));
        QCOMPARE(report.type, JwDevice::Unknown);
        QCOMPARE(report.unreadable, QString());
        verifyNoError(report);
    }

    void boardOfAWantedTypeIsHandedOverWithItsType_data()
    {
        QTest::addColumn<QByteArray>("board");
        QTest::addColumn<Type>("type");
        QTest::addColumn<QByteArray>("reply");
        QTest::newRow("A") << QByteArray("BoardA") << JwDevice::BoardA << QByteArray("$PJWVER,7300022,");
        QTest::newRow("B") << QByteArray("BoardB") << JwDevice::BoardB << QByteArray("$PJWVER,7300021,");
        QTest::newRow("C") << QByteArray("BoardC") << JwDevice::BoardC << QByteArray("$PTJWRD,INF,");
    }
    void boardOfAWantedTypeIsHandedOverWithItsType()
    {
        QFETCH(QByteArray, board);
        QFETCH(Type, type);
        QFETCH(QByteArray, reply);
        ProbeBench bench;
        const Board *const attached = bench.attach(board.constData());
        const Board *const silent = bench.attach("silent");
        bench.probe({type});
        QTRY_COMPARE(verdictOn(bench, attached), PortReport::HandedOver);
        const PortReport report = reportOn(bench, attached);
        QCOMPARE(report.type, type);
        QCOMPARE(report.reply, shown(sent(attached)));
        QVERIFY(report.reply.startsWith(QLatin1String(reply)));
        QCOMPARE(report.queries, 1);
        QCOMPARE(report.payloads, 1);
        verifyNoError(report);
        QCOMPARE(verdictOn(bench, silent), PortReport::Awaiting);
    }

    void secondBoardOfATypeIsADuplicateWithItsType()
    {
        ProbeBench bench;
        Board *const first = bench.attach("silent");
        Board *const second = bench.attach("silent");
        bench.probe({JwDevice::BoardB});
        sendAndCount(bench, second, versionReply(versionB), 1);
        sendAndCount(bench, first, versionReply(versionB), 1);
        QCOMPARE(verdictOn(bench, second), PortReport::HandedOver);
        const PortReport report = reportOn(bench, first);
        QCOMPARE(report.verdict, PortReport::Duplicate);
        QCOMPARE(report.type, JwDevice::BoardB);
        QCOMPARE(report.reply, shown(versionReply(versionB)));
        verifyNoError(report);
    }

    void pulledPortIsLost_data()
    {
        QTest::addColumn<PortReport::Verdict>("verdict");
        QTest::addColumn<QString>("reply");
        QTest::newRow("awaiting") << PortReport::Awaiting << QString();
        QTest::newRow("timed out") << PortReport::TimedOut << QString();
        QTest::newRow("silenced") << PortReport::Silenced << shown(versionReply(versionB));
        QTest::newRow("duplicate") << PortReport::Duplicate << shown(versionReply(versionA));
    }
    void pulledPortIsLost()
    {
        QFETCH(PortReport::Verdict, verdict);
        QFETCH(QString, reply);
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        const Board *const found = bench.attach("BoardA");
        const Board *const other = bench.attach("silent"); // keeps the probe open
        bench.probe(boardA);
        bringTo(verdict, bench, board, found);
        board->pull();
        QTRY_COMPARE(verdictOn(bench, board), PortReport::Lost);
        settle();
        const PortReport report = reportOn(bench, board);
        QCOMPARE(report.verdict, PortReport::Lost);
        QCOMPARE(report.error, QSerialPort::ResourceError); // whatever the port itself failed at first
        QCOMPARE(report.errorText, QStringLiteral("No such device"));
        QCOMPARE(report.reply, reply);
        QCOMPARE(report.queries, 1);
        QCOMPARE(report.serialNumber, board->config().serial);
        QCOMPARE(verdictOn(bench, other), PortReport::Awaiting);
    }

    void lostPortStaysLostAndIsAskedNoMore()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        const Board *const silent = bench.attach("silent");
        bench.initializer->setMaxRetries(1);
        bench.probe(boardA);
        board->pull();
        QTRY_COMPARE(verdictOn(bench, board), PortReport::Lost);
        bench.timeOut(board);
        QCOMPARE(verdictOn(bench, board), PortReport::Lost);
        bench.timeOut(silent);
        QCOMPARE(bench.decisions(), QStringList{retry});
        QCOMPARE(verdictOn(bench, board), PortReport::Lost);
        bench.endReplyTimers();
        QTRY_VERIFY(bench.isOver());
        QCOMPARE(verdictOn(bench, board), PortReport::Lost);
        QCOMPARE(reportOn(bench, board).queries, 1);
        QCOMPARE(reportOn(bench, silent).queries, 2);
    }

    void lastWordsOfALostPortDoNotBringItBack()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.probe(boardA);
        bench.store(board, {versionReply(versionB)});
        board->pull();
        QTRY_COMPARE(verdictOn(bench, board), PortReport::Lost);
        bench.initializer->boardReadyRead(bench.comm(board));
        const PortReport report = reportOn(bench, board);
        QCOMPARE(report.verdict, PortReport::Lost);
        QCOMPARE(report.reply, shown(versionReply(versionB)));
        QCOMPARE(report.payloads, 1);
    }

    void portThatIsLostWhenTheProbeIsOverIsReportedSo()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.initializer->setMaxRetries(0);
        bench.probe(boardA);
        bench.timeOut(board);
        QVERIFY(bench.isOver());
        board->pull();
        QTRY_COMPARE(verdictOn(bench, board), PortReport::Lost);
    }

    void queriesAreCountedByTheWantedTypesAndRounds_data()
    {
        QTest::addColumn<TypeList>("types");
        QTest::addColumn<int>("queries");
        using namespace JwDevice;
        QTest::newRow("A") << TypeList{BoardA} << 1;
        QTest::newRow("C") << TypeList{BoardC} << 1;
        QTest::newRow("A and B: one sentence for both") << TypeList{BoardA, BoardB} << 1;
        QTest::newRow("B and C") << TypeList{BoardB, BoardC} << 2;
        QTest::newRow("all") << TypeList{BoardA, BoardB, BoardC} << 2;
        QTest::newRow("A twice") << TypeList{BoardA, BoardA} << 1;
    }
    void queriesAreCountedByTheWantedTypesAndRounds()
    {
        QFETCH(TypeList, types);
        QFETCH(int, queries);
        ProbeBench bench;
        const Board *const board = bench.attach("silent");
        bench.initializer->setMaxRetries(2);
        bench.probe(types);
        QCOMPARE(reportOn(bench, board).queries, queries);
        for (int round = 1; round <= 2; ++round) {
            bench.endReplyTimers();
            QTRY_COMPARE(bench.timeline.count(retry), round);
            QCOMPARE(reportOn(bench, board).queries, queries * (round + 1));
        }
        bench.endReplyTimers();
        QTRY_VERIFY(bench.isOver());
        QCOMPARE(reportOn(bench, board).queries, queries * 3);
        QTRY_COMPARE(received(board).count('$'), queries * 3);
    }

    void portThatThereIsNothingToAskIsAwaitingWithoutAQuery()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("silent");
        bench.probe({JwDevice::Unknown});
        verifyOnly(reportOn(bench, board), PortReport::Awaiting, 0);
    }

    void payloadThatCannotBeParsedIsCountedAndShown_data()
    {
        QTest::addColumn<QByteArray>("payload");
        QTest::addColumn<QString>("unreadable");
        const QByteArray wrong = frameSentence("PJWVER,7300022,1,4,0", false);
        QTest::newRow("wrong checksum") << wrong << shown(wrong);
        QTest::newRow("unknown sentence") << frameSentence("GPGGA,1") << shown(frameSentence("GPGGA,1"));
        QTest::newRow("echo of the information request") << informationRequest << shown(informationRequest);
        QTest::newRow("noise before it") << QByteArray("\x01noise$PNONE\r\n") << QStringLiteral("$PNONE");
        QTest::newRow("carriage return within it") << QByteArray("$PNO\rNE\r\n") << QStringLiteral("$PNO\rNE");
        QTest::newRow("bytes that are not ASCII") << QByteArray("$P\xe4\xff\r\n") << QStringLiteral("$P\u00e4\u00ff");
        QTest::newRow("line end alone behind the start") << QByteArray("$\r\n") << QStringLiteral("$");
    }
    void payloadThatCannotBeParsedIsCountedAndShown()
    {
        QFETCH(QByteArray, payload);
        QFETCH(QString, unreadable);
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.initializer->setMaxRetries(0);
        bench.probe(boardA);
        sendAndCount(bench, board, payload, 1);
        PortReport report = reportOn(bench, board);
        QCOMPARE(report.verdict, PortReport::Awaiting);
        QCOMPARE(report.unreadable, unreadable);
        QCOMPARE(report.reply, QString());
        verifyNoError(report);
        bench.timeOut(board);
        report = reportOn(bench, board);
        QCOMPARE(report.verdict, PortReport::TimedOut);
        QCOMPARE(report.unreadable, unreadable);
    }

    void newestReplyAndNewestUnreadablePayloadAreShown()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.probe(boardA);
        sendAndCount(bench, board, frameSentence("GPGGA,1"), 1);
        sendAndCount(bench, board, versionReply(versionB), 2);
        sendAndCount(bench, board, frameSentence("GPGGA,2"), 3);
        PortReport report = reportOn(bench, board);
        QCOMPARE(report.verdict, PortReport::Silenced);
        QCOMPARE(report.reply, shown(versionReply(versionB)));
        QCOMPARE(report.unreadable, shown(frameSentence("GPGGA,2")));
        sendAndCount(bench, board, informationReply("INF"), 4);
        report = reportOn(bench, board);
        QCOMPARE(report.reply, shown(informationReply("INF")));
        QCOMPARE(report.unreadable, shown(frameSentence("GPGGA,2")));
    }

    void everyPayloadOfOnePieceIsCounted()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.probe(boardA);
        sendAndCount(bench, board, frameSentence("GPGGA,1") + versionReply(versionB) + versionReply(versionA), 3);
        const PortReport report = reportOn(bench, board);
        QCOMPARE(report.verdict, PortReport::HandedOver);
        QCOMPARE(report.reply, shown(versionReply(versionA)));
        QCOMPARE(report.unreadable, shown(frameSentence("GPGGA,1")));
    }

    void payloadsBehindTheRecognisedOneAreNotCounted_data()
    {
        QTest::addColumn<QByteArrayList>("behind");
        QTest::newRow("one, which is dropped") << QByteArrayList{versionReply(versionB)};
        QTest::newRow("one that can't be parsed") << QByteArrayList{"$PNONE\r\n"};
        QTest::newRow("two") << QByteArrayList{"$PNONE\r\n", versionReply(versionB)};
    }
    void payloadsBehindTheRecognisedOneAreNotCounted()
    {
        QFETCH(QByteArrayList, behind);
        ProbeBench bench;
        Board *const first = bench.attach("silent");
        Board *const second = bench.attach("silent");
        bench.probe({JwDevice::BoardA, JwDevice::BoardC});
        for (Board *const board : {first, second}) { // handed over, and a duplicate of it
            bench.store(board, QByteArrayList{versionReply(versionA)} + behind);
            bench.initializer->boardReadyRead(bench.comm(board));
            const PortReport report = reportOn(bench, board);
            QCOMPARE(report.verdict, board == first ? PortReport::HandedOver : PortReport::Duplicate);
            QCOMPARE(report.payloads, 1);
            QCOMPARE(report.reply, shown(versionReply(versionA)));
            QCOMPARE(report.unreadable, QString());
        }
    }

    void timedOutPortIsAwaitingAgainInARetryRound()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        const Board *const other = bench.attach("silent");
        bench.initializer->setMaxRetries(1);
        bench.probe(boardA);
        sendAndCount(bench, board, "$PNONE\r\n", 1);
        bench.timeOut(board);
        QCOMPARE(verdictOn(bench, board), PortReport::TimedOut);
        QCOMPARE(verdictOn(bench, other), PortReport::Awaiting);
        bench.timeOut(other);
        QCOMPARE(bench.decisions(), QStringList{retry});
        const PortReport report = reportOn(bench, board);
        QCOMPARE(report.verdict, PortReport::Awaiting);
        QCOMPARE(report.queries, 2);
        QCOMPARE(report.payloads, 1); // of all rounds
        QCOMPARE(report.unreadable, QStringLiteral("$PNONE"));
        sendAndCount(bench, board, versionReply(versionA), 2);
        QCOMPARE(verdictOn(bench, board), PortReport::HandedOver);
    }

    void duplicateStaysOneInRetryRounds()
    {
        ProbeBench bench;
        Board *const first = bench.attach("silent");
        Board *const second = bench.attach("silent");
        bench.initializer->setMaxRetries(1);
        bench.probe({JwDevice::BoardA, JwDevice::BoardC});
        sendAndCount(bench, first, versionReply(versionA), 1);
        sendAndCount(bench, second, versionReply(versionA), 1);
        QCOMPARE(bench.decisions(), QStringList({foundA, retry}));
        QCOMPARE(verdictOn(bench, second), PortReport::Duplicate);
        bench.endReplyTimers();
        QTRY_VERIFY(bench.isOver());
        const PortReport report = reportOn(bench, second);
        QCOMPARE(report.verdict, PortReport::Duplicate);
        QCOMPARE(report.type, JwDevice::BoardA);
        QCOMPARE(report.queries, 4); // two a round
        QCOMPARE(reportOn(bench, first).queries, 2); // not asked again
    }

    void lateReplyOfATimedOutPortCounts_data()
    {
        QTest::addColumn<QByteArray>("version");
        QTest::addColumn<PortReport::Verdict>("verdict");
        QTest::newRow("of the wanted type") << QByteArray(versionA) << PortReport::HandedOver;
        QTest::newRow("of another type") << QByteArray(versionB) << PortReport::Silenced;
    }
    void lateReplyOfATimedOutPortCounts()
    {
        QFETCH(QByteArray, version);
        QFETCH(PortReport::Verdict, verdict);
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.attach("silent"); // keeps the probe open
        bench.probe(boardA);
        bench.timeOut(board);
        sendAndCount(bench, board, versionReply(version), 1);
        QCOMPARE(verdictOn(bench, board), verdict);
        QCOMPARE(reportOn(bench, board).reply, shown(versionReply(version)));
    }

    void portWithALateReplyOfAnotherTypeIsAskedAgainAsAnyOther()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        const Board *const other = bench.attach("silent");
        bench.initializer->setMaxRetries(1);
        bench.probe(boardA);
        bench.timeOut(board);
        sendAndCount(bench, board, versionReply(versionB), 1);
        bench.timeOut(other);
        QCOMPARE(bench.decisions(), QStringList{retry});
        QCOMPARE(verdictOn(bench, board), PortReport::Awaiting); // its 400 ms are running
        bench.endReplyTimers();
        QTRY_VERIFY(bench.isOver());
        QCOMPARE(verdictOn(bench, board), PortReport::TimedOut);
        QCOMPARE(reportOn(bench, board).reply, shown(versionReply(versionB)));
    }

    void silencedPortThatAnswersAsAWantedTypeIsHandedOver()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.probe(boardA);
        sendAndCount(bench, board, versionReply(versionB), 1);
        QCOMPARE(verdictOn(bench, board), PortReport::Silenced);
        sendAndCount(bench, board, versionReply(versionA), 2);
        const PortReport report = reportOn(bench, board);
        QCOMPARE(report.verdict, PortReport::HandedOver);
        QCOMPARE(report.type, JwDevice::BoardA);
        QCOMPARE(report.reply, shown(versionReply(versionA)));
    }

    void receiverOfTheHandOverSeesItAndTheOtherPortsGoOn()
    {
        ProbeBench bench;
        Board *const other = bench.attach("silent");
        Board *const board = bench.attach("silent");
        PortReport seen;
        connect(bench.initializer, &Initializer::deviceInitialized, this, [&] {
            seen = reportOn(bench, board);
            QCOMPARE(verdictOn(bench, other), PortReport::Awaiting);
            sendAndCount(bench, other, versionReply(versionB), 1); // runs an event loop
            QCOMPARE(verdictOn(bench, other), PortReport::Silenced);
        });
        bench.probe(boardA);
        sendAndCount(bench, board, versionReply(versionA), 1);
        QTRY_COMPARE(verdictOn(bench, other), PortReport::Silenced);
        QCOMPARE(seen.verdict, PortReport::HandedOver);
        QCOMPARE(seen.type, JwDevice::BoardA);
        QCOMPARE(seen.payloads, 1);
        QCOMPARE(seen.reply, shown(versionReply(versionA)));
    }

    void receiverOfAMissingTypeSeesWhy()
    {
        ProbeBench bench;
        const Board *const silent = bench.attach("silent");
        const Board *const found = bench.attach("BoardB");
        const Board *const denied = bench.attach("BoardA,open=denied");
        QList<PortReport> seen;
        connect(bench.initializer, &Initializer::deviceNotFound, this,
                [&] { seen = bench.initializer->portReports(); });
        bench.initializer->setMaxRetries(1);
        bench.probe({JwDevice::BoardA, JwDevice::BoardB});
        QTRY_COMPARE(verdictOn(bench, found), PortReport::HandedOver);
        bench.endReplyTimers();
        QTRY_COMPARE(bench.timeline.count(retry), 1);
        bench.endReplyTimers();
        QTRY_COMPARE(seen.size(), 3);
        QCOMPARE(seen.at(0).portName, silent->portName());
        QCOMPARE(seen.at(0).verdict, PortReport::TimedOut);
        QCOMPARE(seen.at(0).queries, 2);
        QCOMPARE(seen.at(1).verdict, PortReport::HandedOver);
        QCOMPARE(seen.at(1).type, JwDevice::BoardB);
        QCOMPARE(seen.at(2).portName, denied->portName());
        QCOMPARE(seen.at(2).error, QSerialPort::PermissionError);
    }

    void receiverWithinProbeSeesWhyNoPortOpened()
    {
        ProbeBench bench;
        bench.attach("BoardA,open=denied");
        bench.attach("BoardA,open=busy");
        QList<PortReport> seen;
        connect(bench.initializer, &Initializer::deviceNotFound, this,
                [&] { seen = bench.initializer->portReports(); });
        bench.probe(boardA);
        QCOMPARE(seen.size(), 2);
        for (const PortReport &report : qAsConst(seen)) {
            QCOMPARE(report.verdict, PortReport::NotOpened);
            QCOMPARE(report.error, QSerialPort::PermissionError);
        }
    }

    void reportsStayAsTheyAreWhenTheProbeIsOver()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.initializer->setMaxRetries(0);
        bench.probe(boardA);
        bench.timeOut(board);
        QVERIFY(bench.isOver());
        QVERIFY(board->send(versionReply(versionA)));
        QTRY_VERIFY(
            !bench.log.sink->withText(QStringLiteral(" <-  ") + quoted(shown(versionReply(versionA)))).isEmpty());
        verifyOnly(reportOn(bench, board), PortReport::TimedOut, 1);
    }

    void whatHappensToAPortThatWasHandedOverIsNotReported()
    {
        ProbeBench bench;
        Board *const board = bench.attach("BoardA");
        const Board *const silent = bench.attach("silent");
        bench.initializer->setMaxRetries(0);
        bench.probe({JwDevice::BoardA, JwDevice::BoardB});
        QTRY_COMPARE(verdictOn(bench, board), PortReport::HandedOver);
        QSerialPort *const port = bench.handOver(board).port;
        bool failed = false;
        connect(port, &QSerialPort::errorOccurred, port, [&failed, port] {
            failed = true;
            if (port->isOpen())
                port->close();
        });
        QVERIFY(board->send("$PAPPLICATION\r\n"));
        QTRY_VERIFY(!bench.log.sink->withText(QStringLiteral(" <-  \"$PAPPLICATION\"")).isEmpty());
        board->pull();
        QTRY_VERIFY(failed);
        delete bench.handOver(board).comm;
        bench.timeOut(silent);
        QVERIFY(bench.isOver());
        const PortReport report = reportOn(bench, board);
        QCOMPARE(report.verdict, PortReport::HandedOver);
        QCOMPARE(report.payloads, 1);
        QCOMPARE(report.unreadable, QString());
        verifyNoError(report);
    }

    void copyStaysAsItIs()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.probe(boardA);
        const QList<PortReport> reports = bench.initializer->portReports();
        sendAndCount(bench, board, versionReply(versionA), 1);
        QCOMPARE(verdictOn(bench, board), PortReport::HandedOver);
        delete bench.initializer;
        QCOMPARE(reports.size(), 1);
        QCOMPARE(reports.first().portName, board->portName());
        QCOMPARE(reports.first().verdict, PortReport::Awaiting);
        verifyNothingCameIn(reports.first());
    }

    void reportsTakenBeforeAReceiverDeletesTheInitializerStay()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("silent");
        QList<PortReport> reports;
        connect(bench.initializer, &Initializer::deviceNotFound, this, [&] {
            reports = bench.initializer->portReports();
            delete bench.initializer;
        });
        bench.initializer->setMaxRetries(0);
        bench.probe(boardA);
        bench.timeOut(board);
        QVERIFY(!bench.initializer);
        QCOMPARE(reports.size(), 1);
        QCOMPARE(reports.first().portName, board->portName());
        QCOMPARE(reports.first().verdict, PortReport::TimedOut);
    }

    void refusedProbeChangesNoReport()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("silent");
        bench.probe(boardA);
        QVERIFY(!bench.initializer->probe({}));
        QCOMPARE(reportedPorts(bench), QStringList{board->portName()});
        QCOMPARE(verdictOn(bench, board), PortReport::Awaiting);
    }

    void explicitNamesOfASecondProbeAddTheirReports()
    {
        ProbeBench bench;
        const QString unknown = QStringLiteral("ttyNONE1");
        QVERIFY(bench.initializer->probe(boardA, 0, {unknown}));
        const Board *const denied = bench.attach("silent,open=denied");
        const Board *const board = bench.attach("BoardA");
        QVERIFY(bench.initializer->probe(boardA, 0, {denied->portName(), board->portName()}));
        QCOMPARE(reportedPorts(bench), QStringList({unknown, denied->portName(), board->portName()}));
        QTRY_COMPARE(verdictOn(bench, board), PortReport::HandedOver);
    }

    void portOfAnEarlierProbeIsTriedAnew()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("silent,serial=S-4711");
        {
            QSerialPort holder(board->portName());
            QVERIFY(holder.open(QIODevice::ReadWrite));
            bench.probe(boardA);
            QCOMPARE(reportOn(bench, board).error, QSerialPort::PermissionError);
        }
        QVERIFY(bench.initializer->probe(boardA, 0, {QStringLiteral("ttyNONE1")}));
        verifyOnly(reportOn(bench, board), PortReport::Awaiting, 1);
        QCOMPARE(reportOn(bench, board).serialNumber, QStringLiteral("S-4711"));
    }

    void searchReplacesTheReports()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("BoardA");
        QVERIFY(bench.initializer->probe(boardA, 0, {QStringLiteral("ttyNONE1")}));
        QVERIFY(bench.initializer->probe(boardA));
        QCOMPARE(reportedPorts(bench), QStringList{board->portName()});
        QTRY_COMPARE(verdictOn(bench, board), PortReport::HandedOver);
    }

    void portThatAnEarlierProbeStillAsksIsReportedByWhatItDoes_data()
    {
        QTest::addColumn<bool>("search");
        QTest::newRow("explicit names") << false;
        QTest::newRow("search") << true;
    }
    void portThatAnEarlierProbeStillAsksIsReportedByWhatItDoes()
    {
        QFETCH(bool, search);
        ProbeBench bench;
        Board *const first = bench.attach("silent");
        bench.probe(boardA);
        const Board *const second = bench.attach("silent");
        QVERIFY(bench.initializer->probe(boardA, 0, search ? QStringList() : QStringList{second->portName()}));
        QCOMPARE(reportedPorts(bench), bench.portNames());
        QCOMPARE(verdictOn(bench, first), PortReport::Awaiting);
        QCOMPARE(verdictOn(bench, second), PortReport::Awaiting);
        QVERIFY(first->send(versionReply(versionA)));
        QTRY_COMPARE(bench.handOver(first).type, JwDevice::BoardA);
        QCOMPARE(verdictOn(bench, first), PortReport::HandedOver);
        QCOMPARE(reportOn(bench, first).type, JwDevice::BoardA);
    }

    void portThatTheApplicationHasIsNotOpenedByALaterProbe()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("BoardA");
        const Board *const silent = bench.attach("silent");
        bench.probe({JwDevice::BoardA, JwDevice::BoardB});
        QTRY_COMPARE(verdictOn(bench, board), PortReport::HandedOver);
        QVERIFY(bench.initializer->probe({JwDevice::BoardB}));
        const PortReport report = reportOn(bench, board);
        QCOMPARE(report.verdict, PortReport::NotOpened);
        QCOMPARE(report.error, QSerialPort::PermissionError);
        verifyNothingCameIn(report);
        QCOMPARE(verdictOn(bench, silent), PortReport::Awaiting);
    }

    void lostPortIsTriedAnewByALaterProbe()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.probe(boardA);
        board->pull();
        QTRY_COMPARE(verdictOn(bench, board), PortReport::Lost);
        QVERIFY(bench.initializer->probe(boardA, 0, {QStringLiteral("ttyNONE1")}));
        QCOMPARE(verdictOn(bench, board), PortReport::NotOpened);
        QCOMPARE(reportOn(bench, board).error, QSerialPort::DeviceNotFoundError);
        QVERIFY(board->plug());
        QVERIFY(bench.initializer->probe(boardA, 0, {QStringLiteral("ttyNONE2")}));
        verifyOnly(reportOn(bench, board), PortReport::Awaiting, 1);
    }

    void portNamedTwiceHasTwoReports()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("BoardA");
        QVERIFY(bench.initializer->probe(boardA, 0, {board->portName(), board->portName()}));
        QTRY_VERIFY(bench.isOver());
        QCOMPARE(reportedPorts(bench), QStringList({board->portName(), board->portName()}));
        QCOMPARE(bench.initializer->portReports().first().verdict, PortReport::HandedOver);
    }
};

SIMULATED_PORTS_MAIN(InitializerReportsTest)
#include "tst_initializer_reports.moc"

#include "support/initializer/probefixture.h"
#include "support/common/simulatedportsmain.h"
#include "support/device/otherreader.h"
#include "support/initializer/timelinetexts.h"

#include <device/portreport.h>

#include <QDeadlineTimer>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <type_traits>
#include <utility>

using JwDevice::Initializer;
using JwDevice::PortReport;
using JwDevice::Type;
using JwSimulator::Board;
using JwSimulator::frameSentence;

Q_DECLARE_METATYPE(PortReport::Verdict)

static_assert(std::is_same_v<decltype(&Initializer::portReports), QList<PortReport> (Initializer::*)() const>);
// A board that sends without pause sends more than 2^31 payloads in a day, so the counter must be larger than int.
static_assert(std::numeric_limits<decltype(PortReport::payloads)>::max() > std::numeric_limits<int>::max());
static_assert(std::is_copy_constructible_v<PortReport> && std::is_copy_assignable_v<PortReport>);

namespace {

const TypeList boardA = {JwDevice::BoardA};
const char *const versionA = "7300022";
const char *const versionB = "7300021";

/// Returns the report on the port of `board`. Ends the test program unless there is exactly one such report.
PortReport reportOn(const ProbeFixture &fixture, const Board *board)
{
    QList<PortReport> found;
    const QList<PortReport> reports = fixture.initializer->portReports();
    std::copy_if(reports.begin(), reports.end(), std::back_inserter(found),
                 [board](const PortReport &report) { return report.portName == board->portName(); });
    if (found.size() != 1)
        qFatal("%d reports on %s", static_cast<int>(found.size()), qUtf8Printable(board->portName()));
    return found.first();
}

PortReport::Verdict verdictOn(const ProbeFixture &fixture, const Board *board)
{
    return reportOn(fixture, board).verdict;
}

QStringList reportedPorts(const ProbeFixture &fixture)
{
    QStringList names;
    const QList<PortReport> reports = fixture.initializer->portReports();
    for (const PortReport &report : reports)
        names << report.portName;
    return names;
}

/// Returns the text of a reply as a report shows it, without the line end.
QString shown(const QByteArray &reply)
{
    return QString::fromLatin1(reply.chopped(2));
}

/// Sends `payload`, which may contain several payloads, and waits until the report counts `payloads` in total.
void sendAndCount(const ProbeFixture &fixture, Board *board, const QByteArray &payload, int payloads)
{
    QVERIFY(board->send(payload));
    QTRY_COMPARE(reportOn(fixture, board).payloads, payloads);
}

/// Waits until the probe hands `found` over as BoardA. Then makes the port of the silent `board` get `verdict`.
void bringTo(PortReport::Verdict verdict, ProbeFixture &fixture, Board *board, const Board *found)
{
    QTRY_COMPARE(verdictOn(fixture, found), PortReport::HandedOver);
    if (verdict == PortReport::TimedOut)
        fixture.timeOut(board);
    else if (verdict == PortReport::Silenced)
        sendAndCount(fixture, board, versionReply(versionB), 1);
    else if (verdict == PortReport::Duplicate)
        sendAndCount(fixture, board, versionReply(versionA), 1);
    QCOMPARE(verdictOn(fixture, board), verdict);
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

/// Verifies the verdict and the number of queries, and that the report contains no type, reply, payloads or error.
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

class TestInitializerReports : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void emptyBeforeAProbe();
    void emptyIfNoPortIsACandidate();
    void newReportSaysNothing() { verifyOnly(PortReport(), PortReport::NotOpened, 0); }
    void everyReportNamesItsDevice_data();
    void everyReportNamesItsDevice();
    void reportsStandInTheOrderOfTheNamesGiven();
    void reportsStandInTheOrderOfTheSearchAndOnItsCandidatesOnly();
    void portThatCannotBeOpenedIsReportedWithItsError_data();
    void portThatCannotBeOpenedIsReportedWithItsError();
    void nameThatNoPortHasIsReportedAsItWasGiven();
    void noPortWasTriedDuringTheDelay();
    void portPulledDuringTheDelayKeepsItsNames();
    void askedPortIsAwaiting();
    void portWithoutAnAnswerInTimeIsTimedOut();
    void answerOfNoWantedTypeSilencesThePort_data();
    void answerOfNoWantedTypeSilencesThePort();
    void boardOfAWantedTypeIsHandedOverWithItsType_data();
    void boardOfAWantedTypeIsHandedOverWithItsType();
    void secondBoardOfATypeIsADuplicateWithItsType();
    void pulledPortIsLost_data();
    void pulledPortIsLost();
    void portThatFailsIsLostWithAnErrorOfItsOwn();
    void lostPortStaysLostAndIsAskedNoMore();
    void lastWordsOfALostPortDoNotBringItBack();
    void portLostAfterTheProbeIsReportedAsLost();
    void queriesAreCountedByTheWantedTypesAndRounds_data();
    void queriesAreCountedByTheWantedTypesAndRounds();
    void portWithoutAQueryIsAwaiting();
    void payloadThatCannotBeParsedIsCountedAndShown_data();
    void payloadThatCannotBeParsedIsCountedAndShown();
    void newestReplyAndNewestUnreadablePayloadAreShown();
    void everyPayloadOfOnePieceIsCounted();
    void payloadsBehindTheRecognisedOneAreNotCounted_data();
    void payloadsBehindTheRecognisedOneAreNotCounted();
    void timedOutPortIsAwaitingAgainInARetryRound();
    void duplicateStaysOneInRetryRounds();
    void lateReplyOfATimedOutPortCounts_data();
    void lateReplyOfATimedOutPortCounts();
    void portWithALateReplyOfAnotherTypeIsAskedAgainAsAnyOther();
    void silencedPortThatAnswersAsAWantedTypeIsHandedOver();
    void receiverOfTheHandOverSeesItAndTheOtherPortsGoOn();
    void receiverOfAMissingTypeSeesWhy();
    void receiverWithinProbeSeesWhyNoPortOpened();
    void reportsStayAsTheyAreWhenTheProbeIsOver();
    void whatHappensToAPortThatWasHandedOverIsNotReported();
    void copyStaysAsItIs();
    void reportsTakenBeforeAReceiverDeletesTheInitializerStay();
    void refusedProbeChangesNoReport();
    void explicitNamesOfASecondProbeAddTheirReports();
    void portOfAnEarlierProbeIsTriedAgain();
    void searchReplacesTheReports();
    void portThatAnEarlierProbeStillAsksIsReportedByWhatItDoes_data();
    void portThatAnEarlierProbeStillAsksIsReportedByWhatItDoes();
    void portThatTheApplicationHasIsNotOpenedByALaterProbe();
    void lostPortIsTriedAgainByALaterProbe();
    void portNamedTwiceHasTwoReports();
};

void TestInitializerReports::emptyBeforeAProbe()
{
    ProbeFixture fixture;
    fixture.attach("BoardA");
    QVERIFY(fixture.initializer->portReports().isEmpty());
    QVERIFY(!fixture.initializer->probe({}, 0, fixture.portNames())); // refused, because no type is wanted
    QVERIFY(fixture.initializer->portReports().isEmpty());
}

void TestInitializerReports::emptyIfNoPortIsACandidate()
{
    ProbeFixture fixture;
    fixture.attach("BoardA,manufacturer=Somebody,vendor=1a86");
    QVERIFY(fixture.initializer->probe(boardA));
    QVERIFY(fixture.initializer->portReports().isEmpty());
}

void TestInitializerReports::everyReportNamesItsDevice_data()
{
    QTest::addColumn<QByteArray>("board");
    QTest::addColumn<QString>("manufacturer");
    QTest::addColumn<PortReport::Verdict>("verdict");
    const QString maker = QStringLiteral("STMicroelectronics.");
    QTest::newRow("opened") << QByteArray("silent,serial=S-4711") << maker << PortReport::Awaiting;
    QTest::newRow("held by another program")
        << QByteArray("silent,serial=S-4711,open=busy") << maker << PortReport::NotOpened;
    QTest::newRow("no permission") << QByteArray("silent,serial=S-4711,open=denied") << maker << PortReport::NotOpened;
    QTest::newRow("of another manufacturer") << QByteArray("silent,serial=S-4711,manufacturer=Somebody")
                                             << QStringLiteral("Somebody") << PortReport::Awaiting;
    QTest::newRow("of none") << QByteArray("silent,serial=S-4711,manufacturer=") << QString() << PortReport::Awaiting;
}

void TestInitializerReports::everyReportNamesItsDevice()
{
    QFETCH(QByteArray, board);
    QFETCH(QString, manufacturer);
    QFETCH(PortReport::Verdict, verdict);
    ProbeFixture fixture;
    const Board *const attached = fixture.attach(board.constData());
    fixture.probe(boardA);
    const PortReport report = reportOn(fixture, attached);
    QCOMPARE(report.verdict, verdict);
    QCOMPARE(report.location, QStringLiteral("/dev/") + attached->portName());
    QCOMPARE(report.manufacturer, manufacturer);
    QCOMPARE(report.product, QStringLiteral("Simulated board"));
    QCOMPARE(report.serialNumber, QStringLiteral("S-4711"));
}

void TestInitializerReports::reportsStandInTheOrderOfTheNamesGiven()
{
    ProbeFixture fixture;
    const QString first = fixture.attach("silent,open=denied")->portName();
    const QString second = fixture.attach("silent")->portName();
    const QString third = fixture.attach("BoardA")->portName();
    const QString unknown = QStringLiteral("ttyNONE1");
    QVERIFY(fixture.initializer->probe(boardA, 0, {third, unknown, first, second}));
    QCOMPARE(reportedPorts(fixture), QStringList({third, unknown, first, second}));
    QTRY_VERIFY(fixture.isOver());
    QCOMPARE(reportedPorts(fixture), QStringList({third, unknown, first, second}));
}

void TestInitializerReports::reportsStandInTheOrderOfTheSearchAndOnItsCandidatesOnly()
{
    ProbeFixture fixture;
    fixture.attach("silent");
    const Board *const other = fixture.attach("silent,manufacturer=Somebody,vendor=1a86");
    fixture.attach("silent,open=busy");
    fixture.attach("silent,vendor=1a86");
    QStringList expected;
    const auto available = QSerialPortInfo::availablePorts();
    for (const QSerialPortInfo &info : available) {
        if (info.portName() != other->portName())
            expected << info.portName();
    }
    QVERIFY(fixture.initializer->probe(boardA));
    QCOMPARE(expected.size(), 3);
    QCOMPARE(reportedPorts(fixture), expected);
}

void TestInitializerReports::portThatCannotBeOpenedIsReportedWithItsError_data()
{
    QTest::addColumn<QByteArray>("board");
    QTest::newRow("held by another program") << QByteArray("BoardA,open=busy");
    QTest::newRow("no permission") << QByteArray("BoardA,open=denied");
}

void TestInitializerReports::portThatCannotBeOpenedIsReportedWithItsError()
{
    QFETCH(QByteArray, board);
    ProbeFixture fixture;
    const Board *const attached = fixture.attach(board.constData());
    fixture.probe(boardA);
    QSerialPort attempt(attached->portName());
    QVERIFY(!attempt.open(QIODevice::ReadWrite));
    const PortReport report = reportOn(fixture, attached);
    QCOMPARE(report.verdict, PortReport::NotOpened);
    QCOMPARE(report.error, QSerialPort::PermissionError);
    verifyError(report, attempt);
    verifyNothingCameIn(report);
    QCOMPARE(report.queries, 0);
}

void TestInitializerReports::nameThatNoPortHasIsReportedAsItWasGiven()
{
    ProbeFixture fixture;
    const QString name = QStringLiteral("ttyNONE1");
    // QSerialPort locks a port by a lock file, and all unknown port names share one lock file. Another test program may
    // hold this lock for a moment, so try again.
    PortReport report;
    const auto isProbed = [&] {
        report = fixture.renew()->probe(boardA, 0, {name}) ? fixture.initializer->portReports().value(0) : PortReport();
        return report.error != QSerialPort::PermissionError;
    };
    QTRY_VERIFY(isProbed());
    QCOMPARE(fixture.initializer->portReports().size(), 1);
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

void TestInitializerReports::noPortWasTriedDuringTheDelay()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("BoardC,serial=S-4711");
    const Board *const denied = fixture.attach("BoardC,open=denied");
    QVERIFY(fixture.initializer->probe({JwDevice::BoardC}, 60000, fixture.portNames()));
    QCOMPARE(reportedPorts(fixture), fixture.portNames());
    verifyOnly(reportOn(fixture, board), PortReport::NotOpened, 0);
    verifyOnly(reportOn(fixture, denied), PortReport::NotOpened, 0);
    QCOMPARE(reportOn(fixture, board).serialNumber, QStringLiteral("S-4711"));
    QTimer *const delay = fixture.initializer->findChild<QTimer *>();
    delay->start(0);
    QTRY_COMPARE(verdictOn(fixture, board), PortReport::HandedOver);
    QCOMPARE(reportOn(fixture, denied).error, QSerialPort::PermissionError);
}

void TestInitializerReports::portPulledDuringTheDelayKeepsItsNames()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("BoardC,serial=S-4711");
    QVERIFY(fixture.initializer->probe({JwDevice::BoardC}, 1, {board->portName()}));
    board->pull();
    QTRY_VERIFY(reportOn(fixture, board).error != QSerialPort::NoError);
    const PortReport report = reportOn(fixture, board);
    QCOMPARE(report.verdict, PortReport::NotOpened);
    QCOMPARE(report.error, QSerialPort::DeviceNotFoundError);
    QCOMPARE(report.serialNumber, QStringLiteral("S-4711"));
}

void TestInitializerReports::askedPortIsAwaiting()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    fixture.probe(boardA);
    verifyOnly(reportOn(fixture, board), PortReport::Awaiting, 1);
}

void TestInitializerReports::portWithoutAnAnswerInTimeIsTimedOut()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("silent");
    fixture.initializer->setMaxRetries(0);
    fixture.probe(boardA);
    QTRY_VERIFY(fixture.isOver());
    verifyOnly(reportOn(fixture, board), PortReport::TimedOut, 1);
}

void TestInitializerReports::answerOfNoWantedTypeSilencesThePort_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::newRow("board of another type") << versionReply(versionB);
    QTest::newRow("unknown hardware version") << versionReply("7300099");
    QTest::newRow("information of a board of another type") << informationReply("INF");
    QTest::newRow("echo of the query") << versionQuery;
    QTest::newRow("other start character") << QByteArray("!PJWVER,7300099\r\n");
    QTest::newRow("carriage return within it") << QByteArray("$PJWVER,73\r00099\r\n");
}

void TestInitializerReports::answerOfNoWantedTypeSilencesThePort()
{
    QFETCH(QByteArray, reply);
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.probe(boardA);
    sendAndCount(fixture, board, reply, 1);
    const PortReport report = reportOn(fixture, board);
    QCOMPARE(report.verdict, PortReport::Silenced);
    QCOMPARE(report.reply, shown(reply));
    QCOMPARE(report.type, JwDevice::Unknown);
    QCOMPARE(report.unreadable, QString());
    verifyNoError(report);
}

void TestInitializerReports::boardOfAWantedTypeIsHandedOverWithItsType_data()
{
    QTest::addColumn<QByteArray>("board");
    QTest::addColumn<Type>("type");
    QTest::addColumn<QByteArray>("reply");
    QTest::newRow("A") << QByteArray("BoardA") << JwDevice::BoardA << QByteArray("$PJWVER,7300022,");
    QTest::newRow("B") << QByteArray("BoardB") << JwDevice::BoardB << QByteArray("$PJWVER,7300021,");
    QTest::newRow("C") << QByteArray("BoardC") << JwDevice::BoardC << QByteArray("$PTJWRD,INF,");
}

void TestInitializerReports::boardOfAWantedTypeIsHandedOverWithItsType()
{
    QFETCH(QByteArray, board);
    QFETCH(Type, type);
    QFETCH(QByteArray, reply);
    ProbeFixture fixture;
    const Board *const attached = fixture.attach(board.constData());
    const Board *const silent = fixture.attach("silent");
    fixture.probe({type});
    QTRY_COMPARE(verdictOn(fixture, attached), PortReport::HandedOver);
    const PortReport report = reportOn(fixture, attached);
    QCOMPARE(report.type, type);
    QCOMPARE(report.reply, shown(sent(attached)));
    QVERIFY(report.reply.startsWith(QLatin1String(reply)));
    QCOMPARE(report.queries, 1);
    QCOMPARE(report.payloads, 1);
    verifyNoError(report);
    QCOMPARE(verdictOn(fixture, silent), PortReport::Awaiting);
}

void TestInitializerReports::secondBoardOfATypeIsADuplicateWithItsType()
{
    ProbeFixture fixture;
    Board *const first = fixture.attach("silent");
    Board *const second = fixture.attach("silent");
    fixture.probe({JwDevice::BoardB});
    sendAndCount(fixture, second, versionReply(versionB), 1);
    sendAndCount(fixture, first, versionReply(versionB), 1);
    QCOMPARE(verdictOn(fixture, second), PortReport::HandedOver);
    const PortReport report = reportOn(fixture, first);
    QCOMPARE(report.verdict, PortReport::Duplicate);
    QCOMPARE(report.type, JwDevice::BoardB);
    QCOMPARE(report.reply, shown(versionReply(versionB)));
    verifyNoError(report);
}

void TestInitializerReports::pulledPortIsLost_data()
{
    QTest::addColumn<PortReport::Verdict>("verdict");
    QTest::addColumn<QString>("reply");
    QTest::newRow("awaiting") << PortReport::Awaiting << QString();
    QTest::newRow("timed out") << PortReport::TimedOut << QString();
    QTest::newRow("silenced") << PortReport::Silenced << shown(versionReply(versionB));
    QTest::newRow("duplicate") << PortReport::Duplicate << shown(versionReply(versionA));
}

void TestInitializerReports::pulledPortIsLost()
{
    QFETCH(PortReport::Verdict, verdict);
    QFETCH(QString, reply);
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    const Board *const found = fixture.attach("BoardA");
    const Board *const other = fixture.attach("silent"); // the probe waits for this board, so it does not end
    fixture.probe(boardA);
    bringTo(verdict, fixture, board, found);
    board->pull();
    QTRY_COMPARE(verdictOn(fixture, board), PortReport::Lost);
    settle();
    const PortReport report = reportOn(fixture, board);
    QCOMPARE(report.verdict, PortReport::Lost);
    // Always this error if the device is gone, whatever error the port reported.
    QCOMPARE(report.error, QSerialPort::ResourceError);
    QCOMPARE(report.errorText, QStringLiteral("No such device"));
    QCOMPARE(report.reply, reply);
    QCOMPARE(report.queries, 1);
    QCOMPARE(report.serialNumber, board->config().serial);
    QCOMPARE(verdictOn(fixture, other), PortReport::Awaiting);
}

// Without bytes to read, QSerialPort reports ResourceError, but the device is there.
void TestInitializerReports::portThatFailsIsLostWithAnErrorOfItsOwn()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    OtherReader other(QStringLiteral("/dev/") + board->portName(), EAGAIN);
    fixture.probe(boardA);
    const QSerialPort *const port = fixture.port(board);
    QSerialPort::SerialPortError reported = QSerialPort::NoError;
    connect(port, &QSerialPort::errorOccurred, this,
            [&reported](QSerialPort::SerialPortError error) { reported = error; });
    other.start(port);
    const QDeadlineTimer deadline(60000);
    while (verdictOn(fixture, board) != PortReport::Lost && !deadline.hasExpired()) {
        QVERIFY(board->send("stolen\r\n"));
        settle();
    }
    const PortReport report = reportOn(fixture, board);
    QCOMPARE(report.verdict, PortReport::Lost);
    QCOMPARE(reported, QSerialPort::ResourceError);
    QCOMPARE(report.error, QSerialPort::UnknownError);
    QVERIFY(!report.errorText.isEmpty());
}

void TestInitializerReports::lostPortStaysLostAndIsAskedNoMore()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    const Board *const silent = fixture.attach("silent");
    fixture.initializer->setMaxRetries(1);
    fixture.probe(boardA);
    board->pull();
    QTRY_COMPARE(verdictOn(fixture, board), PortReport::Lost);
    fixture.timeOut(board);
    QCOMPARE(verdictOn(fixture, board), PortReport::Lost);
    fixture.timeOut(silent);
    QCOMPARE(fixture.decisions(), QStringList{retry});
    QCOMPARE(verdictOn(fixture, board), PortReport::Lost);
    fixture.endReplyTimers();
    QTRY_VERIFY(fixture.isOver());
    QCOMPARE(verdictOn(fixture, board), PortReport::Lost);
    QCOMPARE(reportOn(fixture, board).queries, 1);
    QCOMPARE(reportOn(fixture, silent).queries, 2);
}

void TestInitializerReports::lastWordsOfALostPortDoNotBringItBack()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.probe(boardA);
    fixture.store(board, {versionReply(versionB)});
    board->pull();
    QTRY_COMPARE(verdictOn(fixture, board), PortReport::Lost);
    fixture.initializer->boardReadyRead(fixture.comm(board));
    const PortReport report = reportOn(fixture, board);
    QCOMPARE(report.verdict, PortReport::Lost);
    QCOMPARE(report.reply, shown(versionReply(versionB)));
    QCOMPARE(report.payloads, 1);
}

void TestInitializerReports::portLostAfterTheProbeIsReportedAsLost()
{
    ProbeFixture fixture;
    Board *const board = fixture.probeSilentBoard();
    QVERIFY(fixture.isOver());
    board->pull();
    QTRY_COMPARE(verdictOn(fixture, board), PortReport::Lost);
}

void TestInitializerReports::queriesAreCountedByTheWantedTypesAndRounds_data()
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

void TestInitializerReports::queriesAreCountedByTheWantedTypesAndRounds()
{
    QFETCH(TypeList, types);
    QFETCH(int, queries);
    ProbeFixture fixture;
    const Board *const board = fixture.attach("silent");
    fixture.initializer->setMaxRetries(2);
    fixture.probe(types);
    QCOMPARE(reportOn(fixture, board).queries, queries);
    for (int round = 1; round <= 2; ++round) {
        fixture.endReplyTimers();
        QTRY_COMPARE(fixture.timeline.count(retry), round);
        QCOMPARE(reportOn(fixture, board).queries, queries * (round + 1));
    }
    fixture.endReplyTimers();
    QTRY_VERIFY(fixture.isOver());
    QCOMPARE(reportOn(fixture, board).queries, queries * 3);
    QTRY_COMPARE(received(board).count('$'), queries * 3);
}

void TestInitializerReports::portWithoutAQueryIsAwaiting()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("silent");
    fixture.probe({JwDevice::Unknown});
    verifyOnly(reportOn(fixture, board), PortReport::Awaiting, 0);
}

void TestInitializerReports::payloadThatCannotBeParsedIsCountedAndShown_data()
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

void TestInitializerReports::payloadThatCannotBeParsedIsCountedAndShown()
{
    QFETCH(QByteArray, payload);
    QFETCH(QString, unreadable);
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.initializer->setMaxRetries(0);
    fixture.probe(boardA);
    sendAndCount(fixture, board, payload, 1);
    PortReport report = reportOn(fixture, board);
    QCOMPARE(report.verdict, PortReport::Awaiting);
    QCOMPARE(report.unreadable, unreadable);
    QCOMPARE(report.reply, QString());
    verifyNoError(report);
    fixture.timeOut(board);
    report = reportOn(fixture, board);
    QCOMPARE(report.verdict, PortReport::TimedOut);
    QCOMPARE(report.unreadable, unreadable);
}

void TestInitializerReports::newestReplyAndNewestUnreadablePayloadAreShown()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.probe(boardA);
    sendAndCount(fixture, board, frameSentence("GPGGA,1"), 1);
    sendAndCount(fixture, board, versionReply(versionB), 2);
    sendAndCount(fixture, board, frameSentence("GPGGA,2"), 3);
    PortReport report = reportOn(fixture, board);
    QCOMPARE(report.verdict, PortReport::Silenced);
    QCOMPARE(report.reply, shown(versionReply(versionB)));
    QCOMPARE(report.unreadable, shown(frameSentence("GPGGA,2")));
    sendAndCount(fixture, board, informationReply("INF"), 4);
    report = reportOn(fixture, board);
    QCOMPARE(report.reply, shown(informationReply("INF")));
    QCOMPARE(report.unreadable, shown(frameSentence("GPGGA,2")));
}

void TestInitializerReports::everyPayloadOfOnePieceIsCounted()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.probe(boardA);
    sendAndCount(fixture, board, frameSentence("GPGGA,1") + versionReply(versionB) + versionReply(versionA), 3);
    const PortReport report = reportOn(fixture, board);
    QCOMPARE(report.verdict, PortReport::HandedOver);
    QCOMPARE(report.reply, shown(versionReply(versionA)));
    QCOMPARE(report.unreadable, shown(frameSentence("GPGGA,1")));
}

void TestInitializerReports::payloadsBehindTheRecognisedOneAreNotCounted_data()
{
    QTest::addColumn<QByteArrayList>("behind");
    QTest::newRow("one, which is dropped") << QByteArrayList{versionReply(versionB)};
    QTest::newRow("one that can't be parsed") << QByteArrayList{"$PNONE\r\n"};
    QTest::newRow("two") << QByteArrayList{"$PNONE\r\n", versionReply(versionB)};
}

void TestInitializerReports::payloadsBehindTheRecognisedOneAreNotCounted()
{
    QFETCH(QByteArrayList, behind);
    ProbeFixture fixture;
    Board *const first = fixture.attach("silent");
    Board *const second = fixture.attach("silent");
    fixture.probe({JwDevice::BoardA, JwDevice::BoardC});
    for (Board *const board : {first, second}) { // `first` is handed over, `second` becomes a duplicate
        fixture.store(board, QByteArrayList{versionReply(versionA)} + behind);
        fixture.initializer->boardReadyRead(fixture.comm(board));
        const PortReport report = reportOn(fixture, board);
        QCOMPARE(report.verdict, board == first ? PortReport::HandedOver : PortReport::Duplicate);
        QCOMPARE(report.payloads, 1);
        QCOMPARE(report.reply, shown(versionReply(versionA)));
        QCOMPARE(report.unreadable, QString());
    }
}

void TestInitializerReports::timedOutPortIsAwaitingAgainInARetryRound()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    const Board *const other = fixture.attach("silent");
    fixture.initializer->setMaxRetries(1);
    fixture.probe(boardA);
    sendAndCount(fixture, board, "$PNONE\r\n", 1);
    fixture.timeOut(board);
    QCOMPARE(verdictOn(fixture, board), PortReport::TimedOut);
    QCOMPARE(verdictOn(fixture, other), PortReport::Awaiting);
    fixture.timeOut(other);
    QCOMPARE(fixture.decisions(), QStringList{retry});
    const PortReport report = reportOn(fixture, board);
    QCOMPARE(report.verdict, PortReport::Awaiting);
    QCOMPARE(report.queries, 2);
    QCOMPARE(report.payloads, 1); // the payload of the first round still counts
    QCOMPARE(report.unreadable, QStringLiteral("$PNONE"));
    sendAndCount(fixture, board, versionReply(versionA), 2);
    QCOMPARE(verdictOn(fixture, board), PortReport::HandedOver);
}

void TestInitializerReports::duplicateStaysOneInRetryRounds()
{
    ProbeFixture fixture;
    Board *const first = fixture.attach("silent");
    Board *const second = fixture.attach("silent");
    fixture.initializer->setMaxRetries(1);
    fixture.probe({JwDevice::BoardA, JwDevice::BoardC});
    sendAndCount(fixture, first, versionReply(versionA), 1);
    sendAndCount(fixture, second, versionReply(versionA), 1);
    QCOMPARE(fixture.decisions(), QStringList({foundA, retry}));
    QCOMPARE(verdictOn(fixture, second), PortReport::Duplicate);
    fixture.endReplyTimers();
    QTRY_VERIFY(fixture.isOver());
    const PortReport report = reportOn(fixture, second);
    QCOMPARE(report.verdict, PortReport::Duplicate);
    QCOMPARE(report.type, JwDevice::BoardA);
    QCOMPARE(report.queries, 4); // two queries in each of two rounds
    QCOMPARE(reportOn(fixture, first).queries, 2); // a handed-over board is not asked in the retry round
}

void TestInitializerReports::lateReplyOfATimedOutPortCounts_data()
{
    QTest::addColumn<QByteArray>("version");
    QTest::addColumn<PortReport::Verdict>("verdict");
    QTest::newRow("of the wanted type") << QByteArray(versionA) << PortReport::HandedOver;
    QTest::newRow("of another type") << QByteArray(versionB) << PortReport::Silenced;
}

void TestInitializerReports::lateReplyOfATimedOutPortCounts()
{
    QFETCH(QByteArray, version);
    QFETCH(PortReport::Verdict, verdict);
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.attach("silent"); // the probe waits for this board, so it does not end
    fixture.probe(boardA);
    fixture.timeOut(board);
    sendAndCount(fixture, board, versionReply(version), 1);
    QCOMPARE(verdictOn(fixture, board), verdict);
    QCOMPARE(reportOn(fixture, board).reply, shown(versionReply(version)));
}

void TestInitializerReports::portWithALateReplyOfAnotherTypeIsAskedAgainAsAnyOther()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    const Board *const other = fixture.attach("silent");
    fixture.initializer->setMaxRetries(1);
    fixture.probe(boardA);
    fixture.timeOut(board);
    sendAndCount(fixture, board, versionReply(versionB), 1);
    fixture.timeOut(other);
    QCOMPARE(fixture.decisions(), QStringList{retry});
    QCOMPARE(verdictOn(fixture, board), PortReport::Awaiting); // the retry round asks it again, so its reply timer runs
    fixture.endReplyTimers();
    QTRY_VERIFY(fixture.isOver());
    QCOMPARE(verdictOn(fixture, board), PortReport::TimedOut);
    QCOMPARE(reportOn(fixture, board).reply, shown(versionReply(versionB)));
}

void TestInitializerReports::silencedPortThatAnswersAsAWantedTypeIsHandedOver()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.probe(boardA);
    sendAndCount(fixture, board, versionReply(versionB), 1);
    QCOMPARE(verdictOn(fixture, board), PortReport::Silenced);
    sendAndCount(fixture, board, versionReply(versionA), 2);
    const PortReport report = reportOn(fixture, board);
    QCOMPARE(report.verdict, PortReport::HandedOver);
    QCOMPARE(report.type, JwDevice::BoardA);
    QCOMPARE(report.reply, shown(versionReply(versionA)));
}

void TestInitializerReports::receiverOfTheHandOverSeesItAndTheOtherPortsGoOn()
{
    ProbeFixture fixture;
    Board *const other = fixture.attach("silent");
    Board *const board = fixture.attach("silent");
    PortReport seen;
    connect(fixture.initializer, &Initializer::deviceInitialized, this, [&] {
        seen = reportOn(fixture, board);
        QCOMPARE(verdictOn(fixture, other), PortReport::Awaiting);
        sendAndCount(fixture, other, versionReply(versionB), 1); // receives the reply in a nested event loop
        QCOMPARE(verdictOn(fixture, other), PortReport::Silenced);
    });
    fixture.probe(boardA);
    sendAndCount(fixture, board, versionReply(versionA), 1);
    QTRY_COMPARE(verdictOn(fixture, other), PortReport::Silenced);
    QCOMPARE(seen.verdict, PortReport::HandedOver);
    QCOMPARE(seen.type, JwDevice::BoardA);
    QCOMPARE(seen.payloads, 1);
    QCOMPARE(seen.reply, shown(versionReply(versionA)));
}

void TestInitializerReports::receiverOfAMissingTypeSeesWhy()
{
    ProbeFixture fixture;
    const Board *const silent = fixture.attach("silent");
    const Board *const found = fixture.attach("BoardB");
    const Board *const denied = fixture.attach("BoardA,open=denied");
    QList<PortReport> seen;
    connect(fixture.initializer, &Initializer::deviceNotFound, this,
            [&] { seen = fixture.initializer->portReports(); });
    fixture.initializer->setMaxRetries(1);
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
    QTRY_COMPARE(verdictOn(fixture, found), PortReport::HandedOver);
    fixture.endReplyTimers();
    QTRY_COMPARE(fixture.timeline.count(retry), 1);
    fixture.endReplyTimers();
    QTRY_COMPARE(seen.size(), 3);
    QCOMPARE(seen.at(0).portName, silent->portName());
    QCOMPARE(seen.at(0).verdict, PortReport::TimedOut);
    QCOMPARE(seen.at(0).queries, 2);
    QCOMPARE(seen.at(1).verdict, PortReport::HandedOver);
    QCOMPARE(seen.at(1).type, JwDevice::BoardB);
    QCOMPARE(seen.at(2).portName, denied->portName());
    QCOMPARE(seen.at(2).error, QSerialPort::PermissionError);
}

void TestInitializerReports::receiverWithinProbeSeesWhyNoPortOpened()
{
    ProbeFixture fixture;
    fixture.attach("BoardA,open=denied");
    fixture.attach("BoardA,open=busy");
    QList<PortReport> seen;
    connect(fixture.initializer, &Initializer::deviceNotFound, this,
            [&] { seen = fixture.initializer->portReports(); });
    fixture.probe(boardA);
    QCOMPARE(seen.size(), 2);
    for (const PortReport &report : std::as_const(seen)) {
        QCOMPARE(report.verdict, PortReport::NotOpened);
        QCOMPARE(report.error, QSerialPort::PermissionError);
    }
}

void TestInitializerReports::reportsStayAsTheyAreWhenTheProbeIsOver()
{
    ProbeFixture fixture;
    Board *const board = fixture.probeSilentBoard();
    QVERIFY(fixture.isOver());
    QVERIFY(board->send(versionReply(versionA)));
    QTRY_VERIFY(!fixture.log.sink->withText(QStringLiteral(" <-  ") + quoted(shown(versionReply(versionA)))).isEmpty());
    verifyOnly(reportOn(fixture, board), PortReport::TimedOut, 1);
}

void TestInitializerReports::whatHappensToAPortThatWasHandedOverIsNotReported()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("BoardA");
    const Board *const silent = fixture.attach("silent");
    fixture.initializer->setMaxRetries(0);
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
    QTRY_COMPARE(verdictOn(fixture, board), PortReport::HandedOver);
    QSerialPort *const port = fixture.handOver(board).port;
    bool failed = false;
    connect(port, &QSerialPort::errorOccurred, port, [&failed, port] {
        failed = true;
        if (port->isOpen())
            port->close();
    });
    QVERIFY(board->send("$PAPPLICATION\r\n"));
    QTRY_VERIFY(!fixture.log.sink->withText(QStringLiteral(" <-  \"$PAPPLICATION\"")).isEmpty());
    board->pull();
    QTRY_VERIFY(failed);
    delete fixture.handOver(board).comm;
    fixture.timeOut(silent);
    QVERIFY(fixture.isOver());
    const PortReport report = reportOn(fixture, board);
    QCOMPARE(report.verdict, PortReport::HandedOver);
    QCOMPARE(report.payloads, 1);
    QCOMPARE(report.unreadable, QString());
    verifyNoError(report);
}

void TestInitializerReports::copyStaysAsItIs()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.probe(boardA);
    const QList<PortReport> reports = fixture.initializer->portReports();
    sendAndCount(fixture, board, versionReply(versionA), 1);
    QCOMPARE(verdictOn(fixture, board), PortReport::HandedOver);
    delete fixture.initializer;
    QCOMPARE(reports.size(), 1);
    QCOMPARE(reports.first().portName, board->portName());
    QCOMPARE(reports.first().verdict, PortReport::Awaiting);
    verifyNothingCameIn(reports.first());
}

void TestInitializerReports::reportsTakenBeforeAReceiverDeletesTheInitializerStay()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("silent");
    QList<PortReport> reports;
    connect(fixture.initializer, &Initializer::deviceNotFound, this, [&] {
        reports = fixture.initializer->portReports();
        delete fixture.initializer;
    });
    fixture.initializer->setMaxRetries(0);
    fixture.probe(boardA);
    fixture.timeOut(board);
    QVERIFY(!fixture.initializer);
    QCOMPARE(reports.size(), 1);
    QCOMPARE(reports.first().portName, board->portName());
    QCOMPARE(reports.first().verdict, PortReport::TimedOut);
}

void TestInitializerReports::refusedProbeChangesNoReport()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("silent");
    fixture.probe(boardA);
    QVERIFY(!fixture.initializer->probe({}));
    QCOMPARE(reportedPorts(fixture), QStringList{board->portName()});
    QCOMPARE(verdictOn(fixture, board), PortReport::Awaiting);
}

void TestInitializerReports::explicitNamesOfASecondProbeAddTheirReports()
{
    ProbeFixture fixture;
    const QString unknown = QStringLiteral("ttyNONE1");
    QVERIFY(fixture.initializer->probe(boardA, 0, {unknown}));
    const Board *const denied = fixture.attach("silent,open=denied");
    const Board *const board = fixture.attach("BoardA");
    QVERIFY(fixture.initializer->probe(boardA, 0, {denied->portName(), board->portName()}));
    QCOMPARE(reportedPorts(fixture), QStringList({unknown, denied->portName(), board->portName()}));
    QTRY_COMPARE(verdictOn(fixture, board), PortReport::HandedOver);
}

void TestInitializerReports::portOfAnEarlierProbeIsTriedAgain()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("silent,serial=S-4711");
    {
        QSerialPort holder(board->portName());
        QVERIFY(holder.open(QIODevice::ReadWrite));
        fixture.probe(boardA);
        QCOMPARE(reportOn(fixture, board).error, QSerialPort::PermissionError);
    }
    QVERIFY(fixture.initializer->probe(boardA, 0, {QStringLiteral("ttyNONE1")}));
    verifyOnly(reportOn(fixture, board), PortReport::Awaiting, 1);
    QCOMPARE(reportOn(fixture, board).serialNumber, QStringLiteral("S-4711"));
}

void TestInitializerReports::searchReplacesTheReports()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    QVERIFY(fixture.initializer->probe(boardA, 0, {QStringLiteral("ttyNONE1")}));
    QVERIFY(fixture.initializer->probe(boardA));
    QCOMPARE(reportedPorts(fixture), QStringList{board->portName()});
    QTRY_COMPARE(verdictOn(fixture, board), PortReport::HandedOver);
}

void TestInitializerReports::portThatAnEarlierProbeStillAsksIsReportedByWhatItDoes_data()
{
    QTest::addColumn<bool>("search");
    QTest::newRow("explicit names") << false;
    QTest::newRow("search") << true;
}

void TestInitializerReports::portThatAnEarlierProbeStillAsksIsReportedByWhatItDoes()
{
    QFETCH(bool, search);
    ProbeFixture fixture;
    Board *const first = fixture.attach("silent");
    fixture.probe(boardA);
    const Board *const second = fixture.attach("silent");
    QVERIFY(fixture.initializer->probe(boardA, 0, search ? QStringList() : QStringList{second->portName()}));
    QCOMPARE(reportedPorts(fixture), fixture.portNames());
    QCOMPARE(verdictOn(fixture, first), PortReport::Awaiting);
    QCOMPARE(verdictOn(fixture, second), PortReport::Awaiting);
    QVERIFY(first->send(versionReply(versionA)));
    QTRY_COMPARE(fixture.handOver(first).type, JwDevice::BoardA);
    QCOMPARE(verdictOn(fixture, first), PortReport::HandedOver);
    QCOMPARE(reportOn(fixture, first).type, JwDevice::BoardA);
}

void TestInitializerReports::portThatTheApplicationHasIsNotOpenedByALaterProbe()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    const Board *const silent = fixture.attach("silent");
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
    QTRY_COMPARE(verdictOn(fixture, board), PortReport::HandedOver);
    QVERIFY(fixture.initializer->probe({JwDevice::BoardB}));
    const PortReport report = reportOn(fixture, board);
    QCOMPARE(report.verdict, PortReport::NotOpened);
    QCOMPARE(report.error, QSerialPort::PermissionError);
    verifyNothingCameIn(report);
    QCOMPARE(verdictOn(fixture, silent), PortReport::Awaiting);
}

void TestInitializerReports::lostPortIsTriedAgainByALaterProbe()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.probe(boardA);
    board->pull();
    QTRY_COMPARE(verdictOn(fixture, board), PortReport::Lost);
    QVERIFY(fixture.initializer->probe(boardA, 0, {QStringLiteral("ttyNONE1")}));
    QCOMPARE(verdictOn(fixture, board), PortReport::NotOpened);
    QCOMPARE(reportOn(fixture, board).error, QSerialPort::DeviceNotFoundError);
    QVERIFY(board->plug());
    QVERIFY(fixture.initializer->probe(boardA, 0, {QStringLiteral("ttyNONE2")}));
    verifyOnly(reportOn(fixture, board), PortReport::Awaiting, 1);
}

void TestInitializerReports::portNamedTwiceHasTwoReports()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    QVERIFY(fixture.initializer->probe(boardA, 0, {board->portName(), board->portName()}));
    QTRY_VERIFY(fixture.isOver());
    QCOMPARE(reportedPorts(fixture), QStringList({board->portName(), board->portName()}));
    QCOMPARE(fixture.initializer->portReports().first().verdict, PortReport::HandedOver);
}

SIMULATED_PORTS_MAIN(TestInitializerReports)
#include "tst_initializer_reports.moc"

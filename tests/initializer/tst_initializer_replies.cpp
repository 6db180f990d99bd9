#include "support/initializer/probefixture.h"
#include "support/common/simulatedportsmain.h"
#include "support/initializer/timelinetexts.h"

#include <device/sessioninit.h>

#include <QTest>
#include <QThread>
#include <QTimer>

#include <utility>

using JwDevice::Communicator;
using JwDevice::Initializer;
using JwDevice::Type;
using JwSimulator::Board;
using JwSimulator::frameSentence;

namespace {

const TypeList allTypes = {JwDevice::BoardA, JwDevice::BoardB, JwDevice::BoardC};

QString readText(const Board *board)
{
    return QStringLiteral("Read succes on port:  ") + quoted(board->portName());
}

QString timeoutText(const Board *board)
{
    return QStringLiteral("Read timeout for:  ") + quoted(board->portName());
}

/// Sends `payload` and waits until the Initializer has handled it.
void sendAndHandle(const ProbeFixture &fixture, Board *board, const QByteArray &payload)
{
    const auto before = fixture.timeline.count(readText(board));
    QVERIFY(board->send(payload));
    QTRY_COMPARE(fixture.timeline.count(readText(board)), before + 1);
}

QVector<LogRecord> errorsOf(const ProbeFixture &fixture)
{
    QVector<LogRecord> errors;
    for (const LogRecord &record : std::as_const(fixture.log.sink->records)) {
        if (record.level == Logger::Error)
            errors << record;
    }
    return errors;
}

} // namespace

class TestInitializerReplies : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void replyNamesTheType_data();
    void replyNamesTheType();
    void boardIsFoundForEveryFormOfItsReply_data();
    void boardIsFoundForEveryFormOfItsReply();
    void allThreeBoardsAreFoundAndTheProbeIsOver();
    void typeWantedTwiceIsHandedOverOnce();
    void boardIsHandedOverAtOnceWhileOtherPortsAreAwaited();
    void handedOverCommunicatorIsBoundOpenAndUnconnected();
    void handedOverPortExchangesPayloads();
    void handedOverPortOutlivesTheInitializer();
    void payloadBehindTheRecognisedOneIsTakenOutAndDropped();
    void onlyOnePayloadBehindTheRecognisedOneIsDropped();
    void payloadBehindTheRecognisedOneIsStillThereWithinTheSignal();
    void unparsablePayloadIsSkippedForTheNextGoodOne();
    void unwantedPayloadIsSkippedForTheNextWantedOne();
    void payloadThatCannotBeParsedLeavesThePortAwaitingItsReply_data();
    void payloadThatCannotBeParsedLeavesThePortAwaitingItsReply();
    void portWithNothingButGarbageTimesOut_data();
    void portWithNothingButGarbageTimesOut();
    void everyReadIsLoggedBeforeAnythingIsRead();
    void timeoutIsLogged();
    void slotsIgnoreCommunicatorsThatAreNotProbed();
    void parseableReplyThatIsNotWantedSilencesThePort_data();
    void parseableReplyThatIsNotWantedSilencesThePort();
    void silencedPortKeepsTheProbeOpen();
    void silencedPortIsHandedOverForALaterReply();
    void silencedPortBecomesADuplicateForALaterReply();
    void timedOutPortIsHandedOverForALateReply();
    void timedOutPortBecomesADuplicateForALateReply();
    void timedOutPortStaysTimedOutForAnUnwantedReply();
    void replyAfterTheTimeOutIsHandedOverDuringTheRetryRound();
    void secondBoardOfATypeIsADuplicateAndNotHandedOver();
    void twoBoardsOfATypeEndTheProbeWithoutAMissingType();
    void duplicateIsAskedAgainButNoLongerHeard();
    void dataAfterTheEndOfTheProbeReachesNoSlot();
    void replyTimersAfterTheEndOfTheProbeReachNoSlot();
    void laterProbeDoesNotHandOverASecondBoardOfATypeHandedOverBefore();
    void missingTypesAreReportedInTheirOrderOncePerEntry();
};

void TestInitializerReplies::replyNamesTheType_data()
{
    using namespace JwDevice;
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<Type>("type"); // the board's type; for Unknown, the expected state is Silenced
    const auto version = [](const char *text) { return versionReply(text); };
    QTest::newRow("7300022") << version("7300022") << BoardA;
    QTest::newRow("7300021") << version("7300021") << BoardB;
    QTest::newRow("7300022 inside a longer text") << version("HW 7300022-r3") << BoardA;
    QTest::newRow("7300021 inside a longer text") << version("HW 7300021-r3") << BoardB;
    QTest::newRow("7300022 in a longer number") << version("973000229") << BoardA;
    QTest::newRow("both numbers, A first") << version("7300022 7300021") << BoardB;
    QTest::newRow("both numbers, B first") << version("7300021 7300022") << BoardB;
    QTest::newRow("neither number") << version("7300030") << Unknown;
    QTest::newRow("number cut short") << version("730002") << Unknown;
    QTest::newRow("number with a blank in it") << version("73000 22") << Unknown;
    QTest::newRow("empty version") << version("") << Unknown;
    QTest::newRow("version alone") << frameSentence("PJWVER,7300022") << BoardA;
    QTest::newRow("no field, as the query") << frameSentence("PJWVER") << Unknown;
    QTest::newRow("number in another field") << frameSentence("PJWVER,x,7300022") << Unknown;
    QTest::newRow("no checksum") << QByteArray("$PJWVER,7300021\r\n") << BoardB;
    QTest::newRow("other start character") << version("7300021").replace('$', '!') << BoardB;
    QTest::newRow("INF") << informationReply("INF") << BoardC;
    QTest::newRow("INF alone") << frameSentence("PTJWRD,INF") << BoardC;
    QTest::newRow("INF with the number of a BoardB")
        << frameSentence("PTJWRD,INF,CTRL,3,17,2,1.04,7300021,1") << BoardC;
    QTest::newRow("inf") << informationReply("inf") << Unknown;
    QTest::newRow("Inf") << informationReply("Inf") << Unknown;
    QTest::newRow("INF and a blank") << informationReply("INF ") << Unknown;
    QTest::newRow("a blank and INF") << informationReply(" INF") << Unknown;
    QTest::newRow("INFO") << informationReply("INFO") << Unknown;
    QTest::newRow("another sub-command") << informationReply("STATE") << Unknown;
    QTest::newRow("no sub-command") << frameSentence("PTJWRD") << Unknown;
    QTest::newRow("INF in another field") << frameSentence("PTJWRD,STATE,INF") << Unknown;
    QTest::newRow("INF without checksum: the line end is part of it") << QByteArray("$PTJWRD,INF\r\n") << Unknown;
    QTest::newRow("INF without checksum, a field behind") << QByteArray("$PTJWRD,INF,x\r\n") << BoardC;
}

void TestInitializerReplies::replyNamesTheType()
{
    QFETCH(QByteArray, reply);
    QFETCH(Type, type);
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.probe(allTypes);
    sendAndHandle(fixture, board, reply);
    QCOMPARE(fixture.handOver(board).type, type);
    QCOMPARE(fixture.state(board), type == JwDevice::Unknown ? PortState::Silenced : PortState::HandedOver);
    QVERIFY(errorsOf(fixture).isEmpty());
}

void TestInitializerReplies::boardIsFoundForEveryFormOfItsReply_data()
{
    QTest::addColumn<QByteArray>("board");
    QTest::addColumn<QString>("found");
    QTest::newRow("A") << QByteArray("BoardA") << foundA;
    QTest::newRow("B") << QByteArray("BoardB") << foundB;
    QTest::newRow("C") << QByteArray("BoardC") << foundC;
    QTest::newRow("late") << QByteArray("BoardA,delay=100") << foundA;
    QTest::newRow("at the speed of a line") << QByteArray("BoardB,speed=115200") << foundB;
    QTest::newRow("in pieces") << QByteArray("BoardC,chunk=7,gap=1") << foundC;
    QTest::newRow("noise before it") << QByteArray("BoardA,noise=20") << foundA;
    QTest::newRow("three times") << QByteArray("BoardB,replies=3") << foundB;
}

void TestInitializerReplies::boardIsFoundForEveryFormOfItsReply()
{
    QFETCH(QByteArray, board);
    QFETCH(QString, found);
    ProbeFixture fixture;
    fixture.attach(board.constData());
    fixture.initializer->setMaxRetries(0);
    fixture.probe(allTypes);
    QTRY_COMPARE(fixture.handOvers.size(), 1);
    QVERIFY(fixture.decisions().contains(found));
}

void TestInitializerReplies::allThreeBoardsAreFoundAndTheProbeIsOver()
{
    ProbeFixture fixture;
    fixture.attach("BoardC");
    fixture.attach("BoardA");
    fixture.attach("BoardB");
    fixture.probe(allTypes);
    QTRY_VERIFY(fixture.isOver());
    QStringList decisions = fixture.decisions();
    QCOMPARE(decisions.takeLast(), over);
    decisions.sort();
    QCOMPARE(decisions, QStringList({foundA, foundB, foundC}));
    const auto records = fixture.log.sink->withText(over);
    QCOMPARE(records.size(), 1);
    QCOMPARE(records.first().level, Logger::Debug);
    QCOMPARE(records.first().category, QByteArray());
    QCOMPARE(records.first().file, QByteArray("initializer.cpp"));
}

void TestInitializerReplies::typeWantedTwiceIsHandedOverOnce()
{
    ProbeFixture fixture;
    fixture.attach("BoardA");
    fixture.probe({JwDevice::BoardA, JwDevice::BoardA});
    QTRY_VERIFY(fixture.isOver());
    QCOMPARE(fixture.decisions(), QStringList({foundA, over}));
}

void TestInitializerReplies::boardIsHandedOverAtOnceWhileOtherPortsAreAwaited()
{
    ProbeFixture fixture;
    const Board *const silent = fixture.attach("silent");
    const Board *const board = fixture.attach("BoardA");
    fixture.probe({JwDevice::BoardA});
    QTRY_COMPARE(fixture.state(board), PortState::HandedOver);
    QCOMPARE(fixture.state(silent), PortState::AwaitingReply);
    QCOMPARE(fixture.decisions(), QStringList{foundA});
    QTRY_COMPARE(fixture.decisions(), QStringList({foundA, over}));
    QVERIFY(fixture.timeline.contains(timeoutText(silent)));
}

void TestInitializerReplies::handedOverCommunicatorIsBoundOpenAndUnconnected()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    QObject::connect(fixture.initializer, &Initializer::deviceInitialized, [&](Type, Communicator *comm) {
        QVERIFY(!QObject::disconnect(comm, nullptr, nullptr, nullptr));
        auto *port = qobject_cast<QSerialPort *>(comm->device());
        QVERIFY(port);
        QVERIFY(!QObject::disconnect(port, nullptr, fixture.initializer, nullptr));
        QVERIFY(port->isOpen());
        QCOMPARE(port->portName(), board->portName());
        QCOMPARE(port->baudRate(), 115200);
        QCOMPARE(comm->parent(), nullptr);
        QCOMPARE(port->parent(), nullptr);
        QCOMPARE(comm->thread(), QThread::currentThread());
        JwDevice::SessionInit session;
        session.clear();
        QCOMPARE(comm->writePayload(&session), 0U); // returns 0, because a handed-over Communicator has no parser
    });
    fixture.probe({JwDevice::BoardA});
    QTRY_VERIFY(fixture.isOver());
}

void TestInitializerReplies::handedOverPortExchangesPayloads()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("BoardA");
    fixture.probe({JwDevice::BoardA});
    QTRY_VERIFY(fixture.isOver());
    const ProbeFixture::HandOver taken = fixture.handOver(board);
    QStringList arrived;
    QObject::connect(taken.comm, qOverload<>(&Communicator::readyRead), [&] {
        QString payload;
        QVERIFY(taken.comm->readPayload(payload));
        arrived << payload;
    });
    QList<uint> transferred;
    QObject::connect(taken.comm, &Communicator::transferred, [&](uint id) { transferred << id; });
    for (int round = 0; round < 3; ++round) {
        const QByteArray there = frameSentence("PTEST,THERE," + QByteArray::number(round));
        const QByteArray back = frameSentence("PTEST,BACK," + QByteArray::number(round));
        taken.comm->writePayload(QString::fromLatin1(there));
        QTRY_VERIFY(received(board).endsWith(there));
        QVERIFY(board->send(back));
        QTRY_COMPARE(arrived.size(), round + 1);
        QCOMPARE(arrived.last(), QString::fromLatin1(back));
    }
    QVERIFY(transferred.contains(1));
    // One record, for the reply: the Initializer did not read the payloads after the reply.
    QCOMPARE(fixture.timeline.count(readText(board)), 1);
}

void TestInitializerReplies::handedOverPortOutlivesTheInitializer()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("BoardA");
    fixture.probe({JwDevice::BoardA});
    QTRY_VERIFY(fixture.isOver());
    delete fixture.initializer;
    const ProbeFixture::HandOver taken = fixture.handOver(board);
    QVERIFY(taken.comm && taken.port->isOpen());
    taken.comm->writePayload(QStringLiteral("$PTEST\r\n"));
    QTRY_VERIFY(received(board).endsWith("$PTEST\r\n"));
    QVERIFY(board->send("$PREPLY\r\n"));
    QTRY_VERIFY(!fixture.log.sink->withText(QStringLiteral(" <-  \"$PREPLY\"")).isEmpty());
    QString payload;
    QVERIFY(taken.comm->readPayload(payload));
    QCOMPARE(payload, QStringLiteral("$PREPLY\r\n"));
}

void TestInitializerReplies::payloadBehindTheRecognisedOneIsTakenOutAndDropped()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
    fixture.store(board, {versionReply("7300022"), versionReply("7300021")});
    Communicator *const comm = fixture.comm(board);
    fixture.initializer->boardReadyRead(comm);
    QCOMPARE(fixture.decisions().first(), foundA);
    QCOMPARE(fixture.handOvers.size(), 1);
    QString payload;
    QVERIFY(!comm->readPayload(payload));
}

void TestInitializerReplies::onlyOnePayloadBehindTheRecognisedOneIsDropped()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.probe({JwDevice::BoardA});
    fixture.store(board, {versionReply("7300022"), "$PSECOND\r\n", "$PTHIRD\r\n"});
    Communicator *const comm = fixture.comm(board);
    fixture.initializer->boardReadyRead(comm);
    QString payload;
    QVERIFY(comm->readPayload(payload));
    QCOMPARE(payload, QStringLiteral("$PTHIRD\r\n"));
    QVERIFY(!comm->readPayload(payload));
}

void TestInitializerReplies::payloadBehindTheRecognisedOneIsStillThereWithinTheSignal()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.probe({JwDevice::BoardA});
    fixture.store(board, {versionReply("7300022"), "$PSECOND\r\n"});
    QString seen;
    QObject::connect(fixture.initializer, &Initializer::deviceInitialized,
                     [&](Type, Communicator *comm) { QVERIFY(comm->readPayload(seen)); });
    fixture.initializer->boardReadyRead(fixture.comm(board));
    QCOMPARE(seen, QStringLiteral("$PSECOND\r\n"));
}

void TestInitializerReplies::unparsablePayloadIsSkippedForTheNextGoodOne()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.probe({JwDevice::BoardA});
    fixture.store(board, {frameSentence("PJWVER,7300022", false), versionReply("7300022")});
    fixture.initializer->boardReadyRead(fixture.comm(board));
    const auto errors = errorsOf(fixture);
    QCOMPARE(errors.size(), 1);
    QCOMPARE(errors.first().text, QStringLiteral("Parse failed:  \"CRC calculation failed\""));
    const auto error = fixture.timeline.indexOf(errors.first().text);
    QCOMPARE(fixture.timeline.mid(error, 2), QStringList({errors.first().text, foundA}));
}

void TestInitializerReplies::unwantedPayloadIsSkippedForTheNextWantedOne()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.probe({JwDevice::BoardB});
    fixture.store(board, {versionReply("7300022"), informationReply("INF"), versionReply("7300021")});
    fixture.initializer->boardReadyRead(fixture.comm(board));
    QCOMPARE(fixture.handOver(board).type, JwDevice::BoardB);
}

void TestInitializerReplies::payloadThatCannotBeParsedLeavesThePortAwaitingItsReply_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<QString>("message");
    QTest::newRow("wrong checksum") << frameSentence("PJWVER,7300022,1,4,0", false)
                                    << QStringLiteral("CRC calculation failed");
    QTest::newRow("unknown sentence") << frameSentence("GPGGA,1") << QStringLiteral("Undefined sentence ID: GPGGA");
    QTest::newRow("echo of the information request")
        << informationRequest << QStringLiteral("Format not found for sentence ID");
    QTest::newRow("too long") << '$' + QByteArray(72, 'x') + "\r\n" << QStringLiteral("Sentence too long");
    QTest::newRow("too many fields") << frameSentence("PJWVER,7300022,1,4,0,5")
                                     << QStringLiteral("Specified parameters list and formatting string incompatible");
}

void TestInitializerReplies::payloadThatCannotBeParsedLeavesThePortAwaitingItsReply()
{
    QFETCH(QByteArray, payload);
    QFETCH(QString, message);
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.probe(allTypes);
    sendAndHandle(fixture, board, payload);
    const auto errors = errorsOf(fixture);
    QCOMPARE(errors.size(), 1);
    QCOMPARE(errors.first().text, QStringLiteral("Parse failed:  ") + quoted(message));
    QCOMPARE(errors.first().category, QByteArray());
    QCOMPARE(errors.first().file, QByteArray("initializer.cpp"));
    QVERIFY2(errors.first().function.contains("Initializer::boardReadyRead("), errors.first().function);
    QCOMPARE(fixture.state(board), PortState::AwaitingReply);
    fixture.timeOut(board);
}

void TestInitializerReplies::portWithNothingButGarbageTimesOut_data()
{
    QTest::addColumn<QByteArray>("board");
    QTest::newRow("random bytes") << QByteArray("babble,interval=20");
    QTest::newRow("wrong checksums") << QByteArray("BoardA,checksum=wrong");
    QTest::newRow("sentences of another kind") << QByteArray("other,interval=20");
}

void TestInitializerReplies::portWithNothingButGarbageTimesOut()
{
    QFETCH(QByteArray, board);
    ProbeFixture fixture;
    const Board *const attached = fixture.attach(board.constData());
    fixture.initializer->setMaxRetries(0);
    fixture.probe({JwDevice::BoardA});
    QTRY_VERIFY(fixture.isOver());
    QVERIFY(fixture.timeline.contains(timeoutText(attached)));
    QCOMPARE(fixture.decisions(), QStringList({missingA, over}));
    QVERIFY(!sent(attached).isEmpty());
}

void TestInitializerReplies::everyReadIsLoggedBeforeAnythingIsRead()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.probe({JwDevice::BoardA});
    fixture.timeline.clear();
    sendAndHandle(fixture, board, frameSentence("GPGGA"));
    QCOMPARE(fixture.timeline,
             QStringList({readText(board), QStringLiteral("Parse failed:  \"Undefined sentence ID: GPGGA\"")}));
    fixture.initializer->boardReadyRead(fixture.comm(board)); // logs the read although no payload is stored
    QCOMPARE(fixture.timeline.last(), readText(board));
    for (const LogRecord &record : fixture.log.sink->withText(readText(board))) {
        QCOMPARE(record.level, Logger::Trace);
        QCOMPARE(record.category, QByteArray());
        QCOMPARE(record.file, QByteArray("initializer.cpp"));
        QVERIFY2(record.function.contains("Initializer::boardReadyRead("), record.function);
    }
}

void TestInitializerReplies::timeoutIsLogged()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("silent");
    fixture.initializer->setMaxRetries(0);
    fixture.probe({JwDevice::BoardA});
    QTRY_VERIFY(fixture.isOver());
    const auto records = fixture.log.sink->withText(timeoutText(board));
    QCOMPARE(records.size(), 1);
    QCOMPARE(records.first().level, Logger::Trace);
    QCOMPARE(records.first().category, QByteArray());
    QCOMPARE(records.first().file, QByteArray("initializer.cpp"));
    QVERIFY2(records.first().function.contains("Initializer::readTimeout("), records.first().function);
}

void TestInitializerReplies::slotsIgnoreCommunicatorsThatAreNotProbed()
{
    ProbeFixture fixture;
    Communicator stranger;
    fixture.initializer->boardReadyRead(nullptr);
    fixture.initializer->boardReadyRead(&stranger);
    fixture.initializer->readTimeout(nullptr);
    fixture.initializer->readTimeout(&stranger);
    QVERIFY(fixture.timeline.isEmpty());
}

void TestInitializerReplies::parseableReplyThatIsNotWantedSilencesThePort_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::newRow("an unwanted type") << versionReply("7300022");
    QTest::newRow("a version without a known number") << versionReply("1234567");
    QTest::newRow("no version field") << frameSentence("PJWVER");
    QTest::newRow("no sub-command") << frameSentence("PTJWRD");
    QTest::newRow("an unwanted information reply") << informationReply("INF");
}

void TestInitializerReplies::parseableReplyThatIsNotWantedSilencesThePort()
{
    QFETCH(QByteArray, reply);
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.probe({JwDevice::BoardB});
    const auto records = fixture.log.sink->records.size();
    sendAndHandle(fixture, board, reply);
    QCOMPARE(fixture.state(board), PortState::Silenced);
    QVERIFY(!fixture.isTimerActive());
    QVERIFY(fixture.decisions().isEmpty());
    for (const LogRecord &record : fixture.log.sink->records.mid(records))
        QCOMPARE(record.level, Logger::Trace);
}

void TestInitializerReplies::silencedPortKeepsTheProbeOpen()
{
    ProbeFixture fixture;
    const Board *const unwanted = fixture.attach("BoardA");
    const Board *const silent = fixture.attach("silent");
    const Board *const wanted = fixture.attach("BoardC");
    fixture.probe({JwDevice::BoardB, JwDevice::BoardC});
    QTRY_COMPARE(fixture.state(unwanted), PortState::Silenced);
    QTRY_COMPARE(fixture.state(silent), PortState::TimedOut);
    QTRY_COMPARE(fixture.state(wanted), PortState::HandedOver);
    settle();
    QVERIFY(!fixture.isTimerActive()); // no timer can end the probe, only another reply
    QCOMPARE(fixture.decisions(), QStringList{foundC});
}

void TestInitializerReplies::silencedPortIsHandedOverForALaterReply()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.probe({JwDevice::BoardB});
    sendAndHandle(fixture, board, versionReply("7300022"));
    QCOMPARE(fixture.state(board), PortState::Silenced);
    sendAndHandle(fixture, board, frameSentence("GPGGA"));
    QCOMPARE(fixture.state(board), PortState::Silenced);
    sendAndHandle(fixture, board, versionReply("7300021"));
    QCOMPARE(fixture.state(board), PortState::HandedOver);
    QCOMPARE(fixture.decisions(), QStringList({foundB, over}));
}

void TestInitializerReplies::silencedPortBecomesADuplicateForALaterReply()
{
    ProbeFixture fixture;
    Board *const first = fixture.attach("silent");
    Board *const second = fixture.attach("silent");
    fixture.probe({JwDevice::BoardB});
    sendAndHandle(fixture, second, informationReply("STATE"));
    sendAndHandle(fixture, first, versionReply("7300021"));
    QCOMPARE(fixture.decisions(), QStringList{foundB});
    sendAndHandle(fixture, second, versionReply("7300021"));
    QCOMPARE(fixture.state(second), PortState::Duplicate);
    QCOMPARE(fixture.decisions(), QStringList({foundB, over}));
}

void TestInitializerReplies::timedOutPortIsHandedOverForALateReply()
{
    ProbeFixture fixture;
    Board *const late = fixture.attach("silent");
    const Board *const other = fixture.attach("silent");
    fixture.probe({JwDevice::BoardA});
    fixture.timeOut(late);
    QCOMPARE(fixture.state(late), PortState::TimedOut);
    QCOMPARE(fixture.state(other), PortState::AwaitingReply);
    sendAndHandle(fixture, late, versionReply("7300022"));
    QCOMPARE(fixture.state(late), PortState::HandedOver);
    QCOMPARE(fixture.decisions(), QStringList{foundA});
    fixture.timeOut(other);
    QCOMPARE(fixture.decisions(), QStringList({foundA, over}));
}

void TestInitializerReplies::timedOutPortBecomesADuplicateForALateReply()
{
    ProbeFixture fixture;
    Board *const late = fixture.attach("silent");
    Board *const found = fixture.attach("silent");
    const Board *const other = fixture.attach("silent");
    fixture.probe({JwDevice::BoardA});
    fixture.timeOut(late);
    sendAndHandle(fixture, found, versionReply("7300022"));
    sendAndHandle(fixture, late, versionReply("7300022"));
    QCOMPARE(fixture.state(late), PortState::Duplicate);
    QCOMPARE(fixture.state(other), PortState::AwaitingReply);
    QCOMPARE(fixture.handOvers.size(), 1);
}

void TestInitializerReplies::timedOutPortStaysTimedOutForAnUnwantedReply()
{
    ProbeFixture fixture;
    Board *const late = fixture.attach("silent");
    const Board *const other = fixture.attach("silent");
    fixture.initializer->setMaxRetries(0);
    fixture.probe({JwDevice::BoardA});
    fixture.timeOut(late);
    sendAndHandle(fixture, late, versionReply("7300021"));
    QCOMPARE(fixture.state(late), PortState::TimedOut);
    fixture.timeOut(other);
    QCOMPARE(fixture.decisions(), QStringList({missingA, over}));
}

void TestInitializerReplies::replyAfterTheTimeOutIsHandedOverDuringTheRetryRound()
{
    ProbeFixture fixture;
    const Board *const late = fixture.attach("BoardA,delay=500,replies=1");
    fixture.probe({JwDevice::BoardA});
    QTRY_VERIFY(fixture.isOver());
    QCOMPARE(fixture.decisions(), QStringList({retry, foundA, over}));
    QVERIFY(fixture.timeline.indexOf(timeoutText(late)) < fixture.timeline.indexOf(retry));
}

void TestInitializerReplies::secondBoardOfATypeIsADuplicateAndNotHandedOver()
{
    ProbeFixture fixture;
    Board *const first = fixture.attach("silent");
    Board *const second = fixture.attach("silent");
    fixture.probe({JwDevice::BoardB});
    sendAndHandle(fixture, second, versionReply("7300021"));
    QCOMPARE(fixture.handOver(second).type, JwDevice::BoardB); // handed over, because its reply arrived first
    Communicator *const duplicate = fixture.comm(first);
    QPointer<QTimer> timer = fixture.replyTimer(first);
    sendAndHandle(fixture, first, versionReply("7300021"));
    QCOMPARE(fixture.handOvers.size(), 1);
    QCOMPARE(fixture.state(first), PortState::Duplicate);
    QVERIFY(!timer->isActive());
    QVERIFY(!QObject::disconnect(duplicate, nullptr, nullptr, nullptr));
    QVERIFY(fixture.port(first)->isOpen());
    QCOMPARE(fixture.decisions(), QStringList({foundB, over}));
}

void TestInitializerReplies::twoBoardsOfATypeEndTheProbeWithoutAMissingType()
{
    ProbeFixture fixture;
    fixture.attach("BoardB");
    fixture.attach("BoardB");
    fixture.probe({JwDevice::BoardB});
    QTRY_VERIFY(fixture.isOver());
    QCOMPARE(fixture.decisions(), QStringList({foundB, over}));
}

void TestInitializerReplies::duplicateIsAskedAgainButNoLongerHeard()
{
    ProbeFixture fixture;
    Board *const first = fixture.attach("BoardB");
    Board *const second = fixture.attach("BoardB");
    fixture.initializer->setMaxRetries(1);
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
    QTRY_VERIFY(fixture.isOver());
    QCOMPARE(fixture.decisions(), QStringList({foundB, retry, missingA, over}));
    const Board *const duplicate = fixture.handOver(first).comm ? second : first;
    const Board *const found = duplicate == first ? second : first;
    QCOMPARE(received(duplicate), versionQuery + versionQuery);
    QCOMPARE(received(found), versionQuery);
    QCOMPARE(fixture.timeline.count(readText(duplicate)), 1);
    QCOMPARE(fixture.timeline.count(timeoutText(duplicate)), 1);
}

void TestInitializerReplies::dataAfterTheEndOfTheProbeReachesNoSlot()
{
    ProbeFixture fixture;
    Board *const board = fixture.probeSilentBoard();
    QVERIFY(fixture.isOver());
    Communicator *const comm = fixture.comm(board);
    QVERIFY(fixture.port(board)->isOpen());
    const QStringList timeline = fixture.timeline;
    QVERIFY(board->send("$PLATE\r\n"));
    QTRY_VERIFY(!fixture.log.sink->withText(QStringLiteral(" <-  \"$PLATE\"")).isEmpty());
    QString payload;
    QVERIFY(comm->readPayload(payload)); // still in the store, because no slot has read it
    QCOMPARE(fixture.timeline, timeline);
}

void TestInitializerReplies::replyTimersAfterTheEndOfTheProbeReachNoSlot()
{
    ProbeFixture fixture;
    Board *const board = fixture.probeSilentBoard();
    QVERIFY(fixture.isOver());
    QVERIFY(!fixture.isTimerActive());
    const QStringList timeline = fixture.timeline;
    QTimer *const timer = fixture.replyTimer(board);
    timer->start(0);
    QTRY_VERIFY(!timer->isActive());
    QCOMPARE(fixture.timeline, timeline);
}

void TestInitializerReplies::laterProbeDoesNotHandOverASecondBoardOfATypeHandedOverBefore()
{
    ProbeFixture fixture;
    Board *const first = fixture.attach("silent");
    const Board *const other = fixture.attach("silent");
    fixture.probe({JwDevice::BoardA});
    sendAndHandle(fixture, first, versionReply("7300022"));
    QCOMPARE(fixture.state(other), PortState::AwaitingReply);
    Board *const later = fixture.attach("silent");
    QVERIFY(fixture.initializer->probe({JwDevice::BoardA}, 0, {later->portName()}));
    sendAndHandle(fixture, later, versionReply("7300022"));
    QCOMPARE(fixture.handOvers.size(), 1);
    QCOMPARE(fixture.state(later), PortState::Duplicate);
}

void TestInitializerReplies::missingTypesAreReportedInTheirOrderOncePerEntry()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("silent");
    fixture.initializer->setMaxRetries(0);
    fixture.probe({JwDevice::BoardB, JwDevice::BoardC, JwDevice::BoardA, JwDevice::BoardB});
    fixture.timeOut(board);
    QCOMPARE(fixture.decisions(),
             QStringList({missingB, QStringLiteral("deviceNotFound BoardC"), missingA, missingB, over}));
}

SIMULATED_PORTS_MAIN(TestInitializerReplies)
#include "tst_initializer_replies.moc"

#include "support/probebench.h"
#include "support/simulatedportsmain.h"
#include "support/timelinetexts.h"

#include <device/sessioninit.h>

#include <QTest>
#include <QThread>
#include <QTimer>

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

/// Sends `payload` and waits until the Initializer has looked at it.
void sendAndHandle(const ProbeBench &bench, Board *board, const QByteArray &payload)
{
    const int before = bench.timeline.count(readText(board));
    QVERIFY(board->send(payload));
    QTRY_COMPARE(bench.timeline.count(readText(board)), before + 1);
}

QVector<LogRecord> errorsOf(const ProbeBench &bench)
{
    QVector<LogRecord> errors;
    for (const LogRecord &record : qAsConst(bench.log.sink->records)) {
        if (record.level == Logger::Error)
            errors << record;
    }
    return errors;
}

} // namespace

class InitializerRepliesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void replyNamesTheType_data()
    {
        using namespace JwDevice;
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<Type>("type"); // Unknown: silenced
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
    void replyNamesTheType()
    {
        QFETCH(QByteArray, reply);
        QFETCH(Type, type);
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.probe(allTypes);
        sendAndHandle(bench, board, reply);
        QCOMPARE(bench.handOver(board).type, type);
        QCOMPARE(bench.state(board), type == JwDevice::Unknown ? PortState::Silenced : PortState::HandedOver);
        QVERIFY(errorsOf(bench).isEmpty());
    }

    void boardIsFoundWhateverTheShapeOfItsReply_data()
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
    void boardIsFoundWhateverTheShapeOfItsReply()
    {
        QFETCH(QByteArray, board);
        QFETCH(QString, found);
        ProbeBench bench;
        bench.attach(board.constData());
        bench.initializer->setMaxRetries(0);
        bench.probe(allTypes);
        QTRY_COMPARE(bench.handOvers.size(), 1);
        QVERIFY(bench.decisions().contains(found));
    }

    void allThreeBoardsAreFoundAndTheProbeIsOver()
    {
        ProbeBench bench;
        bench.attach("BoardC");
        bench.attach("BoardA");
        bench.attach("BoardB");
        bench.probe(allTypes);
        QTRY_VERIFY(bench.isOver());
        QStringList decisions = bench.decisions();
        QCOMPARE(decisions.takeLast(), over);
        decisions.sort();
        QCOMPARE(decisions, QStringList({foundA, foundB, foundC}));
        const auto records = bench.log.sink->withText(over);
        QCOMPARE(records.size(), 1);
        QCOMPARE(records.first().level, Logger::Debug);
        QCOMPARE(records.first().category, QByteArray());
        QCOMPARE(records.first().file, QByteArray("initializer.cpp"));
    }

    void typeWantedTwiceIsHandedOverOnce()
    {
        ProbeBench bench;
        bench.attach("BoardA");
        bench.probe({JwDevice::BoardA, JwDevice::BoardA});
        QTRY_VERIFY(bench.isOver());
        QCOMPARE(bench.decisions(), QStringList({foundA, over}));
    }

    void boardIsHandedOverAtOnceWhileOtherPortsAreAwaited()
    {
        ProbeBench bench;
        const Board *const silent = bench.attach("silent");
        const Board *const board = bench.attach("BoardA");
        bench.probe({JwDevice::BoardA});
        QTRY_COMPARE(bench.state(board), PortState::HandedOver);
        QCOMPARE(bench.state(silent), PortState::AwaitingReply);
        QCOMPARE(bench.decisions(), QStringList{foundA});
        QTRY_COMPARE(bench.decisions(), QStringList({foundA, over}));
        QVERIFY(bench.timeline.contains(timeoutText(silent)));
    }

    void handedOverCommunicatorIsBoundOpenAndUnconnected()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("BoardA");
        QObject::connect(bench.initializer, &Initializer::deviceInitialized, [&](Type, Communicator *comm) {
            QVERIFY(!QObject::disconnect(comm, nullptr, nullptr, nullptr));
            auto *port = qobject_cast<QSerialPort *>(comm->device());
            QVERIFY(port);
            QVERIFY(!QObject::disconnect(port, nullptr, bench.initializer, nullptr));
            QVERIFY(port->isOpen());
            QCOMPARE(port->portName(), board->portName());
            QCOMPARE(port->baudRate(), 115200);
            QCOMPARE(comm->parent(), nullptr);
            QCOMPARE(port->parent(), nullptr);
            QCOMPARE(comm->thread(), QThread::currentThread());
            JwDevice::SessionInit session;
            session.clear();
            QCOMPARE(comm->writePayload(&session), 0U); // no parser
        });
        bench.probe({JwDevice::BoardA});
        QTRY_VERIFY(bench.isOver());
    }

    void handedOverPortExchangesPayloads()
    {
        ProbeBench bench;
        Board *const board = bench.attach("BoardA");
        bench.probe({JwDevice::BoardA});
        QTRY_VERIFY(bench.isOver());
        const ProbeBench::HandOver taken = bench.handOver(board);
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
        QCOMPARE(bench.timeline.count(readText(board)), 1); // the Initializer heard nothing of it
    }

    void handedOverPortOutlivesTheInitializer()
    {
        ProbeBench bench;
        Board *const board = bench.attach("BoardA");
        bench.probe({JwDevice::BoardA});
        QTRY_VERIFY(bench.isOver());
        delete bench.initializer;
        const ProbeBench::HandOver taken = bench.handOver(board);
        QVERIFY(taken.comm && taken.port->isOpen());
        taken.comm->writePayload(QStringLiteral("$PTEST\r\n"));
        QTRY_VERIFY(received(board).endsWith("$PTEST\r\n"));
        QVERIFY(board->send("$PREPLY\r\n"));
        QTRY_VERIFY(!bench.log.sink->withText(QStringLiteral(" <-  \"$PREPLY\"")).isEmpty());
        QString payload;
        QVERIFY(taken.comm->readPayload(payload));
        QCOMPARE(payload, QStringLiteral("$PREPLY\r\n"));
    }

    void payloadBehindTheRecognisedOneIsTakenOutAndDropped()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.probe({JwDevice::BoardA, JwDevice::BoardB});
        bench.store(board, {versionReply("7300022"), versionReply("7300021")});
        Communicator *const comm = bench.comm(board);
        bench.initializer->boardReadyRead(comm);
        QCOMPARE(bench.decisions().first(), foundA);
        QCOMPARE(bench.handOvers.size(), 1);
        QString payload;
        QVERIFY(!comm->readPayload(payload));
    }

    void onlyOnePayloadBehindTheRecognisedOneIsDropped()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.probe({JwDevice::BoardA});
        bench.store(board, {versionReply("7300022"), "$PSECOND\r\n", "$PTHIRD\r\n"});
        Communicator *const comm = bench.comm(board);
        bench.initializer->boardReadyRead(comm);
        QString payload;
        QVERIFY(comm->readPayload(payload));
        QCOMPARE(payload, QStringLiteral("$PTHIRD\r\n"));
        QVERIFY(!comm->readPayload(payload));
    }

    void payloadBehindTheRecognisedOneIsStillThereWithinTheSignal()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.probe({JwDevice::BoardA});
        bench.store(board, {versionReply("7300022"), "$PSECOND\r\n"});
        QString seen;
        QObject::connect(bench.initializer, &Initializer::deviceInitialized,
                         [&](Type, Communicator *comm) { QVERIFY(comm->readPayload(seen)); });
        bench.initializer->boardReadyRead(bench.comm(board));
        QCOMPARE(seen, QStringLiteral("$PSECOND\r\n"));
    }

    void payloadThatCannotBeParsedIsSkippedForTheGoodOneBehindIt()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.probe({JwDevice::BoardA});
        bench.store(board, {frameSentence("PJWVER,7300022", false), versionReply("7300022")});
        bench.initializer->boardReadyRead(bench.comm(board));
        const auto errors = errorsOf(bench);
        QCOMPARE(errors.size(), 1);
        QCOMPARE(errors.first().text, QStringLiteral("Parse failed:  \"CRC calculation failed\""));
        const int error = bench.timeline.indexOf(errors.first().text);
        QCOMPARE(bench.timeline.mid(error, 2), QStringList({errors.first().text, foundA}));
    }

    void unwantedPayloadIsSkippedForTheWantedOneBehindIt()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.probe({JwDevice::BoardB});
        bench.store(board, {versionReply("7300022"), informationReply("INF"), versionReply("7300021")});
        bench.initializer->boardReadyRead(bench.comm(board));
        QCOMPARE(bench.handOver(board).type, JwDevice::BoardB);
    }

    void payloadThatCannotBeParsedLeavesThePortAwaitingItsReply_data()
    {
        QTest::addColumn<QByteArray>("payload");
        QTest::addColumn<QString>("message");
        QTest::newRow("wrong checksum") << frameSentence("PJWVER,7300022,1,4,0", false)
                                        << QStringLiteral("CRC calculation failed");
        QTest::newRow("unknown sentence") << frameSentence("GPGGA,1") << QStringLiteral("Undefined sentence ID: GPGGA");
        QTest::newRow("echo of the information request")
            << informationRequest << QStringLiteral("Format not found for sentence ID");
        QTest::newRow("too long") << '$' + QByteArray(72, 'x') + "\r\n" << QStringLiteral("Sentence too long");
        QTest::newRow("too many fields") << frameSentence(
            "PJWVER,7300022,1,4,0,5") << QStringLiteral("Specified parameters list and formatting string incompatible");
    }
    void payloadThatCannotBeParsedLeavesThePortAwaitingItsReply()
    {
        QFETCH(QByteArray, payload);
        QFETCH(QString, message);
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.probe(allTypes);
        sendAndHandle(bench, board, payload);
        const auto errors = errorsOf(bench);
        QCOMPARE(errors.size(), 1);
        QCOMPARE(errors.first().text, QStringLiteral("Parse failed:  ") + quoted(message));
        QCOMPARE(errors.first().category, QByteArray());
        QCOMPARE(errors.first().file, QByteArray("initializer.cpp"));
        QVERIFY2(errors.first().function.contains("Initializer::boardReadyRead("), errors.first().function);
        QCOMPARE(bench.state(board), PortState::AwaitingReply);
        bench.timeOut(board);
    }

    void portWithNothingButGarbageTimesOut_data()
    {
        QTest::addColumn<QByteArray>("board");
        QTest::newRow("random bytes") << QByteArray("babble,interval=20");
        QTest::newRow("wrong checksums") << QByteArray("BoardA,checksum=wrong");
        QTest::newRow("sentences of another kind") << QByteArray("other,interval=20");
    }
    void portWithNothingButGarbageTimesOut()
    {
        QFETCH(QByteArray, board);
        ProbeBench bench;
        const Board *const attached = bench.attach(board.constData());
        bench.initializer->setMaxRetries(0);
        bench.probe({JwDevice::BoardA});
        QTRY_VERIFY(bench.isOver());
        QVERIFY(bench.timeline.contains(timeoutText(attached)));
        QCOMPARE(bench.decisions(), QStringList({missingA, over}));
        QVERIFY(!sent(attached).isEmpty());
    }

    void everyReadIsLoggedBeforeAnythingIsRead()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.probe({JwDevice::BoardA});
        bench.timeline.clear();
        sendAndHandle(bench, board, frameSentence("GPGGA"));
        QCOMPARE(bench.timeline,
                 QStringList({readText(board), QStringLiteral("Parse failed:  \"Undefined sentence ID: GPGGA\"")}));
        bench.initializer->boardReadyRead(bench.comm(board)); // nothing is stored
        QCOMPARE(bench.timeline.last(), readText(board));
        for (const LogRecord &record : bench.log.sink->withText(readText(board))) {
            QCOMPARE(record.level, Logger::Trace);
            QCOMPARE(record.category, QByteArray());
            QCOMPARE(record.file, QByteArray("initializer.cpp"));
            QVERIFY2(record.function.contains("Initializer::boardReadyRead("), record.function);
        }
    }

    void timeoutIsLogged()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("silent");
        bench.initializer->setMaxRetries(0);
        bench.probe({JwDevice::BoardA});
        QTRY_VERIFY(bench.isOver());
        const auto records = bench.log.sink->withText(timeoutText(board));
        QCOMPARE(records.size(), 1);
        QCOMPARE(records.first().level, Logger::Trace);
        QCOMPARE(records.first().category, QByteArray());
        QCOMPARE(records.first().file, QByteArray("initializer.cpp"));
        QVERIFY2(records.first().function.contains("Initializer::readTimeout("), records.first().function);
    }

    void slotsLeaveAloneWhatIsNotProbed()
    {
        ProbeBench bench;
        Communicator stranger;
        bench.initializer->boardReadyRead(nullptr);
        bench.initializer->boardReadyRead(&stranger);
        bench.initializer->readTimeout(nullptr);
        bench.initializer->readTimeout(&stranger);
        QVERIFY(bench.timeline.isEmpty());
    }

    void parseableReplyThatIsNotWantedSilencesThePort_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::newRow("an unwanted type") << versionReply("7300022");
        QTest::newRow("a version without a known number") << versionReply("1234567");
        QTest::newRow("no version field") << frameSentence("PJWVER");
        QTest::newRow("no sub-command") << frameSentence("PTJWRD");
        QTest::newRow("an unwanted information reply") << informationReply("INF");
    }
    void parseableReplyThatIsNotWantedSilencesThePort()
    {
        QFETCH(QByteArray, reply);
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.probe({JwDevice::BoardB});
        const int records = bench.log.sink->records.size();
        sendAndHandle(bench, board, reply);
        QCOMPARE(bench.state(board), PortState::Silenced);
        QVERIFY(!bench.isTimerActive());
        QVERIFY(bench.decisions().isEmpty());
        for (const LogRecord &record : bench.log.sink->records.mid(records))
            QCOMPARE(record.level, Logger::Trace);
    }

    void silencedPortKeepsTheProbeOpen()
    {
        ProbeBench bench;
        const Board *const unwanted = bench.attach("BoardA");
        const Board *const silent = bench.attach("silent");
        const Board *const wanted = bench.attach("BoardC");
        bench.probe({JwDevice::BoardB, JwDevice::BoardC});
        QTRY_COMPARE(bench.state(unwanted), PortState::Silenced);
        QTRY_COMPARE(bench.state(silent), PortState::TimedOut);
        QTRY_COMPARE(bench.state(wanted), PortState::HandedOver);
        settle();
        QVERIFY(!bench.isTimerActive()); // so nothing will ever come of itself
        QCOMPARE(bench.decisions(), QStringList{foundC});
    }

    void silencedPortIsHandedOverForALaterReply()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.probe({JwDevice::BoardB});
        sendAndHandle(bench, board, versionReply("7300022"));
        QCOMPARE(bench.state(board), PortState::Silenced);
        sendAndHandle(bench, board, frameSentence("GPGGA"));
        QCOMPARE(bench.state(board), PortState::Silenced);
        sendAndHandle(bench, board, versionReply("7300021"));
        QCOMPARE(bench.state(board), PortState::HandedOver);
        QCOMPARE(bench.decisions(), QStringList({foundB, over}));
    }

    void silencedPortBecomesADuplicateForALaterReply()
    {
        ProbeBench bench;
        Board *const first = bench.attach("silent");
        Board *const second = bench.attach("silent");
        bench.probe({JwDevice::BoardB});
        sendAndHandle(bench, second, informationReply("STATE"));
        sendAndHandle(bench, first, versionReply("7300021"));
        QCOMPARE(bench.decisions(), QStringList{foundB});
        sendAndHandle(bench, second, versionReply("7300021"));
        QCOMPARE(bench.state(second), PortState::Duplicate);
        QCOMPARE(bench.decisions(), QStringList({foundB, over}));
    }

    void timedOutPortIsHandedOverForALateReply()
    {
        ProbeBench bench;
        Board *const late = bench.attach("silent");
        const Board *const other = bench.attach("silent");
        bench.probe({JwDevice::BoardA});
        bench.timeOut(late);
        QCOMPARE(bench.state(late), PortState::TimedOut);
        QCOMPARE(bench.state(other), PortState::AwaitingReply);
        sendAndHandle(bench, late, versionReply("7300022"));
        QCOMPARE(bench.state(late), PortState::HandedOver);
        QCOMPARE(bench.decisions(), QStringList{foundA});
        bench.timeOut(other);
        QCOMPARE(bench.decisions(), QStringList({foundA, over}));
    }

    void timedOutPortBecomesADuplicateForALateReply()
    {
        ProbeBench bench;
        Board *const late = bench.attach("silent");
        Board *const found = bench.attach("silent");
        const Board *const other = bench.attach("silent");
        bench.probe({JwDevice::BoardA});
        bench.timeOut(late);
        sendAndHandle(bench, found, versionReply("7300022"));
        sendAndHandle(bench, late, versionReply("7300022"));
        QCOMPARE(bench.state(late), PortState::Duplicate);
        QCOMPARE(bench.state(other), PortState::AwaitingReply);
        QCOMPARE(bench.handOvers.size(), 1);
    }

    void timedOutPortStaysSoForALateReplyThatIsNotWanted()
    {
        ProbeBench bench;
        Board *const late = bench.attach("silent");
        const Board *const other = bench.attach("silent");
        bench.initializer->setMaxRetries(0);
        bench.probe({JwDevice::BoardA});
        bench.timeOut(late);
        sendAndHandle(bench, late, versionReply("7300021"));
        QCOMPARE(bench.state(late), PortState::TimedOut);
        bench.timeOut(other);
        QCOMPARE(bench.decisions(), QStringList({missingA, over}));
    }

    void replyAfterTheTimeOutIsHandedOverDuringTheRetryRound()
    {
        ProbeBench bench;
        const Board *const late = bench.attach("BoardA,delay=500,replies=1");
        bench.probe({JwDevice::BoardA});
        QTRY_VERIFY(bench.isOver());
        QCOMPARE(bench.decisions(), QStringList({retry, foundA, over}));
        QVERIFY(bench.timeline.indexOf(timeoutText(late)) < bench.timeline.indexOf(retry));
    }

    void secondBoardOfATypeIsADuplicateAndNotHandedOver()
    {
        ProbeBench bench;
        Board *const first = bench.attach("silent");
        Board *const second = bench.attach("silent");
        bench.probe({JwDevice::BoardB});
        sendAndHandle(bench, second, versionReply("7300021"));
        QCOMPARE(bench.handOver(second).type, JwDevice::BoardB); // the first that is processed, not the first opened
        Communicator *const duplicate = bench.comm(first);
        QPointer<QTimer> timer = bench.replyTimer(first);
        sendAndHandle(bench, first, versionReply("7300021"));
        QCOMPARE(bench.handOvers.size(), 1);
        QCOMPARE(bench.state(first), PortState::Duplicate);
        QVERIFY(!timer->isActive());
        QVERIFY(!QObject::disconnect(duplicate, nullptr, nullptr, nullptr));
        QVERIFY(bench.port(first)->isOpen());
        QCOMPARE(bench.decisions(), QStringList({foundB, over}));
    }

    void twoBoardsOfATypeEndTheProbeWithoutAMissingType()
    {
        ProbeBench bench;
        bench.attach("BoardB");
        bench.attach("BoardB");
        bench.probe({JwDevice::BoardB});
        QTRY_VERIFY(bench.isOver());
        QCOMPARE(bench.decisions(), QStringList({foundB, over}));
    }

    void duplicateIsAskedAgainButNoLongerHeard()
    {
        ProbeBench bench;
        Board *const first = bench.attach("BoardB");
        Board *const second = bench.attach("BoardB");
        bench.initializer->setMaxRetries(1);
        bench.probe({JwDevice::BoardA, JwDevice::BoardB});
        QTRY_VERIFY(bench.isOver());
        QCOMPARE(bench.decisions(), QStringList({foundB, retry, missingA, over}));
        const Board *const duplicate = bench.handOver(first).comm ? second : first;
        const Board *const found = duplicate == first ? second : first;
        QCOMPARE(received(duplicate), versionQuery + versionQuery);
        QCOMPARE(received(found), versionQuery);
        QCOMPARE(bench.timeline.count(readText(duplicate)), 1);
        QCOMPARE(bench.timeline.count(timeoutText(duplicate)), 1);
    }

    void dataAfterTheEndOfTheProbeReachesNoSlot()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.initializer->setMaxRetries(0);
        bench.probe({JwDevice::BoardA});
        bench.timeOut(board);
        QVERIFY(bench.isOver());
        Communicator *const comm = bench.comm(board);
        QVERIFY(bench.port(board)->isOpen());
        const QStringList timeline = bench.timeline;
        QVERIFY(board->send("$PLATE\r\n"));
        QTRY_VERIFY(!bench.log.sink->withText(QStringLiteral(" <-  \"$PLATE\"")).isEmpty());
        QString payload;
        QVERIFY(comm->readPayload(payload)); // nobody took it
        QCOMPARE(bench.timeline, timeline);
    }

    void replyTimersAfterTheEndOfTheProbeReachNoSlot()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.initializer->setMaxRetries(0);
        bench.probe({JwDevice::BoardA});
        bench.timeOut(board);
        QVERIFY(bench.isOver());
        QVERIFY(!bench.isTimerActive());
        const QStringList timeline = bench.timeline;
        QTimer *const timer = bench.replyTimer(board);
        timer->start(0);
        QTRY_VERIFY(!timer->isActive());
        QCOMPARE(bench.timeline, timeline);
    }

    void laterProbeDoesNotHandOverASecondBoardOfATypeHandedOverBefore()
    {
        ProbeBench bench;
        Board *const first = bench.attach("silent");
        const Board *const other = bench.attach("silent");
        bench.probe({JwDevice::BoardA});
        sendAndHandle(bench, first, versionReply("7300022"));
        QCOMPARE(bench.state(other), PortState::AwaitingReply);
        Board *const later = bench.attach("silent");
        QVERIFY(bench.initializer->probe({JwDevice::BoardA}, 0, {later->portName()}));
        sendAndHandle(bench, later, versionReply("7300022"));
        QCOMPARE(bench.handOvers.size(), 1);
        QCOMPARE(bench.state(later), PortState::Duplicate);
    }

    void missingTypesAreReportedInTheirOrderOncePerEntry()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("silent");
        bench.initializer->setMaxRetries(0);
        bench.probe({JwDevice::BoardB, JwDevice::BoardC, JwDevice::BoardA, JwDevice::BoardB});
        bench.timeOut(board);
        QCOMPARE(bench.decisions(),
                 QStringList({missingB, QStringLiteral("deviceNotFound BoardC"), missingA, missingB, over}));
    }
};

SIMULATED_PORTS_MAIN(InitializerRepliesTest)
#include "tst_initializer_replies.moc"

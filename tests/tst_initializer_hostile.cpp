#include "support/probebench.h"
#include "support/simulatedportsmain.h"
#include "support/timelinetexts.h"

#include <device/sessioninit.h>
#include <nmea/parserinit.h>

#include <QBuffer>
#include <QEventLoop>
#include <QSignalMapper>
#include <QTest>
#include <QTimer>

using JwDevice::Communicator;
using JwDevice::Initializer;
using JwDevice::Type;
using JwSimulator::Board;
using JwSimulator::frameSentence;

namespace {

/// An event loop within whatever is running, as a dialog has one, until `done`. False when that does not come.
bool nest(const std::function<bool()> &done)
{
    QEventLoop loop;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (done())
            loop.quit();
    });
    poll.start(1);
    QTimer::singleShot(5000, &loop, [&loop] { loop.exit(1); });
    return loop.exec() == 0;
}

using Receiver = std::function<void(Communicator *)>;

void onInitialized(ProbeBench &bench, const Receiver &receiver)
{
    QObject::connect(bench.initializer, &Initializer::deviceInitialized,
                     [receiver](Type, Communicator *comm) { receiver(comm); });
}

/// What lets go of a board's connection within the signal that brought it.
void giveBack(Communicator *comm)
{
    comm->device()->deleteLater();
    delete comm;
}

} // namespace

Q_DECLARE_METATYPE(Receiver)

class InitializerHostileTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void receiverOfDeviceInitializedMayDoAsItLikes_data()
    {
        QTest::addColumn<Receiver>("receiver");
        QTest::newRow("delete the Communicator, and the port later") << Receiver(giveBack);
        QTest::newRow("delete the Communicator, close and delete the port later") << Receiver([](Communicator *comm) {
            comm->device()->close();
            giveBack(comm);
        });
        QTest::newRow("delete both later") << Receiver([](Communicator *comm) {
            comm->device()->deleteLater();
            comm->deleteLater();
        });
        QTest::newRow("bind no device") << Receiver([](Communicator *comm) { comm->setIODevice(nullptr); });
        QTest::newRow("bind another device") << Receiver([](Communicator *comm) {
            auto *buffer = new QBuffer(comm);
            buffer->open(QIODevice::ReadWrite);
            comm->setIODevice(buffer);
            comm->writePayload(QStringLiteral("$PTEST\r\n"));
            QCOMPARE(buffer->data(), QByteArray("$PTEST\r\n"));
        });
        QTest::newRow("bind the same device again")
            << Receiver([](Communicator *comm) { comm->setIODevice(comm->device()); });
        QTest::newRow("write") << Receiver(
            [](Communicator *comm) { QVERIFY(comm->writePayload(QStringLiteral("$PTEST\r\n")) > 0); });
        QTest::newRow("read all") << Receiver([](Communicator *comm) {
            for (QString payload; comm->readPayload(payload);) { }
        });
        QTest::newRow("connect and disconnect") << Receiver([](Communicator *comm) {
            QObject context;
            QObject::connect(comm, qOverload<>(&Communicator::readyRead), &context, [] {});
            QVERIFY(QObject::disconnect(comm, nullptr, nullptr, nullptr));
        });
        QTest::newRow("block the signals") << Receiver([](Communicator *comm) { comm->blockSignals(true); });
        QTest::newRow("run an event loop") << Receiver([](Communicator *) {
            int turns = 0;
            QVERIFY(nest([&turns] { return ++turns == 10; }));
        });
        QTest::newRow("run an event loop in which the Communicator is deleted") << Receiver([](Communicator *comm) {
            QTimer::singleShot(0, comm, [comm] { giveBack(comm); });
            const QPointer<Communicator> alive(comm);
            QVERIFY(nest([&alive] { return !alive; }));
        });
    }
    void receiverOfDeviceInitializedMayDoAsItLikes()
    {
        QFETCH(Receiver, receiver);
        ProbeBench bench;
        bench.attach("BoardA");
        Board *const stored = bench.attach("silent");
        const Board *const silent = bench.attach("silent");
        int received = 0;
        onInitialized(bench, [&](Communicator *comm) {
            ++received;
            receiver(comm);
        });
        bench.initializer->setMaxRetries(0);
        bench.probe({JwDevice::BoardA, JwDevice::BoardB, JwDevice::BoardC});
        QTRY_COMPARE(received, 1); // by the port's own signal
        bench.store(stored, {versionReply("7300021"), "$PBEHIND\r\n"});
        bench.initializer->boardReadyRead(bench.comm(stored)); // a payload stored behind it
        QCOMPARE(received, 2);
        bench.timeOut(silent);
        QCOMPARE(bench.decisions(), QStringList({foundA, foundB, missingC, over}));
    }

    void receiverMayAttachAParserAndTalkAtOnce()
    {
        ProbeBench bench;
        Board *const board = bench.attach("BoardA");
        Nmea::ParserInit parser;
        parser.init();
        JwDevice::SessionInit answer;
        answer.clear();
        onInitialized(bench, [&](Communicator *comm) {
            comm->setParser(&parser);
            QObject::connect(comm, qOverload<uint>(&Communicator::readyRead), comm,
                             [&answer, comm](uint id) { QVERIFY(comm->readPayload(&answer, id)); });
            JwDevice::SessionInit query;
            query.clear();
            query.sentenceId = 1;
            QVERIFY(comm->writePayload(&query) > 0);
        });
        bench.probe({JwDevice::BoardA});
        QTRY_COMPARE(answer.sentenceId, 1);
        QCOMPARE(answer.fields.value(QStringLiteral("hwversion")).toString(), QStringLiteral("7300022"));
        QCOMPARE(received(board), versionQuery + versionQuery);
        bench.handOvers.first().comm->setParser(nullptr);
    }

    void payloadsBehindTheRecognisedOneReachWhatTheReceiverConnected()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        int arrived = 0;
        onInitialized(bench, [&](Communicator *comm) {
            QObject::connect(comm, qOverload<>(&Communicator::readyRead), comm, [&arrived] { ++arrived; });
        });
        bench.probe({JwDevice::BoardA});
        QVERIFY(board->send(versionReply("7300022") + "$PONE\r\n$PTWO\r\n"));
        QTRY_COMPARE(arrived, 2);
        QString payload;
        QVERIFY(bench.handOver(board).comm->readPayload(payload));
        QCOMPARE(payload, QStringLiteral("$PONE\r\n"));
    }

    void receiverMayDisconnectTheInitializer()
    {
        ProbeBench bench;
        const Board *const silent = bench.attach("silent");
        const Board *const board = bench.attach("BoardA");
        onInitialized(bench, [&](Communicator *) { bench.initializer->disconnect(); });
        bench.initializer->setMaxRetries(0);
        bench.probe({JwDevice::BoardA, JwDevice::BoardB});
        QTRY_COMPARE(bench.state(board), PortState::HandedOver);
        bench.timeOut(silent);
        QCOMPARE(bench.decisions(), QStringList({foundA, over}));
    }

    void otherPortsAnswerAndTimeOutInANestedLoopAndNothingIsReportedTwice()
    {
        ProbeBench bench;
        bench.attach("BoardA");
        bench.attach("BoardB,delay=50");
        bench.attach("silent");
        QStringList seenInReceiver;
        QObject::connect(bench.initializer, &Initializer::deviceInitialized, [&](Type type) {
            if (type != JwDevice::BoardA)
                return;
            QVERIFY(nest([&bench] { return bench.isOver(); }));
            seenInReceiver = bench.decisions();
        });
        bench.initializer->setMaxRetries(1);
        bench.probe({JwDevice::BoardA, JwDevice::BoardB, JwDevice::BoardC});
        QTRY_VERIFY(!seenInReceiver.isEmpty());
        settle();
        QCOMPARE(seenInReceiver, QStringList({foundA, foundB, retry, missingC, over}));
        QCOMPARE(bench.decisions(), seenInReceiver);
    }

    void retryRoundBegunInANestedLoopIsNotCountedAgainBehindIt()
    {
        ProbeBench bench;
        bench.attach("BoardA");
        Board *const silent = bench.attach("silent");
        bool left = false;
        onInitialized(bench, [&](Communicator *) {
            QVERIFY(nest([&bench] { return bench.timeline.contains(retry); }));
            left = true;
        });
        bench.initializer->setMaxRetries(1);
        bench.probe({JwDevice::BoardA, JwDevice::BoardB});
        QTRY_VERIFY(left);
        QCOMPARE(bench.decisions(), QStringList({foundA, retry}));
        QCOMPARE(bench.state(silent), PortState::AwaitingReply);
        QTRY_COMPARE(bench.decisions(), QStringList({foundA, retry, missingB, over}));
    }

    void nestedLoopsWithinEachOtherLeaveTheProbeWhole()
    {
        ProbeBench bench;
        bench.attach("BoardA");
        bench.attach("BoardB,delay=30");
        bench.attach("BoardC,delay=60");
        bench.attach("silent");
        onInitialized(bench, [&](Communicator *comm) {
            QVERIFY(nest([&bench] { return bench.isOver(); }));
            giveBack(comm);
        });
        bench.probe({JwDevice::BoardA, JwDevice::BoardB, JwDevice::BoardC});
        QTRY_COMPARE(bench.handOvers.size(), 3);
        QTRY_VERIFY(!bench.handOvers.first().comm);
        QCOMPARE(bench.decisions(), QStringList({foundA, foundB, QStringLiteral("deviceInitialized BoardC"), over}));
    }

    void roundsThatNobodyCanAnswerEndInANestedLoop()
    {
        ProbeBench bench;
        bench.attach("BoardA");
        bench.attach("BoardB,delay=50");
        QStringList seenInReceiver;
        QObject::connect(bench.initializer, &Initializer::deviceInitialized, [&](Type type) {
            if (type != JwDevice::BoardA)
                return;
            QVERIFY(nest([&bench] { return bench.isOver(); }));
            seenInReceiver = bench.decisions();
        });
        bench.initializer->setMaxRetries(2);
        bench.probe({JwDevice::BoardA, JwDevice::BoardB, JwDevice::BoardC});
        QTRY_VERIFY(!seenInReceiver.isEmpty());
        settle();
        QCOMPARE(bench.decisions(), QStringList({foundA, foundB, retry, retry, missingC, over}));
    }

    void roundThatNobodyCanAnswerIsNotBegunAgainBehindTheReceiverInWhichItBegan()
    {
        ProbeBench bench;
        Board *const first = bench.attach("silent");
        Board *const second = bench.attach("silent");
        QObject::connect(bench.initializer, &Initializer::deviceInitialized, [&](Type type) {
            if (type == JwDevice::BoardA)
                bench.initializer->boardReadyRead(bench.comm(second)); // as from an event loop of the receiver
        });
        bench.initializer->setMaxRetries(2);
        bench.probe({JwDevice::BoardA, JwDevice::BoardB, JwDevice::BoardC});
        bench.store(second, {versionReply("7300021")});
        bench.store(first, {versionReply("7300022")});
        bench.initializer->boardReadyRead(bench.comm(first));
        QCOMPARE(bench.decisions(), QStringList({foundA, foundB, retry}));
        QTRY_VERIFY(bench.isOver());
        settle();
        QCOMPARE(bench.decisions(), QStringList({foundA, foundB, retry, retry, missingC, over}));
    }

    void nestedLoopInDeviceNotFoundReportsNothingTwice()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("silent");
        QObject::connect(bench.initializer, &Initializer::deviceNotFound, [&] {
            QTimer *const timer = bench.replyTimer(board);
            timer->start(0); // a time-out within the report
            QVERIFY(nest([timer] { return !timer->isActive(); }));
        });
        bench.initializer->setMaxRetries(0);
        bench.probe({JwDevice::BoardA, JwDevice::BoardB});
        bench.timeOut(board);
        QTRY_VERIFY(bench.isOver());
        settle();
        QCOMPARE(bench.decisions(), QStringList({missingA, missingB, over}));
    }

    void lateReplyInANestedLoopOfDeviceNotFoundHandsOver_data()
    {
        QTest::addColumn<QByteArray>("version");
        QTest::addColumn<QStringList>("decisions");
        QTest::newRow("a type not reported yet") << QByteArray("7300021") << QStringList{missingA, foundB, over};
        QTest::newRow("the type just reported")
            << QByteArray("7300022") << QStringList{missingA, foundA, missingB, over};
    }
    void lateReplyInANestedLoopOfDeviceNotFoundHandsOver()
    {
        QFETCH(QByteArray, version);
        QFETCH(QStringList, decisions);
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        QObject::connect(bench.initializer, &Initializer::deviceNotFound, [&](Type type) {
            if (type != JwDevice::BoardA)
                return;
            QVERIFY(board->send(versionReply(version)));
            QVERIFY(nest([&bench] { return !bench.handOvers.isEmpty(); }));
        });
        bench.initializer->setMaxRetries(0);
        bench.probe({JwDevice::BoardA, JwDevice::BoardB});
        bench.timeOut(board);
        QTRY_VERIFY(bench.isOver());
        settle();
        QCOMPARE(bench.decisions(), decisions);
    }

    void maximumRaisedWithinDeviceNotFoundStartsNoRetryRound()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("silent");
        QObject::connect(bench.initializer, &Initializer::deviceNotFound, [&] {
            bench.initializer->setMaxRetries(5);
            int turns = 0;
            QVERIFY(nest([&turns] { return ++turns == 5; }));
        });
        bench.initializer->setMaxRetries(0);
        bench.probe({JwDevice::BoardA, JwDevice::BoardB});
        bench.timeOut(board);
        QTRY_VERIFY(bench.isOver());
        QCOMPARE(bench.decisions(), QStringList({missingA, missingB, over}));
        QVERIFY(!bench.isTimerActive());
    }

    void anotherProbeWithinDeviceNotFoundOfAProbeWithoutPorts()
    {
        ProbeBench bench;
        QObject::connect(bench.initializer, &Initializer::deviceNotFound, [&](Type type) {
            if (type != JwDevice::BoardA)
                return;
            bench.attach("BoardA");
            QVERIFY(bench.initializer->probe({JwDevice::BoardA}));
        });
        QVERIFY(bench.initializer->probe({JwDevice::BoardA, JwDevice::BoardB}));
        QTRY_VERIFY(bench.isOver());
        QCOMPARE(bench.decisions(), QStringList({missingA, missingB, foundA, over}));
    }

    void receiverOfDeviceNotFoundMayDeleteTheInitializer_data()
    {
        QTest::addColumn<QByteArray>("from");
        QTest::addColumn<Type>("at");
        const QList<QByteArray> places = {"probe()", "the delay", "a time-out", "a duplicate's reply",
                                          "a round that nobody can answer"};
        for (const QByteArray &from : places) {
            QTest::newRow(from + ", first report") << from << JwDevice::BoardB;
            QTest::newRow(from + ", last report") << from << JwDevice::BoardC;
        }
    }
    void receiverOfDeviceNotFoundMayDeleteTheInitializer()
    {
        QFETCH(QByteArray, from);
        QFETCH(Type, at);
        ProbeBench bench;
        QObject::connect(bench.initializer, &Initializer::deviceNotFound, [&, at](Type type) {
            if (type == at)
                delete bench.initializer;
        });
        const TypeList types = {JwDevice::BoardA, JwDevice::BoardB, JwDevice::BoardC};
        const TypeList missingTypes = {JwDevice::BoardB, JwDevice::BoardC};
        QStringList expected;
        if (from == "probe()") {
            QVERIFY(bench.initializer->probe(missingTypes));
        } else if (from == "the delay") {
            QVERIFY(bench.initializer->probe(missingTypes, 1));
        } else if (from == "a time-out") {
            bench.attach("silent");
            bench.attach("silent");
            bench.initializer->setMaxRetries(0);
            bench.probe(missingTypes);
            bench.endReplyTimers();
        } else if (from == "a duplicate's reply") {
            Board *const first = bench.attach("silent");
            Board *const second = bench.attach("silent");
            bench.initializer->setMaxRetries(0);
            bench.probe(types);
            bench.store(first, {versionReply("7300022")});
            bench.initializer->boardReadyRead(bench.comm(first));
            QVERIFY(second->send(versionReply("7300022") + "$PBEHIND\r\n$PBEHIND\r\n"));
            expected << foundA;
        } else {
            bench.attach("BoardA");
            bench.initializer->setMaxRetries(1);
            bench.probe(types);
            expected << foundA << retry;
        }
        QTRY_VERIFY(!bench.initializer);
        settle();
        expected << missingB;
        if (at == JwDevice::BoardC)
            expected << missingC;
        QCOMPARE(bench.decisions(), expected);
        QCOMPARE(bench.timeline.last(), deleted);
        const auto boards = bench.testbed.boards();
        for (const Board *board : boards) {
            if (bench.handOver(board).port)
                continue;
            QSerialPort port(board->portName());
            QVERIFY(port.open(QIODevice::ReadWrite)); // given free
        }
    }

    void portThatIsInItsOwnSignalOutlivesTheInitializerUntilTheEventLoop()
    {
        ProbeBench bench;
        Board *const first = bench.attach("silent");
        Board *const second = bench.attach("silent");
        QPointer<QSerialPort> port;
        bool aliveBehindTheDeletion = false;
        QObject::connect(bench.initializer, &Initializer::deviceNotFound, [&] {
            delete bench.initializer;
            aliveBehindTheDeletion = port && !port->isOpen(); // Qt goes on with it when the receiver returns
        });
        bench.initializer->setMaxRetries(0);
        bench.probe({JwDevice::BoardA, JwDevice::BoardB});
        bench.store(first, {versionReply("7300022")});
        bench.initializer->boardReadyRead(bench.comm(first));
        port = bench.port(second);
        QVERIFY(second->send(versionReply("7300022")));
        QTRY_VERIFY(!bench.initializer);
        QVERIFY(aliveBehindTheDeletion);
        settle();
        QVERIFY(!port);
    }

    void initializerDeletedWithinDeviceInitializedTouchesNothingAfterwards_data()
    {
        QTest::addColumn<bool>("later");
        QTest::newRow("deleteLater") << true;
        QTest::newRow("delete") << false;
    }
    void initializerDeletedWithinDeviceInitializedTouchesNothingAfterwards()
    {
        QFETCH(bool, later);
        ProbeBench bench;
        Board *const board = bench.attach("BoardA,replies=2");
        Board *const silent = bench.attach("silent");
        onInitialized(bench, [&](Communicator *) {
            if (later)
                bench.initializer->deleteLater();
            else
                delete bench.initializer;
        });
        bench.probe({JwDevice::BoardA, JwDevice::BoardB});
        QTRY_VERIFY(!bench.initializer);
        settle();
        QCOMPARE(bench.decisions(), QStringList{foundA});
        QCOMPARE(bench.timeline.last(), deleted);
        QSerialPort port(silent->portName());
        QVERIFY(port.open(QIODevice::ReadWrite));
        const ProbeBench::HandOver taken = bench.handOver(board);
        QVERIFY(taken.comm && taken.port->isOpen());
        taken.comm->writePayload(QStringLiteral("$PTEST\r\n"));
        QTRY_VERIFY(received(board).endsWith("$PTEST\r\n"));
    }

    void initializerAndCommunicatorDeletedWithinDeviceInitialized()
    {
        ProbeBench bench;
        bench.attach("BoardA,replies=2");
        bench.attach("silent");
        onInitialized(bench, [&](Communicator *comm) {
            giveBack(comm);
            delete bench.initializer;
        });
        bench.probe({JwDevice::BoardA, JwDevice::BoardB});
        QTRY_VERIFY(!bench.initializer);
        settle();
        QCOMPARE(bench.timeline.last(), deleted);
    }

    void initializerDeletedInANestedLoopOfDeviceInitialized()
    {
        ProbeBench bench;
        Board *const board = bench.attach("BoardA,replies=2");
        bench.attach("silent");
        QVector<QPointer<QSignalMapper>> mappers;
        for (QSignalMapper *mapper : bench.initializer->findChildren<QSignalMapper *>())
            mappers.append(mapper);
        QCOMPARE(mappers.size(), 2);
        const auto areAlive = [&mappers] { return mappers[0] && mappers[1]; };
        bool left = false;
        bool aliveInTheLoop = false;
        onInitialized(bench, [&](Communicator *) {
            QTimer::singleShot(0, bench.initializer, [&bench] { delete bench.initializer; });
            QVERIFY(nest([&bench] { return !bench.initializer; }));
            int turns = 0;
            QVERIFY(nest([&turns] { return ++turns > 3; }));
            aliveInTheLoop = areAlive(); // one of them is in the middle of its signal
            left = true;
        });
        bench.probe({JwDevice::BoardA, JwDevice::BoardB});
        QTRY_VERIFY(left);
        QVERIFY(aliveInTheLoop);
        settle();
        QVERIFY(!mappers[0] && !mappers[1]);
        QCOMPARE(bench.decisions(), QStringList{foundA});
        QVERIFY(bench.handOver(board).port->isOpen());
    }

    void initializerDeletedByATimeOutInANestedLoopOfDeviceInitialized()
    {
        ProbeBench bench;
        Board *const board = bench.attach("BoardA,replies=2");
        bench.attach("silent");
        bool left = false;
        onInitialized(bench, [&](Communicator *) {
            bench.endReplyTimers();
            QVERIFY(nest([&bench] { return !bench.initializer; }));
            left = true;
        });
        QObject::connect(bench.initializer, &Initializer::deviceNotFound, [&] { delete bench.initializer; });
        bench.initializer->setMaxRetries(0);
        bench.probe({JwDevice::BoardA, JwDevice::BoardB});
        QTRY_VERIFY(left);
        settle();
        QCOMPARE(bench.decisions(), QStringList({foundA, missingB}));
        QVERIFY(bench.handOver(board).port->isOpen());
    }

    void handedOverConnectionDeletedWithinDeviceNotFound()
    {
        ProbeBench bench;
        bench.attach("BoardA");
        bench.attach("silent");
        QObject::connect(bench.initializer, &Initializer::deviceNotFound,
                         [&] { giveBack(bench.handOvers.first().comm); });
        bench.initializer->setMaxRetries(0);
        bench.probe({JwDevice::BoardA, JwDevice::BoardB});
        QTRY_VERIFY(bench.isOver());
        QCOMPARE(bench.decisions(), QStringList({foundA, missingB, over}));
        QVERIFY(!bench.handOvers.first().comm);
    }
};

SIMULATED_PORTS_MAIN(InitializerHostileTest)
#include "tst_initializer_hostile.moc"

#include "support/initializer/probefixture.h"
#include "support/common/simulatedportsmain.h"
#include "support/initializer/timelinetexts.h"

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

/// Runs a nested event loop, as a modal dialog does, until `done()` returns true. Returns false if that takes more than
/// 5 s.
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

void onInitialized(ProbeFixture &fixture, const Receiver &receiver)
{
    QObject::connect(fixture.initializer, &Initializer::deviceInitialized,
                     [receiver](Type, Communicator *comm) { receiver(comm); });
}

/// Deletes the Communicator and its port inside the signal that hands them over.
void giveBack(Communicator *comm)
{
    comm->device()->deleteLater();
    delete comm;
}

} // namespace

Q_DECLARE_METATYPE(Receiver)

class TestInitializerHostile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void receiverOfDeviceInitializedMayDoAsItLikes_data();
    void receiverOfDeviceInitializedMayDoAsItLikes();
    void receiverMayAttachAParserAndTalkAtOnce();
    void payloadsBehindTheRecognisedOneReachWhatTheReceiverConnected();
    void receiverMayDisconnectTheInitializer();
    void probeEndsInANestedLoopAndNothingIsReportedTwice_data();
    void probeEndsInANestedLoopAndNothingIsReportedTwice();
    void retryRoundBegunInANestedLoopIsCountedOnce();
    void nestedLoopsWithinEachOtherLeaveTheProbeWhole();
    void roundBegunInAReceiverIsNotBegunAgainAfterIt();
    void nestedLoopInDeviceNotFoundReportsNothingTwice();
    void lateReplyInANestedLoopOfDeviceNotFoundHandsOver_data();
    void lateReplyInANestedLoopOfDeviceNotFoundHandsOver();
    void maximumRaisedWithinDeviceNotFoundStartsNoRetryRound();
    void anotherProbeWithinDeviceNotFoundOfAProbeWithoutPorts();
    void receiverOfDeviceNotFoundMayDeleteTheInitializer_data();
    void receiverOfDeviceNotFoundMayDeleteTheInitializer();
    void portThatIsInItsOwnSignalOutlivesTheInitializerUntilTheEventLoop();
    void initializerDeletedWithinDeviceInitializedTouchesNothingAfterwards_data();
    void initializerDeletedWithinDeviceInitializedTouchesNothingAfterwards();
    void initializerAndCommunicatorDeletedWithinDeviceInitialized();
    void initializerDeletedInANestedLoopOfDeviceInitialized();
    void initializerDeletedByATimeOutInANestedLoopOfDeviceInitialized();
    void handedOverConnectionDeletedWithinDeviceNotFound();
};

void TestInitializerHostile::receiverOfDeviceInitializedMayDoAsItLikes_data()
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

void TestInitializerHostile::receiverOfDeviceInitializedMayDoAsItLikes()
{
    QFETCH(Receiver, receiver);
    ProbeFixture fixture;
    fixture.attach("BoardA");
    Board *const stored = fixture.attach("silent");
    const Board *const silent = fixture.attach("silent");
    int received = 0;
    onInitialized(fixture, [&](Communicator *comm) {
        ++received;
        receiver(comm);
    });
    fixture.initializer->setMaxRetries(0);
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB, JwDevice::BoardC});
    // Here deviceInitialized was emitted inside a signal of the port. Below, it is emitted inside a direct call.
    QTRY_COMPARE(received, 1);
    fixture.store(stored, {versionReply("7300021"), "$PBEHIND\r\n"});
    fixture.initializer->boardReadyRead(fixture.comm(stored)); // reads the reply while a second payload is stored
    QCOMPARE(received, 2);
    fixture.timeOut(silent);
    QCOMPARE(fixture.decisions(), QStringList({foundA, foundB, missingC, over}));
}

void TestInitializerHostile::receiverMayAttachAParserAndTalkAtOnce()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("BoardA");
    Nmea::ParserInit parser;
    parser.init();
    JwDevice::SessionInit answer;
    answer.clear();
    onInitialized(fixture, [&](Communicator *comm) {
        comm->setParser(&parser);
        QObject::connect(comm, qOverload<uint>(&Communicator::readyRead), comm,
                         [&answer, comm](uint id) { QVERIFY(comm->readPayload(&answer, id)); });
        JwDevice::SessionInit query;
        query.clear();
        query.sentenceId = 1;
        QVERIFY(comm->writePayload(&query) > 0);
    });
    fixture.probe({JwDevice::BoardA});
    QTRY_COMPARE(answer.sentenceId, 1);
    QCOMPARE(answer.fields.value(QStringLiteral("hwversion")).toString(), QStringLiteral("7300022"));
    QCOMPARE(received(board), versionQuery + versionQuery);
    fixture.handOvers.first().comm->setParser(nullptr);
}

void TestInitializerHostile::payloadsBehindTheRecognisedOneReachWhatTheReceiverConnected()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    int arrived = 0;
    onInitialized(fixture, [&](Communicator *comm) {
        QObject::connect(comm, qOverload<>(&Communicator::readyRead), comm, [&arrived] { ++arrived; });
    });
    fixture.probe({JwDevice::BoardA});
    QVERIFY(board->send(versionReply("7300022") + "$PONE\r\n$PTWO\r\n"));
    QTRY_COMPARE(arrived, 2);
    QString payload;
    QVERIFY(fixture.handOver(board).comm->readPayload(payload));
    QCOMPARE(payload, QStringLiteral("$PONE\r\n"));
}

void TestInitializerHostile::receiverMayDisconnectTheInitializer()
{
    ProbeFixture fixture;
    const Board *const silent = fixture.attach("silent");
    const Board *const board = fixture.attach("BoardA");
    onInitialized(fixture, [&](Communicator *) { fixture.initializer->disconnect(); });
    fixture.initializer->setMaxRetries(0);
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
    QTRY_COMPARE(fixture.state(board), PortState::HandedOver);
    fixture.timeOut(silent);
    QCOMPARE(fixture.decisions(), QStringList({foundA, over}));
}

void TestInitializerHostile::probeEndsInANestedLoopAndNothingIsReportedTwice_data()
{
    QTest::addColumn<bool>("hasSilentPort");
    QTest::addColumn<uint>("retries");
    QTest::addColumn<QStringList>("decisions");
    QTest::newRow("other ports answer and time out")
        << true << 1U << QStringList{foundA, foundB, retry, missingC, over};
    QTest::newRow("no port is left for the retry rounds")
        << false << 2U << QStringList{foundA, foundB, retry, retry, missingC, over};
}

void TestInitializerHostile::probeEndsInANestedLoopAndNothingIsReportedTwice()
{
    QFETCH(bool, hasSilentPort);
    QFETCH(uint, retries);
    QFETCH(QStringList, decisions);
    ProbeFixture fixture;
    fixture.attach("BoardA");
    fixture.attach("BoardB,delay=50");
    if (hasSilentPort)
        fixture.attach("silent");
    QStringList seenInReceiver;
    QObject::connect(fixture.initializer, &Initializer::deviceInitialized, [&](Type type) {
        if (type != JwDevice::BoardA)
            return;
        QVERIFY(nest([&fixture] { return fixture.isOver(); }));
        seenInReceiver = fixture.decisions();
    });
    fixture.initializer->setMaxRetries(retries);
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB, JwDevice::BoardC});
    QTRY_VERIFY(!seenInReceiver.isEmpty());
    settle();
    QCOMPARE(seenInReceiver, decisions);
    QCOMPARE(fixture.decisions(), decisions);
}

void TestInitializerHostile::retryRoundBegunInANestedLoopIsCountedOnce()
{
    ProbeFixture fixture;
    fixture.attach("BoardA");
    Board *const silent = fixture.attach("silent");
    bool left = false;
    onInitialized(fixture, [&](Communicator *) {
        QVERIFY(nest([&fixture] { return fixture.timeline.contains(retry); }));
        left = true;
    });
    fixture.initializer->setMaxRetries(1);
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
    QTRY_VERIFY(left);
    QCOMPARE(fixture.decisions(), QStringList({foundA, retry}));
    QCOMPARE(fixture.state(silent), PortState::AwaitingReply);
    QTRY_COMPARE(fixture.decisions(), QStringList({foundA, retry, missingB, over}));
}

void TestInitializerHostile::nestedLoopsWithinEachOtherLeaveTheProbeWhole()
{
    ProbeFixture fixture;
    fixture.attach("BoardA");
    fixture.attach("BoardB,delay=30");
    fixture.attach("BoardC,delay=60");
    fixture.attach("silent");
    onInitialized(fixture, [&](Communicator *comm) {
        QVERIFY(nest([&fixture] { return fixture.isOver(); }));
        giveBack(comm);
    });
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB, JwDevice::BoardC});
    QTRY_COMPARE(fixture.handOvers.size(), 3);
    QTRY_VERIFY(!fixture.handOvers.first().comm);
    QCOMPARE(fixture.decisions(), QStringList({foundA, foundB, QStringLiteral("deviceInitialized BoardC"), over}));
}

void TestInitializerHostile::roundBegunInAReceiverIsNotBegunAgainAfterIt()
{
    ProbeFixture fixture;
    Board *const first = fixture.attach("silent");
    Board *const second = fixture.attach("silent");
    QObject::connect(fixture.initializer, &Initializer::deviceInitialized, [&](Type type) {
        if (type == JwDevice::BoardA)
            // A nested event loop in this slot would cause the same call.
            fixture.initializer->boardReadyRead(fixture.comm(second));
    });
    fixture.initializer->setMaxRetries(2);
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB, JwDevice::BoardC});
    fixture.store(second, {versionReply("7300021")});
    fixture.store(first, {versionReply("7300022")});
    fixture.initializer->boardReadyRead(fixture.comm(first));
    QCOMPARE(fixture.decisions(), QStringList({foundA, foundB, retry}));
    QTRY_VERIFY(fixture.isOver());
    settle();
    QCOMPARE(fixture.decisions(), QStringList({foundA, foundB, retry, retry, missingC, over}));
}

void TestInitializerHostile::nestedLoopInDeviceNotFoundReportsNothingTwice()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("silent");
    QObject::connect(fixture.initializer, &Initializer::deviceNotFound, [&] {
        QTimer *const timer = fixture.replyTimer(board);
        timer->start(0); // the port's reply timer fires again, now inside this signal
        QVERIFY(nest([timer] { return !timer->isActive(); }));
    });
    fixture.initializer->setMaxRetries(0);
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
    fixture.timeOut(board);
    QTRY_VERIFY(fixture.isOver());
    settle();
    QCOMPARE(fixture.decisions(), QStringList({missingA, missingB, over}));
}

void TestInitializerHostile::lateReplyInANestedLoopOfDeviceNotFoundHandsOver_data()
{
    QTest::addColumn<QByteArray>("version");
    QTest::addColumn<QStringList>("decisions");
    QTest::newRow("a type not reported yet") << QByteArray("7300021") << QStringList{missingA, foundB, over};
    QTest::newRow("the type just reported") << QByteArray("7300022") << QStringList{missingA, foundA, missingB, over};
}

void TestInitializerHostile::lateReplyInANestedLoopOfDeviceNotFoundHandsOver()
{
    QFETCH(QByteArray, version);
    QFETCH(QStringList, decisions);
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    QObject::connect(fixture.initializer, &Initializer::deviceNotFound, [&](Type type) {
        if (type != JwDevice::BoardA)
            return;
        QVERIFY(board->send(versionReply(version)));
        QVERIFY(nest([&fixture] { return !fixture.handOvers.isEmpty(); }));
    });
    fixture.initializer->setMaxRetries(0);
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
    fixture.timeOut(board);
    QTRY_VERIFY(fixture.isOver());
    settle();
    QCOMPARE(fixture.decisions(), decisions);
}

void TestInitializerHostile::maximumRaisedWithinDeviceNotFoundStartsNoRetryRound()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("silent");
    QObject::connect(fixture.initializer, &Initializer::deviceNotFound, [&] {
        fixture.initializer->setMaxRetries(5);
        int turns = 0;
        QVERIFY(nest([&turns] { return ++turns == 5; }));
    });
    fixture.initializer->setMaxRetries(0);
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
    fixture.timeOut(board);
    QTRY_VERIFY(fixture.isOver());
    QCOMPARE(fixture.decisions(), QStringList({missingA, missingB, over}));
    QVERIFY(!fixture.isTimerActive());
}

void TestInitializerHostile::anotherProbeWithinDeviceNotFoundOfAProbeWithoutPorts()
{
    ProbeFixture fixture;
    QObject::connect(fixture.initializer, &Initializer::deviceNotFound, [&](Type type) {
        if (type != JwDevice::BoardA)
            return;
        fixture.attach("BoardA");
        QVERIFY(fixture.initializer->probe({JwDevice::BoardA}));
    });
    QVERIFY(fixture.initializer->probe({JwDevice::BoardA, JwDevice::BoardB}));
    QTRY_VERIFY(fixture.isOver());
    QCOMPARE(fixture.decisions(), QStringList({missingA, missingB, foundA, over}));
}

void TestInitializerHostile::receiverOfDeviceNotFoundMayDeleteTheInitializer_data()
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

void TestInitializerHostile::receiverOfDeviceNotFoundMayDeleteTheInitializer()
{
    QFETCH(QByteArray, from);
    QFETCH(Type, at);
    ProbeFixture fixture;
    QObject::connect(fixture.initializer, &Initializer::deviceNotFound, [&, at](Type type) {
        if (type == at)
            delete fixture.initializer;
    });
    const TypeList types = {JwDevice::BoardA, JwDevice::BoardB, JwDevice::BoardC};
    const TypeList missingTypes = {JwDevice::BoardB, JwDevice::BoardC};
    QStringList expected;
    if (from == "probe()") {
        QVERIFY(fixture.initializer->probe(missingTypes));
    } else if (from == "the delay") {
        QVERIFY(fixture.initializer->probe(missingTypes, 1));
    } else if (from == "a time-out") {
        fixture.attach("silent");
        fixture.attach("silent");
        fixture.initializer->setMaxRetries(0);
        fixture.probe(missingTypes);
        fixture.endReplyTimers();
    } else if (from == "a duplicate's reply") {
        Board *const first = fixture.attach("silent");
        Board *const second = fixture.attach("silent");
        fixture.initializer->setMaxRetries(0);
        fixture.probe(types);
        fixture.store(first, {versionReply("7300022")});
        fixture.initializer->boardReadyRead(fixture.comm(first));
        QVERIFY(second->send(versionReply("7300022") + "$PBEHIND\r\n$PBEHIND\r\n"));
        expected << foundA;
    } else {
        fixture.attach("BoardA");
        fixture.initializer->setMaxRetries(1);
        fixture.probe(types);
        expected << foundA << retry;
    }
    QTRY_VERIFY(!fixture.initializer);
    settle();
    expected << missingB;
    if (at == JwDevice::BoardC)
        expected << missingC;
    QCOMPARE(fixture.decisions(), expected);
    QCOMPARE(fixture.timeline.last(), deleted);
    const auto boards = fixture.testbed.boards();
    for (const Board *board : boards) {
        if (fixture.handOver(board).port)
            continue;
        QSerialPort port(board->portName());
        QVERIFY(port.open(QIODevice::ReadWrite)); // opens only if the Initializer has closed the port
    }
}

void TestInitializerHostile::portThatIsInItsOwnSignalOutlivesTheInitializerUntilTheEventLoop()
{
    ProbeFixture fixture;
    Board *const first = fixture.attach("silent");
    Board *const second = fixture.attach("silent");
    QPointer<QSerialPort> port;
    bool aliveAfterTheDeletion = false;
    QObject::connect(fixture.initializer, &Initializer::deviceNotFound, [&] {
        delete fixture.initializer;
        // The port must still exist, because Qt uses it after this function returns.
        aliveAfterTheDeletion = port && !port->isOpen();
    });
    fixture.initializer->setMaxRetries(0);
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
    fixture.store(first, {versionReply("7300022")});
    fixture.initializer->boardReadyRead(fixture.comm(first));
    port = fixture.port(second);
    QVERIFY(second->send(versionReply("7300022")));
    QTRY_VERIFY(!fixture.initializer);
    QVERIFY(aliveAfterTheDeletion);
    settle();
    QVERIFY(!port);
}

void TestInitializerHostile::initializerDeletedWithinDeviceInitializedTouchesNothingAfterwards_data()
{
    QTest::addColumn<bool>("later");
    QTest::newRow("deleteLater") << true;
    QTest::newRow("delete") << false;
}

void TestInitializerHostile::initializerDeletedWithinDeviceInitializedTouchesNothingAfterwards()
{
    QFETCH(bool, later);
    ProbeFixture fixture;
    Board *const board = fixture.attach("BoardA,replies=2");
    Board *const silent = fixture.attach("silent");
    onInitialized(fixture, [&](Communicator *) {
        if (later)
            fixture.initializer->deleteLater();
        else
            delete fixture.initializer;
    });
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
    QTRY_VERIFY(!fixture.initializer);
    settle();
    QCOMPARE(fixture.decisions(), QStringList{foundA});
    QCOMPARE(fixture.timeline.last(), deleted);
    QSerialPort port(silent->portName());
    QVERIFY(port.open(QIODevice::ReadWrite));
    const ProbeFixture::HandOver taken = fixture.handOver(board);
    QVERIFY(taken.comm && taken.port->isOpen());
    taken.comm->writePayload(QStringLiteral("$PTEST\r\n"));
    QTRY_VERIFY(received(board).endsWith("$PTEST\r\n"));
}

void TestInitializerHostile::initializerAndCommunicatorDeletedWithinDeviceInitialized()
{
    ProbeFixture fixture;
    fixture.attach("BoardA,replies=2");
    fixture.attach("silent");
    onInitialized(fixture, [&](Communicator *comm) {
        giveBack(comm);
        delete fixture.initializer;
    });
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
    QTRY_VERIFY(!fixture.initializer);
    settle();
    QCOMPARE(fixture.timeline.last(), deleted);
}

void TestInitializerHostile::initializerDeletedInANestedLoopOfDeviceInitialized()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("BoardA,replies=2");
    fixture.attach("silent");
    QVector<QPointer<QSignalMapper>> mappers;
    for (QSignalMapper *mapper : fixture.initializer->findChildren<QSignalMapper *>())
        mappers.append(mapper);
    QCOMPARE(mappers.size(), 2);
    const auto areAlive = [&mappers] { return mappers[0] && mappers[1]; };
    bool left = false;
    bool aliveInTheLoop = false;
    onInitialized(fixture, [&](Communicator *) {
        QTimer::singleShot(0, fixture.initializer, [&fixture] { delete fixture.initializer; });
        QVERIFY(nest([&fixture] { return !fixture.initializer; }));
        int turns = 0;
        QVERIFY(nest([&turns] { return ++turns > 3; }));
        aliveInTheLoop = areAlive(); // both mappers must exist, because one of them is still inside its own signal
        left = true;
    });
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
    QTRY_VERIFY(left);
    QVERIFY(aliveInTheLoop);
    settle();
    QVERIFY(!mappers[0] && !mappers[1]);
    QCOMPARE(fixture.decisions(), QStringList{foundA});
    QVERIFY(fixture.handOver(board).port->isOpen());
}

void TestInitializerHostile::initializerDeletedByATimeOutInANestedLoopOfDeviceInitialized()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("BoardA,replies=2");
    fixture.attach("silent");
    bool left = false;
    onInitialized(fixture, [&](Communicator *) {
        fixture.endReplyTimers();
        QVERIFY(nest([&fixture] { return !fixture.initializer; }));
        left = true;
    });
    QObject::connect(fixture.initializer, &Initializer::deviceNotFound, [&] { delete fixture.initializer; });
    fixture.initializer->setMaxRetries(0);
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
    QTRY_VERIFY(left);
    settle();
    QCOMPARE(fixture.decisions(), QStringList({foundA, missingB}));
    QVERIFY(fixture.handOver(board).port->isOpen());
}

void TestInitializerHostile::handedOverConnectionDeletedWithinDeviceNotFound()
{
    ProbeFixture fixture;
    fixture.attach("BoardA");
    fixture.attach("silent");
    QObject::connect(fixture.initializer, &Initializer::deviceNotFound,
                     [&] { giveBack(fixture.handOvers.first().comm); });
    fixture.initializer->setMaxRetries(0);
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
    QTRY_VERIFY(fixture.isOver());
    QCOMPARE(fixture.decisions(), QStringList({foundA, missingB, over}));
    QVERIFY(!fixture.handOvers.first().comm);
}

SIMULATED_PORTS_MAIN(TestInitializerHostile)
#include "tst_initializer_hostile.moc"

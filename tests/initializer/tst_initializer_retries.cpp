#include "support/initializer/probefixture.h"
#include "support/common/simulatedportsmain.h"
#include "support/initializer/timelinetexts.h"

#include <QTest>
#include <QTimer>

#include <limits>

using JwDevice::Communicator;
using JwDevice::Initializer;
using JwDevice::Type;
using JwSimulator::Board;

namespace {

const TypeList boardA = {JwDevice::BoardA};

/// Ends rounds at once, without waiting for the reply time, until the probe is over or `mostRounds` rounds have ended.
void endRounds(ProbeFixture &fixture, int mostRounds)
{
    for (int round = 0; round < mostRounds && !fixture.isOver(); ++round) {
        fixture.endReplyTimers();
        QTRY_VERIFY(fixture.isOver() || fixture.timeline.count(retry) == round + 1);
    }
}

} // namespace

class TestInitializerRetries : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void missingTypeIsReportedAfterThreeRetryRoundsOfRealTime();
    void retryRoundIsLoggedAsAWarning();
    void maximumSaysHowManyRetryRoundsThereAre_data();
    void maximumSaysHowManyRetryRoundsThereAre();
    void foundBoardAndNoRetriesReportTheMissingTypeAfterTheFirstTimeout();
    void largestMaximumGoesOnAskingUntilTheBoardAnswers();
    void maximumRaisedDuringAProbeCountsAtTheNextDecision();
    void maximumLoweredDuringAProbeCountsAtTheNextDecision();
    void retryRoundMakesATimedOutPortAwaitItsReplyAgain();
    void boardThatIgnoresTheFirstQueriesIsFoundInARetryRound();
    void portThatDidNotOpenIsNotTriedAgain();
    void retriesSpentOnOneProbeAreMissingInTheNext();
    void raisedMaximumGivesALaterProbeRetriesAgain();
    void noRetryRoundWhenEveryWantedTypeIsFound();
    void retryRoundsThatNobodyCanAnswerEndInTheReportOfTheMissingType();
    void roundThatNobodyCanAnswerIsDecidedByTheEventLoop();
    void boardPluggedInBetweenRoundsThatNobodyCanAnswerIsFoundByAnotherProbe();
};

void TestInitializerRetries::missingTypeIsReportedAfterThreeRetryRoundsOfRealTime()
{
    ProbeFixture fixture;
    const Board *const silent = fixture.attach("silent");
    const Board *const found = fixture.attach("BoardB");
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
    QTRY_VERIFY(fixture.isOver());
    const QString timeout = QStringLiteral("Read timeout for:  ") + quoted(silent->portName());
    const auto first = fixture.timeline.indexOf(foundB);
    QCOMPARE(fixture.timeline.mid(first),
             QStringList({foundB, timeout, retry, timeout, retry, timeout, retry, timeout, missingA, over}));
    QCOMPARE(received(silent), versionQuery.repeated(4));
    QCOMPARE(received(found), versionQuery); // only one query, because a handed-over board is not asked again
}

void TestInitializerRetries::retryRoundIsLoggedAsAWarning()
{
    ProbeFixture fixture;
    fixture.attach("silent");
    fixture.initializer->setMaxRetries(1);
    fixture.probe(boardA);
    endRounds(fixture, 2);
    const auto records = fixture.log.sink->withText(retry);
    QCOMPARE(records.size(), 1);
    QCOMPARE(records.first().level, Logger::Warning);
    QCOMPARE(records.first().category, QByteArray());
    QCOMPARE(records.first().file, QByteArray("initializer.cpp"));
    QVERIFY2(records.first().function.contains("Initializer::retryProbe("), records.first().function);
}

void TestInitializerRetries::maximumSaysHowManyRetryRoundsThereAre_data()
{
    QTest::addColumn<uint>("maximum");
    QTest::newRow("0") << 0U;
    QTest::newRow("1") << 1U;
    QTest::newRow("3") << 3U;
    QTest::newRow("5") << 5U;
}

void TestInitializerRetries::maximumSaysHowManyRetryRoundsThereAre()
{
    QFETCH(uint, maximum);
    ProbeFixture fixture;
    const Board *const board = fixture.attach("silent");
    fixture.initializer->setMaxRetries(maximum);
    fixture.probe(boardA);
    endRounds(fixture, 10);
    const int rounds = static_cast<int>(maximum);
    QStringList expected;
    for (int round = 0; round < rounds; ++round)
        expected << retry;
    QCOMPARE(fixture.decisions(), expected + QStringList({missingA, over}));
    QTRY_COMPARE(received(board), versionQuery.repeated(rounds + 1));
}

void TestInitializerRetries::foundBoardAndNoRetriesReportTheMissingTypeAfterTheFirstTimeout()
{
    ProbeFixture fixture;
    const Board *const silent = fixture.attach("silent");
    const Board *const board = fixture.attach("BoardB");
    fixture.initializer->setMaxRetries(0);
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
    QTRY_COMPARE(fixture.state(board), PortState::HandedOver);
    fixture.timeOut(silent);
    QCOMPARE(fixture.decisions(), QStringList({foundB, missingA, over}));
}

void TestInitializerRetries::largestMaximumGoesOnAskingUntilTheBoardAnswers()
{
    ProbeFixture fixture;
    fixture.attach("BoardA,ignore=12");
    fixture.initializer->setMaxRetries(std::numeric_limits<uint>::max());
    fixture.probe(boardA);
    for (int round = 0; round < 12; ++round) {
        QTRY_COMPARE(received(fixture.testbed.boards().first()), versionQuery.repeated(round + 1));
        fixture.endReplyTimers();
        QTRY_COMPARE(fixture.timeline.count(retry), round + 1);
    }
    QTRY_VERIFY(fixture.isOver());
    QCOMPARE(fixture.decisions().mid(12), QStringList({foundA, over}));
}

void TestInitializerRetries::maximumRaisedDuringAProbeCountsAtTheNextDecision()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("silent");
    fixture.initializer->setMaxRetries(0);
    fixture.probe(boardA);
    fixture.initializer->setMaxRetries(1);
    fixture.timeOut(board);
    QCOMPARE(fixture.decisions(), QStringList{retry});
}

void TestInitializerRetries::maximumLoweredDuringAProbeCountsAtTheNextDecision()
{
    ProbeFixture fixture;
    fixture.attach("silent");
    fixture.probe(boardA);
    endRounds(fixture, 2);
    QCOMPARE(fixture.decisions(), QStringList({retry, retry}));
    fixture.initializer->setMaxRetries(1); // fewer than the two retry rounds that already ran, so no other round starts
    endRounds(fixture, 1);
    QCOMPARE(fixture.decisions(), QStringList({retry, retry, missingA, over}));
}

void TestInitializerRetries::retryRoundMakesATimedOutPortAwaitItsReplyAgain()
{
    ProbeFixture fixture;
    const Board *const first = fixture.attach("silent");
    const Board *const second = fixture.attach("silent");
    fixture.probe(boardA);
    const QSerialPort *const port = fixture.port(first);
    fixture.timeOut(first);
    QCOMPARE(fixture.state(first), PortState::TimedOut);
    fixture.timeOut(second);
    QCOMPARE(fixture.decisions(), QStringList{retry});
    const Board *const boards[] = {first, second};
    for (const Board *board : boards) {
        QCOMPARE(fixture.state(board), PortState::AwaitingReply);
        QCOMPARE(fixture.replyTimer(board)->interval(), 400);
        QVERIFY(fixture.replyTimer(board)->isSingleShot());
    }
    QCOMPARE(fixture.port(first), port); // still the first QSerialPort object, so the port was not opened again
    QVERIFY(port->isOpen());
}

void TestInitializerRetries::boardThatIgnoresTheFirstQueriesIsFoundInARetryRound()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("BoardC,ignore=2");
    fixture.probe({JwDevice::BoardC});
    QTRY_VERIFY(fixture.isOver());
    QCOMPARE(fixture.decisions(), QStringList({retry, retry, QStringLiteral("deviceInitialized BoardC"), over}));
    QCOMPARE(received(board), informationRequest.repeated(3));
}

void TestInitializerRetries::portThatDidNotOpenIsNotTriedAgain()
{
    ProbeFixture fixture;
    const Board *const denied = fixture.attach("silent,open=denied");
    fixture.attach("silent");
    fixture.initializer->setMaxRetries(1);
    fixture.probe(boardA);
    endRounds(fixture, 2);
    QVERIFY(fixture.isOver());
    QCOMPARE(fixture.timeline.filter(denied->portName()).size(), 1);
}

void TestInitializerRetries::retriesSpentOnOneProbeAreMissingInTheNext()
{
    ProbeFixture fixture;
    fixture.attach("silent");
    fixture.initializer->setMaxRetries(1);
    fixture.probe(boardA);
    endRounds(fixture, 1);
    QCOMPARE(fixture.decisions(), QStringList{retry});
    const Board *const other = fixture.attach("silent");
    QVERIFY(fixture.initializer->probe({JwDevice::BoardB}, 0, {other->portName()}));
    fixture.endReplyTimers();
    QTRY_COMPARE(fixture.decisions(), QStringList({retry, missingB, over}));
}

void TestInitializerRetries::raisedMaximumGivesALaterProbeRetriesAgain()
{
    ProbeFixture fixture;
    fixture.attach("silent");
    fixture.initializer->setMaxRetries(1);
    fixture.probe(boardA);
    endRounds(fixture, 1);
    const Board *const other = fixture.attach("silent");
    QVERIFY(fixture.initializer->probe({JwDevice::BoardB}, 0, {other->portName()}));
    fixture.initializer->setMaxRetries(2);
    fixture.endReplyTimers();
    QTRY_COMPARE(fixture.decisions(), QStringList({retry, retry}));
    fixture.endReplyTimers();
    QTRY_COMPARE(fixture.decisions(), QStringList({retry, retry, missingB, over}));
}

void TestInitializerRetries::noRetryRoundWhenEveryWantedTypeIsFound()
{
    ProbeFixture fixture;
    const Board *const silent = fixture.attach("silent");
    const Board *const board = fixture.attach("BoardA");
    fixture.probe(boardA);
    QTRY_COMPARE(fixture.state(board), PortState::HandedOver);
    fixture.timeOut(silent);
    QCOMPARE(fixture.decisions(), QStringList({foundA, over}));
    QVERIFY(fixture.port(silent)->isOpen());
}

void TestInitializerRetries::retryRoundsThatNobodyCanAnswerEndInTheReportOfTheMissingType()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    QStringList seenInReceiver;
    QObject::connect(fixture.initializer, &Initializer::deviceInitialized,
                     [&] { seenInReceiver = fixture.decisions(); });
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
    QTRY_VERIFY(fixture.isOver());
    QCOMPARE(seenInReceiver, QStringList{foundA});
    QCOMPARE(fixture.decisions(), QStringList({foundA, retry, retry, retry, missingB, over}));
    QCOMPARE(received(board), versionQuery);
    QVERIFY(!fixture.isTimerActive());
}

void TestInitializerRetries::roundThatNobodyCanAnswerIsDecidedByTheEventLoop()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.initializer->setMaxRetries(2);
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
    fixture.store(board, {versionReply("7300022")});
    fixture.initializer->boardReadyRead(fixture.comm(board));
    QCOMPARE(fixture.decisions(), QStringList({foundA, retry}));
    QTRY_COMPARE(fixture.decisions(), QStringList({foundA, retry, retry, missingB, over}));
}

void TestInitializerRetries::boardPluggedInBetweenRoundsThatNobodyCanAnswerIsFoundByAnotherProbe()
{
    ProbeFixture fixture;
    const Board *const first = fixture.attach("BoardA");
    const Board *second = nullptr;
    QObject::connect(fixture.initializer, &Initializer::deviceInitialized, [&](Type type) {
        if (type != JwDevice::BoardA)
            return;
        second = fixture.attach("BoardB");
        QVERIFY(fixture.initializer->probe({JwDevice::BoardA, JwDevice::BoardB}, 0, {second->portName()}));
    });
    QVERIFY(fixture.initializer->probe({JwDevice::BoardA, JwDevice::BoardB}, 0, {first->portName()}));
    QTRY_VERIFY(fixture.isOver());
    QCOMPARE(fixture.decisions(), QStringList({foundA, foundB, over}));
}

SIMULATED_PORTS_MAIN(TestInitializerRetries)
#include "tst_initializer_retries.moc"

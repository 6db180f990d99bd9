#include "support/probebench.h"
#include "support/simulatedportsmain.h"
#include "support/timelinetexts.h"

#include <QTest>
#include <QTimer>

#include <limits>

using JwDevice::Communicator;
using JwDevice::Initializer;
using JwDevice::Type;
using JwSimulator::Board;

namespace {

const TypeList boardA = {JwDevice::BoardA};

/// Lets one round after the other end at once until the probe is over, or `mostRounds` have ended.
void endRounds(ProbeBench &bench, int mostRounds)
{
    for (int round = 0; round < mostRounds && !bench.isOver(); ++round) {
        bench.endReplyTimers();
        QTRY_VERIFY(bench.isOver() || bench.timeline.count(retry) == round + 1);
    }
}

} // namespace

class InitializerRetriesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void missingTypeIsReportedAfterThreeRetryRoundsOfRealTime()
    {
        ProbeBench bench;
        const Board *const silent = bench.attach("silent");
        const Board *const found = bench.attach("BoardB");
        bench.probe({JwDevice::BoardA, JwDevice::BoardB});
        QTRY_VERIFY(bench.isOver());
        const QString timeout = QStringLiteral("Read timeout for:  ") + quoted(silent->portName());
        const int first = bench.timeline.indexOf(foundB);
        QCOMPARE(bench.timeline.mid(first),
                 QStringList({foundB, timeout, retry, timeout, retry, timeout, retry, timeout, missingA, over}));
        QCOMPARE(received(silent), versionQuery.repeated(4));
        QCOMPARE(received(found), versionQuery); // handed over: not asked again
    }

    void retryRoundIsLoggedAsAWarning()
    {
        ProbeBench bench;
        bench.attach("silent");
        bench.initializer->setMaxRetries(1);
        bench.probe(boardA);
        endRounds(bench, 2);
        const auto records = bench.log.sink->withText(retry);
        QCOMPARE(records.size(), 1);
        QCOMPARE(records.first().level, Logger::Warning);
        QCOMPARE(records.first().category, QByteArray());
        QCOMPARE(records.first().file, QByteArray("initializer.cpp"));
        QVERIFY2(records.first().function.contains("Initializer::retryProbe("), records.first().function);
    }

    void maximumSaysHowManyRetryRoundsThereAre_data()
    {
        QTest::addColumn<uint>("maximum");
        QTest::newRow("0") << 0U;
        QTest::newRow("1") << 1U;
        QTest::newRow("3") << 3U;
        QTest::newRow("5") << 5U;
    }
    void maximumSaysHowManyRetryRoundsThereAre()
    {
        QFETCH(uint, maximum);
        ProbeBench bench;
        const Board *const board = bench.attach("silent");
        bench.initializer->setMaxRetries(maximum);
        bench.probe(boardA);
        endRounds(bench, 10);
        const int rounds = static_cast<int>(maximum);
        QStringList expected;
        for (int round = 0; round < rounds; ++round)
            expected << retry;
        QCOMPARE(bench.decisions(), expected + QStringList({missingA, over}));
        QTRY_COMPARE(received(board), versionQuery.repeated(rounds + 1));
    }

    void foundBoardAndNoRetriesReportTheMissingTypeAfterTheFirstTimeout()
    {
        ProbeBench bench;
        const Board *const silent = bench.attach("silent");
        const Board *const board = bench.attach("BoardB");
        bench.initializer->setMaxRetries(0);
        bench.probe({JwDevice::BoardA, JwDevice::BoardB});
        QTRY_COMPARE(bench.state(board), PortState::HandedOver);
        bench.timeOut(silent);
        QCOMPARE(bench.decisions(), QStringList({foundB, missingA, over}));
    }

    void largestMaximumGoesOnAskingUntilTheBoardAnswers()
    {
        ProbeBench bench;
        bench.attach("BoardA,ignore=12");
        bench.initializer->setMaxRetries(std::numeric_limits<uint>::max());
        bench.probe(boardA);
        for (int round = 0; round < 12; ++round) {
            QTRY_COMPARE(received(bench.testbed.boards().first()), versionQuery.repeated(round + 1));
            bench.endReplyTimers();
            QTRY_COMPARE(bench.timeline.count(retry), round + 1);
        }
        QTRY_VERIFY(bench.isOver());
        QCOMPARE(bench.decisions().mid(12), QStringList({foundA, over}));
    }

    void maximumRaisedDuringAProbeCountsAtTheNextDecision()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("silent");
        bench.initializer->setMaxRetries(0);
        bench.probe(boardA);
        bench.initializer->setMaxRetries(1);
        bench.timeOut(board);
        QCOMPARE(bench.decisions(), QStringList{retry});
    }

    void maximumLoweredDuringAProbeCountsAtTheNextDecision()
    {
        ProbeBench bench;
        bench.attach("silent");
        bench.probe(boardA);
        endRounds(bench, 2);
        QCOMPARE(bench.decisions(), QStringList({retry, retry}));
        bench.initializer->setMaxRetries(1); // fewer than are spent
        endRounds(bench, 1);
        QCOMPARE(bench.decisions(), QStringList({retry, retry, missingA, over}));
    }

    void retryRoundMakesATimedOutPortAwaitItsReplyAgain()
    {
        ProbeBench bench;
        const Board *const first = bench.attach("silent");
        const Board *const second = bench.attach("silent");
        bench.probe(boardA);
        const QSerialPort *const port = bench.port(first);
        bench.timeOut(first);
        QCOMPARE(bench.state(first), PortState::TimedOut);
        bench.timeOut(second);
        QCOMPARE(bench.decisions(), QStringList{retry});
        const Board *const boards[] = {first, second};
        for (const Board *board : boards) {
            QCOMPARE(bench.state(board), PortState::AwaitingReply);
            QCOMPARE(bench.replyTimer(board)->interval(), 400);
            QVERIFY(bench.replyTimer(board)->isSingleShot());
        }
        QCOMPARE(bench.port(first), port); // neither closed nor opened anew
        QVERIFY(port->isOpen());
    }

    void boardThatIgnoresTheFirstQueriesIsFoundInARetryRound()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("BoardC,ignore=2");
        bench.probe({JwDevice::BoardC});
        QTRY_VERIFY(bench.isOver());
        QCOMPARE(bench.decisions(), QStringList({retry, retry, QStringLiteral("deviceInitialized BoardC"), over}));
        QCOMPARE(received(board), informationRequest.repeated(3));
    }

    void portThatDidNotOpenIsNotTriedAgain()
    {
        ProbeBench bench;
        const Board *const denied = bench.attach("silent,open=denied");
        bench.attach("silent");
        bench.initializer->setMaxRetries(1);
        bench.probe(boardA);
        endRounds(bench, 2);
        QVERIFY(bench.isOver());
        QCOMPARE(bench.timeline.filter(denied->portName()).size(), 1);
    }

    void retriesSpentOnOneProbeAreMissingInTheNext()
    {
        ProbeBench bench;
        bench.attach("silent");
        bench.initializer->setMaxRetries(1);
        bench.probe(boardA);
        endRounds(bench, 1);
        QCOMPARE(bench.decisions(), QStringList{retry});
        const Board *const other = bench.attach("silent");
        QVERIFY(bench.initializer->probe({JwDevice::BoardB}, 0, {other->portName()}));
        bench.endReplyTimers();
        QTRY_COMPARE(bench.decisions(), QStringList({retry, missingB, over}));
    }

    void raisedMaximumGivesALaterProbeRetriesAgain()
    {
        ProbeBench bench;
        bench.attach("silent");
        bench.initializer->setMaxRetries(1);
        bench.probe(boardA);
        endRounds(bench, 1);
        const Board *const other = bench.attach("silent");
        QVERIFY(bench.initializer->probe({JwDevice::BoardB}, 0, {other->portName()}));
        bench.initializer->setMaxRetries(2);
        bench.endReplyTimers();
        QTRY_COMPARE(bench.decisions(), QStringList({retry, retry}));
        bench.endReplyTimers();
        QTRY_COMPARE(bench.decisions(), QStringList({retry, retry, missingB, over}));
    }

    void noRetryRoundWhenEveryWantedTypeIsFound()
    {
        ProbeBench bench;
        const Board *const silent = bench.attach("silent");
        const Board *const board = bench.attach("BoardA");
        bench.probe(boardA);
        QTRY_COMPARE(bench.state(board), PortState::HandedOver);
        bench.timeOut(silent);
        QCOMPARE(bench.decisions(), QStringList({foundA, over}));
        QVERIFY(bench.port(silent)->isOpen());
    }

    void retryRoundsThatNobodyCanAnswerEndInTheReportOfTheMissingType()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("BoardA");
        QStringList seenInReceiver;
        QObject::connect(bench.initializer, &Initializer::deviceInitialized,
                         [&] { seenInReceiver = bench.decisions(); });
        bench.probe({JwDevice::BoardA, JwDevice::BoardB});
        QTRY_VERIFY(bench.isOver());
        QCOMPARE(seenInReceiver, QStringList{foundA});
        QCOMPARE(bench.decisions(), QStringList({foundA, retry, retry, retry, missingB, over}));
        QCOMPARE(received(board), versionQuery);
        QVERIFY(!bench.isTimerActive());
    }

    void roundThatNobodyCanAnswerIsDecidedByTheEventLoop()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.initializer->setMaxRetries(2);
        bench.probe({JwDevice::BoardA, JwDevice::BoardB});
        bench.store(board, {versionReply("7300022")});
        bench.initializer->boardReadyRead(bench.comm(board));
        QCOMPARE(bench.decisions(), QStringList({foundA, retry}));
        QTRY_COMPARE(bench.decisions(), QStringList({foundA, retry, retry, missingB, over}));
    }

    void boardPluggedInBetweenRoundsThatNobodyCanAnswerIsFoundByAnotherProbe()
    {
        ProbeBench bench;
        const Board *const first = bench.attach("BoardA");
        const Board *second = nullptr;
        QObject::connect(bench.initializer, &Initializer::deviceInitialized, [&](Type type) {
            if (type != JwDevice::BoardA)
                return;
            second = bench.attach("BoardB");
            QVERIFY(bench.initializer->probe({JwDevice::BoardA, JwDevice::BoardB}, 0, {second->portName()}));
        });
        QVERIFY(bench.initializer->probe({JwDevice::BoardA, JwDevice::BoardB}, 0, {first->portName()}));
        QTRY_VERIFY(bench.isOver());
        QCOMPARE(bench.decisions(), QStringList({foundA, foundB, over}));
    }
};

SIMULATED_PORTS_MAIN(InitializerRetriesTest)
#include "tst_initializer_retries.moc"

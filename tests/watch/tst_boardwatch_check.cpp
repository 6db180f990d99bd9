#include "support/common/eventloop.h"
#include "support/common/simulatedportsmain.h"
#include "support/watch/sleepyboard.h"

#include <device/boardrules.h>

#include <QElapsedTimer>
#include <QTest>

using JwDevice::PortReport;
using JwSimulator::Board;

namespace {

const QString found1 = QStringLiteral("found SIM1:1.0");
const QString back1 = QStringLiteral("back SIM1:1.0");
const QString noAnswer1 = QStringLiteral("lost SIM1:1.0 noAnswer");

} // namespace

class TestBoardWatchCheck : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void checkIsOffByDefault();
    void silentBoardIsAskedAfterEachInterval();
    void silentBoardIsLostWhenItDoesNotAnswerInTheReplyTime();
    void boardThatSendsIsNotAsked();
    void anyBytesCountAsAnAnswer();
    void lostBoardIsAskedUntilItAnswers();
    void answersReachTheApplication();
    void checkBoardsAsksEveryBoardOnce();
    void checkBoardsAsksWithTheQueryOfTheType_data();
    void checkBoardsAsksWithTheQueryOfTheType();
    void checkBoardsWithinACheckAsksOnce();
    void blockedEventLoopLosesNoBoardThatAnswered();
};

void TestBoardWatchCheck::checkIsOffByDefault()
{
    WatchFixture fixture;
    const SleepyBoard sleepy(fixture);
    QCOMPARE(fixture.watch->checkInterval(), 0);
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{found1});
    settle();
    QCOMPARE(sleepy.queries, 1);
    QVERIFY(fixture.isAtRest());
}

void TestBoardWatchCheck::silentBoardIsAskedAfterEachInterval()
{
    WatchFixture fixture;
    const SleepyBoard sleepy(fixture);
    fixture.watch->setCheckInterval(100);
    QCOMPARE(fixture.watch->checkInterval(), 100);
    QElapsedTimer clock;
    clock.start();
    fixture.watch->start();
    QTRY_COMPARE(sleepy.queries, 4);
    QVERIFY2(clock.elapsed() >= 3 * 100 - 3, QByteArray::number(clock.elapsed()));
    QCOMPARE(fixture.timeline, QStringList{found1});
}

void TestBoardWatchCheck::silentBoardIsLostWhenItDoesNotAnswerInTheReplyTime()
{
    WatchFixture fixture;
    SleepyBoard sleepy(fixture);
    fixture.watch->setMaxRetries(0);
    constexpr int interval = 100;
    fixture.watch->setCheckInterval(interval);
    QElapsedTimer clock;
    // Measures from the last answer on: the watch cannot receive it before this slot returns.
    QObject::connect(sleepy.board, &Board::sentenceReceived, sleepy.board, [&] {
        if (sleepy.queries == 2) { // the query of the probe and the query of the first check
            sleepy.isAwake = false;
            clock.start();
        }
    });
    fixture.watch->start();
    qint64 elapsed = 0;
    fixture.onLost = [&](const JwDevice::Board &board) {
        elapsed = clock.elapsed();
        QCOMPARE(board.loss, JwDevice::Board::NoAnswer);
    };
    QTRY_COMPARE(fixture.timeline, QStringList({found1, noAnswer1}));
    QVERIFY2(elapsed >= interval + JwDevice::replyTime - 20, QByteArray::number(elapsed));
    QVERIFY(sleepy.board->isPlugged());
    QCOMPARE(fixture.report(sleepy.board).verdict, PortReport::TimedOut);
}

void TestBoardWatchCheck::boardThatSendsIsNotAsked()
{
    WatchFixture fixture;
    const SleepyBoard sleepy(fixture);
    fixture.watch->setCheckInterval(300);
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{found1});
    QTimer sender;
    int sent = 0;
    QObject::connect(&sender, &QTimer::timeout, &sender, [&] {
        ++sent;
        sleepy.board->send("$DATA*00\r\n");
    });
    sender.start(20);
    QTRY_VERIFY(sent >= 60);
    QCOMPARE(sleepy.queries, 1);
    sender.stop();
    QTRY_COMPARE(sleepy.queries, 2);
}

void TestBoardWatchCheck::anyBytesCountAsAnAnswer()
{
    WatchFixture fixture;
    SleepyBoard sleepy(fixture);
    fixture.watch->setCheckInterval(50);
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{found1});
    sleepy.isAwake = false;
    QObject::connect(sleepy.board, &Board::sentenceReceived, sleepy.board, [&] { sleepy.board->send("x"); });
    const int before = sleepy.queries;
    QTRY_VERIFY(sleepy.queries >= before + 12); // 12 checks take longer than the reply time
    QCOMPARE(fixture.timeline, QStringList{found1});
}

void TestBoardWatchCheck::lostBoardIsAskedUntilItAnswers()
{
    WatchFixture fixture;
    SleepyBoard sleepy(fixture);
    fixture.watch->setMaxRetries(0);
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{found1});
    sleepy.isAwake = false;
    fixture.watch->checkBoards();
    QTRY_COMPARE(fixture.timeline, QStringList({found1, noAnswer1}));
    QTRY_VERIFY(fixture.attempts(sleepy.board) >= 3); // two more probes that find nothing
    sleepy.isAwake = true;
    QTRY_COMPARE(fixture.timeline, QStringList({found1, noAnswer1, back1}));
    settle();
    QVERIFY(fixture.isAtRest());
}

void TestBoardWatchCheck::answersReachTheApplication()
{
    WatchFixture fixture;
    fixture.attach("BoardA");
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{found1});
    QStringList payloads;
    JwDevice::Communicator *const communicator = fixture.watch->boards().first().communicator;
    QObject::connect(communicator, qOverload<uint>(&JwDevice::Communicator::readyRead), communicator, [&](uint id) {
        payloads.append(QString());
        communicator->readPayload(payloads.last(), id);
    });
    fixture.watch->checkBoards();
    QTRY_COMPARE(payloads.size(), 1);
    QVERIFY(payloads.first().startsWith(QStringLiteral("$PJWVER,7300022,")));
}

void TestBoardWatchCheck::checkBoardsAsksEveryBoardOnce()
{
    WatchFixture fixture;
    SleepyBoard first(fixture);
    SleepyBoard second(fixture);
    fixture.watch->setMaxRetries(0);
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline.size(), 2);
    second.isAwake = false;
    fixture.watch->checkBoards();
    QTRY_COMPARE(fixture.timeline.size(), 3);
    QCOMPARE(fixture.timeline.last(), QStringLiteral("lost SIM2:1.0 noAnswer"));
    QCOMPARE(first.queries, 2);
    second.isAwake = true;
    QTRY_COMPARE(fixture.watch->boards().size(), 2);
    QVERIFY(fixture.isAtRest());
    fixture.watch->stop();
    fixture.watch->checkBoards();
    settle();
    QCOMPARE(first.queries, 2);
}

void TestBoardWatchCheck::checkBoardsAsksWithTheQueryOfTheType_data()
{
    QTest::addColumn<QByteArray>("kind");
    QTest::addColumn<QByteArray>("query");
    QTest::newRow("BoardA") << QByteArray("BoardA") << versionQuery;
    QTest::newRow("BoardB") << QByteArray("BoardB") << versionQuery;
    QTest::newRow("BoardC") << QByteArray("BoardC") << informationRequest;
}

void TestBoardWatchCheck::checkBoardsAsksWithTheQueryOfTheType()
{
    QFETCH(QByteArray, kind);
    QFETCH(QByteArray, query);
    WatchFixture fixture;
    const Board *const board = fixture.attach(kind);
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{found1});
    settle();
    const auto before = received(board).size();
    fixture.watch->checkBoards();
    QTRY_COMPARE(received(board).mid(before), query);
}

void TestBoardWatchCheck::checkBoardsWithinACheckAsksOnce()
{
    WatchFixture fixture;
    SleepyBoard sleepy(fixture);
    fixture.watch->setMaxRetries(0);
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{found1});
    sleepy.isAwake = false;
    fixture.watch->checkBoards();
    fixture.watch->checkBoards();
    QTRY_COMPARE(sleepy.queries, 2);
    fixture.watch->checkBoards();
    QTRY_COMPARE(fixture.timeline, QStringList({found1, noAnswer1}));
    QCOMPARE(sleepy.queries, 2);
}

void TestBoardWatchCheck::blockedEventLoopLosesNoBoardThatAnswered()
{
    WatchFixture fixture;
    SleepyBoard sleepy(fixture);
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{found1});
    const int before = sleepy.queries;
    // This timer is always due. So after the block below, the event loop first handles all timers that are due, and
    // only then looks for new bytes.
    QTimer busy;
    busy.start(0);
    fixture.watch->checkBoards();
    // The application does not return to its event loop from the moment when the board answers until the reply time is
    // over.
    bool isBlocked = false;
    QObject::connect(sleepy.board, &Board::sent, sleepy.board, [&] {
        if (std::exchange(isBlocked, true))
            return;
        QElapsedTimer clock;
        clock.start();
        while (!clock.hasExpired(JwDevice::replyTime + 100)) { }
    });
    QTRY_VERIFY(isBlocked);
    QCOMPARE(sleepy.queries, before + 1);
    settle();
    QCOMPARE(fixture.timeline, QStringList{found1});
}

SIMULATED_PORTS_MAIN(TestBoardWatchCheck)
#include "tst_boardwatch_check.moc"

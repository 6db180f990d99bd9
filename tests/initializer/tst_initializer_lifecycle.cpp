#include "support/initializer/probefixture.h"
#include "support/common/simulatedportsmain.h"
#include "support/initializer/timelinetexts.h"

#include <QSignalMapper>
#include <QTest>
#include <QTimer>

using JwDevice::Communicator;
using JwDevice::Initializer;
using JwDevice::Type;
using JwSimulator::Board;

namespace {

/// Returns whether nobody has the port open. To find out, opens the port.
bool isFree(const Board *board)
{
    QSerialPort port(board->portName());
    return port.open(QIODevice::ReadWrite);
}

/// The objects of one probed port. After the Initializer is deleted, tests check whether these objects still exist.
struct Probed
{
    Probed(const ProbeFixture &fixture, const Board *board)
        : comm(fixture.comm(board))
        , port(fixture.port(board))
        , timer(fixture.replyTimer(board))
    {
    }
    bool isThere() const { return comm && port && timer; }
    bool isGone() const { return !comm && !port && !timer; }

    QPointer<Communicator> comm;
    QPointer<QSerialPort> port;
    QPointer<QTimer> timer;
};

void deleteAndCheckTheLog(ProbeFixture &fixture)
{
    const QStringList before = fixture.timeline;
    delete fixture.initializer;
    QCOMPARE(fixture.timeline, before + QStringList{deleted}); // only the record of the deletion, and no signal
    settle();
    QCOMPARE(fixture.timeline.size(), before.size() + 1);
}

} // namespace

class TestInitializerLifecycle : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void newInitializerHasTwoMappersAndASingleShotTimerAndDoesNothing();
    void initializerBelongsToItsParent();
    void deletionIsLoggedAsATrace();
    void deletedIdle();
    void deletedAfterAProbeWithoutAPort();
    void deletedWhileTheDelayRunsOpensNoPort();
    void deletedRightAfterProbeClosesEveryPort();
    void deletedInEachStateOfAPort_data();
    void deletedInEachStateOfAPort();
    void deletedInARetryRound();
    void deletedWhileARoundThatNobodyCanAnswerIsUnderWay();
    void deletedAfterTheEndOfTheProbe();
    void deletedAfterTheCableWasPulled();
    void deletedAfterTheCableWasPulledAndBeforeTheErrorIsSeen();
    void deletedAfterTheApplicationDeletedWhatItWasHanded();
    void deletedBeforeTheApplicationUsesWhatItWasHanded();
    void newInitializerFindsThePortsThatTheFormerOneClosed();
};

void TestInitializerLifecycle::newInitializerHasTwoMappersAndASingleShotTimerAndDoesNothing()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    QCOMPARE(fixture.initializer->findChildren<QSignalMapper *>().size(), 2);
    const auto timers = fixture.initializer->findChildren<QTimer *>();
    QCOMPARE(timers.size(), 1);
    QVERIFY(timers.first()->isSingleShot());
    QVERIFY(!timers.first()->isActive());
    QVERIFY(fixture.timeline.isEmpty());
    QVERIFY(isFree(board));
}

void TestInitializerLifecycle::initializerBelongsToItsParent()
{
    LogCapture log;
    auto *parent = new QObject;
    QPointer<Initializer> initializer = new Initializer(parent);
    QCOMPARE(initializer->parent(), parent);
    delete parent;
    QVERIFY(!initializer);
    QCOMPARE(log.sink->withText(deleted).size(), 1);
}

void TestInitializerLifecycle::deletionIsLoggedAsATrace()
{
    LogCapture log;
    delete new Initializer;
    QCOMPARE(log.sink->records.size(), 1);
    const LogRecord record = log.sink->records.first();
    QCOMPARE(record.text, deleted);
    QCOMPARE(record.level, Logger::Trace);
    QCOMPARE(record.category, QByteArray());
    QCOMPARE(record.file, QByteArray("initializer.cpp"));
    QVERIFY2(record.function.contains("~Initializer("), record.function);
}

void TestInitializerLifecycle::deletedIdle()
{
    ProbeFixture fixture;
    deleteAndCheckTheLog(fixture);
}

void TestInitializerLifecycle::deletedAfterAProbeWithoutAPort()
{
    ProbeFixture fixture;
    QVERIFY(fixture.initializer->probe({JwDevice::BoardA}));
    deleteAndCheckTheLog(fixture);
}

void TestInitializerLifecycle::deletedWhileTheDelayRunsOpensNoPort()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("BoardC");
    QVERIFY(fixture.initializer->probe({JwDevice::BoardC}, 1));
    deleteAndCheckTheLog(fixture);
    QVERIFY(isFree(board));
    QVERIFY(received(board).isEmpty());
}

void TestInitializerLifecycle::deletedRightAfterProbeClosesEveryPort()
{
    ProbeFixture fixture;
    QVector<Probed> probed;
    fixture.attach("silent");
    fixture.attach("BoardA");
    fixture.attach("silent,open=busy");
    fixture.probe({JwDevice::BoardA});
    for (int i = 0; i < 2; ++i)
        probed << Probed(fixture, fixture.testbed.boards().at(i));
    deleteAndCheckTheLog(fixture);
    for (int i = 0; i < 2; ++i) {
        QVERIFY(probed.at(i).isGone());
        QVERIFY(isFree(fixture.testbed.boards().at(i)));
    }
}

void TestInitializerLifecycle::deletedInEachStateOfAPort_data()
{
    QTest::addColumn<PortState>("state");
    QTest::newRow("awaiting reply") << PortState::AwaitingReply;
    QTest::newRow("timed out") << PortState::TimedOut;
    QTest::newRow("silenced") << PortState::Silenced;
    QTest::newRow("duplicate") << PortState::Duplicate;
}

void TestInitializerLifecycle::deletedInEachStateOfAPort()
{
    QFETCH(PortState, state);
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    Board *const found = fixture.attach("BoardA");
    const Board *const other = fixture.attach("silent");
    fixture.probe({JwDevice::BoardA});
    QTRY_COMPARE(fixture.state(found), PortState::HandedOver);
    if (state == PortState::TimedOut)
        fixture.timeOut(board);
    else if (state == PortState::Silenced)
        QVERIFY(board->send(versionReply("7300021")));
    else if (state == PortState::Duplicate)
        QVERIFY(board->send(versionReply("7300022")));
    QTRY_COMPARE(fixture.state(board), state);
    QCOMPARE(fixture.state(other), PortState::AwaitingReply); // so the probe is not over

    const Probed probed(fixture, board);
    QPointer<QTimer> timer = replyTimers(*fixture.initializer).value(fixture.handOver(found).comm);
    QVERIFY(probed.isThere() && timer);
    deleteAndCheckTheLog(fixture);
    QVERIFY(probed.isGone());
    QVERIFY(isFree(board));
    QVERIFY(!timer); // the Initializer also deletes the timer of a handed-over port
    QVERIFY(fixture.handOver(found).comm && fixture.handOver(found).port->isOpen());
}

void TestInitializerLifecycle::deletedInARetryRound()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("silent");
    fixture.probe({JwDevice::BoardA});
    fixture.timeOut(board);
    QVERIFY(fixture.timeline.contains(QStringLiteral("Retry probing")));
    const Probed probed(fixture, board);
    deleteAndCheckTheLog(fixture);
    QVERIFY(probed.isGone());
    QVERIFY(isFree(board));
}

void TestInitializerLifecycle::deletedWhileARoundThatNobodyCanAnswerIsUnderWay()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
    fixture.onRecord = [&](const LogRecord &record) {
        if (record.text == QLatin1String("Retry probing"))
            fixture.initializer->deleteLater();
    };
    QVERIFY(board->send(versionReply("7300022")));
    QTRY_VERIFY(!fixture.initializer);
    fixture.onRecord = nullptr;
    settle();
    QCOMPARE(fixture.decisions(),
             QStringList({QStringLiteral("deviceInitialized BoardA"), QStringLiteral("Retry probing")}));
    QVERIFY(fixture.handOver(board).port->isOpen());
}

void TestInitializerLifecycle::deletedAfterTheEndOfTheProbe()
{
    ProbeFixture fixture;
    const Board *const silent = fixture.attach("silent");
    Board *const found = fixture.attach("BoardA");
    fixture.probe({JwDevice::BoardA});
    QTRY_VERIFY(fixture.isOver());
    QVERIFY(fixture.port(silent)->isOpen());
    const Probed probed(fixture, silent);
    deleteAndCheckTheLog(fixture);
    QVERIFY(probed.isGone());
    QVERIFY(isFree(silent));
    QVERIFY(fixture.handOver(found).comm && fixture.handOver(found).port->isOpen());
}

void TestInitializerLifecycle::deletedAfterTheCableWasPulled()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.probe({JwDevice::BoardA});
    board->pull();
    QTRY_VERIFY(!fixture.port(board)->isOpen());
    const Probed probed(fixture, board);
    deleteAndCheckTheLog(fixture);
    QVERIFY(probed.isGone());
}

void TestInitializerLifecycle::deletedAfterTheCableWasPulledAndBeforeTheErrorIsSeen()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.probe({JwDevice::BoardA});
    board->pull();
    const Probed probed(fixture, board);
    deleteAndCheckTheLog(fixture);
    QVERIFY(probed.isGone());
}

void TestInitializerLifecycle::deletedAfterTheApplicationDeletedWhatItWasHanded()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    fixture.attach("silent");
    fixture.probe({JwDevice::BoardA});
    QTRY_COMPARE(fixture.state(board), PortState::HandedOver);
    const ProbeFixture::HandOver taken = fixture.handOver(board);
    delete taken.comm;
    delete taken.port;
    deleteAndCheckTheLog(fixture);
    QVERIFY(isFree(board));
}

void TestInitializerLifecycle::deletedBeforeTheApplicationUsesWhatItWasHanded()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("BoardA");
    fixture.attach("silent");
    fixture.probe({JwDevice::BoardA});
    QTRY_COMPARE(fixture.state(board), PortState::HandedOver);
    deleteAndCheckTheLog(fixture);
    fixture.handOver(board).comm->writePayload(QStringLiteral("$PTEST\r\n"));
    QTRY_VERIFY(received(board).endsWith("$PTEST\r\n"));
}

void TestInitializerLifecycle::newInitializerFindsThePortsThatTheFormerOneClosed()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    fixture.initializer->setMaxRetries(0);
    fixture.probe({JwDevice::BoardC});
    QTRY_VERIFY(fixture.isOver());
    fixture.renew();
    fixture.probe({JwDevice::BoardA});
    QTRY_COMPARE(fixture.handOver(board).type, JwDevice::BoardA);
}

SIMULATED_PORTS_MAIN(TestInitializerLifecycle)
#include "tst_initializer_lifecycle.moc"

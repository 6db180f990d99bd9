#include "support/probebench.h"
#include "support/simulatedportsmain.h"
#include "support/timelinetexts.h"

#include <QSignalMapper>
#include <QTest>
#include <QTimer>

using JwDevice::Communicator;
using JwDevice::Initializer;
using JwDevice::Type;
using JwSimulator::Board;

namespace {

/// Whether somebody else can have the port now.
bool isFree(const Board *board)
{
    QSerialPort port(board->portName());
    return port.open(QIODevice::ReadWrite);
}

/// The probed objects of one port, to be looked at when the Initializer is gone.
struct Probed
{
    Probed(const ProbeBench &bench, const Board *board)
        : comm(bench.comm(board))
        , port(bench.port(board))
        , timer(bench.replyTimer(board))
    {
    }
    bool isThere() const { return comm && port && timer; }
    bool isGone() const { return !comm && !port && !timer; }

    QPointer<Communicator> comm;
    QPointer<QSerialPort> port;
    QPointer<QTimer> timer;
};

void deleteAndCheckTheLog(ProbeBench &bench)
{
    const QStringList before = bench.timeline;
    delete bench.initializer;
    QCOMPARE(bench.timeline, before + QStringList{deleted}); // and no signal
    settle();
    QCOMPARE(bench.timeline.size(), before.size() + 1);
}

} // namespace

class InitializerLifecycleTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void newInitializerHasTwoMappersAndASingleShotTimerAndDoesNothing()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("BoardA");
        QCOMPARE(bench.initializer->findChildren<QSignalMapper *>().size(), 2);
        const auto timers = bench.initializer->findChildren<QTimer *>();
        QCOMPARE(timers.size(), 1);
        QVERIFY(timers.first()->isSingleShot());
        QVERIFY(!timers.first()->isActive());
        QVERIFY(bench.timeline.isEmpty());
        QVERIFY(isFree(board));
    }

    void initializerBelongsToItsParent()
    {
        LogCapture log;
        auto *parent = new QObject;
        QPointer<Initializer> initializer = new Initializer(parent);
        QCOMPARE(initializer->parent(), parent);
        delete parent;
        QVERIFY(!initializer);
        QCOMPARE(log.sink->withText(deleted).size(), 1);
    }

    void deletionIsLoggedAsATrace()
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

    void deletedIdle()
    {
        ProbeBench bench;
        deleteAndCheckTheLog(bench);
    }

    void deletedAfterAProbeWithoutAPort()
    {
        ProbeBench bench;
        QVERIFY(bench.initializer->probe({JwDevice::BoardA}));
        deleteAndCheckTheLog(bench);
    }

    void deletedWhileTheDelayRunsOpensNoPort()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("BoardC");
        QVERIFY(bench.initializer->probe({JwDevice::BoardC}, 1));
        deleteAndCheckTheLog(bench);
        QVERIFY(isFree(board));
        QVERIFY(received(board).isEmpty());
    }

    void deletedRightAfterProbeClosesEveryPort()
    {
        ProbeBench bench;
        QVector<Probed> probed;
        bench.attach("silent");
        bench.attach("BoardA");
        bench.attach("silent,open=busy");
        bench.probe({JwDevice::BoardA});
        for (int i = 0; i < 2; ++i)
            probed << Probed(bench, bench.testbed.boards().at(i));
        deleteAndCheckTheLog(bench);
        for (int i = 0; i < 2; ++i) {
            QVERIFY(probed.at(i).isGone());
            QVERIFY(isFree(bench.testbed.boards().at(i)));
        }
    }

    void deletedInEachStateOfAPort_data()
    {
        QTest::addColumn<PortState>("state");
        QTest::newRow("awaiting reply") << PortState::AwaitingReply;
        QTest::newRow("timed out") << PortState::TimedOut;
        QTest::newRow("silenced") << PortState::Silenced;
        QTest::newRow("duplicate") << PortState::Duplicate;
    }
    void deletedInEachStateOfAPort()
    {
        QFETCH(PortState, state);
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        Board *const found = bench.attach("BoardA");
        const Board *const other = bench.attach("silent");
        bench.probe({JwDevice::BoardA});
        QTRY_COMPARE(bench.state(found), PortState::HandedOver);
        if (state == PortState::TimedOut)
            bench.timeOut(board);
        else if (state == PortState::Silenced)
            QVERIFY(board->send(versionReply("7300021")));
        else if (state == PortState::Duplicate)
            QVERIFY(board->send(versionReply("7300022")));
        QTRY_COMPARE(bench.state(board), state);
        QCOMPARE(bench.state(other), PortState::AwaitingReply); // the probe is not over

        const Probed probed(bench, board);
        QPointer<QTimer> timer = replyTimers(*bench.initializer).value(bench.handOver(found).comm);
        QVERIFY(probed.isThere() && timer);
        deleteAndCheckTheLog(bench);
        QVERIFY(probed.isGone());
        QVERIFY(isFree(board));
        QVERIFY(!timer); // timers go with the Initializer, also that of a port handed over
        QVERIFY(bench.handOver(found).comm && bench.handOver(found).port->isOpen());
    }

    void deletedInARetryRound()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("silent");
        bench.probe({JwDevice::BoardA});
        bench.timeOut(board);
        QVERIFY(bench.timeline.contains(QStringLiteral("Retry probing")));
        const Probed probed(bench, board);
        deleteAndCheckTheLog(bench);
        QVERIFY(probed.isGone());
        QVERIFY(isFree(board));
    }

    void deletedWhileARoundThatNobodyCanAnswerIsUnderWay()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.probe({JwDevice::BoardA, JwDevice::BoardB});
        bench.onRecord = [&](const LogRecord &record) {
            if (record.text == QLatin1String("Retry probing"))
                bench.initializer->deleteLater();
        };
        QVERIFY(board->send(versionReply("7300022")));
        QTRY_VERIFY(!bench.initializer);
        bench.onRecord = nullptr;
        settle();
        QCOMPARE(bench.decisions(),
                 QStringList({QStringLiteral("deviceInitialized BoardA"), QStringLiteral("Retry probing")}));
        QVERIFY(bench.handOver(board).port->isOpen());
    }

    void deletedAfterTheEndOfTheProbe()
    {
        ProbeBench bench;
        const Board *const silent = bench.attach("silent");
        Board *const found = bench.attach("BoardA");
        bench.probe({JwDevice::BoardA});
        QTRY_VERIFY(bench.isOver());
        QVERIFY(bench.port(silent)->isOpen()); // open until now
        const Probed probed(bench, silent);
        deleteAndCheckTheLog(bench);
        QVERIFY(probed.isGone());
        QVERIFY(isFree(silent));
        QVERIFY(bench.handOver(found).comm && bench.handOver(found).port->isOpen());
    }

    void deletedAfterTheCableWasPulled()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.probe({JwDevice::BoardA});
        board->pull();
        QTRY_VERIFY(!bench.port(board)->isOpen());
        const Probed probed(bench, board);
        deleteAndCheckTheLog(bench);
        QVERIFY(probed.isGone());
    }

    void deletedAfterTheCableWasPulledAndBeforeTheErrorIsSeen()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.probe({JwDevice::BoardA});
        board->pull();
        const Probed probed(bench, board);
        deleteAndCheckTheLog(bench);
        QVERIFY(probed.isGone());
    }

    void deletedAfterTheApplicationDeletedWhatItWasHanded()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("BoardA");
        bench.attach("silent");
        bench.probe({JwDevice::BoardA});
        QTRY_COMPARE(bench.state(board), PortState::HandedOver);
        const ProbeBench::HandOver taken = bench.handOver(board);
        delete taken.comm;
        delete taken.port;
        deleteAndCheckTheLog(bench);
        QVERIFY(isFree(board));
    }

    void deletedBeforeTheApplicationUsesWhatItWasHanded()
    {
        ProbeBench bench;
        Board *const board = bench.attach("BoardA");
        bench.attach("silent");
        bench.probe({JwDevice::BoardA});
        QTRY_COMPARE(bench.state(board), PortState::HandedOver);
        deleteAndCheckTheLog(bench);
        bench.handOver(board).comm->writePayload(QStringLiteral("$PTEST\r\n"));
        QTRY_VERIFY(received(board).endsWith("$PTEST\r\n"));
    }

    void newInitializerFindsThePortsThatTheFormerOneClosed()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("BoardA");
        bench.initializer->setMaxRetries(0);
        bench.probe({JwDevice::BoardC});
        QTRY_VERIFY(bench.isOver());
        bench.renew();
        bench.probe({JwDevice::BoardA});
        QTRY_COMPARE(bench.handOver(board).type, JwDevice::BoardA);
    }
};

SIMULATED_PORTS_MAIN(InitializerLifecycleTest)
#include "tst_initializer_lifecycle.moc"

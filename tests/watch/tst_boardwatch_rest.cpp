#include "support/common/eventloop.h"
#include "support/common/simulatedportsmain.h"
#include "support/watch/watchfixture.h"

#include <QAbstractEventDispatcher>
#include <QEventLoop>
#include <QTest>
#include <QTimer>

#include <utility>

using JwSimulator::Board;

/// A program of its own, because umockdev can simulate only few descriptors in one process.
class TestBoardWatchRest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nothingRunsAtRest_data();
    void nothingRunsAtRest();
};

void TestBoardWatchRest::nothingRunsAtRest_data()
{
    QTest::addColumn<int>("boards");
    QTest::addColumn<int>("silent");
    QTest::newRow("no board") << 0 << 0;
    QTest::newRow("boards and silent ports") << 3 << 2;
    QTest::newRow("as many boards as the simulator can have") << JwSimulator::Testbed::maxBoards << 0;
}

void TestBoardWatchRest::nothingRunsAtRest()
{
    QFETCH(int, boards);
    QFETCH(int, silent);
    WatchFixture fixture;
    QList<const Board *> silentPorts;
    for (int i = 0; i < boards; ++i)
        fixture.attach("BoardA");
    for (int i = 0; i < silent; ++i)
        silentPorts.append(fixture.attach("silent"));
    fixture.watch->setMaxRetries(0);
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boards().size(), boards);
    for (const Board *const port : std::as_const(silentPorts))
        QTRY_COMPARE(fixture.report(port).verdict, JwDevice::PortReport::TimedOut);
    settle();
    QVERIFY(fixture.isAtRest());
    // Without an event, the event loop does not wake up: only this test's timer ends its wait.
    int awake = 0;
    QObject context;
    QObject::connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::awake, &context,
                     [&awake] { ++awake; });
    QEventLoop loop;
    QTimer::singleShot(1500, &loop, &QEventLoop::quit); // longer than the interval of any timer of the watch
    loop.exec();
    QVERIFY2(awake <= 5, QByteArray::number(awake));
}

SIMULATED_PORTS_MAIN(TestBoardWatchRest)
#include "tst_boardwatch_rest.moc"

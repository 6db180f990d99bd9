#include "support/common/simulatedportsmain.h"
#include "support/common/eventloop.h"
#include "support/watch/watchfixture.h"

#include <device/boardrules.h>

#include <QElapsedTimer>
#include <QSerialPort>
#include <QSerialPortInfo>
#include <QTest>

#include <utility>

using JwDevice::BoardWatch;
using JwDevice::PortReport;
using JwSimulator::Board;

Q_DECLARE_METATYPE(PortReport::Verdict)

class TestBoardWatchFound : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void withoutATypeNoPortIsOpened();
    void boardAtTheStart();
    void boardPluggedInLater();
    void boardPluggedInBetweenStartAndTheFirstTurnOfTheEventLoop();
    void allBoardsOfATypeAreFound();
    void boardHasWhatThePortAndTheAnswerSay();
    void otherPortsDelayNoBoardAndAreClosed_data();
    void otherPortsDelayNoBoardAndAreClosed();
    void portsReportWhyNoBoardIsThere();
    void rejectedPortIsLeftAloneUntilLookAgain();
    void rejectedPortIsAskedAgainAfterAReplug();
    void retriesAskASilentPortAgain();
    void blockedEventLoopEndsNoProbe();
    void delayComesBeforeTheProbeOfBoardC();
    void candidateRuleIsTheInitializersByDefault();
    void signalsComeFromTheEventLoopOnly();
    void settingsTakeEffectAtTheNextStart();
    void startTwiceIsStartOnce();
    void stopReportsEachBoardAndClosesThePorts();
    void stopEndsAProbe();
    void watchCanBeStartedAgain();
    void destructorClosesTheBoardsWithoutASignal();
    void portsChangedComesWithEachChange();
    void systemPortsHasAllPorts();
    void boardIdIsKnownBeforeTheBoardIsFound();
};

void TestBoardWatchFound::boardAtTheStart()
{
    WatchFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    fixture.watch->start();
    QVERIFY(fixture.watch->isStarted());
    QTRY_COMPARE(fixture.timeline, QStringList{QStringLiteral("found SIM1:1.0")});
    QCOMPARE(fixture.found(board).type, JwDevice::BoardA);
}

void TestBoardWatchFound::boardPluggedInLater()
{
    WatchFixture fixture;
    fixture.attach("BoardA");
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline.size(), 1);
    const Board *const later = fixture.attach("BoardC");
    QTRY_COMPARE(fixture.timeline.size(), 2);
    QCOMPARE(fixture.timeline.last(), QStringLiteral("found SIM2:1.0"));
    QCOMPARE(fixture.found(later).type, JwDevice::BoardC);
    QCOMPARE(fixture.watch->boards().size(), 2);
}

void TestBoardWatchFound::boardPluggedInBetweenStartAndTheFirstTurnOfTheEventLoop()
{
    WatchFixture fixture;
    Board *const replugged = fixture.attach("BoardA");
    fixture.watch->start();
    fixture.attach("BoardB");
    replugged->pull();
    QVERIFY(replugged->plug());
    QTRY_COMPARE(fixture.watch->boards().size(), 2);
    settle();
    fixture.timeline.sort();
    QCOMPARE(fixture.timeline, QStringList({QStringLiteral("found SIM1:1.0"), QStringLiteral("found SIM2:1.0")}));
}

void TestBoardWatchFound::allBoardsOfATypeAreFound()
{
    WatchFixture fixture;
    for (int i = 0; i < 5; ++i)
        fixture.attach("BoardA");
    fixture.watch->setTypes({JwDevice::BoardA});
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boards().size(), 5);
    QStringList names;
    const auto boards = fixture.watch->boards();
    for (const JwDevice::Board &board : boards)
        names << board.portName;
    QStringList sorted = names;
    std::sort(sorted.begin(), sorted.end());
    QCOMPARE(names, sorted);
}

void TestBoardWatchFound::boardHasWhatThePortAndTheAnswerSay()
{
    WatchFixture fixture;
    Board *const simulated = fixture.attach("BoardC,hwversion=4711,delay=1");
    const QDateTime before = QDateTime::currentDateTimeUtc();
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boards().size(), 1);
    const JwDevice::Board board = fixture.watch->boards().first();
    QCOMPARE(board.id, QStringLiteral("SIM1:1.0"));
    QCOMPARE(board.idBasis, JwDevice::Board::SerialNumber);
    QVERIFY(!board.sharesSerialNumber);
    QCOMPARE(board.type, JwDevice::BoardC);
    QCOMPARE(board.portName, simulated->portName());
    QCOMPARE(board.location, QStringLiteral("/dev/") + simulated->portName());
    QCOMPARE(board.place, QStringLiteral("1-01:1.0"));
    QCOMPARE(board.manufacturer, QSerialPortInfo(simulated->portName()).manufacturer());
    QCOMPARE(board.product, QStringLiteral("Simulated board"));
    QCOMPARE(board.serialNumber, QStringLiteral("SIM1"));
    QCOMPARE(board.hardwareVersion, QStringLiteral("4711"));
    QVERIFY(board.since >= before && board.since <= QDateTime::currentDateTimeUtc());
    // The connection works, from the first payload on.
    QString payload;
    QObject::connect(board.communicator, qOverload<uint>(&JwDevice::Communicator::readyRead), board.communicator,
                     [&payload, &board](uint id) { board.communicator->readPayload(payload, id); });
    QVERIFY(simulated->send("$FIRST*00\r\n"));
    QTRY_COMPARE(payload, QStringLiteral("$FIRST*00\r\n"));
    board.communicator->writePayload(QStringLiteral("$TO*00\r\n"));
    QTRY_VERIFY(received(simulated).endsWith("$TO*00\r\n"));
}

void TestBoardWatchFound::otherPortsDelayNoBoardAndAreClosed_data()
{
    QTest::addColumn<QByteArray>("other");
    QTest::addColumn<PortReport::Verdict>("verdict");
    QTest::newRow("silent") << QByteArray("silent") << PortReport::TimedOut;
    QTest::newRow("babbling") << QByteArray("babble,interval=10") << PortReport::TimedOut;
    QTest::newRow("another device") << QByteArray("other,interval=50") << PortReport::TimedOut;
    QTest::newRow("wrong checksums") << QByteArray("BoardA,checksum=wrong") << PortReport::TimedOut;
    QTest::newRow("unwanted type") << QByteArray("BoardB") << PortReport::Silenced;
    QTest::newRow("unwanted type with another query") << QByteArray("BoardC") << PortReport::TimedOut;
}

void TestBoardWatchFound::otherPortsDelayNoBoardAndAreClosed()
{
    QFETCH(QByteArray, other);
    QFETCH(PortReport::Verdict, verdict);
    WatchFixture fixture;
    QList<const Board *> others;
    for (int i = 0; i < 3; ++i)
        others << fixture.attach(other);
    const Board *const board = fixture.attach("BoardA");
    fixture.watch->setTypes({JwDevice::BoardA});
    fixture.watch->setMaxRetries(1);
    fixture.watch->start();
    // The board is found while the other ports are still asked. A watch that waits for them would find it only after
    // 800 ms.
    QTRY_COMPARE(fixture.timeline, QStringList{QStringLiteral("found SIM4:1.0")});
    for (const Board *const candidate : std::as_const(others)) {
        QVERIFY(fixture.attempts(candidate) <= 1);
        QVERIFY(!canBeOpened(candidate));
    }
    for (const Board *const candidate : std::as_const(others)) {
        QTRY_VERIFY(canBeOpened(candidate));
        QCOMPARE(fixture.report(candidate).verdict, verdict);
        QCOMPARE(fixture.attempts(candidate), 1);
    }
    QVERIFY(portOf(fixture.found(board))->isOpen());
    QCOMPARE(fixture.timeline.size(), 1);
}

void TestBoardWatchFound::portsReportWhyNoBoardIsThere()
{
    WatchFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    const Board *const silent = fixture.attach("silent");
    const Board *const denied = fixture.attach("BoardA,open=denied");
    const Board *const other = fixture.attach("BoardA,manufacturer=Somebody,vendor=1234");
    fixture.watch->setMaxRetries(0);
    fixture.watch->start();
    QTRY_COMPARE(fixture.report(board).verdict, PortReport::HandedOver);
    QCOMPARE(fixture.report(board).type, JwDevice::BoardA);
    QTRY_COMPARE(fixture.report(silent).verdict, PortReport::TimedOut);
    QTRY_COMPARE(fixture.report(denied).error, QSerialPort::PermissionError);
    QCOMPARE(fixture.report(denied).verdict, PortReport::NotOpened);
    QVERIFY(!fixture.report(denied).errorText.isEmpty());
    QCOMPARE(fixture.watch->portReports().size(), 3);
    QVERIFY(fixture.report(other).portName.isEmpty()); // the watch has no report on a port that is no candidate
}

void TestBoardWatchFound::rejectedPortIsLeftAloneUntilLookAgain()
{
    WatchFixture fixture;
    Board *const board = fixture.attach("BoardA,ignore=1");
    fixture.watch->setMaxRetries(0);
    fixture.watch->start();
    QTRY_COMPARE(fixture.report(board).verdict, PortReport::TimedOut);
    QVERIFY(fixture.isAtRest());
    // The watch leaves the port alone, also when other ports come and go.
    Board *const other = fixture.attach("BoardB");
    QTRY_COMPARE(fixture.timeline, QStringList{QStringLiteral("found SIM2:1.0")});
    other->pull();
    QTRY_COMPARE(fixture.timeline.size(), 2);
    settle();
    QCOMPARE(fixture.attempts(board), 1);
    fixture.watch->lookAgain();
    QTRY_COMPARE(fixture.timeline.last(), QStringLiteral("found SIM1:1.0"));
    QCOMPARE(fixture.attempts(board), 2);
}

void TestBoardWatchFound::rejectedPortIsAskedAgainAfterAReplug()
{
    WatchFixture fixture;
    Board *const board = fixture.attach("BoardA,ignore=1");
    fixture.watch->setMaxRetries(0);
    fixture.watch->start();
    QTRY_COMPARE(fixture.report(board).verdict, PortReport::TimedOut);
    board->pull();
    QVERIFY(board->plug());
    QTRY_COMPARE(fixture.timeline, QStringList{QStringLiteral("found SIM1:1.0")});
}

void TestBoardWatchFound::retriesAskASilentPortAgain()
{
    WatchFixture fixture;
    const Board *const board = fixture.attach("silent");
    QCOMPARE(fixture.watch->maxRetries(), 3u);
    fixture.watch->setTypes({JwDevice::BoardA});
    fixture.watch->setMaxRetries(2);
    QCOMPARE(fixture.watch->maxRetries(), 2u);
    fixture.watch->start();
    QTRY_COMPARE(fixture.report(board).verdict, PortReport::TimedOut);
    QTRY_VERIFY(canBeOpened(board));
    QCOMPARE(fixture.queries(board), 3);
}

void TestBoardWatchFound::blockedEventLoopEndsNoProbe()
{
    WatchFixture fixture;
    const Board *const board = fixture.attach("BoardA,ignore=1");
    fixture.watch->setMaxRetries(1);
    // During the first round, the application blocks its event loop for longer than all rounds of the probe take.
    bool isBlocked = false;
    QObject::connect(board, &Board::sentenceReceived, board, [&] {
        if (std::exchange(isBlocked, true))
            return;
        QElapsedTimer clock;
        clock.start();
        while (!clock.hasExpired(4 * JwDevice::replyTime)) { }
    });
    fixture.watch->start();
    QTRY_COMPARE(fixture.report(board).verdict, JwDevice::PortReport::HandedOver);
    QCOMPARE(fixture.timeline.size(), 1);
}

void TestBoardWatchFound::delayComesBeforeTheProbeOfBoardC()
{
    WatchFixture fixture;
    fixture.attach("BoardC");
    QCOMPARE(fixture.watch->delay(), 0);
    fixture.watch->setDelay(200);
    QCOMPARE(fixture.watch->delay(), 200);
    QElapsedTimer clock;
    clock.start();
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boards().size(), 1);
    QVERIFY(clock.elapsed() >= 200);
}

void TestBoardWatchFound::candidateRuleIsTheInitializersByDefault()
{
    WatchFixture fixture;
    const Board *const byVendor = fixture.attach("BoardA,manufacturer=Somebody");
    const Board *const byManufacturer = fixture.attach("BoardA,vendor=1234");
    const Board *const neither = fixture.attach("BoardA,manufacturer=Somebody,vendor=1234");
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boards().size(), 2);
    QCOMPARE(fixture.attempts(neither), 0);
    fixture.watch->stop();

    const QString name = neither->portName();
    fixture.watch->setCandidateRule([name](const QSerialPortInfo &port) { return port.portName() == name; });
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boards().size(), 1);
    QCOMPARE(fixture.watch->boards().first().portName, name);
    QCOMPARE(fixture.watch->portReports().size(), 1);
    QCOMPARE(fixture.attempts(byVendor), 1);
    QCOMPARE(fixture.attempts(byManufacturer), 1);
    fixture.watch->stop();

    fixture.watch->setCandidateRule({}); // the default again
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boards().size(), 2);
}

void TestBoardWatchFound::signalsComeFromTheEventLoopOnly()
{
    WatchFixture fixture;
    fixture.attach("BoardA");
    // An Initializer reports a denied port before its probe() returns. The watch must emit its signal later.
    fixture.attach("BoardA,open=denied");
    fixture.watch->start();
    QCOMPARE(fixture.timeline, QStringList());
    QCOMPARE(fixture.changes, 0);
    QVERIFY(fixture.watch->boards().isEmpty());
    QVERIFY(fixture.watch->portReports().isEmpty());
    QTRY_COMPARE(fixture.timeline.size(), 1);
    fixture.changes = 0;
    fixture.watch->lookAgain();
    fixture.watch->checkBoards();
    QCOMPARE(fixture.changes, 0);
    QCOMPARE(fixture.timeline.size(), 1);
}

void TestBoardWatchFound::settingsTakeEffectAtTheNextStart()
{
    WatchFixture fixture;
    QCOMPARE(fixture.watch->types(), (QList<JwDevice::Type>{JwDevice::BoardA, JwDevice::BoardB, JwDevice::BoardC}));
    fixture.watch->setTypes({JwDevice::BoardA});
    fixture.watch->start();
    // The calls of set...() below change nothing before the next start().
    fixture.watch->setTypes({JwDevice::BoardB});
    Board *const first = fixture.attach("BoardA");
    fixture.watch->setNeverOpened({first->portName()});
    fixture.watch->setCandidateRule([](const QSerialPortInfo &) { return false; });
    fixture.watch->setDelay(60000);
    QTRY_COMPARE(fixture.timeline, QStringList{QStringLiteral("found SIM1:1.0")});
    const Board *const second = fixture.attach("BoardB");
    fixture.attach("BoardA");
    QTRY_COMPARE(fixture.watch->boards().size(), 2);

    fixture.watch->stop();
    fixture.watch->setCandidateRule({});
    fixture.timeline.clear();
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{QStringLiteral("found SIM2:1.0")});
    QCOMPARE(fixture.found(second).type, JwDevice::BoardB);
    QCOMPARE(fixture.watch->types(), QList<JwDevice::Type>{JwDevice::BoardB});
    QCOMPARE(fixture.watch->neverOpened(), QStringList{first->portName()});
    QVERIFY(fixture.report(first).errorText.contains(first->portName()));
}

void TestBoardWatchFound::startTwiceIsStartOnce()
{
    WatchFixture fixture;
    fixture.attach("BoardA");
    fixture.watch->start();
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline.size(), 1);
    const JwDevice::Board board = fixture.watch->boards().first();
    fixture.watch->start();
    settle();
    QCOMPARE(fixture.timeline.size(), 1);
    QCOMPARE(fixture.watch->boards().first().communicator, board.communicator);
}

void TestBoardWatchFound::stopReportsEachBoardAndClosesThePorts()
{
    WatchFixture fixture;
    const Board *const first = fixture.attach("BoardA");
    const Board *const second = fixture.attach("BoardB");
    fixture.watch->stop(); // does nothing before start()
    QVERIFY(!fixture.watch->isStarted());
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline.size(), 2);
    fixture.timeline.clear();
    fixture.watch->stop();
    QVERIFY(!fixture.watch->isStarted());
    fixture.timeline.sort();
    QCOMPARE(fixture.timeline,
             QStringList({QStringLiteral("lost SIM1:1.0 stopped"), QStringLiteral("lost SIM2:1.0 stopped")}));
    QVERIFY(fixture.watch->boards().isEmpty());
    QVERIFY(fixture.watch->portReports().isEmpty());
    QVERIFY(canBeOpened(first));
    QVERIFY(canBeOpened(second));
    fixture.attach("BoardA");
    settle();
    QCOMPARE(fixture.timeline.size(), 2);
    QVERIFY(fixture.isAtRest());
}

void TestBoardWatchFound::stopEndsAProbe()
{
    WatchFixture fixture;
    const Board *const board = fixture.attach("silent");
    const Board *const denied = fixture.attach("BoardA,open=denied");
    fixture.watch->start();
    QTRY_COMPARE(fixture.queries(board), 2);
    QTRY_COMPARE(fixture.attempts(denied), 1);
    fixture.watch->stop();
    QVERIFY(canBeOpened(board));
    settle();
    QVERIFY(fixture.isAtRest());
    QCOMPARE(fixture.attempts(denied), 1);
}

void TestBoardWatchFound::watchCanBeStartedAgain()
{
    WatchFixture fixture;
    fixture.attach("BoardA");
    for (int i = 0; i < 3; ++i) {
        fixture.timeline.clear();
        fixture.watch->start();
        QTRY_COMPARE(fixture.timeline, QStringList{QStringLiteral("found SIM1:1.0")});
        fixture.watch->stop();
        QCOMPARE(fixture.timeline.last(), QStringLiteral("lost SIM1:1.0 stopped"));
    }
    // No event loop runs between these calls.
    fixture.watch->start();
    fixture.watch->stop();
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline.last(), QStringLiteral("found SIM1:1.0"));
    QCOMPARE(fixture.timeline.size(), 3);
}

void TestBoardWatchFound::destructorClosesTheBoardsWithoutASignal()
{
    WatchFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    const Board *const silent = fixture.attach("silent");
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline.size(), 1);
    const QPointer<QObject> port(portOf(fixture.found(board)));
    const QPointer<QObject> communicator(fixture.found(board).communicator);
    const int changes = fixture.changes;
    delete fixture.watch;
    QVERIFY(canBeOpened(board));
    QVERIFY(canBeOpened(silent));
    settle();
    QVERIFY(!port);
    QVERIFY(!communicator);
    QCOMPARE(fixture.timeline.size(), 1);
    QCOMPARE(fixture.changes, changes);
}

void TestBoardWatchFound::portsChangedComesWithEachChange()
{
    WatchFixture fixture;
    QList<QPair<int, int>> seen; // at each portsChanged(): the number of boards and the number of reports
    fixture.onChange = [&] { seen << qMakePair(fixture.watch->boards().size(), fixture.watch->portReports().size()); };
    fixture.watch->start();
    Board *const silent = fixture.attach("silent");
    fixture.watch->setMaxRetries(0);
    QTRY_VERIFY(seen.contains(qMakePair(0, 1)));
    Board *const board = fixture.attach("BoardA");
    QTRY_VERIFY(seen.contains(qMakePair(1, 2)));
    silent->pull();
    QTRY_COMPARE(seen.value(seen.size() - 1), qMakePair(1, 1));
    board->pull();
    QTRY_COMPARE(seen.value(seen.size() - 1), qMakePair(0, 0));
}

void TestBoardWatchFound::systemPortsHasAllPorts()
{
    WatchFixture fixture;
    const Board *const candidate = fixture.attach("silent");
    const auto names = [&fixture] {
        QStringList texts;
        const QList<QSerialPortInfo> ports = fixture.watch->systemPorts();
        for (const QSerialPortInfo &port : ports)
            texts.append(port.portName());
        texts.sort();
        return texts;
    };
    QStringList seen; // at each portsChanged(): names()
    fixture.onChange = [&] { seen << names().join(QLatin1Char(' ')); };
    QVERIFY(names().isEmpty());
    fixture.watch->setTypes({});
    fixture.watch->start();
    QTRY_COMPARE(names(), QStringList{candidate->portName()});
    Board *const other = fixture.attach("silent,manufacturer=FTDI,vendor=0403");
    QStringList both{candidate->portName(), other->portName()};
    both.sort();
    QTRY_COMPARE(seen.value(seen.size() - 1), both.join(QLatin1Char(' ')));
    QCOMPARE(fixture.watch->portReports().size(), 1);
    QCOMPARE(fixture.watch->boardId(other->portName()), QString());
    other->pull();
    QTRY_COMPARE(seen.value(seen.size() - 1), candidate->portName());
    fixture.watch->stop();
    QVERIFY(names().isEmpty());
}

void TestBoardWatchFound::boardIdIsKnownBeforeTheBoardIsFound()
{
    WatchFixture fixture;
    Board *const board = fixture.attach("BoardA,ignore=1", QStringLiteral("S7"));
    QCOMPARE(fixture.watch->boardId(board->portName()), QString());
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boardId(board->portName()), QStringLiteral("S7:1.0"));
    QVERIFY(fixture.watch->boards().isEmpty());
    QTRY_COMPARE(fixture.found(board).id, QStringLiteral("S7:1.0"));
    board->pull();
    QTRY_COMPARE(fixture.watch->boardId(board->portName()), QString());
}

void TestBoardWatchFound::withoutATypeNoPortIsOpened()
{
    WatchFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    fixture.watch->setTypes({});
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->portReports().size(), 1);
    settle();
    QCOMPARE(fixture.watch->portReports().first().verdict, PortReport::NotOpened);
    QCOMPARE(fixture.attempts(board), 0);
    fixture.watch->stop();
}

SIMULATED_PORTS_MAIN(TestBoardWatchFound)
#include "tst_boardwatch_found.moc"

#include "support/initializer/probefixture.h"
#include "support/common/simulatedportsmain.h"

#include <device/boardrules.h>
#include <nmea/exception.h>
#include <nmea/parserinit.h>

#include <QElapsedTimer>
#include <QTest>

#include <memory>
#include <utility>

using JwDevice::Initializer;
using JwDevice::PortEvent;
using JwDevice::PortReport;
using JwDevice::Type;
using JwSimulator::Board;

namespace {

const QByteArray versionA = versionReply("7300022");
const QByteArray versionB = versionReply("7300021");

/// Returns the name of `kind`. The switch has no default, so that the compiler reports a kind without a name.
QString kindName(PortEvent::Kind kind)
{
    switch (kind) {
    case PortEvent::Opened:
        return QStringLiteral("Opened");
    case PortEvent::NotOpened:
        return QStringLiteral("NotOpened");
    case PortEvent::Asked:
        return QStringLiteral("Asked");
    case PortEvent::Answered:
        return QStringLiteral("Answered");
    case PortEvent::Unreadable:
        return QStringLiteral("Unreadable");
    case PortEvent::TimedOut:
        return QStringLiteral("TimedOut");
    case PortEvent::Lost:
        return QStringLiteral("Lost");
    case PortEvent::HandedOver:
        return QStringLiteral("HandedOver");
    }
    return QString();
}

/// Returns `sentence` as an event shows it, without the line end.
QString shown(const QByteArray &sentence)
{
    return QString::fromLatin1(sentence).remove(QStringLiteral("\r\n"));
}

/// Returns an event as text, for example "0 Answered $PJWVER,7300022,1,4,0*0d BoardA": the round and the kind, then
/// the text, the reason and the type if the event has them.
QString line(uint round, PortEvent::Kind kind, const QString &text = {}, const QString &reason = {},
             Type type = JwDevice::Unknown)
{
    QStringList parts = {QString::number(round), kindName(kind), text, reason};
    if (type != JwDevice::Unknown)
        parts << JwDevice::typeName(type);
    parts.removeAll(QString());
    return parts.join(QLatin1Char(' '));
}

QString asked(uint round, const QByteArray &query)
{
    return line(round, PortEvent::Asked, shown(query));
}

QString answered(uint round, const QByteArray &reply, Type type)
{
    return line(round, PortEvent::Answered, shown(reply), {}, type);
}

QString handedOver(uint round, Type type)
{
    return line(round, PortEvent::HandedOver, {}, {}, type);
}

QString opened()
{
    return line(0, PortEvent::Opened);
}

QString timedOut(uint round)
{
    return line(round, PortEvent::TimedOut);
}

/// A probe with a port observer that adds every event to `events`.
struct ObservedProbe : ProbeFixture
{
    ObservedProbe() { observe(); }
    void observe()
    {
        initializer->setPortObserver([this](const PortEvent &event) { events << event; });
    }

    /// Returns the events of one port as texts, in order.
    QStringList of(const QString &portName) const
    {
        QStringList lines;
        for (const PortEvent &event : events) {
            if (event.portName == portName)
                lines << line(event.round, event.kind, event.text, event.reason, event.type);
        }
        return lines;
    }
    QStringList of(const Board *board) const { return of(board->portName()); }

    PortReport report(int port = 0) const { return initializer->portReports().at(port); }

    QVector<PortEvent> events;
};

} // namespace

/// Tests that the function set by Initializer::setPortObserver() gets every event of every port, in order.
class TestInitializerEvents : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void silentPortIsAskedAndTimesOutInEachRound();
    void eachQueryIsReported();
    void boardThatIsHandedOver();
    void handOverIsReportedBeforeItsSignal();
    void boardThatAnswersInARetryRound();
    void answerAfterTheTimeOutBelongsToItsRound();
    void answerOfAnotherTypeIsNoHandOver();
    void answerThatNoBoardSendsHasNoType();
    void secondBoardOfATypeIsNotHandedOver();
    void payloadThatCannotBeParsed_data();
    void payloadThatCannotBeParsed();
    void portThatCannotBeOpened_data();
    void portThatCannotBeOpened();
    void pulledPortIsLostAndNoLongerAsked();
    void portThatOnlyFailsIsLost();
    void portThatWasHandedOverHasNoMoreEvents();
    void portsAreReportedInTheOrderInWhichTheyAreTried();
    void timeBeginsWithProbeAndNeverGoesBack();
    void logLevelDoesNotMatter();
    void observerOfTheMiddleSeesTheRest();
    void emptyFunctionEndsIt();
    void observerMayEndItself();
};

void TestInitializerEvents::silentPortIsAskedAndTimesOutInEachRound()
{
    ObservedProbe probe;
    const Board *const board = probe.attach("silent");
    probe.initializer->setMaxRetries(2);
    probe.probe({JwDevice::BoardA});
    // Both events happen before probe() returns.
    QCOMPARE(probe.of(board), QStringList({opened(), asked(0, versionQuery)}));
    QTRY_VERIFY(probe.isOver());
    QCOMPARE(probe.of(board),
             QStringList({opened(), asked(0, versionQuery), timedOut(0), asked(1, versionQuery), timedOut(1),
                          asked(2, versionQuery), timedOut(2)}));
}

void TestInitializerEvents::eachQueryIsReported()
{
    ObservedProbe probe;
    const Board *const board = probe.attach("silent");
    probe.initializer->setMaxRetries(1);
    probe.probe({JwDevice::BoardC, JwDevice::BoardA});
    QTRY_VERIFY(probe.isOver());
    QCOMPARE(probe.of(board),
             QStringList({opened(), asked(0, versionQuery), asked(0, informationRequest), timedOut(0),
                          asked(1, versionQuery), asked(1, informationRequest), timedOut(1)}));
}

void TestInitializerEvents::boardThatIsHandedOver()
{
    ObservedProbe probe;
    const Board *const board = probe.attach("silent");
    Board *const other = probe.attach("silent");
    probe.probe({JwDevice::BoardB, JwDevice::BoardC});
    QVERIFY(other->send(informationReply("INF")));
    QTRY_COMPARE(probe.handOver(other).type, JwDevice::BoardC);
    QCOMPARE(probe.of(other),
             QStringList({opened(), asked(0, versionQuery), asked(0, informationRequest),
                          answered(0, informationReply("INF"), JwDevice::BoardC), handedOver(0, JwDevice::BoardC)}));
    QCOMPARE(probe.of(board), QStringList({opened(), asked(0, versionQuery), asked(0, informationRequest)}));
}

void TestInitializerEvents::handOverIsReportedBeforeItsSignal()
{
    ObservedProbe probe;
    probe.attach("BoardA");
    QString newest;
    connect(probe.initializer, &Initializer::deviceInitialized, this,
            [&] { newest = kindName(probe.events.last().kind); });
    probe.probe({JwDevice::BoardA});
    QTRY_VERIFY(!newest.isEmpty());
    QCOMPARE(newest, kindName(PortEvent::HandedOver));
}

void TestInitializerEvents::boardThatAnswersInARetryRound()
{
    ObservedProbe probe;
    const Board *const board = probe.attach("BoardA,ignore=1");
    probe.probe({JwDevice::BoardA});
    QTRY_VERIFY(probe.isOver());
    QCOMPARE(probe.of(board),
             QStringList({opened(), asked(0, versionQuery), timedOut(0), asked(1, versionQuery),
                          answered(1, versionA, JwDevice::BoardA), handedOver(1, JwDevice::BoardA)}));
}

void TestInitializerEvents::answerAfterTheTimeOutBelongsToItsRound()
{
    ObservedProbe probe;
    Board *const board = probe.attach("silent");
    probe.attach("silent"); // a second port, so that the time-out of the first does not end the round
    probe.probe({JwDevice::BoardA});
    probe.timeOut(board);
    QVERIFY(board->send(versionA));
    QTRY_COMPARE(probe.handOver(board).type, JwDevice::BoardA);
    QCOMPARE(probe.of(board),
             QStringList({opened(), asked(0, versionQuery), timedOut(0), answered(0, versionA, JwDevice::BoardA),
                          handedOver(0, JwDevice::BoardA)}));
}

void TestInitializerEvents::answerOfAnotherTypeIsNoHandOver()
{
    ObservedProbe probe;
    Board *const board = probe.attach("silent");
    probe.probe({JwDevice::BoardA});
    QVERIFY(board->send(versionB));
    QTRY_COMPARE(probe.report().verdict, PortReport::Silenced);
    settle();
    QCOMPARE(probe.of(board), QStringList({opened(), asked(0, versionQuery), answered(0, versionB, JwDevice::BoardB)}));
}

void TestInitializerEvents::answerThatNoBoardSendsHasNoType()
{
    ObservedProbe probe;
    Board *const board = probe.attach("silent");
    probe.probe({JwDevice::BoardC});
    QVERIFY(board->send(informationReply("VER")));
    QTRY_COMPARE(probe.report().verdict, PortReport::Silenced);
    QCOMPARE(
        probe.of(board),
        QStringList({opened(), asked(0, informationRequest), answered(0, informationReply("VER"), JwDevice::Unknown)}));
}

void TestInitializerEvents::secondBoardOfATypeIsNotHandedOver()
{
    ObservedProbe probe;
    Board *const first = probe.attach("silent");
    Board *const second = probe.attach("silent");
    probe.probe({JwDevice::BoardA});
    QVERIFY(first->send(versionA));
    QTRY_COMPARE(probe.handOver(first).type, JwDevice::BoardA);
    QVERIFY(second->send(versionA));
    QTRY_VERIFY(probe.isOver());
    QCOMPARE(probe.of(second),
             QStringList({opened(), asked(0, versionQuery), answered(0, versionA, JwDevice::BoardA)}));
}

void TestInitializerEvents::payloadThatCannotBeParsed_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::newRow("unknown sentence") << JwSimulator::frameSentence("PNONE");
    QTest::newRow("wrong checksum") << JwSimulator::frameSentence("PJWVER,7300022,1,4,0", false);
    QTest::newRow("sentence of a host") << informationRequest;
    QTest::newRow("no checksum") << QByteArray("$PJWVER\r\n");
}

void TestInitializerEvents::payloadThatCannotBeParsed()
{
    QFETCH(QByteArray, payload);
    QString reason;
    try {
        Nmea::ParserInit parser;
        parser.init();
        JwDevice::SessionInit session;
        parser.parse(&session, QString::fromLatin1(payload));
    } catch (const Nmea::Exception &exception) {
        reason = exception.message();
    }
    QVERIFY(!reason.isEmpty());

    ObservedProbe probe;
    Board *const board = probe.attach("silent");
    probe.probe({JwDevice::BoardA});
    QVERIFY(board->send(payload));
    QTRY_COMPARE(probe.report().payloads, qint64(1));
    QVERIFY(board->send(versionA));
    QTRY_VERIFY(probe.isOver());
    QCOMPARE(probe.events.at(2).text, shown(payload));
    QCOMPARE(probe.events.at(2).reason, reason);
    QCOMPARE(probe.of(board),
             QStringList({opened(), asked(0, versionQuery), line(0, PortEvent::Unreadable, shown(payload), reason),
                          answered(0, versionA, JwDevice::BoardA), handedOver(0, JwDevice::BoardA)}));
}

void TestInitializerEvents::portThatCannotBeOpened_data()
{
    QTest::addColumn<QByteArray>("board");
    QTest::newRow("busy") << QByteArray("BoardA,open=busy");
    QTest::newRow("denied") << QByteArray("BoardA,open=denied");
    QTest::newRow("unknown") << QByteArray();
}

void TestInitializerEvents::portThatCannotBeOpened()
{
    QFETCH(QByteArray, board);
    ObservedProbe probe;
    const QString name = board.isEmpty() ? QStringLiteral("ttyNONE1") : probe.attach(board)->portName();
    QStringList missing;
    connect(probe.initializer, &Initializer::deviceNotFound, this, [&] { missing = probe.of(name); });
    QVERIFY(probe.initializer->probe({JwDevice::BoardA}, 0, {name}));
    QVERIFY(!probe.report().errorText.isEmpty());
    QCOMPARE(probe.events.size(), 1);
    QCOMPARE(probe.of(name), QStringList{line(0, PortEvent::NotOpened, probe.report().errorText)});
    QCOMPARE(missing, probe.of(name)); // the observer got the event before the signal
}

void TestInitializerEvents::pulledPortIsLostAndNoLongerAsked()
{
    ObservedProbe probe;
    Board *const board = probe.attach("silent");
    probe.initializer->setMaxRetries(1);
    probe.probe({JwDevice::BoardA});
    bool isOpen = true;
    probe.initializer->setPortObserver([&](const PortEvent &event) {
        probe.events << event;
        if (event.kind == PortEvent::Lost)
            isOpen = probe.port(board)->isOpen();
    });
    board->pull();
    QTRY_VERIFY(probe.isOver());
    QVERIFY(!isOpen);
    QVERIFY(!probe.report().errorText.isEmpty());
    QCOMPARE(probe.of(board),
             QStringList({opened(), asked(0, versionQuery), line(0, PortEvent::Lost, probe.report().errorText),
                          timedOut(0), timedOut(1)}));
}

void TestInitializerEvents::portThatOnlyFailsIsLost()
{
    ObservedProbe probe;
    const Board *const board = probe.attach("silent");
    probe.probe({JwDevice::BoardA});
    QSerialPort *const port = probe.port(board);
    for (int i = 0; i < 2000 && port->isOpen(); ++i)
        port->setRequestToSend(true); // fails, because a simulated port has no RTS signal
    QVERIFY(!probe.report().errorText.isEmpty());
    QCOMPARE(probe.of(board),
             QStringList({opened(), asked(0, versionQuery), line(0, PortEvent::Lost, probe.report().errorText)}));
}

void TestInitializerEvents::portThatWasHandedOverHasNoMoreEvents()
{
    ObservedProbe probe;
    Board *const board = probe.attach("BoardA");
    const Board *const silent = probe.attach("silent");
    probe.initializer->setMaxRetries(2);
    probe.probe({JwDevice::BoardA, JwDevice::BoardC});
    QTRY_COMPARE(probe.handOver(board).type, JwDevice::BoardA);
    const QStringList before = probe.of(board);
    QCOMPARE(before.last(), handedOver(0, JwDevice::BoardA));
    probe.endReplyTimers();
    // This retry round asks only the silent board's port.
    QTRY_COMPARE(probe.of(silent).last(), asked(1, informationRequest));
    QSerialPort *const port = probe.handOver(board).port;
    probe.initializer->queryBoardVersion(probe.handOver(board).comm); // the application itself asks this board
    const QByteArray queries = versionQuery + informationRequest;
    QTRY_COMPARE(received(board), queries.repeated(2));
    bool failed = false;
    connect(port, &QSerialPort::errorOccurred, port, [&failed, port] {
        failed = true;
        if (port->isOpen())
            port->close();
    });
    QVERIFY(board->send("$PNONE\r\n" + versionA));
    QTRY_VERIFY(!probe.log.sink->withText(QStringLiteral(" <-  ") + quoted(shown(versionA))).isEmpty());
    board->pull();
    QTRY_VERIFY(failed);
    QTRY_VERIFY(probe.isOver());
    QCOMPARE(probe.of(board), before);
}

void TestInitializerEvents::portsAreReportedInTheOrderInWhichTheyAreTried()
{
    ObservedProbe probe;
    const Board *const first = probe.attach("silent");
    const Board *const denied = probe.attach("silent,open=denied");
    const Board *const last = probe.attach("silent");
    probe.probe({JwDevice::BoardA});
    QStringList order;
    for (const PortEvent &event : std::as_const(probe.events))
        order << event.portName + QLatin1Char(' ') + kindName(event.kind);
    QCOMPARE(order,
             QStringList({first->portName() + QStringLiteral(" Opened"), first->portName() + QStringLiteral(" Asked"),
                          denied->portName() + QStringLiteral(" NotOpened"),
                          last->portName() + QStringLiteral(" Opened"), last->portName() + QStringLiteral(" Asked")}));
}

void TestInitializerEvents::timeBeginsWithProbeAndNeverGoesBack()
{
    constexpr qint64 millisecond = 1000000;
    constexpr int delay = 60;
    ObservedProbe probe;
    const Board *const silent = probe.attach("silent");
    const Board *const slow = probe.attach("BoardC,delay=30");
    probe.initializer->setMaxRetries(1);
    QElapsedTimer clock;
    clock.start();
    QVERIFY(probe.initializer->probe({JwDevice::BoardA, JwDevice::BoardC}, delay, probe.portNames()));
    QTRY_VERIFY(probe.isOver());
    const qint64 end = clock.nsecsElapsed();
    qint64 newest = delay * millisecond;
    for (const PortEvent &event : std::as_const(probe.events)) {
        QVERIFY(event.nanoseconds >= newest);
        newest = event.nanoseconds;
    }
    QVERIFY(newest <= end);

    const auto timeOf = [&probe](const Board *board, PortEvent::Kind kind, uint round) {
        for (const PortEvent &event : std::as_const(probe.events)) {
            if (event.portName == board->portName() && event.kind == kind && event.round == round)
                return event.nanoseconds;
        }
        return qint64(-1);
    };
    const qint64 replyTime = JwDevice::replyTime * millisecond;
    // Measured from the start and not from the event Opened, because the reply timer starts a moment before this event.
    QVERIFY(timeOf(silent, PortEvent::TimedOut, 0) >= (delay + JwDevice::replyTime - 5) * millisecond);
    QVERIFY(timeOf(silent, PortEvent::TimedOut, 1) - timeOf(silent, PortEvent::TimedOut, 0) >= replyTime - millisecond);
    QVERIFY(timeOf(slow, PortEvent::Answered, 0) - timeOf(slow, PortEvent::Asked, 0) >= 30 * millisecond);
    QVERIFY(timeOf(silent, PortEvent::TimedOut, 1) >= (delay + 2 * JwDevice::replyTime - 5) * millisecond);
}

void TestInitializerEvents::logLevelDoesNotMatter()
{
    const auto eventsAt = [](Logger::Level level) {
        ObservedProbe probe;
        loggerInstance()->setLevel(level);
        probe.attach("BoardA,ignore=1");
        probe.attach("silent,open=denied");
        probe.attach("silent");
        probe.initializer->setMaxRetries(1);
        QStringList missing;
        connect(probe.initializer.data(), &Initializer::deviceNotFound, probe.initializer.data(),
                [&](Type type) { missing << JwDevice::typeName(type); });
        probe.probe({JwDevice::BoardA, JwDevice::BoardB});
        [&] { QTRY_COMPARE(missing, QStringList{QStringLiteral("BoardB")}); }();
        QStringList lines;
        for (const Board *board : probe.testbed.boards())
            lines << probe.of(board);
        return lines;
    };
    const QStringList atTrace = eventsAt(Logger::Trace);
    QVERIFY(atTrace.contains(handedOver(1, JwDevice::BoardA)));
    QCOMPARE(eventsAt(Logger::Fatal), atTrace);
}

void TestInitializerEvents::observerOfTheMiddleSeesTheRest()
{
    ObservedProbe probe;
    probe.initializer->setPortObserver({});
    const Board *const board = probe.attach("silent");
    probe.initializer->setMaxRetries(1);
    probe.probe({JwDevice::BoardA});
    probe.timeOut(board);
    QVERIFY(probe.events.isEmpty());
    probe.observe();
    QTRY_VERIFY(probe.isOver());
    QCOMPARE(probe.of(board), QStringList{timedOut(1)});
    // The time counts from probe(), not from the start of the observer.
    QVERIFY(probe.events.first().nanoseconds >= (JwDevice::replyTime - 5) * 1000000LL);
}

void TestInitializerEvents::emptyFunctionEndsIt()
{
    ObservedProbe probe;
    const Board *const board = probe.attach("silent");
    probe.initializer->setMaxRetries(1);
    probe.probe({JwDevice::BoardA});
    probe.timeOut(board);
    const QStringList before = probe.of(board);
    QCOMPARE(before.last(), asked(1, versionQuery));
    probe.initializer->setPortObserver({});
    QTRY_VERIFY(probe.isOver());
    QCOMPARE(probe.of(board), before);
}

void TestInitializerEvents::observerMayEndItself()
{
    ObservedProbe probe;
    probe.attach("silent");
    int calls = 0;
    long holders = 0;
    probe.initializer->setPortObserver([&, kept = std::make_shared<int>(0)](const PortEvent &) {
        ++calls;
        const std::weak_ptr<int> own = kept;
        long &result = holders; // `own` and `result` are local, because the next statement may delete the captures
        probe.initializer->setPortObserver({});
        result = own.use_count();
    });
    probe.probe({JwDevice::BoardA});
    QCOMPARE(calls, 1);
    QVERIFY(holders > 0);
}

SIMULATED_PORTS_MAIN(TestInitializerEvents)
#include "tst_initializer_events.moc"

#include "support/initializer/probefixture.h"
#include "support/common/simulatedportsmain.h"
#include "support/device/discardedoutput.h"
#include "support/device/otherreader.h"
#include "support/initializer/timelinetexts.h"

#include <device/wholelines.h>

#include <QAbstractEventDispatcher>
#include <QElapsedTimer>
#include <QTest>
#include <QTimer>

#include <cerrno>

using JwDevice::Communicator;
using JwDevice::Initializer;
using JwDevice::Type;
using JwSimulator::Board;

namespace {

/// Counts the errors that one port reports.
class ErrorCount
{
public:
    explicit ErrorCount(QSerialPort *port)
    {
        QObject::connect(port, &QSerialPort::errorOccurred, &m_context, [this](QSerialPort::SerialPortError error) {
            if (error != QSerialPort::NoError)
                ++m_errors;
        });
    }
    int errors() const { return m_errors; }

private:
    int m_errors = 0;
    QObject m_context;
};

/// Verifies that the port is closed soon and that the event loop is idle afterwards. If a pulled port stayed open, it
/// would keep the event loop busy for ever.
void verifyClosedWithoutSpin(const ProbeFixture &fixture, const Board *board, const ErrorCount &count)
{
    QSerialPort *const port = fixture.port(board);
    QTRY_VERIFY(!port->isOpen());
    for (int turn = 0; turn < 100; ++turn)
        QCoreApplication::processEvents();
    QVERIFY2(count.errors() <= 3, QByteArray::number(count.errors()));
    int busy = 0;
    while (busy < 100 && QAbstractEventDispatcher::instance()->processEvents(QEventLoop::AllEvents))
        ++busy;
    QVERIFY(busy < 100);
}

QStringList warnings;

void recordWarning(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    if (type == QtWarningMsg)
        warnings << text;
}

/// Collects Qt's warnings while this object exists, for example the warning about a write to a closed port.
class WarningCapture
{
public:
    WarningCapture()
        : m_before(qInstallMessageHandler(recordWarning))
    {
        warnings.clear();
    }
    ~WarningCapture() { qInstallMessageHandler(m_before); }
    WarningCapture(const WarningCapture &) = delete;
    WarningCapture &operator=(const WarningCapture &) = delete;

private:
    const QtMessageHandler m_before;
};

} // namespace

class TestInitializerCable : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pulledBeforeTheQueryLeft();
    void pulledBeforeTheEventLoopRuns();
    void pulledWithinTheQuery();
    void pulledAfterTheQuery();
    void pulledWithinTheReply();
    void pulledWhenTimedOut();
    void pulledWhenSilenced();
    void pulledWhenADuplicate();
    void pulledWhenTheProbeIsOver();
    void pulledInARetryRound();
    void pulledDuringTheDelayIsNotAccessible();
    void closedPortIsNotWrittenToInARetryRoundButItsTimerRuns();
    void closedPortStaysClosedWhenTheCableIsPluggedInAgain();
    void otherBoardsAreFoundWhileOneIsPulled();
    void programThatReadsBesideUsDoesNotCostThePort_data();
    void programThatReadsBesideUsDoesNotCostThePort();
    void unsentOutputIsDiscardedBeforeAPortIsClosed_data();
    void unsentOutputIsDiscardedBeforeAPortIsClosed();
    void handedOverPortReportsItsErrorToTheApplicationAndIsLeftOpen();
};

void TestInitializerCable::pulledBeforeTheQueryLeft()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    const Board *const found = fixture.attach("BoardA");
    fixture.initializer->setMaxRetries(0);
    const QString opened = QStringLiteral("Serial port opened for probing:  ") + quoted(board->portName());
    fixture.onRecord = [&](const LogRecord &record) {
        if (record.text == opened)
            board->pull();
    };
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
    fixture.onRecord = nullptr;
    const ErrorCount count(fixture.port(board));
    QVERIFY(!fixture.port(board)->isOpen());
    QCOMPARE(fixture.initializer->portReports().first().verdict, JwDevice::PortReport::Lost);
    verifyClosedWithoutSpin(fixture, board, count);
    QCOMPARE(fixture.state(board), PortState::AwaitingReply);
    QTRY_COMPARE(fixture.state(found), PortState::HandedOver);
    fixture.timeOut(board);
    QCOMPARE(fixture.decisions(), QStringList({foundA, missingB, over}));
}

void TestInitializerCable::pulledBeforeTheEventLoopRuns()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.initializer->setMaxRetries(0);
    fixture.probe({JwDevice::BoardA});
    const ErrorCount count(fixture.port(board));
    board->pull();
    verifyClosedWithoutSpin(fixture, board, count);
    QCOMPARE(fixture.state(board), PortState::AwaitingReply);
    fixture.timeOut(board);
    QCOMPARE(fixture.decisions(), QStringList({missingA, over}));
}

void TestInitializerCable::pulledWithinTheQuery()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent,speed=300");
    fixture.initializer->setMaxRetries(0);
    QObject::connect(board, &Board::received, board, &Board::pull, Qt::QueuedConnection);
    fixture.probe({JwDevice::BoardA});
    const ErrorCount count(fixture.port(board));
    QTRY_VERIFY(!board->isPlugged());
    QVERIFY(!received(board).contains(versionQuery));
    verifyClosedWithoutSpin(fixture, board, count);
    QTRY_COMPARE(fixture.decisions(), QStringList({missingA, over}));
}

void TestInitializerCable::pulledAfterTheQuery()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.initializer->setMaxRetries(0);
    fixture.probe({JwDevice::BoardA});
    const ErrorCount count(fixture.port(board));
    QTRY_COMPARE(received(board), versionQuery);
    board->pull();
    verifyClosedWithoutSpin(fixture, board, count);
    QCOMPARE(fixture.state(board), PortState::AwaitingReply);
    QTRY_COMPARE(fixture.decisions(), QStringList({missingA, over}));
}

void TestInitializerCable::pulledWithinTheReply()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("BoardA,pull-after-bytes=10");
    fixture.initializer->setMaxRetries(0);
    fixture.probe({JwDevice::BoardA});
    const ErrorCount count(fixture.port(board));
    QTRY_VERIFY(!board->isPlugged());
    QCOMPARE(sent(board).size(), 10);
    verifyClosedWithoutSpin(fixture, board, count);
    QTRY_COMPARE(fixture.decisions(), QStringList({missingA, over}));
}

void TestInitializerCable::pulledWhenTimedOut()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    const Board *const other = fixture.attach("silent");
    fixture.initializer->setMaxRetries(0);
    fixture.probe({JwDevice::BoardA});
    const ErrorCount count(fixture.port(board));
    fixture.timeOut(board);
    board->pull();
    verifyClosedWithoutSpin(fixture, board, count);
    QCOMPARE(fixture.state(board), PortState::TimedOut);
    fixture.timeOut(other);
    QCOMPARE(fixture.decisions(), QStringList({missingA, over}));
}

void TestInitializerCable::pulledWhenSilenced()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("BoardB");
    fixture.probe({JwDevice::BoardA});
    const ErrorCount count(fixture.port(board));
    QTRY_COMPARE(fixture.state(board), PortState::Silenced);
    board->pull();
    verifyClosedWithoutSpin(fixture, board, count);
    QVERIFY(fixture.decisions().isEmpty());
}

void TestInitializerCable::pulledWhenADuplicate()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    Board *const found = fixture.attach("BoardA");
    const Board *const other = fixture.attach("silent");
    fixture.probe({JwDevice::BoardA});
    const ErrorCount count(fixture.port(board));
    QTRY_COMPARE(fixture.state(found), PortState::HandedOver);
    QVERIFY(board->send(versionReply("7300022")));
    QTRY_COMPARE(fixture.state(board), PortState::Duplicate);
    board->pull();
    verifyClosedWithoutSpin(fixture, board, count);
    fixture.timeOut(other);
    QCOMPARE(fixture.decisions(), QStringList({foundA, over}));
}

void TestInitializerCable::pulledWhenTheProbeIsOver()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.initializer->setMaxRetries(0);
    fixture.probe({JwDevice::BoardA});
    const ErrorCount count(fixture.port(board));
    fixture.timeOut(board);
    QVERIFY(fixture.isOver());
    board->pull();
    verifyClosedWithoutSpin(fixture, board, count);
    QCOMPARE(fixture.decisions(), QStringList({missingA, over}));
}

void TestInitializerCable::pulledInARetryRound()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.initializer->setMaxRetries(1);
    fixture.probe({JwDevice::BoardA});
    const ErrorCount count(fixture.port(board));
    fixture.timeOut(board);
    QCOMPARE(fixture.decisions(), QStringList{retry});
    board->pull();
    verifyClosedWithoutSpin(fixture, board, count);
    QTRY_COMPARE(fixture.decisions(), QStringList({retry, missingA, over}));
}

void TestInitializerCable::pulledDuringTheDelayIsNotAccessible()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("BoardC");
    QVERIFY(fixture.initializer->probe({JwDevice::BoardC}, 1, {board->portName()}));
    board->pull();
    QTRY_COMPARE(fixture.timeline.size(), 2);
    QVERIFY(fixture.timeline.first().startsWith(QStringLiteral("Serial port not accessible:  ")
                                                + quoted(board->portName())));
    QCOMPARE(fixture.timeline.last(), QStringLiteral("deviceNotFound BoardC"));
}

void TestInitializerCable::closedPortIsNotWrittenToInARetryRoundButItsTimerRuns()
{
    ProbeFixture fixture;
    Board *const pulled = fixture.attach("silent");
    const Board *const silent = fixture.attach("silent");
    fixture.initializer->setMaxRetries(2);
    fixture.probe({JwDevice::BoardA});
    pulled->pull();
    QTRY_VERIFY(!fixture.port(pulled)->isOpen());
    const WarningCapture capture;
    const auto queries = [&] { return fixture.log.sink->withText(QStringLiteral("->  \"$PJWVER*0c\"")).size() / 2; };
    QCOMPARE(queries(), 2);
    for (int round = 1; round <= 2; ++round) {
        fixture.endReplyTimers();
        QTRY_COMPARE(fixture.timeline.count(retry), round);
        QCOMPARE(queries(), 2 + round);
        QCOMPARE(fixture.state(pulled), PortState::AwaitingReply);
        QCOMPARE(fixture.replyTimer(pulled)->interval(), 400);
    }
    fixture.endReplyTimers();
    QTRY_COMPARE(fixture.decisions(), QStringList({retry, retry, missingA, over}));
    QTRY_COMPARE(received(silent), versionQuery.repeated(3));
    QCOMPARE(warnings, QStringList());
}

void TestInitializerCable::closedPortStaysClosedWhenTheCableIsPluggedInAgain()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("BoardA,ignore=1");
    fixture.initializer->setMaxRetries(1);
    fixture.probe({JwDevice::BoardA});
    board->pull();
    QTRY_VERIFY(!fixture.port(board)->isOpen());
    QVERIFY(board->plug());
    QTRY_COMPARE(fixture.decisions(), QStringList({retry, missingA, over}));
    QVERIFY(!fixture.port(board)->isOpen());
    QVERIFY(received(board).isEmpty());
}

void TestInitializerCable::otherBoardsAreFoundWhileOneIsPulled()
{
    ProbeFixture fixture;
    fixture.attach("silent,pull-after=20");
    const Board *const found = fixture.attach("BoardA,delay=100");
    fixture.probe({JwDevice::BoardA});
    QTRY_VERIFY(fixture.isOver());
    QCOMPARE(fixture.decisions(), QStringList({foundA, over}));
    QVERIFY(fixture.handOver(found).port->isOpen());
}

void TestInitializerCable::programThatReadsBesideUsDoesNotCostThePort_data()
{
    QTest::addColumn<int>("staleError");
    QTest::addColumn<QByteArray>("held");
    QTest::newRow("ReadError") << 0 << QByteArray();
    QTest::newRow("ResourceError, at which QSerialPort stops reading") << EAGAIN << QByteArray();
    QTest::newRow("ResourceError, while an unfinished line is held back") << EAGAIN << QByteArray("$PJWVER,7300022");
}

void TestInitializerCable::programThatReadsBesideUsDoesNotCostThePort()
{
    QFETCH(int, staleError);
    QFETCH(QByteArray, held);
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    OtherReader other(QStringLiteral("/dev/") + board->portName(), staleError);
    fixture.probe({JwDevice::BoardA});
    const ErrorCount count(fixture.port(board));
    QTRY_COMPARE(received(board), versionQuery);
    QVERIFY(held.isEmpty() || board->send(held));
    const auto *const lines = dynamic_cast<JwDevice::WholeLinesBase *>(fixture.port(board));
    QTRY_COMPARE(lines->bytesReceived(), qint64(held.size()));
    other.start(fixture.port(board));
    QElapsedTimer clock;
    clock.start();
    while (count.errors() < 3) {
        QVERIFY(clock.elapsed() < 5000); // fails if the port stops reading and so reports no more errors
        QVERIFY(fixture.port(board)->isOpen());
        QVERIFY(board->send("stolen\r\n"));
        settle();
    }
    QCOMPARE(fixture.initializer->portReports().first().verdict, JwDevice::PortReport::Awaiting);
    other.stop();
    QVERIFY(board->send(versionReply("7300022").mid(held.size())));
    QTRY_COMPARE(fixture.state(board), PortState::HandedOver);
}

void TestInitializerCable::unsentOutputIsDiscardedBeforeAPortIsClosed_data()
{
    QTest::addColumn<bool>("isLost");
    QTest::newRow("by the end of the Initializer") << false;
    QTest::newRow("since its device is gone") << true;
}

void TestInitializerCable::unsentOutputIsDiscardedBeforeAPortIsClosed()
{
    QFETCH(bool, isLost);
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.probe({JwDevice::BoardA});
    QTRY_COMPARE(received(board), versionQuery);
    const int descriptor = static_cast<int>(fixture.port(board)->handle());
    discardedOutput.clear();
    if (isLost) {
        board->pull();
        QTRY_VERIFY(!fixture.port(board)->isOpen());
    } else {
        delete fixture.initializer;
    }
    QCOMPARE(discardedOutput, QVector<int>{descriptor});
}

void TestInitializerCable::handedOverPortReportsItsErrorToTheApplicationAndIsLeftOpen()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("BoardA");
    fixture.attach("silent");
    fixture.probe({JwDevice::BoardA});
    QTRY_COMPARE(fixture.state(board), PortState::HandedOver);
    QSerialPort *const port = fixture.handOver(board).port;
    bool openAtError = false;
    int errors = 0;
    QObject::connect(port, &QSerialPort::errorOccurred, port, [&](QSerialPort::SerialPortError error) {
        if (error == QSerialPort::NoError || ++errors > 1)
            return;
        openAtError = port->isOpen();
        port->close();
    });
    board->pull();
    QTRY_VERIFY(errors > 0);
    QVERIFY(openAtError); // the Initializer did not close the handed-over port; only the application may close it
}

SIMULATED_PORTS_MAIN(TestInitializerCable)
#include "tst_initializer_cable.moc"

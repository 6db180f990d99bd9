#include "support/probebench.h"
#include "support/simulatedportsmain.h"
#include "support/timelinetexts.h"

#include <device/wholelines.h>

#include <QAbstractEventDispatcher>
#include <QElapsedTimer>
#include <QSocketNotifier>
#include <QTest>
#include <QTimer>

#include <cerrno>

#include <dlfcn.h>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

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

/// The port is closed soon, and thereafter the event loop has nothing to do: a port that spins keeps it busy for ever.
void verifyClosedWithoutSpin(const ProbeBench &bench, const Board *board, const ErrorCount &count)
{
    QSerialPort *const port = bench.port(board);
    QTRY_VERIFY(!port->isOpen());
    for (int turn = 0; turn < 100; ++turn)
        QCoreApplication::processEvents();
    QVERIFY2(count.errors() <= 3, QByteArray::number(count.errors()));
    int busy = 0;
    while (busy < 100 && QAbstractEventDispatcher::instance()->processEvents(QEventLoop::AllEvents))
        ++busy;
    QVERIFY(busy < 100);
}

QVector<int> discarded; // descriptors of terminals whose unsent output was discarded

/// Another program that reads from a port beside us, and is quicker.
class ReaderBeside
{
public:
    /// `staleError` is what errno holds when our port finds nothing to read; QSerialPort goes by that number.
    ReaderBeside(const Board *board, int staleError)
        : m_descriptor(::open(qPrintable(QStringLiteral("/dev/") + board->portName()),
                              O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC))
        , m_notifier(m_descriptor, QSocketNotifier::Read)
    {
        QObject::connect(&m_notifier, &QSocketNotifier::activated, &m_notifier, [this, staleError] {
            char bytes[100];
            while (!m_paused && ::read(m_descriptor, bytes, sizeof bytes) > 0) { }
            errno = staleError;
        });
    }
    ~ReaderBeside()
    {
        m_notifier.setEnabled(false);
        ::close(m_descriptor);
    }
    void pause(bool paused) { m_paused = paused; }
    ReaderBeside(const ReaderBeside &) = delete;
    ReaderBeside &operator=(const ReaderBeside &) = delete;

private:
    const int m_descriptor;
    QSocketNotifier m_notifier; // always on: it keeps its place before the port's
    bool m_paused = false;
};

QStringList warnings;

void recordWarning(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    if (type == QtWarningMsg)
        warnings << text;
}

/// While it lives, what Qt warns of is kept, such as a write to a closed port.
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

/// Takes the place of the C library's, to see what is discarded.
extern "C" __attribute__((visibility("default"))) int tcflush(int descriptor, int queue) noexcept
{
    if (queue == TCOFLUSH || queue == TCIOFLUSH)
        discarded.append(descriptor);
    static const auto original = reinterpret_cast<int (*)(int, int)>(::dlsym(RTLD_NEXT, "tcflush"));
    return original(descriptor, queue);
}

class InitializerCableTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pulledBeforeTheQueryLeft()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        const Board *const found = bench.attach("BoardA");
        bench.initializer->setMaxRetries(0);
        const QString opened = QStringLiteral("Serial port opened for probing:  ") + quoted(board->portName());
        bench.onRecord = [&](const LogRecord &record) {
            if (record.text == opened)
                board->pull();
        };
        bench.probe({JwDevice::BoardA, JwDevice::BoardB});
        bench.onRecord = nullptr;
        const ErrorCount count(bench.port(board));
        QVERIFY(!bench.port(board)->isOpen());
        QCOMPARE(bench.initializer->portReports().first().verdict, JwDevice::PortReport::Lost);
        verifyClosedWithoutSpin(bench, board, count);
        QCOMPARE(bench.state(board), PortState::AwaitingReply);
        QTRY_COMPARE(bench.state(found), PortState::HandedOver);
        bench.timeOut(board);
        QCOMPARE(bench.decisions(), QStringList({foundA, missingB, over}));
    }

    void pulledBeforeTheEventLoopRuns()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.initializer->setMaxRetries(0);
        bench.probe({JwDevice::BoardA});
        const ErrorCount count(bench.port(board));
        board->pull();
        verifyClosedWithoutSpin(bench, board, count);
        QCOMPARE(bench.state(board), PortState::AwaitingReply);
        bench.timeOut(board);
        QCOMPARE(bench.decisions(), QStringList({missingA, over}));
    }

    void pulledWithinTheQuery()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent,speed=300");
        bench.initializer->setMaxRetries(0);
        QObject::connect(board, &Board::received, board, &Board::pull, Qt::QueuedConnection);
        bench.probe({JwDevice::BoardA});
        const ErrorCount count(bench.port(board));
        QTRY_VERIFY(!board->isPlugged());
        QVERIFY(!received(board).contains(versionQuery));
        verifyClosedWithoutSpin(bench, board, count);
        QTRY_COMPARE(bench.decisions(), QStringList({missingA, over}));
    }

    void pulledAfterTheQuery()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.initializer->setMaxRetries(0);
        bench.probe({JwDevice::BoardA});
        const ErrorCount count(bench.port(board));
        QTRY_COMPARE(received(board), versionQuery);
        board->pull();
        verifyClosedWithoutSpin(bench, board, count);
        QCOMPARE(bench.state(board), PortState::AwaitingReply);
        QTRY_COMPARE(bench.decisions(), QStringList({missingA, over}));
    }

    void pulledWithinTheReply()
    {
        ProbeBench bench;
        Board *const board = bench.attach("BoardA,pull-after-bytes=10");
        bench.initializer->setMaxRetries(0);
        bench.probe({JwDevice::BoardA});
        const ErrorCount count(bench.port(board));
        QTRY_VERIFY(!board->isPlugged());
        QCOMPARE(sent(board).size(), 10);
        verifyClosedWithoutSpin(bench, board, count);
        QTRY_COMPARE(bench.decisions(), QStringList({missingA, over}));
    }

    void pulledWhenTimedOut()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        const Board *const other = bench.attach("silent");
        bench.initializer->setMaxRetries(0);
        bench.probe({JwDevice::BoardA});
        const ErrorCount count(bench.port(board));
        bench.timeOut(board);
        board->pull();
        verifyClosedWithoutSpin(bench, board, count);
        QCOMPARE(bench.state(board), PortState::TimedOut);
        bench.timeOut(other);
        QCOMPARE(bench.decisions(), QStringList({missingA, over}));
    }

    void pulledWhenSilenced()
    {
        ProbeBench bench;
        Board *const board = bench.attach("BoardB");
        bench.probe({JwDevice::BoardA});
        const ErrorCount count(bench.port(board));
        QTRY_COMPARE(bench.state(board), PortState::Silenced);
        board->pull();
        verifyClosedWithoutSpin(bench, board, count);
        QVERIFY(bench.decisions().isEmpty());
    }

    void pulledWhenADuplicate()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        Board *const found = bench.attach("BoardA");
        const Board *const other = bench.attach("silent");
        bench.probe({JwDevice::BoardA});
        const ErrorCount count(bench.port(board));
        QTRY_COMPARE(bench.state(found), PortState::HandedOver);
        QVERIFY(board->send(versionReply("7300022")));
        QTRY_COMPARE(bench.state(board), PortState::Duplicate);
        board->pull();
        verifyClosedWithoutSpin(bench, board, count);
        bench.timeOut(other);
        QCOMPARE(bench.decisions(), QStringList({foundA, over}));
    }

    void pulledWhenTheProbeIsOver()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.initializer->setMaxRetries(0);
        bench.probe({JwDevice::BoardA});
        const ErrorCount count(bench.port(board));
        bench.timeOut(board);
        QVERIFY(bench.isOver());
        board->pull();
        verifyClosedWithoutSpin(bench, board, count);
        QCOMPARE(bench.decisions(), QStringList({missingA, over}));
    }

    void pulledInARetryRound()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.initializer->setMaxRetries(1);
        bench.probe({JwDevice::BoardA});
        const ErrorCount count(bench.port(board));
        bench.timeOut(board);
        QCOMPARE(bench.decisions(), QStringList{retry});
        board->pull();
        verifyClosedWithoutSpin(bench, board, count);
        QTRY_COMPARE(bench.decisions(), QStringList({retry, missingA, over}));
    }

    void pulledDuringTheDelayIsNotAccessible()
    {
        ProbeBench bench;
        Board *const board = bench.attach("BoardC");
        QVERIFY(bench.initializer->probe({JwDevice::BoardC}, 1, {board->portName()}));
        board->pull();
        QTRY_COMPARE(bench.timeline.size(), 2);
        QVERIFY(bench.timeline.first().startsWith(QStringLiteral("Serial port not accessible:  ")
                                                  + quoted(board->portName())));
        QCOMPARE(bench.timeline.last(), QStringLiteral("deviceNotFound BoardC"));
    }

    void closedPortIsNotWrittenToInARetryRoundButItsTimerRuns()
    {
        ProbeBench bench;
        Board *const pulled = bench.attach("silent");
        const Board *const silent = bench.attach("silent");
        bench.initializer->setMaxRetries(2);
        bench.probe({JwDevice::BoardA});
        pulled->pull();
        QTRY_VERIFY(!bench.port(pulled)->isOpen());
        const WarningCapture capture;
        const auto queries = [&] { return bench.log.sink->withText(QStringLiteral("->  \"$PJWVER*0c\"")).size() / 2; };
        QCOMPARE(queries(), 2);
        for (int round = 1; round <= 2; ++round) {
            bench.endReplyTimers();
            QTRY_COMPARE(bench.timeline.count(retry), round);
            QCOMPARE(queries(), 2 + round);
            QCOMPARE(bench.state(pulled), PortState::AwaitingReply);
            QCOMPARE(bench.replyTimer(pulled)->interval(), 400);
        }
        bench.endReplyTimers();
        QTRY_COMPARE(bench.decisions(), QStringList({retry, retry, missingA, over}));
        QTRY_COMPARE(received(silent), versionQuery.repeated(3));
        QCOMPARE(warnings, QStringList());
    }

    void closedPortStaysClosedWhenTheCableIsPluggedInAgain()
    {
        ProbeBench bench;
        Board *const board = bench.attach("BoardA,ignore=1");
        bench.initializer->setMaxRetries(1);
        bench.probe({JwDevice::BoardA});
        board->pull();
        QTRY_VERIFY(!bench.port(board)->isOpen());
        QVERIFY(board->plug());
        QTRY_COMPARE(bench.decisions(), QStringList({retry, missingA, over}));
        QVERIFY(!bench.port(board)->isOpen());
        QVERIFY(received(board).isEmpty());
    }

    void otherBoardsAreFoundWhileOneIsPulled()
    {
        ProbeBench bench;
        bench.attach("silent,pull-after=20");
        const Board *const found = bench.attach("BoardA,delay=100");
        bench.probe({JwDevice::BoardA});
        QTRY_VERIFY(bench.isOver());
        QCOMPARE(bench.decisions(), QStringList({foundA, over}));
        QVERIFY(bench.handOver(found).port->isOpen());
    }

    void programThatReadsBesideUsDoesNotCostThePort_data()
    {
        QTest::addColumn<int>("staleError");
        QTest::addColumn<QByteArray>("held");
        QTest::newRow("ReadError") << 0 << QByteArray();
        QTest::newRow("ResourceError, at which QSerialPort stops reading") << EAGAIN << QByteArray();
        QTest::newRow("the same, while an unfinished line is held back") << EAGAIN << QByteArray("$PJWVER,7300022");
    }
    void programThatReadsBesideUsDoesNotCostThePort()
    {
        QFETCH(int, staleError);
        QFETCH(QByteArray, held);
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        // Before the port, so that it is served first.
        auto beside = std::make_unique<ReaderBeside>(board, staleError);
        beside->pause(true);
        bench.probe({JwDevice::BoardA});
        const ErrorCount count(bench.port(board));
        QTRY_COMPARE(received(board), versionQuery);
        QVERIFY(held.isEmpty() || board->send(held));
        const auto *const lines = dynamic_cast<JwDevice::WholeLinesBase *>(bench.port(board));
        QTRY_COMPARE(lines->bytesReceived(), qint64(held.size()));
        beside->pause(false);
        QElapsedTimer clock;
        clock.start();
        while (count.errors() < 3) {
            QVERIFY(clock.elapsed() < 5000); // else the port reads no more
            QVERIFY(bench.port(board)->isOpen());
            QVERIFY(board->send("stolen\r\n"));
            settle();
        }
        QCOMPARE(bench.initializer->portReports().first().verdict, JwDevice::PortReport::Awaiting);
        beside.reset();
        QVERIFY(board->send(versionReply("7300022").mid(held.size())));
        QTRY_COMPARE(bench.state(board), PortState::HandedOver);
    }

    void unsentOutputIsDiscardedBeforeAPortIsClosed_data()
    {
        QTest::addColumn<bool>("isLost");
        QTest::newRow("by the end of the Initializer") << false;
        QTest::newRow("since its device is gone") << true;
    }
    void unsentOutputIsDiscardedBeforeAPortIsClosed()
    {
        QFETCH(bool, isLost);
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        bench.probe({JwDevice::BoardA});
        QTRY_COMPARE(received(board), versionQuery);
        const int descriptor = static_cast<int>(bench.port(board)->handle());
        discarded.clear();
        if (isLost) {
            board->pull();
            QTRY_VERIFY(!bench.port(board)->isOpen());
        } else {
            delete bench.initializer;
        }
        QCOMPARE(discarded, QVector<int>{descriptor});
    }

    void handedOverPortReportsItsErrorToTheApplicationAndIsLeftOpen()
    {
        ProbeBench bench;
        Board *const board = bench.attach("BoardA");
        bench.attach("silent");
        bench.probe({JwDevice::BoardA});
        QTRY_COMPARE(bench.state(board), PortState::HandedOver);
        QSerialPort *const port = bench.handOver(board).port;
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
        QVERIFY(openAtError); // what happens to it is up to the application
    }
};

SIMULATED_PORTS_MAIN(InitializerCableTest)
#include "tst_initializer_cable.moc"

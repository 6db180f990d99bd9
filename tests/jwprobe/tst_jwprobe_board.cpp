#include "support/common/portname.h"
#include "support/common/processusage.h"
#include "support/common/simulatedportsmain.h"
#include "support/device/discardedoutput.h"
#include "support/device/openterminal.h"
#include "support/device/otherreader.h"

#include <jwprobe/search/board.h>

#include <device/communicator.h>
#include <device/wholelines.h>
#include <simulator/board.h>
#include <simulator/testbed.h>

#include <QSerialPort>
#include <QSignalSpy>
#include <QTemporaryFile>
#include <QTest>

#include <cerrno>
#include <cstdlib>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

using namespace JwProbe;

namespace {

/// A found board on a simulated port, which the system lists. A pseudo terminal is not listed.
struct SimulatedPort
{
    /// `location` replaces the port's file in /dev. Empty: the port's file.
    explicit SimulatedPort(const QString &location = {})
        : device(testbed.add(silent()))
        , port(new JwDevice::WholeLines<QSerialPort>(device->portName()))
        , board(opened(), identity(location), JwDevice::PortReport(), 1)
    {
    }

    /// Makes the port report errors until it is closed. A simulated port has no pinout signals (such as DTR), so each
    /// attempt to read them fails.
    void fail() const
    {
        for (int i = 0; i < 2000 && port->isOpen(); ++i)
            port->pinoutSignals();
    }

    static JwSimulator::BoardConfig silent()
    {
        JwSimulator::BoardConfig config;
        config.kind = JwSimulator::BoardConfig::Kind::Silent;
        config.port = uniquePortName();
        return config;
    }
    JwDevice::Communicator *opened() const
    {
        if (!port->open(QIODevice::ReadWrite))
            qFatal("the port does not open");
        auto *comm = new JwDevice::Communicator(nullptr);
        comm->setIODevice(port);
        return comm;
    }
    PortIdentity identity(const QString &location) const
    {
        PortIdentity identity;
        identity.name = device->portName();
        identity.location = location.isEmpty() ? QStringLiteral("/dev/") + identity.name : location;
        identity.isKnown = true;
        return identity;
    }

    JwSimulator::Testbed testbed;
    JwSimulator::Board *const device;
    JwDevice::WholeLines<QSerialPort> *const port; // the same class as the ports from the Initializer
    Board board;
};

} // namespace

/// Tests jwprobe's class Board: a found board whose port reports errors.
class TestJwprobeBoard : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void errorThatPassesLosesNothing_data();
    void errorThatPassesLosesNothing();
    void whatIsSentLeavesNothingBehind();
    void deviceThatIsGoneIsACablePulled_data();
    void deviceThatIsGoneIsACablePulled();
    void portWithErrorsOnlyIsJudgedAfterAWhile_data();
    void portWithErrorsOnlyIsJudgedAfterAWhile();
    void unsentOutputIsDiscardedBeforeThePortIsClosed_data();
    void unsentOutputIsDiscardedBeforeThePortIsClosed();

private:
    void send(const QByteArray &bytes) const;

    Board *makeBoard();

    int m_boardEnd = -1;
    QScopedPointer<Board> m_board;
};

void TestJwprobeBoard::init()
{
    m_boardEnd = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    QVERIFY(::grantpt(m_boardEnd) == 0 && ::unlockpt(m_boardEnd) == 0);
}

void TestJwprobeBoard::cleanup()
{
    m_board.reset();
    if (m_boardEnd >= 0)
        ::close(m_boardEnd);
    m_boardEnd = -1;
}

void TestJwprobeBoard::send(const QByteArray &bytes) const
{
    QCOMPARE(::write(m_boardEnd, bytes.constData(), static_cast<std::size_t>(bytes.size())),
             static_cast<ssize_t>(bytes.size()));
}

Board *TestJwprobeBoard::makeBoard()
{
    auto *port = new JwDevice::WholeLines<QSerialPort>; // the same class as the ports from the Initializer
    port->setPortName(QString::fromLocal8Bit(::ptsname(m_boardEnd)));
    if (!openTerminal(*port))
        return nullptr;
    auto *comm = new JwDevice::Communicator(nullptr);
    comm->setIODevice(port);
    PortIdentity identity;
    identity.name = QStringLiteral("ttyTST0");
    identity.location = port->portName();
    return new Board(comm, identity, JwDevice::PortReport(), 1);
}

void TestJwprobeBoard::errorThatPassesLosesNothing_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<QSerialPort::SerialPortError>("reported");
    QTest::addColumn<QByteArray>("held");
    // An OtherReader reads the bytes first, so QSerialPort finds no bytes. QSerialPort then derives its error from the
    // errno that an earlier call left.
    QTest::newRow("QSerialPort stops reading") << EAGAIN << QSerialPort::ResourceError << QByteArray();
    QTest::newRow("QSerialPort reads on") << ENOENT << QSerialPort::ReadError << QByteArray();
    QTest::newRow("while an unfinished line is held back")
        << EAGAIN << QSerialPort::ResourceError << QByteArray("$PJWVER");
}

void TestJwprobeBoard::errorThatPassesLosesNothing()
{
    QFETCH(int, number);
    QFETCH(QByteArray, held);
    OtherReader other(QString::fromLocal8Bit(::ptsname(m_boardEnd)), number);
    m_board.reset(makeBoard());
    QVERIFY(m_board);
    const QSerialPort *const port = m_board->serialPort();
    send(held);
    QTRY_COMPARE(static_cast<const JwDevice::WholeLines<QSerialPort> *>(port)->bytesReceived(), held.size());

    QList<QSerialPort::SerialPortError> errors;
    connect(port, &QSerialPort::errorOccurred, this,
            [&errors](QSerialPort::SerialPortError error) { errors.append(error); });
    const QSignalSpy lost(m_board.data(), &Board::lost);
    other.start(port);
    send("$PJWVER*0c\r\n");
    QTRY_VERIFY(!errors.isEmpty());
    other.stop();

    QTEST(errors.first(), "reported");
    QVERIFY(m_board->isConnected());
    send("\r\n$PJWVER,1\r\n");
    QString payload;
    const auto isReceived = [&] {
        while (m_board->receive(payload)) { } // skips the end of the unfinished line
        return payload == QLatin1String("$PJWVER,1\r\n");
    };
    QTRY_VERIFY(isReceived());
    QCOMPARE(lost.size(), 0);
}

void TestJwprobeBoard::whatIsSentLeavesNothingBehind()
{
    m_board.reset(makeBoard());
    QVERIFY(m_board);
    const QByteArray reply = "$PJWVER,1\r\n";
    const QSignalSpy payloads(m_board.data(), &Board::readyRead);
    QString payload;
    char bytes[4096];
    const auto exchange = [&](int count) {
        for (int i = 0; i < count; ++i) {
            // The lengths alternate, because a Communicator keeps memory only when the length changes.
            m_board->send(i % 2 == 0 ? QStringLiteral("$PJWVER*0c\r\n") : QStringLiteral("$PTJWWR,INF*71\r\n"));
            if (i % 100 != 0)
                continue;
            send(reply);
            while (m_board->serialPort()->bytesToWrite() > 0 || !m_board->receive(payload)) {
                QCoreApplication::processEvents();
                pollfd state = {m_boardEnd, POLLIN, 0};
                if (::poll(&state, 1, 0) == 1)
                    QVERIFY(::read(m_boardEnd, bytes, sizeof bytes) > 0);
            }
            QCOMPARE(payload, QString::fromLatin1(reply));
        }
    };
    exchange(20000);
    const qint64 before = ProcessUsage::now().heapBytes;
    exchange(60000);
    const qint64 growth = ProcessUsage::now().heapBytes - before;
    // If jwprobe kept 48 bytes for each of the 60,000 payloads, the heap would grow by 2,880,000 bytes.
    QVERIFY2(growth < 1000000, QByteArray::number(growth).constData());
}

void TestJwprobeBoard::deviceThatIsGoneIsACablePulled_data()
{
    QTest::addColumn<bool>("isFileLeft");
    QTest::newRow("its file is gone too") << false;
    QTest::newRow("its file stays, as in a container") << true;
}

void TestJwprobeBoard::deviceThatIsGoneIsACablePulled()
{
    QFETCH(bool, isFileLeft);
    QTemporaryFile file;
    QVERIFY(file.open());
    SimulatedPort simulated(isFileLeft ? file.fileName() : QString());
    const QSignalSpy lost(&simulated.board, &Board::lost);
    simulated.device->pull();
    QTRY_COMPARE(lost.size(), 1);
    QVERIFY(!simulated.board.isConnected());
    QCOMPARE(simulated.board.lossText(), QStringLiteral("cable pulled"));
}

void TestJwprobeBoard::portWithErrorsOnlyIsJudgedAfterAWhile_data()
{
    QTest::addColumn<bool>("isPulledSoon");
    QTest::addColumn<QString>("text");
    QTest::newRow("device stays") << false << QStringLiteral("port failed: ");
    QTest::newRow("system removes the device after the errors") << true << QStringLiteral("cable pulled");
}

void TestJwprobeBoard::portWithErrorsOnlyIsJudgedAfterAWhile()
{
    QFETCH(bool, isPulledSoon);
    QFETCH(QString, text);
    SimulatedPort simulated;
    const QSignalSpy lost(&simulated.board, &Board::lost);
    simulated.fail();
    QVERIFY(!simulated.board.isConnected());
    QCOMPARE(lost.size(), 0);
    if (isPulledSoon)
        simulated.device->pull();
    QTRY_COMPARE(lost.size(), 1);
    QVERIFY2(simulated.board.lossText().startsWith(text), qPrintable(simulated.board.lossText()));
}

void TestJwprobeBoard::unsentOutputIsDiscardedBeforeThePortIsClosed_data()
{
    QTest::addColumn<bool>("isLost");
    QTest::newRow("the board is deleted") << false;
    QTest::newRow("the cable is pulled") << true;
}

void TestJwprobeBoard::unsentOutputIsDiscardedBeforeThePortIsClosed()
{
    QFETCH(bool, isLost);
    m_board.reset(makeBoard());
    QVERIFY(m_board);
    const auto descriptor = static_cast<int>(m_board->serialPort()->handle());
    discardedOutput.clear();
    if (isLost) {
        ::close(m_boardEnd);
        m_boardEnd = -1;
        QTRY_VERIFY(!m_board->isConnected());
    } else {
        m_board.reset();
    }
    QCOMPARE(discardedOutput, QVector<int>{descriptor});
}

SIMULATED_PORTS_MAIN(TestJwprobeBoard)
#include "tst_jwprobe_board.moc"

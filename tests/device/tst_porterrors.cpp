#include "support/common/eventloop.h"
#include "support/common/portname.h"
#include "support/common/simulatedportsmain.h"
#include "support/device/discardedoutput.h"
#include "support/device/openterminal.h"
#include "support/device/otherreader.h"

#include <device/porterrors.h>
#include <device/wholelines.h>
#include <simulator/board.h>
#include <simulator/testbed.h>

#include <QFile>
#include <QMetaMethod>
#include <QPointer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <memory>
#include <vector>

#include <pty.h>
#include <unistd.h>

using JwDevice::closeAtOnce;
using JwDevice::PortErrors;
using JwSimulator::Board;

namespace {

constexpr int errorsOfALostPort = 1000;

/// An open simulated port with a silent board. A PortErrors (the class that notices lost ports) watches the port.
struct WatchedPort
{
    explicit WatchedPort(bool wholeLines = false)
        : board(testbed.add(silent()))
    {
        if (wholeLines)
            port = std::make_unique<JwDevice::WholeLines<QSerialPort>>(board->portName());
        else
            port = std::make_unique<QSerialPort>(board->portName());
        if (!port->open(QIODevice::ReadWrite))
            qFatal("the port does not open");
        errors = new PortErrors(port.get());
        QObject::connect(errors, &PortErrors::portLost, errors, [this](bool isDeviceGone) {
            losses << isDeviceGone;
            closeAtOnce(port.get());
        });
        QObject::connect(port.get(), &QSerialPort::errorOccurred, errors, [this](QSerialPort::SerialPortError error) {
            if (error != QSerialPort::NoError)
                reported << error;
        });
    }

    /// Makes the port fail `count` times, or until it is closed. A simulated port has no pinout signals (such as DTR),
    /// so each attempt to read them fails.
    void fail(int count)
    {
        for (int i = 0; i < count && port->isOpen(); ++i)
            port->pinoutSignals();
    }

    QString location() const { return QStringLiteral("/dev/") + board->portName(); }

    static JwSimulator::BoardConfig silent()
    {
        JwSimulator::BoardConfig config;
        config.kind = JwSimulator::BoardConfig::Kind::Silent;
        config.port = uniquePortName();
        return config;
    }

    JwSimulator::Testbed testbed;
    Board *const board;
    std::unique_ptr<QSerialPort> port;
    QPointer<PortErrors> errors;
    QVector<bool> losses; // for each portLost() so far, its argument: whether the device is gone
    QVector<QSerialPort::SerialPortError> reported;
};

/// A pseudo terminal that is not a simulated port. When the board's end closes, the system removes the port's end.
struct PseudoTerminal
{
    /// Makes the symbolic link `link` and opens the terminal through it. Without `link`, opens the terminal itself.
    explicit PseudoTerminal(const QString &link = {})
    {
        char name[64] = "";
        int portEnd = -1;
        if (::openpty(&boardEnd, &portEnd, name, nullptr, nullptr) != 0)
            qFatal("no pseudo terminal");
        if (!link.isEmpty() && !QFile::link(QString::fromLocal8Bit(name), link))
            qFatal("no link");
        port.setPortName(link.isEmpty() ? QString::fromLocal8Bit(name) : link);
        if (!openTerminal(port))
            qFatal("the pseudo terminal does not open");
        ::close(portEnd);
    }
    ~PseudoTerminal() { hangUp(); }
    PseudoTerminal(const PseudoTerminal &) = delete;
    PseudoTerminal &operator=(const PseudoTerminal &) = delete;

    void hangUp()
    {
        if (boardEnd >= 0)
            ::close(boardEnd);
        boardEnd = -1;
    }

    int boardEnd = -1;
    QSerialPort port;
};

/// Counts the emissions of all signals of a port.
class SignalCount
{
public:
    explicit SignalCount(const QSerialPort *port)
    {
        const QMetaObject *const type = port->metaObject();
        for (int i = 0; i < type->methodCount(); ++i) {
            if (type->method(i).methodType() == QMetaMethod::Signal)
                m_spies.push_back(std::make_unique<QSignalSpy>(port, type->method(i)));
        }
    }
    auto count() const
    {
        QSignalSpy::size_type count = 0;
        for (const auto &spy : m_spies)
            count += spy->size();
        return count;
    }

private:
    std::vector<std::unique_ptr<QSignalSpy>> m_spies;
};

} // namespace

class TestPortErrors : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pulledCableLosesThePortSoon_data();
    void pulledCableLosesThePortSoon();
    void pulledCableIsSeenAlsoDirectlyAfterAnErrorThatPassed();
    void pseudoTerminalIsLostAtItsEndAndNotBefore_data();
    void pseudoTerminalIsLostAtItsEndAndNotBefore();
    void errorThatPassesLosesNothing_data();
    void errorThatPassesLosesNothing();
    void portThatOnlyFailsIsLostAfterAThousandErrors();
    void readingStartsTheRowAgain_data();
    void readingStartsTheRowAgain();
    void restStartsTheRowAgain();
    void closedPortIsNotJudged();
    void reopenedPortIsWatched();
    void portAndItsWatchMayBeDeletedInEachOrder();
    void portMayBeDeletedLaterByTheReceiver();

    void closingDiscardsUnsentOutput();
    void closingEmitsNoSignal_data();
    void closingEmitsNoSignal();
    void closingLeavesBlockedSignalsBlocked();
    void closingAClosedPortDoesNothing();
};

void TestPortErrors::pulledCableLosesThePortSoon_data()
{
    QTest::addColumn<bool>("wholeLines");
    QTest::addColumn<QByteArray>("held");
    QTest::newRow("plain port") << false << QByteArray();
    QTest::newRow("port of whole lines") << true << QByteArray();
    QTest::newRow("while an unfinished line is held back") << true << QByteArray("$PJWVER");
}

void TestPortErrors::pulledCableLosesThePortSoon()
{
    QFETCH(bool, wholeLines);
    QFETCH(QByteArray, held);
    WatchedPort watched(wholeLines);
    QVERIFY(watched.board->send(held));
    settle();
    watched.board->pull();
    QTRY_COMPARE(watched.losses, QVector<bool>{true});
    QVERIFY2(watched.reported.size() <= 3, QByteArray::number(watched.reported.size()));
    settle();
    QCOMPARE(watched.losses.size(), 1);
}

void TestPortErrors::pulledCableIsSeenAlsoDirectlyAfterAnErrorThatPassed()
{
    WatchedPort watched;
    watched.fail(1);
    QCOMPARE(watched.reported.size(), 1);
    QCOMPARE(watched.losses, QVector<bool>());
    watched.board->pull();
    QTRY_COMPARE(watched.losses, QVector<bool>{true});
}

void TestPortErrors::pseudoTerminalIsLostAtItsEndAndNotBefore_data()
{
    QTest::addColumn<bool>("isLink");
    QTest::newRow("by its own name") << false;
    QTest::newRow("by a link outside /dev") << true;
}

void TestPortErrors::pseudoTerminalIsLostAtItsEndAndNotBefore()
{
    QFETCH(bool, isLink);
    const QTemporaryDir folder;
    PseudoTerminal terminal(isLink ? folder.filePath(QStringLiteral("board")) : QString());
    QSignalSpy failed(&terminal.port, &QSerialPort::errorOccurred);
    QVector<bool> losses;
    auto *const errors = new PortErrors(&terminal.port);
    connect(errors, &PortErrors::portLost, errors, [&](bool isDeviceGone) {
        losses << isDeviceGone;
        closeAtOnce(&terminal.port);
    });
    terminal.port.pinoutSignals(); // fails, because a pseudo terminal has none
    QVERIFY(!failed.isEmpty());
    QCOMPARE(losses, QVector<bool>()); // not lost, because the terminal exists; it is only missing in the list of ports
    terminal.hangUp();
    QTRY_COMPARE(losses, QVector<bool>{true}); // true, because the system has removed the port's end
}

void TestPortErrors::errorThatPassesLosesNothing_data()
{
    QTest::addColumn<bool>("wholeLines");
    QTest::addColumn<int>("staleError");
    QTest::addColumn<QSerialPort::SerialPortError>("error");
    QTest::addColumn<QByteArray>("held");
    // QSerialPort itself stops reading after a ResourceError. The test checks that PortErrors makes the port read
    // again.
    const auto stops = QSerialPort::ResourceError;
    QTest::newRow("ReadError") << false << ENOENT << QSerialPort::ReadError << QByteArray();
    QTest::newRow("ResourceError") << false << EAGAIN << stops << QByteArray();
    QTest::newRow("ResourceError while bytes wait") << false << EAGAIN << stops << QByteArray("$PJWVER");
    QTest::newRow("ResourceError, whole lines") << true << EAGAIN << stops << QByteArray();
    QTest::newRow("ResourceError while a line waits") << true << EAGAIN << stops << QByteArray("$PJWVER*0c\r\n");
    QTest::newRow("ResourceError while an unfinished line is held back")
        << true << EAGAIN << stops << QByteArray("$PJWVER");
}

void TestPortErrors::errorThatPassesLosesNothing()
{
    QFETCH(bool, wholeLines);
    QFETCH(int, staleError);
    QFETCH(QByteArray, held);
    WatchedPort watched(wholeLines);
    watched.port->close(); // because OtherReader must open the port before the QSerialPort locks it
    OtherReader other(watched.location(), staleError);
    QVERIFY(watched.port->open(QIODevice::ReadWrite));

    QVERIFY(watched.board->send(held));
    QTRY_COMPARE(watched.port->peek(1000), held);
    watched.reported.clear();
    other.start(watched.port.get());
    QVERIFY(watched.board->send("taken by the other program\r\n"));
    QTRY_VERIFY(!watched.reported.isEmpty());
    QTEST(watched.reported.first(), "error");
    other.stop();

    const QSignalSpy readable(watched.port.get(), &QSerialPort::readyRead);
    QVERIFY(watched.board->send("for us\r\n"));
    QTRY_VERIFY(!readable.isEmpty());
    QTRY_COMPARE(watched.port->peek(1000), held + "for us\r\n");
    QCOMPARE(watched.losses, QVector<bool>());
    QVERIFY(watched.port->isOpen());
}

void TestPortErrors::portThatOnlyFailsIsLostAfterAThousandErrors()
{
    WatchedPort watched;
    watched.fail(errorsOfALostPort - 1);
    QCOMPARE(watched.reported.size(), errorsOfALostPort - 1);
    QCOMPARE(watched.losses, QVector<bool>());
    watched.fail(1);
    QCOMPARE(watched.losses, QVector<bool>{false}); // false, because the device still exists
}

void TestPortErrors::readingStartsTheRowAgain_data()
{
    QTest::addColumn<bool>("wholeLines");
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("plain port") << false << QByteArray("x");
    QTest::newRow("whole line") << true << QByteArray("$PJWVER*0c\r\n");
    QTest::newRow("unfinished line that is held back") << true << QByteArray("$PJWVER");
}

void TestPortErrors::readingStartsTheRowAgain()
{
    QFETCH(bool, wholeLines);
    QFETCH(QByteArray, bytes);
    WatchedPort watched(wholeLines);
    watched.fail(errorsOfALostPort - 1);
    QVERIFY(watched.board->send(bytes));
    QTRY_COMPARE(watched.port->peek(1000), bytes);
    watched.fail(errorsOfALostPort - 1);
    QCOMPARE(watched.losses, QVector<bool>());
    watched.fail(1);
    QCOMPARE(watched.losses, QVector<bool>{false});
}

void TestPortErrors::restStartsTheRowAgain()
{
    WatchedPort watched;
    watched.fail(errorsOfALostPort - 1);
    QSignalSpy lost(watched.errors, &PortErrors::portLost);
    QVERIFY(!lost.wait(1100)); // after a second without errors, the count of errors starts again at 0
    watched.fail(errorsOfALostPort - 1);
    QCOMPARE(watched.losses, QVector<bool>());
    watched.fail(1);
    QCOMPARE(watched.losses, QVector<bool>{false});
}

void TestPortErrors::closedPortIsNotJudged()
{
    WatchedPort watched;
    watched.port->close();
    for (int i = 0; i < 2 * errorsOfALostPort; ++i)
        watched.port->pinoutSignals(); // fails with NotOpenError, which must not count
    QVERIFY(watched.reported.contains(QSerialPort::NotOpenError));
    QCOMPARE(watched.losses, QVector<bool>());
}

void TestPortErrors::reopenedPortIsWatched()
{
    WatchedPort watched;
    watched.port->close();
    QVERIFY(watched.port->open(QIODevice::ReadWrite));
    watched.board->pull();
    QTRY_COMPARE(watched.losses, QVector<bool>{true});
}

void TestPortErrors::portAndItsWatchMayBeDeletedInEachOrder()
{
    WatchedPort watched;
    delete watched.errors;
    watched.fail(2 * errorsOfALostPort);
    QCOMPARE(watched.losses, QVector<bool>());
    QVERIFY(watched.port->isOpen());

    const QPointer<PortErrors> errors = new PortErrors(watched.port.get());
    QCOMPARE(errors->parent(), watched.port.get());
    watched.port.reset();
    QVERIFY(!errors);
}

void TestPortErrors::portMayBeDeletedLaterByTheReceiver()
{
    WatchedPort watched;
    const QPointer<QSerialPort> port = watched.port.release();
    delete watched.errors;
    QObject::connect(new PortErrors(port), &PortErrors::portLost, port, [&port] {
        closeAtOnce(port);
        port->deleteLater();
    });
    watched.board->pull();
    QTRY_VERIFY(!port);
}

void TestPortErrors::closingDiscardsUnsentOutput()
{
    PseudoTerminal terminal;
    terminal.port.write("nobody takes this");
    QVERIFY(terminal.port.flush());
    discardedOutput.clear();
    const auto descriptor = static_cast<int>(terminal.port.handle());
    closeAtOnce(&terminal.port);
    QVERIFY(!terminal.port.isOpen());
    QCOMPARE(discardedOutput, QVector<int>{descriptor});
}

void TestPortErrors::closingEmitsNoSignal_data()
{
    QTest::addColumn<bool>("isPulled");
    QTest::newRow("the device is there") << false;
    QTest::newRow("the device is gone") << true;
}

void TestPortErrors::closingEmitsNoSignal()
{
    QFETCH(bool, isPulled);
    WatchedPort watched;
    QVERIFY(watched.port->setBaudRate(9600));
    if (isPulled)
        watched.board->pull();
    const SignalCount count(watched.port.get());
    closeAtOnce(watched.port.get());
    QVERIFY(!watched.port->isOpen());
    QCOMPARE(count.count(), 0);
    settle();
    QCOMPARE(count.count(), 0);
    QVERIFY(!watched.port->signalsBlocked());
}

void TestPortErrors::closingLeavesBlockedSignalsBlocked()
{
    WatchedPort watched;
    watched.port->blockSignals(true);
    closeAtOnce(watched.port.get());
    QVERIFY(watched.port->signalsBlocked());
}

void TestPortErrors::closingAClosedPortDoesNothing()
{
    QSerialPort port;
    const SignalCount count(&port);
    discardedOutput.clear();
    closeAtOnce(&port);
    QCOMPARE(port.error(), QSerialPort::NoError);
    QCOMPARE(count.count(), 0);
    QCOMPARE(discardedOutput, QVector<int>());
}

SIMULATED_PORTS_MAIN(TestPortErrors)
#include "tst_porterrors.moc"

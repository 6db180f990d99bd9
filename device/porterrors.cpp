#include "porterrors.h"

#include <device/wholelines.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QSerialPortInfo>
#include <QSignalBlocker>

namespace JwDevice {

namespace {

constexpr int errorsOfLostPort = 1000; // errors without a read between them; a lost port soon reports this many
constexpr qint64 restTime = 1000; // ms; after this time without an error, counting starts again at 0
// ms between two checks. A check finds out whether the device is there. It may list all ports, which is slow, so not
// every error leads to a check.
constexpr qint64 timeBetweenLooks = 100;

bool isThere(const QString &portName)
{
    if (!QSerialPortInfo(portName).isNull())
        return true;
    // QSerialPortInfo does not list pseudo terminals ("pts/3") and links to ports, so for these the file in /dev
    // counts. The file of any other port proves nothing: in a container it may stay when the device is gone.
    const QFileInfo node(QDir(QStringLiteral("/dev")), portName);
    return node.exists() && (portName.contains(QLatin1Char('/')) || node.isSymLink());
}

} // namespace

struct PortErrors::Run
{
    QSerialPort *port;
    int errors = 0;
    QElapsedTimer newestError;
    QElapsedTimer newestLook;
};

PortErrors::PortErrors(QSerialPort *port)
    : QObject(port)
    , m_run(new Run{port, 0, {}, {}})
{
    connect(port, &QSerialPort::errorOccurred, this, &PortErrors::judge);
    connect(port, &QSerialPort::readyRead, this, [this] { m_run->errors = 0; });
}

PortErrors::~PortErrors() = default;

void PortErrors::judge(QSerialPort::SerialPortError error)
{
    QSerialPort *const port = m_run->port;
    if (error == QSerialPort::NoError || !port->isOpen())
        return;
    if (m_run->newestError.isValid() && m_run->newestError.elapsed() > restTime)
        m_run->errors = 0;
    m_run->newestError.start();
    ++m_run->errors;
    const bool isRowFull = m_run->errors >= errorsOfLostPort;
    bool isDeviceGone = false;
    if (isRowFull || !m_run->newestLook.isValid() || m_run->newestLook.elapsed() >= timeBetweenLooks) {
        m_run->newestLook.start();
        isDeviceGone = !isThere(port->portName());
    }
    if (isDeviceGone || isRowFull) {
        Q_EMIT portLost(isDeviceGone);
        return;
    }
    // After some errors, QSerialPort stops reading. QSerialPort starts again when somebody asks for more bytes than it
    // has received, so this peek asks for one more byte.
    const auto *const lines = qobject_cast<WholeLinesBase *>(port);
    port->peek((lines ? lines->bytesReceived() : port->bytesAvailable()) + 1);
}

void closeAtOnce(QSerialPort *port)
{
    if (!port->isOpen())
        return;
    const QSignalBlocker blocker(port); // if the device is gone, clear() fails and emits a signal
    port->clear(QSerialPort::Output);
    port->close();
}

} // namespace JwDevice

// Included here so that abidw, the tool with which scripts/abi describes the binary interface, sees the whole class in
// one translation unit.
#include "moc_porterrors.cpp"

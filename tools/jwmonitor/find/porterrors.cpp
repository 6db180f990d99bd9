#include "porterrors.h"

#include <device/wholelines.h>

#include <QFile>

namespace JwMonitor {

namespace {

constexpr int mostErrors = 1000; // in a row, with nothing read between them
constexpr int restTime = 1000; // ms without an error, after which the next one begins a row

} // namespace

PortErrors::PortErrors(QSerialPort *port)
    : QObject(port)
    , m_port(port)
{
    connect(port, &QSerialPort::errorOccurred, this, &PortErrors::judge);
    connect(port, &QSerialPort::readyRead, this, [this] { m_errors = 0; });
}

PortErrors::~PortErrors() = default;

void PortErrors::judge(QSerialPort::SerialPortError error)
{
    if (error == QSerialPort::NoError || !m_port->isOpen())
        return;
    if (!m_newest.isValid() || m_newest.hasExpired(restTime))
        m_errors = 0;
    m_newest.start();
    ++m_errors;
    const bool isGone = !QFile::exists(QStringLiteral("/dev/") + m_port->portName());
    if (isGone || m_errors > mostErrors) {
        Q_EMIT portLost();
    } else {
        // At some errors QSerialPort stops reading until it is asked for more than it holds.
        const auto *const lines = qobject_cast<JwDevice::WholeLinesBase *>(m_port);
        m_port->peek((lines ? lines->bytesReceived() : m_port->bytesAvailable()) + 1);
    }
}

} // namespace JwMonitor

#include "portguard.h"

#include <device/communicator.h>
#include <device/porterrors.h>

#include <QSerialPort>
#include <QThread>
#include <QTimer>

namespace JwDevice {

namespace {

constexpr int retryInterval = 50; // ms between two looks whether the port can be deleted

int loopLevel()
{
    return QThread::currentThread()->loopLevel();
}

} // namespace

PortGuard::PortGuard(QSerialPort *port, Communicator *communicator)
    : QObject(port)
    , m_port(port)
{
    communicator->setIODevice(nullptr);
    connect(port, &QSerialPort::readyRead, this, &PortGuard::begin);
    connect(port, &QSerialPort::bytesWritten, this, &PortGuard::begin);
    connect(port, &QSerialPort::errorOccurred, this, &PortGuard::mark);
    communicator->setIODevice(port);
    connect(port, &QSerialPort::readyRead, this, &PortGuard::end);
    connect(port, &QSerialPort::bytesWritten, this, &PortGuard::end);
    communicator->setParent(port);
    // Bytes that arrived before are read at the next readyRead(), which may never come.
    if (port->bytesAvailable() > 0)
        QMetaObject::invokeMethod(port, &QSerialPort::readyRead, Qt::QueuedConnection);
}

void PortGuard::mark()
{
    // A signal that the loop of this level delivers shows that this loop has finished its earlier signals.
    while (!m_levels.isEmpty() && m_levels.last() >= loopLevel())
        m_levels.removeLast();
    m_levels.append(loopLevel());
}

void PortGuard::begin()
{
    mark();
    ++m_depth;
}

void PortGuard::end()
{
    --m_depth;
}

void PortGuard::dispose(When when)
{
    closeAtOnce(m_port);
    m_port->setParent(nullptr);
    if (when == Now && m_depth == 0 && m_levels.value(0, 1) > 0 && loopLevel() == 0)
        delete m_port; // no event loop runs, so deleteLater() might never delete the port
    else
        deleteWhenSafe();
}

void PortGuard::deleteWhenSafe()
{
    if (m_depth == 0 && (m_levels.isEmpty() || m_levels.first() >= loopLevel()))
        m_port->deleteLater();
    else
        QTimer::singleShot(retryInterval, this, &PortGuard::deleteWhenSafe);
}

} // namespace JwDevice

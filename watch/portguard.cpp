#include "portguard.h"

#include <device/communicator.h>
#include <device/porterrors.h>

#include <QSerialPort>
#include <QThread>

namespace JwDevice {

namespace {

bool isInEventLoop()
{
    return QThread::currentThread()->loopLevel() > 0;
}

} // namespace

PortGuard::PortGuard(QSerialPort *port, Communicator *communicator)
    : QObject(port)
    , m_port(port)
{
    communicator->setIODevice(nullptr);
    connect(port, &QSerialPort::readyRead, this, &PortGuard::onSignal);
    connect(port, &QSerialPort::bytesWritten, this, &PortGuard::onSignal);
    connect(port, &QSerialPort::errorOccurred, this, &PortGuard::onSignal);
    communicator->setParent(port);
    onSignal();
}

void PortGuard::bind(Communicator *communicator)
{
    communicator->setIODevice(m_port);
    // Bytes that arrived before are read at the next readyRead(), which may never come.
    if (m_port->bytesAvailable() > 0)
        QMetaObject::invokeMethod(m_port, &QSerialPort::readyRead, Qt::QueuedConnection);
}

void PortGuard::onSignal()
{
    // deleteLater() waits until the event that is handled now is over, also if a receiver runs an event loop or
    // processes events. So the mark exists at least as long as the signal is handled.
    auto *const mark = new QObject(this);
    const int outside = isInEventLoop() ? 0 : 1;
    ++m_signals;
    m_signalsOutside += outside;
    connect(mark, &QObject::destroyed, this, [this, outside] {
        --m_signals;
        m_signalsOutside -= outside;
        deleteWhenSafe();
    });
    mark->deleteLater();
}

void PortGuard::dispose(When when)
{
    closeAtOnce(m_port);
    m_port->setParent(nullptr);
    m_isDisposed = true;
    if (when == Now && m_signalsOutside == 0 && !isInEventLoop())
        delete m_port; // no event loop runs, so deleteLater() might never delete the port
    else
        deleteWhenSafe();
}

void PortGuard::deleteWhenSafe()
{
    if (m_isDisposed && m_signals == 0)
        m_port->deleteLater();
}

} // namespace JwDevice

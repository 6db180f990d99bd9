#pragma once

#include <QCoreApplication>
#include <QEvent>
#include <QPointer>
#include <QSerialPort>
#include <QSocketNotifier>
#include <QString>

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

/// Acts as another program that reads from a port. It takes the bytes after the system has reported them to QSerialPort
/// and before QSerialPort reads. QSerialPort then finds nothing to read, and reports errno, which an earlier call set.
class OtherReader : public QObject
{
public:
    /// Opens the port at `location`. Call it before QSerialPort opens the port, because QSerialPort locks the port.
    OtherReader(const QString &location, int errorNumber)
        : m_descriptor(::open(qPrintable(location), O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC))
        , m_errorNumber(errorNumber)
    {
        if (m_descriptor < 0)
            qFatal("%s does not open a second time", qPrintable(location));
        QCoreApplication::instance()->installEventFilter(this);
    }
    ~OtherReader() override { ::close(m_descriptor); }

    /// Starts to take the bytes that arrive. `port` is the same port, opened by QSerialPort.
    void start(const QSerialPort *port) { m_port = port; }
    void stop() { m_port = nullptr; }

    bool eventFilter(QObject *object, QEvent *event) override
    {
        const auto *const notifier = qobject_cast<QSocketNotifier *>(object);
        if (m_port && event->type() == QEvent::SockAct && notifier && notifier->socket() == m_port->handle()) {
            char bytes[64];
            while (::read(m_descriptor, bytes, sizeof bytes) > 0) { }
            errno = m_errorNumber;
        }
        return false;
    }

private:
    QPointer<const QSerialPort> m_port;
    const int m_descriptor;
    const int m_errorNumber;
};

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

/// Acts as another program that reads from the same port as a QSerialPort. When the system has reported bytes to the
/// QSerialPort, this object reads the bytes first. The QSerialPort then finds no bytes, and takes its error from errno.
/// A read that finds no bytes does not change errno, so this object can choose the error: it sets errno to
/// `errorNumber`.
class OtherReader : public QObject
{
public:
    /// Opens the port at `location`. Create this object before a QSerialPort opens the port: an open QSerialPort locks
    /// the port, so a later open fails.
    OtherReader(const QString &location, int errorNumber)
        : m_descriptor(::open(qPrintable(location), O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC))
        , m_errorNumber(errorNumber)
    {
        if (m_descriptor < 0)
            qFatal("%s does not open a second time", qPrintable(location));
        QCoreApplication::instance()->installEventFilter(this);
    }
    ~OtherReader() override { ::close(m_descriptor); }

    /// Starts to read the bytes that arrive. `port` is the QSerialPort that must not get them.
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

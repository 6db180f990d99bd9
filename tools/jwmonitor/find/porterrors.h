#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QSerialPort>

namespace JwMonitor {

/// Tells by the errors of an open port whether it is lost. One error may pass, such as that of a program that took the
/// bytes away. A port that is gone, or broken, reports errors at every turn of the event loop for as long as it is
/// open.
class PortErrors : public QObject
{
    Q_OBJECT

public:
    /// Belongs to `port`.
    explicit PortErrors(QSerialPort *port);
    ~PortErrors() override;

Q_SIGNALS:
    /// Close the port.
    void portLost();

private:
    void judge(QSerialPort::SerialPortError error);

    QSerialPort *const m_port;
    QElapsedTimer m_newest; // error
    int m_errors = 0; // in a row
};

} // namespace JwMonitor

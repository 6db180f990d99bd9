#pragma once

#include <device/jwdevice_export.h>

#include <QObject>
#include <QSerialPort>

#include <memory>

namespace JwDevice {

/**
 * Tells from the errors of an open serial port whether the port is lost.
 *
 * QSerialPort reports a pulled cable as an endless run of read errors, thousands in each second. But a single error may
 * pass: another program that reads from the same port causes such errors. The port is lost when its device is gone, or
 * after 1000 errors in a row with nothing read between them and no second of rest. After any other error the port reads
 * on.
 *
 * \code
 * auto *errors = new JwDevice::PortErrors(port);
 * connect(errors, &JwDevice::PortErrors::portLost, this, [port] { JwDevice::closeAtOnce(port); });
 * \endcode
 */
class JWDEVICE_EXPORT PortErrors : public QObject
{
    Q_OBJECT

public:
    /// Belongs to `port` and watches it until either is deleted. Lives in the thread of `port`.
    explicit PortErrors(QSerialPort *port);
    ~PortErrors() override;

Q_SIGNALS:
    /// The port is lost. Close it: an open port goes on to report errors without end. Don't delete it here, use
    /// QObject::deleteLater(). `isDeviceGone`: the system no longer has the device, so the cable was pulled.
    void portLost(bool isDeviceGone);

private:
    JWDEVICE_NO_EXPORT void judge(QSerialPort::SerialPortError error);

    struct Run;
    const std::unique_ptr<Run> m_run;
};

/// Closes `port` without waiting and without a signal. Bytes that the board did not take are discarded: the system
/// would hold up QSerialPort::close() for them, by default for 30 s. Does nothing if `port` is closed.
JWDEVICE_EXPORT void closeAtOnce(QSerialPort *port);

} // namespace JwDevice

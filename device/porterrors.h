#pragma once

#include <device/jwdevice_export.h>

#include <QObject>
#include <QSerialPort>

#include <memory>

namespace JwDevice {

/**
 * Watches the errors of an open serial port and reports when the port is lost.
 *
 * If the cable is pulled, QSerialPort reports thousands of read errors per second without end. But a single error does
 * not mean that the port is lost, because another program that reads from the same port also causes errors. The port is
 * lost when its device is gone. It is also lost after 1000 errors if no bytes were read between them and no pause was
 * longer than a second. After any other error, the port continues to read.
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
    /// Watches `port` until `port` or this object is deleted. `port` becomes the parent, so use both in one thread.
    explicit PortErrors(QSerialPort *port);
    ~PortErrors() override;

Q_SIGNALS:
    /// Emitted when the port is lost. Close the port, because an open port continues to report errors. Don't delete the
    /// port in the slot; use QObject::deleteLater(). If `isDeviceGone` is true, the system no longer has the device, so
    /// the cable was pulled.
    void portLost(bool isDeviceGone);

private:
    JWDEVICE_NO_EXPORT void judge(QSerialPort::SerialPortError error);

    struct Run;
    const std::unique_ptr<Run> m_run;
};

/// Discards the bytes that the board did not take, and closes `port`, without a signal. Does nothing if `port` is
/// closed. QSerialPort::close() alone waits for such bytes, by default for 30 s.
JWDEVICE_EXPORT void closeAtOnce(QSerialPort *port);

} // namespace JwDevice

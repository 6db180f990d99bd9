#pragma once

#include <device/jwdevice_export.h>
#include <device/type.h>

#include <QSerialPort>
#include <QString>

namespace JwDevice {

/// What became of one candidate port of a probe: see Initializer::portReports(). A copy: it stays as it is while the
/// probe goes on.
struct PortReport
{
    /// See verdictName() for the names.
    enum Verdict {
        NotOpened, ///< the port could not be opened: see `error`. With QSerialPort::NoError it was not tried yet
        Awaiting, ///< the port was asked and may still answer within replyTime
        TimedOut, ///< no sentence that can be parsed came within replyTime
        /// The port answered with `reply`, which is of no wanted type. If the answer came within replyTime, the probe
        /// waits for this port without limit. A later answer does not hold the probe up: the next round asks again.
        Silenced,
        Duplicate, ///< the port answered as `type`, but another port was handed over as that type before
        Lost, ///< the cable was pulled, or the port did nothing but fail: see `error`
        HandedOver, ///< the port holds a `type` and belongs to the application
    };

    QString portName; ///< such as "ttyACM0"; as it was given if the system knows no such port
    QString location; ///< such as "/dev/ttyACM0"; empty if unknown, as the next three
    QString manufacturer; ///< of the USB device
    QString product; ///< of the USB device
    QString serialNumber; ///< of the USB device

    Verdict verdict = NotOpened; ///< so far
    QSerialPort::SerialPortError error = QSerialPort::NoError; ///< why the port is NotOpened or Lost; ResourceError if
                                                               ///< its device is gone
    QString errorText; ///< the system's text for `error`; empty without an error
    Type type = Unknown; ///< of a port that is HandedOver or Duplicate
    QString reply; ///< the newest sentence that could be parsed, without its line end; empty if there was none
    QString unreadable; ///< the newest payload that could not be parsed, without its line end; empty if there was none
    int queries = 0; ///< query sentences written to the port: one or two in each round, by the wanted types
    qint64 payloads = 0; ///< payloads that the probe took from the port, readable or not, up to the hand-over
};

/// The name of `verdict` in camel case, such as "timedOut", for logs and machine-readable output.
JWDEVICE_EXPORT QString verdictName(PortReport::Verdict verdict);

} // namespace JwDevice

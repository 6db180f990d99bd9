#pragma once

#include <device/jwdevice_export.h>
#include <device/type.h>

#include <QSerialPort>
#include <QString>

namespace JwDevice {

/// The result of a probe on one port. See Initializer::portReports(). The report is a copy, so it does not change
/// while the probe continues.
struct PortReport
{
    /// The state of the port in the probe. verdictName() returns the names.
    enum Verdict {
        NotOpened, ///< the port could not be opened (see `error`), or was not tried (then `error` is NoError)
        Awaiting, ///< the port was asked and may still answer within replyTime
        TimedOut, ///< no sentence that can be parsed arrived within replyTime
        /// The port answered with `reply`, which is of no wanted type. If the answer arrived within replyTime, the
        /// probe waits for this port without limit. If it arrived later, the probe does not wait, and the next round
        /// asks again.
        Silenced,
        Duplicate, ///< the port answered as `type`, but another port of this type was already handed over
        Lost, ///< the cable was pulled, or the port reported only errors; see `error`
        HandedOver, ///< a board of `type` is on the port, and the port now belongs to the application
    };

    QString portName; ///< for example "ttyACM0"; the name given to probe() if the system doesn't know the port
    QString location; ///< for example "/dev/ttyACM0"; empty if not known
    QString manufacturer; ///< manufacturer of the USB device; empty if not known
    QString product; ///< product name of the USB device; empty if not known
    QString serialNumber; ///< serial number of the USB device; empty if not known

    Verdict verdict = NotOpened; ///< state of the port when the report was made
    /// Why the port is NotOpened or Lost. A Lost port has ResourceError if its device was gone when the loss was
    /// noticed, and only then.
    QSerialPort::SerialPortError error = QSerialPort::NoError;
    QString errorText; ///< the reason as a text for users, usually the system's; empty if there is no error
    Type type = Unknown; ///< type of the board if the port is HandedOver or Duplicate; else Unknown
    QString reply; ///< the newest sentence that could be parsed, without its line end; empty if there was none
    QString unreadable; ///< the newest payload that could not be parsed, without its line end; empty if there was none
    int queries = 0; ///< number of queries written to the port; the wanted types need one or two in each round
    qint64 payloads = 0; ///< number of payloads read from the port, including payloads that can't be parsed
};

/// Returns the name of `verdict` in camel case, for example "timedOut". Use it in logs and in output for programs.
JWDEVICE_EXPORT QString verdictName(PortReport::Verdict verdict);

} // namespace JwDevice

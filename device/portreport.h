#pragma once

#include <device/type.h>

#include <QSerialPort>
#include <QString>

namespace JwDevice {

/// What became of one candidate port of a probe: see Initializer::portReports(). A copy, which stays as it is when the
/// probe goes on.
struct PortReport
{
    /// What became of the port.
    enum Verdict {
        NotOpened, ///< it could not be opened: see `error`; with QSerialPort::NoError it was not tried yet
        Awaiting, ///< asked, and its 400 ms are running
        TimedOut, ///< asked, and no sentence that can be parsed came in time
        /// It answered with `reply`, which is of no wanted type. If that came within its 400 ms it is awaited without
        /// limit, else it is asked again in the next round, as one that is TimedOut.
        Silenced,
        Duplicate, ///< it answered as `type`, which another port had taken already
        Lost, ///< its device was gone after it was opened (the cable was pulled), or it did nothing but fail: see
              ///< `error`
        HandedOver, ///< a `type`, and the application's
    };

    QString portName; ///< such as "ttyACM0"; as it was given, where the system knows no port of that name
    QString location; ///< such as "/dev/ttyACM0"; this and the next three are empty where the system doesn't tell them
    QString manufacturer; ///< of the USB device
    QString product; ///< of the USB device
    QString serialNumber; ///< of the USB device

    Verdict verdict = NotOpened; ///< so far, see Initializer::portReports()
    QSerialPort::SerialPortError error = QSerialPort::NoError; ///< why it is NotOpened or Lost; ResourceError if its
                                                               ///< device is gone
    QString errorText; ///< the system's text for `error`; empty without one
    Type type = Unknown; ///< what it is HandedOver or Duplicate as
    QString reply; ///< the newest sentence from it that could be parsed, without its line end; empty for none
    QString unreadable; ///< the newest payload from it that could not be parsed, without its line end; empty for none
    int queries = 0; ///< query sentences written to it: one or two a round, by the wanted types
    qint64 payloads = 0; ///< taken from it, up to the one that it was recognised by; those in `unreadable`'s kind too
};

} // namespace JwDevice

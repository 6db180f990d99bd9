#pragma once

#include <device/type.h>
#include <watch/jwwatch_export.h>

#include <QDateTime>
#include <QMetaType>
#include <QString>

namespace JwDevice {

class Communicator;

/// A board that a BoardWatch found. A value: a copy keeps what was true when it was made.
struct Board
{
    /// What `id` is made of.
    enum IdBasis {
        SerialNumber, ///< the USB serial number and the interface, for example "SIM7:1.0"
        Place, ///< the place in the USB tree, for example "1-4.2:1.0"
        PortName, ///< the name of the port, for example "ttyACM0"
    };
    /// Why the board can't be used any more.
    enum Loss {
        NotLost, ///< the board is there
        CablePulled, ///< the system no longer has the port
        PortFailed, ///< the port is still there, but reported only errors
        NoAnswer, ///< the board said nothing and did not answer a query. See BoardWatch::setCheckInterval()
        Lent, ///< BoardWatch::lend() closed the port
        Released, ///< the application deleted the Communicator or its port
        Stopped, ///< BoardWatch::stop() closed the port
    };

    /// The same for the same board at every port: USB serial number and interface. Without a serial number, the place
    /// in the USB tree. Where the system reports no place, the name of the port.
    QString id;
    IdBasis idBasis = PortName; ///< what `id` is made of
    /// Whether another board claimed the same serial number, so that one of the two is told apart by its place.
    bool sharesSerialNumber = false;
    Type type = Unknown; ///< type of the board
    /// The open connection. It belongs to the watch, which deletes it some time after BoardWatch::boardLost(). Null if
    /// the application deleted it.
    Communicator *communicator = nullptr;
    QString portName; ///< for example "ttyACM0"
    QString location; ///< for example "/dev/ttyACM0"
    QString place; ///< interface in the USB tree, for example "1-4.2:1.0"; empty if not known
    QString manufacturer; ///< manufacturer of the USB device; empty if not known
    QString product; ///< product name of the USB device; empty if not known
    QString serialNumber; ///< serial number of the USB device; empty if it has none
    QString hardwareVersion; ///< from the board's answer; empty if the answer contains none
    QDateTime since; ///< when the board was found at this port, in UTC
    Loss loss = NotLost; ///< why the board was lost; set in boardLost()
};

/// Returns the name of `loss` in camel case, for example "cablePulled". Use it in logs and in output for programs.
JWWATCH_EXPORT QString lossName(Board::Loss loss);

} // namespace JwDevice

Q_DECLARE_METATYPE(JwDevice::Board)

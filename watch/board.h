#pragma once

#include <device/type.h>
#include <watch/jwwatch_export.h>

#include <QDateTime>
#include <QMetaType>
#include <QString>

namespace JwDevice {

class Communicator;

/// A board that a BoardWatch found. A Board is a copy of the data at one moment: it does not change later, for example
/// when the board is lost.
struct Board
{
    /// What `id` is made of.
    enum IdBasis {
        /// The USB serial number and the USB interface, for example "SIM7:1.0". Where the system reports no interface,
        /// the serial number alone. If another board had this id first, Place is used.
        SerialNumber,
        /// The place of the USB interface in the USB tree, for example "1-4.2:1.0": bus 1, ports 4 and 2, interface
        /// 1.0. Used if the board has no serial number.
        Place,
        PortName, ///< the name of the port, for example "ttyACM0"; used where the system reports no place
    };
    /// Why the board can't be used any more.
    enum Loss {
        NotLost, ///< the board is there
        /// The system no longer has the port, for example because the cable was pulled. Or the port is no longer a
        /// candidate; see BoardWatch::setCandidateRule().
        CablePulled,
        PortFailed, ///< the port reported only errors (see PortErrors), and the system still had it 500 ms later
        NoAnswer, ///< the board did not answer its query in time; see BoardWatch::setCheckInterval()
        Lent, ///< BoardWatch::lend() closed the port
        Released, ///< the application deleted the Communicator or its port
        Stopped, ///< BoardWatch::stop() closed the port
    };

    /// Identifies the board; never empty. If `idBasis` is SerialNumber, the board has the same id at every port, unless
    /// `sharesSerialNumber` is true. If `idBasis` is Place or PortName, the board gets another id at another port.
    QString id;
    IdBasis idBasis = PortName; ///< what `id` is made of
    /// Whether, since BoardWatch::start(), another board with this serial number was plugged in at the same time. Then
    /// the board that came first has the id with the serial number, and the other board has its place as id. Only
    /// their places tell the boards apart. So until the next start(), only the board at the place of the first board
    /// gets the id with the serial number, also after one of the boards is gone.
    bool sharesSerialNumber = false;
    Type type = Unknown; ///< type of the board
    /// The connection with the board. Its port is open until the board is lost; a port that reports only errors is
    /// closed up to 500 ms before. The watch owns the Communicator and deletes it after BoardWatch::boardLost(), so
    /// don't keep this pointer longer. Null if `loss` is Released.
    Communicator *communicator = nullptr;
    QString portName; ///< name of the board's port, for example "ttyACM0"
    QString location; ///< path of the board's port, for example "/dev/ttyACM0"
    QString place; ///< place of the USB interface in the USB tree, for example "1-4.2:1.0"; empty if not known
    QString manufacturer; ///< manufacturer of the USB device; empty if not known
    QString product; ///< product name of the USB device; empty if not known
    QString serialNumber; ///< serial number of the USB device; empty if it has none
    QString hardwareVersion; ///< hardware version in the board's answer; empty if the answer contains none
    QDateTime since; ///< time of the newest boardFound() or boardBack(), in UTC
    Loss loss = NotLost; ///< in boardLost(), why the board was lost; otherwise NotLost
};

/// Returns the name of `loss` in camel case, for example "cablePulled". Use it in logs and in output for programs.
JWWATCH_EXPORT QString lossName(Board::Loss loss);

} // namespace JwDevice

Q_DECLARE_METATYPE(JwDevice::Board)

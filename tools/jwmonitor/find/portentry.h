#pragma once

#include <jwmonitor/look/theme.h>

#include <device/portreport.h>

#include <QString>

#include <optional>

namespace JwMonitor {

/// A serial port in the system's list of ports.
struct SystemPort
{
    QString name; ///< for example "ttyACM0"
    QString usbId; ///< for example "0483:5740"; empty if the port has no USB id
    QString manufacturer;
    QString product;
    QString serialNumber;
};

inline bool operator==(const SystemPort &a, const SystemPort &b)
{
    return a.name == b.name && a.usbId == b.usbId && a.manufacturer == b.manufacturer && a.product == b.product
        && a.serialNumber == b.serialNumber;
}

/// The state of a machine, board or port on a broker.
struct RemoteState
{
    QString text;
    Theme::Role role;
};

inline bool operator==(const RemoteState &a, const RemoteState &b)
{
    return a.text == b.text && a.role == b.role;
}

/// One row in the table of ports: a port, and the board on it. The row follows the board to another port.
struct PortEntry
{
    /// Whether a board was found, and whether it is still there.
    enum Stay {
        NoBoard, ///< no board was found
        Found, ///< a board was found and is still there
        Lost, ///< a board was found, then its cable was pulled or the port failed
        Back, ///< the board was lost and found again
    };

    /// Identifies the row: JwDevice::Board::id of the board that is or could be on the port. For a port that is not a
    /// candidate, the name of the port.
    QString key;
    SystemPort port; ///< the port, or the last port of a lost board
    bool isPresent = false; ///< whether the system lists the port now
    Stay stay = NoBoard;
    bool isPulled = false; ///< whether the lost board was lost because its port disappeared
    JwDevice::Type type = JwDevice::Unknown; ///< type of the board; Unknown if `stay` is NoBoard
    std::optional<JwDevice::PortReport> report; ///< the newest report; empty if the port is not a candidate
    bool isOver = false; ///< whether the search was stopped, so that the report is final
    std::optional<RemoteState> remote; ///< if set, the row is not of this machine, and this is its state
    double milliseconds = -1; ///< time from the start of the port's probe to the verdict; negative without a verdict
};

} // namespace JwMonitor

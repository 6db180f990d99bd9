#pragma once

#include "systemport.h"

#include <device/portreport.h>

#include <optional>

namespace JwMonitor {

/// One port: the system's data about the port, and the result of the newest search that tried the port.
struct PortEntry
{
    /// Whether a board was found on this port, and whether it is still there.
    enum Stay {
        NoBoard, ///< no board was found
        Found, ///< a board was found and is still there
        Lost, ///< a board was found, then its cable was pulled or the port failed
        Back, ///< the board was lost and found again
    };

    SystemPort port;
    bool isPresent = false; ///< whether the system lists the port now
    Stay stay = NoBoard;
    /// Type of the board. Also set if the board is not used because its type was already found on another port.
    JwDevice::Type type = JwDevice::Unknown;
    std::optional<JwDevice::PortReport> report; ///< the newest report; empty if no search tried the port
    bool isOver = false; ///< whether the search ended, so that the report is final
    double milliseconds = -1; ///< time from the start of the search to the verdict; negative while there is no verdict
};

} // namespace JwMonitor

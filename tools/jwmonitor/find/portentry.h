#pragma once

#include "systemport.h"

#include <device/portreport.h>

#include <optional>

namespace JwMonitor {

/// A port: what the system says about it, and what the newest search that tried it says.
struct PortEntry
{
    /// Whether a board found on this port is still there.
    enum Stay {
        NoBoard, ///< no board was found
        Found, ///< the board is there
        Lost, ///< the cable was pulled, or the port failed
        Back, ///< the board was lost and found again
    };

    SystemPort port;
    bool isPresent = false; ///< the system lists the port
    Stay stay = NoBoard;
    JwDevice::Type type = JwDevice::Unknown; ///< of the board, also of a second board of a type
    std::optional<JwDevice::PortReport> report; ///< empty if no search tried the port
    bool isOver = false; ///< the search ended, so the report is final
    double milliseconds = -1; ///< from the start of the search to the verdict; negative before it
};

} // namespace JwMonitor

#pragma once

#include "systemport.h"

#include <device/portreport.h>

#include <optional>

namespace JwMonitor {

/// What is known of one port: by the system, and by the newest search that tried it.
struct PortEntry
{
    /// Where a board stands that was found on the port.
    enum Stay {
        NoBoard, ///< none was found
        Found, ///< it is there
        Lost, ///< its cable was pulled, or it failed
        Back, ///< it is there again after it was lost
    };

    SystemPort port;
    bool isPresent = false; ///< the system has it
    Stay stay = NoBoard;
    JwDevice::Type type = JwDevice::Unknown; ///< of the board, or of the second one of a type
    std::optional<JwDevice::PortReport> report; ///< without one it was not tried
    bool isOver = false; ///< the search, so that the report is the last one
    double milliseconds = -1; ///< from the start of the search to its verdict; negative while there is none
};

} // namespace JwMonitor

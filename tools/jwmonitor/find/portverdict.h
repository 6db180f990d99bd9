#pragma once

#include <QString>

namespace JwDevice {
struct PortReport;
}

namespace JwMonitor {

/// Returns whether the probe has a result, or the port is not opened at all.
bool isSettled(const JwDevice::PortReport &report);

/// Returns a short text about what a search found on a port. `isOver` says whether the search was stopped.
QString verdictText(const JwDevice::PortReport &report, bool isOver);

} // namespace JwMonitor

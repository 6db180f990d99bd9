#pragma once

#include <QString>

namespace JwDevice {
struct PortReport;
}

namespace JwMonitor {

/// Returns a short text about what a search found on a port. `isOver` says whether the search has ended.
QString verdictText(const JwDevice::PortReport &report, bool isOver);

} // namespace JwMonitor

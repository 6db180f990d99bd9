#pragma once

#include <QString>

namespace JwDevice {
struct PortReport;
}

namespace JwMonitor {

/// The verdict of a search on a port, in a few words. `isOver`: the search has ended.
QString verdictText(const JwDevice::PortReport &report, bool isOver);

} // namespace JwMonitor

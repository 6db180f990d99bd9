#pragma once

#include <QString>

namespace JwDevice {
struct PortReport;
}

namespace JwMonitor {

/// What became of a port in a search, in a few words; `isOver`: nothing more will come.
QString verdictText(const JwDevice::PortReport &report, bool isOver);

} // namespace JwMonitor

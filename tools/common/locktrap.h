#pragma once

namespace JwDevice {
struct PortReport;
}

namespace JwTools {

/// Returns whether the library did not open the port because of what is at the path of its lock file, for example a
/// named pipe. Then the report's `errorText` says so.
bool isLockTrap(const JwDevice::PortReport &report);

} // namespace JwTools

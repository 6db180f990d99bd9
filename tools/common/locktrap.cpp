#include "locktrap.h"

#include <device/lockfile.h>
#include <device/portreport.h>

namespace JwTools {

bool isLockTrap(const JwDevice::PortReport &report)
{
    // JwDevice::lockTrap() would look at the file again, but meanwhile somebody may have removed it.
    const QString path = JwDevice::lockFilePath(report.portName);
    return report.error == QSerialPort::PermissionError && !path.isEmpty() && report.errorText.startsWith(path);
}

} // namespace JwTools

#include "portsource.h"

#include "pollsource.h"
#ifdef JWDEVICE_HAVE_UDEV
#include "udevsource.h"
#endif

namespace JwDevice {

SystemPort systemPort(const QSerialPortInfo &info)
{
    SystemPort port;
    port.info = info;
#ifdef JWDEVICE_HAVE_UDEV
    readDevice(port);
#endif
    return port;
}

std::unique_ptr<PortSource> makePortSource(int pollInterval)
{
#ifdef JWDEVICE_HAVE_UDEV
    if (std::unique_ptr<PortSource> source = UdevSource::create())
        return source;
#endif
    return std::make_unique<PollSource>(pollInterval);
}

} // namespace JwDevice

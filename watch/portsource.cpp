#include "portsource.h"

#include "pollsource.h"
#ifdef JWDEVICE_HAVE_UDEV
#include "udevsource.h"
#endif

#include <tuple>

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

bool isSamePort(const SystemPort &port, const SystemPort &other)
{
    const auto data = [](const QSerialPortInfo &info) {
        return std::make_tuple(info.vendorIdentifier(), info.productIdentifier(), info.manufacturer(),
                               info.description(), info.serialNumber());
    };
    return port.instance == other.instance && port.place == other.place && port.isIgnored == other.isIgnored
        && data(port.info) == data(other.info);
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

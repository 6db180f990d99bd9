#include "portsource.h"

#include "pollsource.h"
#ifdef JWDEVICE_HAVE_UDEV
#include "udevsource.h"
#endif

namespace JwDevice {

std::unique_ptr<PortSource> makePortSource(int pollInterval)
{
#ifdef JWDEVICE_HAVE_UDEV
    if (std::unique_ptr<PortSource> source = UdevSource::create())
        return source;
#endif
    return std::make_unique<PollSource>(pollInterval);
}

} // namespace JwDevice

// Replaces libudev's function that reads an event, so that a test can lose events. The simulated system itself loses no
// events, because the sender waits until the watch has read them.
#include "lostevents.h"

#include <cerrno>
#include <dlfcn.h>
#include <libudev.h>
#include <utility>

namespace {

bool isLosing = false;

} // namespace

void loseEvents()
{
    isLosing = true;
}

extern "C" {

__attribute__((visibility("default"))) udev_device *udev_monitor_receive_device(udev_monitor *monitor)
{
    static const auto real =
        reinterpret_cast<decltype(&udev_monitor_receive_device)>(::dlsym(RTLD_NEXT, "udev_monitor_receive_device"));
    if (!std::exchange(isLosing, false))
        return real(monitor);
    while (udev_device *const lost = real(monitor))
        udev_device_unref(lost);
    errno = ENOBUFS;
    return nullptr;
}

} // extern "C"

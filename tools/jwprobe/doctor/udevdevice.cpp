#include "udevdevice.h"

#include <QFile>

#include <cstring>

#include <libudev.h>

namespace JwProbe {

namespace {

udev_device *find(const QString &portName)
{
    const std::unique_ptr<udev, udev *(*)(udev *)> context(::udev_new(), ::udev_unref);
    // libudev expects the name of the port in /sys, which has "!" in place of each "/"
    const QByteArray name = QFile::encodeName(QString(portName).replace(QLatin1Char('/'), QLatin1Char('!')));
    return context ? ::udev_device_new_from_subsystem_sysname(context.get(), "tty", name.constData()) : nullptr;
}

bool isOne(udev_device *device, const char *property)
{
    const char *value = device ? ::udev_device_get_property_value(device, property) : nullptr;
    return value && std::strcmp(value, "1") == 0;
}

} // namespace

UdevDevice::UdevDevice(const QString &portName)
    : m_port(find(portName), ::udev_device_unref)
{
}

UdevDevice::~UdevDevice() = default;

bool UdevDevice::hasTag(const char *tag) const
{
    return m_port && ::udev_device_has_tag(m_port.get(), tag) != 0;
}

bool UdevDevice::isMarked(const char *property) const
{
    if (!m_port)
        return false;
    // `usb` needs no udev_device_unref(), because m_port owns it.
    udev_device *usb = ::udev_device_get_parent_with_subsystem_devtype(m_port.get(), "usb", "usb_device");
    return isOne(m_port.get(), property) || isOne(usb, property);
}

} // namespace JwProbe

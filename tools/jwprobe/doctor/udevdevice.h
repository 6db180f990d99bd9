#pragma once

#include <QString>

#include <memory>

struct udev_device;

namespace JwProbe {

/// What udev's rules left about a port.
class UdevDevice
{
public:
    explicit UdevDevice(const QString &portName);
    ~UdevDevice();
    UdevDevice(const UdevDevice &) = delete;
    UdevDevice &operator=(const UdevDevice &) = delete;

    bool hasTag(const char *tag) const;
    /// Whether the port itself, or the USB device that it belongs to, has this property with the value 1.
    bool isMarked(const char *property) const;

private:
    const std::unique_ptr<udev_device, udev_device *(*)(udev_device *)> m_port; // null: udev doesn't know it
};

} // namespace JwProbe

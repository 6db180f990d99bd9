#pragma once

#include <QString>

#include <memory>

struct udev_device;

namespace JwProbe {

/// Reads the tags and properties that udev rules gave a port.
class UdevDevice
{
public:
    explicit UdevDevice(const QString &portName);
    ~UdevDevice();
    UdevDevice(const UdevDevice &) = delete;
    UdevDevice &operator=(const UdevDevice &) = delete;

    bool hasTag(const char *tag) const;
    /// Returns whether the value of `property` is 1 on the port or on its USB device.
    bool isMarked(const char *property) const;

private:
    const std::unique_ptr<udev_device, udev_device *(*)(udev_device *)> m_port; // null if udev doesn't know the port
};

} // namespace JwProbe

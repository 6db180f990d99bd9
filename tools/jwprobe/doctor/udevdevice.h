#pragma once

#include <QString>

#include <memory>

struct udev_device;

namespace JwProbe {

/// Reads the tags and properties of a port. They come from the rules of udev, the device manager of Linux.
class UdevDevice
{
public:
    explicit UdevDevice(const QString &portName);
    ~UdevDevice();
    UdevDevice(const UdevDevice &) = delete;
    UdevDevice &operator=(const UdevDevice &) = delete;

    bool hasTag(const char *tag) const;
    /// Returns whether the port or its USB device has the value 1 for `property`.
    bool isMarked(const char *property) const;

private:
    const std::unique_ptr<udev_device, udev_device *(*)(udev_device *)> m_port; // null if udev doesn't know the port
};

} // namespace JwProbe

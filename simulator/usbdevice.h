#pragma once

#include <simulator/devicetree.h>

#include <QString>

namespace JwSimulator {

/// The identity of a simulated USB device.
struct UsbIdentity
{
    quint16 vendor;
    quint16 product;
    QString manufacturer;
    QString productName;
    QString serial; ///< empty = the device has no serial number
};

/// The class codes of a USB device or interface, as two hexadecimal digits each.
struct UsbClass
{
    QByteArray deviceClass;
    QByteArray subClass;
    QByteArray protocol;
};

/// Returns the properties that udev makes from the identity, for the USB device and for its port.
Device::Pairs udevProperties(const UsbIdentity &identity, const QByteArray &driver);

/// Returns the USB device at this path. `number` is its number on the bus.
Device usbDevice(const QByteArray &path, const UsbIdentity &identity, const QByteArray &deviceClass, int number,
                 const QByteArray &driver);

/// Returns the only interface of the USB device at `devicePath`.
Device usbInterface(const QByteArray &devicePath, const UsbIdentity &identity, const QByteArray &deviceClass,
                    const UsbClass &interfaceClass, const QByteArray &driver);

} // namespace JwSimulator

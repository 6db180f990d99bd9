#include "usbdevice.h"

#include <cctype>
#include <cstring>

namespace JwSimulator {

namespace {

// Writes a name as udev does, with underscores for blanks. Programs that read such a name turn the
// underscores into blanks again.
QByteArray udevName(const QString &text)
{
    return text.toLatin1().replace(' ', '_');
}

// Encodes blanks and other special characters as udev does.
QByteArray udevEncoded(const QString &text)
{
    QByteArray encoded;
    for (const char byte : text.toLatin1()) {
        if (std::isalnum(static_cast<uchar>(byte)) || std::strchr("#+-.:=@_", byte))
            encoded += byte;
        else
            encoded += "\\x" + QByteArray(1, byte).toHex();
    }
    return encoded;
}

QByteArray hex(quint16 id)
{
    return QByteArray::number(id, 16).rightJustified(4, '0');
}

// Returns vendor id, product id and device version as the kernel writes them in the property PRODUCT.
QByteArray kernelIds(const UsbIdentity &identity)
{
    return QByteArray::number(identity.vendor, 16) + '/' + QByteArray::number(identity.product, 16) + "/200";
}

// Returns the name of the device, for example "1-01" for "usb1/1-01".
QByteArray nameOf(const QByteArray &path)
{
    return path.mid(path.lastIndexOf('/') + 1);
}

} // namespace

Device::Pairs udevProperties(const UsbIdentity &identity, const QByteArray &driver)
{
    const QByteArray manufacturer = udevName(identity.manufacturer);
    const QByteArray product = udevName(identity.productName);
    const QByteArray serial = identity.serial.toLatin1();
    // A real udev would make these properties from the attributes of the USB device. The simulated one doesn't.
    Device::Pairs properties = {
        {"ID_BUS", "usb"},
        {"ID_VENDOR", manufacturer},
        {"ID_VENDOR_ENC", udevEncoded(identity.manufacturer)},
        {"ID_VENDOR_ID", hex(identity.vendor)},
        {"ID_MODEL_ID", hex(identity.product)},
        {"ID_MODEL", product},
        {"ID_MODEL_ENC", udevEncoded(identity.productName)},
        {"ID_REVISION", "0200"},
        {"ID_SERIAL", manufacturer + '_' + product + (serial.isEmpty() ? "" : '_' + udevName(identity.serial))},
        {"ID_USB_DRIVER", driver},
    };
    if (!serial.isEmpty())
        properties.push_back({"ID_SERIAL_SHORT", serial});
    return properties;
}

Device usbDevice(const QByteArray &path, const UsbIdentity &identity, const QByteArray &deviceClass, int number,
                 const QByteArray &driver)
{
    const QByteArray numberText = QByteArray::number(number);
    Device device{path,
                  "bus/usb",
                  {{"idVendor", hex(identity.vendor)},
                   {"idProduct", hex(identity.product)},
                   {"bcdDevice", "0200"},
                   {"manufacturer", identity.manufacturer.toLatin1()},
                   {"product", identity.productName.toLatin1()},
                   {"busnum", "1"},
                   {"devnum", numberText},
                   {"devpath", nameOf(path).mid(2)},
                   {"speed", "12"},
                   {"version", " 2.00"},
                   {"bDeviceClass", deviceClass},
                   {"bDeviceSubClass", "00"},
                   {"bDeviceProtocol", "00"},
                   {"bNumConfigurations", "1"},
                   {"bNumInterfaces", " 1"}},
                  udevProperties(identity, driver),
                  {{"driver", toSys(path) + "bus/usb/drivers/usb"}}};
    if (!identity.serial.isEmpty())
        device.attributes.push_back({"serial", identity.serial.toLatin1()});
    device.properties.insert(device.properties.end(),
                             {{"DEVTYPE", "usb_device"},
                              {"DRIVER", "usb"},
                              {"PRODUCT", kernelIds(identity)},
                              {"TYPE", QByteArray::number(deviceClass.toInt()) + "/0/0"},
                              {"BUSNUM", "001"},
                              {"DEVNUM", numberText.rightJustified(3, '0')}});
    return device;
}

Device usbInterface(const QByteArray &devicePath, const UsbIdentity &identity, const QByteArray &deviceClass,
                    const UsbClass &interfaceClass, const QByteArray &driver)
{
    const auto number = [](const QByteArray &code) { return QByteArray::number(code.toInt()); };
    const QByteArray path = devicePath + '/' + nameOf(devicePath) + ":1.0";
    return {path,
            "bus/usb",
            {{"bInterfaceNumber", "00"},
             {"bInterfaceClass", interfaceClass.deviceClass},
             {"bInterfaceSubClass", interfaceClass.subClass},
             {"bInterfaceProtocol", interfaceClass.protocol},
             {"bAlternateSetting", " 0"}},
            {{"DEVTYPE", "usb_interface"},
             {"DRIVER", driver},
             {"PRODUCT", kernelIds(identity)},
             {"TYPE", number(deviceClass) + "/0/0"},
             {"INTERFACE",
              number(interfaceClass.deviceClass) + '/' + number(interfaceClass.subClass) + '/'
                  + number(interfaceClass.protocol)}},
            {{"driver", toSys(path) + "bus/usb/drivers/" + driver}}};
}

} // namespace JwSimulator

#pragma once

#include <simulator/eventsender.h>

#include <QByteArray>
#include <QByteArrayList>
#include <QMap>
#include <QString>

#include <utility>
#include <vector>

namespace JwSimulator {

/// One device in the simulated /sys.
struct Device
{
    using Pairs = std::vector<std::pair<QByteArray, QByteArray>>;

    QByteArray path; ///< path below /sys/devices, for example "usb1/1-01"
    QByteArray subsystem; ///< folder of the subsystem below /sys, for example "bus/usb"
    Pairs attributes; ///< name and text of each attribute, which is a file in the device's folder
    Pairs properties; ///< name and value of each property that udev reports
    Pairs links; ///< name and target of each link, for example to the driver
};

/// The simulated /sys, and the kernel events of its devices. Programs see it through umockdev's preload library.
///
/// This class writes the files itself. umockdev could also write them, but it would send "add" before the device is
/// complete.
class DeviceTree
{
public:
    /// `rootFolder` is the testbed's folder.
    explicit DeviceTree(const QByteArray &rootFolder);

    /// Returns the folder whose dev/ and sys/ programs see as /dev and /sys.
    const QByteArray &rootFolder() const { return m_root; }

    /// Makes the files of a device. Programs that list devices don't find it before show(). If a file cannot be
    /// written, returns false and sets `error` to one line.
    bool add(const Device &device, QString &error);
    /// Puts a device into the lists that programs read, and sends "add". Its parent must be shown before.
    void show(const QByteArray &path);
    /// Sends a kernel event of a device, for example "change".
    void announce(const QByteArray &path, const char *action);
    /// Deletes a device, and sends "remove". Its children must be removed before.
    void remove(const QByteArray &path);

    /// Returns a free device number for a USB device that is plugged in. Like the kernel, always takes the next higher
    /// free number, and begins at the lowest number again after the highest.
    int takeUsbNumber();
    /// Makes a number from takeUsbNumber() free again.
    void freeUsbNumber(int number);

private:
    struct Entry
    {
        QByteArrayList listings; // links to the device in the folders that list devices
        QByteArray subsystem; // subsystem, type and properties are sent with each event
        QByteArray type;
        QByteArray properties;
    };

    const QByteArray m_root;
    EventSender m_events;
    QMap<QByteArray, Entry> m_entries; // for each device, by its path
    std::vector<bool> m_usbNumbers; // for each device number: true if it is taken
    std::size_t m_lastUsbNumber;
};

/// Returns the relative path from the folder of the device at `path` up to /sys, for example "../../../".
QByteArray toSys(const QByteArray &path);

/// Makes a link. Also makes its folder if needed. An existing link is replaced in one step.
bool setLink(const QByteArray &link, const QByteArray &target);

} // namespace JwSimulator

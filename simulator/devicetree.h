#pragma once

#include <QByteArray>
#include <QByteArrayList>
#include <QMap>
#include <QString>

#include <utility>
#include <vector>

typedef struct _UMockdevTestbed UMockdevTestbed;

namespace JwSimulator {

/// One device in the simulated /sys.
struct Device
{
    using Pairs = std::vector<std::pair<QByteArray, QByteArray>>;

    QByteArray path; ///< path below /sys/devices, for example "usb1/1-01"
    QByteArray subsystem; ///< folder of the subsystem below /sys, for example "bus/usb"
    Pairs attributes; ///< name and text of each file
    Pairs properties; ///< the properties that udev reports
    Pairs links; ///< name and target of each link, for example to the driver
};

/// The simulated /sys, and the kernel events of its devices. Programs see it through umockdev's preload library.
///
/// This class writes the files itself. umockdev could also do it, but its own "add" event comes before the device is
/// complete, and it writes every file with a sync, which makes a plug many times slower.
class DeviceTree
{
public:
    explicit DeviceTree(UMockdevTestbed *testbed);

    /// Returns the folder whose dev/ and sys/ programs see as /dev and /sys.
    const QByteArray &rootFolder() const { return m_root; }

    /// Makes a device, without an event. Its parent must exist. If a file cannot be written, returns false and sets
    /// `error` to one line.
    bool add(const Device &device, QString &error);
    /// Sends a kernel event of a device, for example "add".
    void announce(const QByteArray &path, const char *action);
    /// Takes a device out of all lists, sends "remove", and deletes the device. Its children must be removed before.
    void remove(const QByteArray &path);

    /// Returns a device number for a USB device that is plugged in. Like a kernel, counts on and reuses a number only
    /// after all others.
    int takeUsbNumber();
    /// Returns a number that takeUsbNumber() gave.
    void freeUsbNumber(int number);

private:
    UMockdevTestbed *const m_testbed;
    QByteArray m_root;
    QMap<QByteArray, QByteArrayList> m_listings; // for each device, the links to it in the folders that list devices
    std::vector<bool> m_usbNumbers; // true = taken
    std::size_t m_lastUsbNumber;
};

/// Makes a link. Also makes its folder if needed. An existing link is replaced in one step.
bool setLink(const QByteArray &link, const QByteArray &target);

} // namespace JwSimulator

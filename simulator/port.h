#pragma once

#include <simulator/boardconfig.h>

#include <QByteArray>
#include <QByteArrayList>
#include <QLockFile>

#include <memory>

namespace JwSimulator {

class DeviceTree;

/// Returns whether a running program holds QSerialPort's lock file for a port of this name.
bool isLocked(const QString &portName);

/// Keeps other simulations from using this port name until the result is deleted. Returns null if another simulation
/// already uses the name.
std::unique_ptr<QLockFile> reserveName(const QString &portName);

/// Owns a file descriptor. The destructor closes it.
class Descriptor
{
public:
    explicit Descriptor(int number = -1)
        : m_number(number)
    {
    }
    Descriptor(Descriptor &&other) noexcept
        : m_number(other.m_number)
    {
        other.m_number = -1;
    }
    Descriptor &operator=(Descriptor &&other) noexcept
    {
        std::swap(m_number, other.m_number);
        return *this;
    }
    ~Descriptor();

    int number() const { return m_number; }

private:
    int m_number;
};

/// One USB device with a serial port in a testbed: the entries in /sys and /dev, and the pty (pseudo-terminal) behind
/// them. The host opens one end of the pty. A Board uses the other end.
class Port
{
public:
    /// `config.port` and `config.serial` must be set. `usbPath` is the place of the USB device in the DeviceTree.
    /// `usbPath` and `index` must be different for each port of the testbed. The device exists only after prepare().
    Port(DeviceTree &tree, const BoardConfig &config, const QByteArray &usbPath, int index);
    ~Port();

    /// Returns the name of the port without the folder. While unplugged, this is the name that it had last.
    const QString &name() const { return m_name; }
    /// Makes the device, with this port name. No list of devices has it before appear(). On failure, returns false and
    /// sets `error` to one line.
    bool prepare(const QString &name, QString &error);
    /// Shows the device to programs. udev reports it.
    void appear();
    /// Gives the permission that BoardConfig::latePermission delays. udev reports a change.
    void permit();
    /// Hangs up the line and removes the device. udev reports the removal.
    void unplug();

    /// Returns the descriptor of the board's end of the pty; reading and writing do not block. -1 while the cable is
    /// pulled, and for a denied port.
    int descriptor() const { return m_boardEnd.number(); }
    /// Returns the number of bytes that the board sent and the host has not read.
    int unread() const;

private:
    bool addDevices(QString &error);
    bool openPty(QString &error);
    bool deny(QString &error);
    QByteArray deviceNumber() const;
    bool setNode(const QByteArray &target);
    bool hold(QString &error);

    DeviceTree &m_tree;
    const BoardConfig m_config;
    const QByteArray m_usbPath;
    const int m_index;
    QString m_name;
    int m_usbNumber = 0; // the USB device's number, which changes with each plug
    QByteArrayList m_devices; // paths of all devices of this port in m_tree; each parent is before its children
    QByteArray m_hostName; // path of the pty that the host opens
    Descriptor m_boardEnd;
    Descriptor m_hostEnd; // kept open by this object; the host opens its own descriptor
    std::unique_ptr<QLockFile> m_lock;
};

} // namespace JwSimulator

#pragma once

#include <simulator/boardconfig.h>

#include <QByteArray>
#include <QLockFile>

#include <memory>
#include <vector>

typedef struct _UMockdevTestbed UMockdevTestbed;

namespace JwSimulator {

/// Returns whether a running program has locked a port of this name, as QSerialPort does when it opens a port.
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
    /// `config.port` and `config.serial` must be set. `index` must be different for each port of the testbed. The
    /// device exists only after plug().
    Port(UMockdevTestbed *testbed, const BoardConfig &config, int index);
    ~Port();

    /// Makes the device. On failure, returns false and sets `error` to one line.
    bool plug(QString &error);
    /// Closes both ends of the port and removes the device. udev reports the removal to programs.
    void unplug();

    /// Returns the descriptor of the board's end of the pty; reading and writing do not block. -1 while the cable is
    /// pulled, and for a denied port.
    int descriptor() const { return m_boardEnd.number(); }
    /// Returns the number of bytes that the board sent and the host has not read.
    int unread() const;

private:
    void addDevices();
    bool openPty(QString &error);
    bool deny(QString &error);
    QByteArray deviceNumber() const;
    bool setNode(const QByteArray &target);
    bool hold(QString &error);

    UMockdevTestbed *const m_testbed;
    const BoardConfig m_config;
    const int m_index;
    QByteArray m_rootFolder; // programs see the dev/ and sys/ in this folder as /dev and /sys
    std::vector<QByteArray> m_sysPaths; // paths in /sys of all devices of this port; each parent is before its children
    Descriptor m_boardEnd;
    Descriptor m_hostEnd; // kept open by this object; the host opens its own descriptor
    std::unique_ptr<QLockFile> m_lock;
};

} // namespace JwSimulator

#pragma once

#include <simulator/boardconfig.h>

#include <QByteArray>
#include <QLockFile>

#include <memory>
#include <vector>

typedef struct _UMockdevTestbed UMockdevTestbed;

namespace JwSimulator {

/// Whether a living program holds QSerialPort's lock file for a port of this name.
bool isLocked(const QString &portName);

/// Keeps other simulations from using this port name while the result lives. Null if another simulation uses it.
std::unique_ptr<QLockFile> reserveName(const QString &portName);

/// A file descriptor that is closed with its owner.
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

/// One USB device with a serial port in a testbed: its entries in /sys and /dev, and the pty behind them. The board at
/// its other end is a Board.
class Port
{
public:
    /// `config` must have port and serial; `index` must be unique in the testbed. plug() makes the device.
    Port(UMockdevTestbed *testbed, const BoardConfig &config, int index);
    ~Port();

    /// Makes the device. If that fails, returns false with one line in `error`.
    bool plug(QString &error);
    /// Hangs up and removes the device, with the udev event.
    void unplug();

    /// The board's end of the line, non-blocking; -1 while unplugged and for a denied port.
    int descriptor() const { return m_boardEnd.number(); }
    /// Number of bytes that the board sent and the host has not read yet.
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
    QByteArray m_rootFolder; // programs see its dev/ and sys/ as /dev and /sys
    std::vector<QByteArray> m_sysPaths; // parents first
    Descriptor m_boardEnd;
    Descriptor m_hostEnd; // ours; the host has another one
    std::unique_ptr<QLockFile> m_lock;
};

} // namespace JwSimulator

#pragma once

#include <simulator/boardconfig.h>

#include <QtCore/QByteArray>
#include <QtCore/QLockFile>

#include <memory>
#include <vector>

typedef struct _UMockdevTestbed UMockdevTestbed;

namespace JwSimulator {

/** Whether a living program holds the lock file by which QSerialPort keeps others off a port of this name. */
bool isLocked(const QString &portName);

/** A file descriptor that is closed with its owner. */
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

/**
 * One USB device with a serial port in a testbed: the entries in /sys and /dev and the pty behind them. It knows
 * nothing of what a board says.
 */
class Port
{
public:
    /** @p config needs its port and serial; @p index is unique in the testbed. plug() makes the device. */
    Port(UMockdevTestbed *testbed, const BoardConfig &config, int index);
    ~Port();

    /** False and one line in @p error when it cannot be made. */
    bool plug(QString &error);
    /** Hangs up and takes the device out, with its event. */
    void unplug();

    /** The board's end of the line, non-blocking; -1 while unplugged and for a port that is denied. */
    int descriptor() const { return m_boardEnd.number(); }
    /** Bytes that the board sent and the host has not read yet. */
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
    QByteArray m_rootFolder; // where the testbed keeps what programs see in /dev and /sys
    std::vector<QByteArray> m_sysPaths; // parents first
    Descriptor m_boardEnd;
    Descriptor m_hostEnd; // our own, beside the host's
    std::unique_ptr<QLockFile> m_lock;
};

} // namespace JwSimulator

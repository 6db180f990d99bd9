#pragma once

#include <simulator/port.h>

#include <QByteArray>
#include <QString>

#include <map>

typedef struct _UMockdevTestbed UMockdevTestbed;

/// A USB serial port as the system describes it.
struct UsbPort
{
    QString name; ///< without a folder, for example "ttyW4711x0"; see WatchPorts::name()
    int device = 0; ///< number of the USB device, which fixes its place in the USB tree
    int interface = 0; ///< number of the USB interface; one device may have several ports
    QString serial;
    bool isCandidate = true; ///< whether the device has the vendor number of the boards
    bool isIgnored = false; ///< whether the udev property JWDEVICE_IGNORE is set

    QString place() const { return QStringLiteral("1-%1:1.%2").arg(device + 1).arg(interface); }
    QString usbId() const { return isCandidate ? QStringLiteral("0483:5740") : QStringLiteral("1234:5740"); }
};

/// Simulated serial ports that come and go under any name, at any place and with any serial number. The tests of the
/// watch plug in so many ports that the simulator's boards, which have all files of a USB device, would take too long.
/// So the devices here have only the files that udev and Qt read. A pulled port loses only its node in /dev and its
/// link in /sys/class/tty; without this link, the system no longer finds the other files, so they may stay.
class WatchPorts
{
public:
    static constexpr int devices = 5;
    static constexpr int names = 6;

    WatchPorts();
    ~WatchPorts();

    /// Returns the port name with this number, from 0 to names - 1. No other process uses these names.
    static QString name(int number);

    /// Makes the port and sends the kernel event. If `hasPermission` is false, no program can open the
    /// port before permit().
    void plug(const UsbPort &port, bool hasPermission);
    void pull(const QString &name);
    /// Lets programs open the port.
    void permit(const QString &name);
    /// Sends the kernel event "change" of the port.
    void change(const QString &name);

    bool isPlugged(const QString &name) const { return m_lines.count(name) > 0; }
    /// Whether a program has the port open.
    bool isOpen(const QString &name) const { return JwSimulator::isLocked(name); }
    /// Returns the descriptor of the board's end of the line.
    int descriptor(const QString &name) const { return m_lines.at(name).boardEnd.number(); }
    /// Sends `bytes` from the board, and waits until a program can read them from the port.
    void send(const QString &name, const QByteArray &bytes);
    /// Drops the bytes from the board that no program has read.
    void dropUnread(const QString &name);

private:
    struct Line
    {
        JwSimulator::Descriptor boardEnd;
        JwSimulator::Descriptor hostEnd;
        QByteArray path;
    };

    void announce(const QByteArray &path, const char *action);
    void setNode(const QString &name, const QByteArray &target);

    UMockdevTestbed *const m_testbed;
    QByteArray m_root; // programs see the dev/ and sys/ in this folder as /dev and /sys
    std::map<QString, Line> m_lines; // by port name
};

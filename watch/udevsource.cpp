#include "udevsource.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <libudev.h>
#include <linux/netlink.h>
#include <sys/stat.h>

namespace JwDevice {

namespace {

/// Bytes of events that wait for the application, for example while it is busy. The system may allow less.
constexpr int receiveBuffer = 8 * 1024 * 1024;

/// Returns whether a program in our network namespace listens to the kernel's device events, as udev's daemon does. The
/// daemon's events reach only its own network namespace. So a container with a network of its own gets no events,
/// although it may see udev's files.
bool isDaemonInNetwork()
{
    constexpr uint kernelGroup = 1;
    QFile table(QStringLiteral("/proc/net/netlink"));
    if (!table.open(QIODevice::ReadOnly))
        return true; // not known
    const QList<QByteArray> sockets = table.readAll().split('\n');
    return std::any_of(sockets.begin(), sockets.end(), [](const QByteArray &socket) {
        const QList<QByteArray> fields = socket.simplified().split(' '); // address, protocol, id, groups, ...
        return fields.value(1).toInt() == NETLINK_KOBJECT_UEVENT && fields.value(3).toUInt(nullptr, 16) & kernelGroup;
    });
}

/// Returns whether this system sends udev's events. Normally the udev daemon sends them. In a simulation, umockdev
/// sends the same events without a daemon.
bool hasEvents()
{
    return qEnvironmentVariableIsSet("UMOCKDEV_DIR")
        || (QFileInfo::exists(QStringLiteral("/run/udev/control")) && isDaemonInNetwork());
}

bool isSet(udev_device *device)
{
    return device && qstrcmp(udev_device_get_property_value(device, "JWDEVICE_IGNORE"), "1") == 0;
}

/// Returns a text that changes when the device is plugged in again: the inode of its folder in /sys, and the number of
/// the USB device.
QString instanceOf(udev_device *device, udev_device *usbDevice)
{
    struct stat folder = {};
    ::stat(udev_device_get_syspath(device), &folder);
    const char *const number = usbDevice ? udev_device_get_property_value(usbDevice, "DEVNUM") : nullptr;
    return QStringLiteral("%1 %2").arg(folder.st_ino).arg(QLatin1String(number));
}

} // namespace

void readDevice(SystemPort &port)
{
    udev *const context = udev_new();
    udev_device *const device = context
        ? udev_device_new_from_subsystem_sysname(context, "tty", port.info.portName().toLocal8Bit().constData())
        : nullptr;
    if (device) {
        // Don't unreference these parents: they belong to `device`.
        udev_device *const interface = udev_device_get_parent_with_subsystem_devtype(device, "usb", "usb_interface");
        udev_device *const usbDevice = udev_device_get_parent_with_subsystem_devtype(device, "usb", "usb_device");
        if (interface)
            port.place = QString::fromLocal8Bit(udev_device_get_sysname(interface));
        port.isIgnored = isSet(device) || isSet(interface) || isSet(usbDevice);
        port.instance = instanceOf(device, usbDevice);
        udev_device_unref(device);
    }
    if (context)
        udev_unref(context);
}

std::unique_ptr<UdevSource> UdevSource::create()
{
    if (!hasEvents())
        return nullptr;
    udev *const context = udev_new();
    if (!context)
        return nullptr;
    udev_monitor *const monitor = udev_monitor_new_from_netlink(context, "udev");
    if (monitor) // an error is ignored: then the buffer keeps its size
        udev_monitor_set_receive_buffer_size(monitor, receiveBuffer);
    if (monitor && udev_monitor_filter_add_match_subsystem_devtype(monitor, "tty", nullptr) >= 0
        && udev_monitor_enable_receiving(monitor) >= 0)
        return std::unique_ptr<UdevSource>(new UdevSource(context, monitor, udev_monitor_get_fd(monitor)));
    if (monitor)
        udev_monitor_unref(monitor);
    udev_unref(context);
    return nullptr;
}

UdevSource::UdevSource(udev *context, udev_monitor *monitor, int descriptor)
    : m_context(context)
    , m_monitor(monitor)
    , m_notifier(descriptor, QSocketNotifier::Read)
{
    connect(&m_notifier, &QSocketNotifier::activated, this, [this] {
        if (receive())
            Q_EMIT changed();
    });
}

UdevSource::~UdevSource()
{
    m_notifier.setEnabled(false); // before its descriptor is closed
    udev_monitor_unref(m_monitor);
    udev_unref(m_context);
}

bool UdevSource::receive()
{
    bool any = false;
    for (;;) {
        udev_device *const device = udev_monitor_receive_device(m_monitor);
        if (!device && errno != ENOBUFS)
            return any;
        any = true;
        if (!device) { // the buffer was full, so events were lost
            m_isStale = m_areEventsLost = true;
            continue;
        }
        const QString name = QString::fromLocal8Bit(udev_device_get_sysname(device));
        if (qstrcmp(udev_device_get_action(device), "remove") == 0) {
            const auto isRemoved = [&name](const SystemPort &port) { return port.info.portName() == name; };
            m_ports.erase(std::remove_if(m_ports.begin(), m_ports.end(), isRemoved), m_ports.end());
        } else {
            m_isStale = true;
            m_changed.insert(name);
        }
        udev_device_unref(device);
    }
}

QVector<SystemPort> UdevSource::list()
{
    // The events that wait now are older than the list below. Without this call, a port that was pulled and plugged in
    // again since the last list would look like a port that was there all the time.
    receive();
    if (!std::exchange(m_isStale, false))
        return m_ports;
    QVector<SystemPort> ports;
    const QList<QSerialPortInfo> infos = QSerialPortInfo::availablePorts();
    for (const QSerialPortInfo &info : infos) {
        const auto known = std::find_if(m_ports.cbegin(), m_ports.cend(), [&info](const SystemPort &port) {
            return port.info.portName() == info.portName();
        });
        const bool isKnown = known != m_ports.cend();
        if (isKnown && !m_areEventsLost && !m_changed.contains(info.portName())) {
            ports.append(*known);
            continue;
        }
        SystemPort port = systemPort(info);
        port.plug = isKnown && isSamePort(*known, port) ? known->plug : ++m_count;
        port.change = ++m_count;
        ports.append(port);
    }
    m_ports = ports;
    m_changed.clear();
    m_areEventsLost = false;
    return m_ports;
}

} // namespace JwDevice

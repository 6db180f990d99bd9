#include "udevsource.h"

#include <QFileInfo>

#include <libudev.h>

namespace JwDevice {

namespace {

/// Returns whether this system sends udev's events. Normally the udev daemon sends them. In a simulation, umockdev
/// sends the same events without a daemon.
bool hasEvents()
{
    return QFileInfo::exists(QStringLiteral("/run/udev/control")) || qEnvironmentVariableIsSet("UMOCKDEV_DIR");
}

bool isSet(udev_device *device)
{
    return device && qstrcmp(udev_device_get_property_value(device, "JWDEVICE_IGNORE"), "1") == 0;
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
    while (udev_device *const device = udev_monitor_receive_device(m_monitor)) {
        Counts &counts = m_counts[QString::fromLocal8Bit(udev_device_get_sysname(device))];
        const char *const action = udev_device_get_action(device);
        if (qstrcmp(action, "remove") == 0)
            counts.plug = ++m_events;
        else
            counts.change = ++m_events;
        udev_device_unref(device);
        any = true;
    }
    return any;
}

QVector<SystemPort> UdevSource::list()
{
    // The events that wait now are older than the list below. Without this call, a port that was pulled and plugged in
    // again since the last list would look like a port that was there all the time.
    receive();
    QVector<SystemPort> ports;
    QHash<QString, Counts> counts;
    const QList<QSerialPortInfo> infos = QSerialPortInfo::availablePorts();
    for (const QSerialPortInfo &info : infos) {
        const QString name = info.portName();
        SystemPort port = systemPort(info);
        if (m_counts.contains(name))
            counts.insert(name, m_counts.value(name));
        port.plug = counts.value(name).plug;
        port.change = counts.value(name).change;
        ports.append(port);
    }
    m_counts = counts; // without the ports that are gone
    return ports;
}

} // namespace JwDevice

#pragma once

#include "portsource.h"

#include <QSet>
#include <QSocketNotifier>

struct udev;
struct udev_monitor;

namespace JwDevice {

/// Sets the data of `port` that only udev knows: place, instance, and whether the port is ignored.
void readDevice(SystemPort &port);

/// Lists the ports, and reports their changes. udev sends the events, after it has set the permissions of the port.
/// Keeps the newest list, because listing the ports takes long if there are many ports.
class UdevSource : public PortSource
{
    Q_OBJECT

public:
    /// Returns null if this system sends no events: no udev daemon runs, or this process can't
    /// receive its events.
    static std::unique_ptr<UdevSource> create();
    ~UdevSource() override;

    QVector<SystemPort> list() override;

private:
    UdevSource(udev *context, udev_monitor *monitor, int descriptor);
    bool receive();

    udev *const m_context;
    udev_monitor *const m_monitor;
    QSocketNotifier m_notifier;
    QVector<SystemPort> m_ports; // the newest list, without the ports that were removed since then
    QSet<QString> m_changed; // names of ports with an event since the newest list
    bool m_isStale = true; // whether the ports must be listed again
    bool m_areEventsLost = false; // whether events were lost since the newest list
    quint64 m_count = 0; // newest value of SystemPort::plug and SystemPort::change
};

} // namespace JwDevice

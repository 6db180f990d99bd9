#pragma once

#include "portsource.h"

#include <QHash>
#include <QSocketNotifier>

struct udev;
struct udev_monitor;

namespace JwDevice {

/// Sets the place of `port`, and whether it is ignored, from the data of udev.
void readDevice(SystemPort &port);

/// Lists the ports, and reports their changes. udev sends the events, after it has set the permissions of the port.
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

    struct Counts
    {
        quint64 plug = 0;
        quint64 change = 0;
    };

    udev *const m_context;
    udev_monitor *const m_monitor;
    QSocketNotifier m_notifier;
    QHash<QString, Counts> m_counts; // by port name; only ports with an event since they were listed first
    quint64 m_events = 0;
};

} // namespace JwDevice

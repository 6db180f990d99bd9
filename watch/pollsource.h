#pragma once

#include "portsource.h"

#include <QHash>
#include <QTimer>

namespace JwDevice {

/// Lists the ports at every interval, for systems that report no events.
class PollSource : public PortSource
{
    Q_OBJECT

public:
    explicit PollSource(int interval);

    QVector<SystemPort> list() override;

private:
    struct Seen
    {
        QString identity; // USB ids, serial number and the time when the node in /dev was made or changed
        quint64 plug;
    };

    QHash<QString, Seen> m_seen; // by port name
    quint64 m_plugs = 0;
    QTimer m_timer;
};

} // namespace JwDevice

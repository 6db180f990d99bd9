#pragma once

#include "portsource.h"

#include <QHash>
#include <QTimer>

namespace JwDevice {

/// A source for systems that report no events. Emits changed() at every interval, so that the ports are listed again.
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

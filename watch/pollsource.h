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
        SystemPort port;
        QString node; // the node in /dev
    };

    QHash<QString, Seen> m_seen; // by port name
    quint64 m_plugs = 0; // newest value of SystemPort::plug
    QTimer m_timer;
};

} // namespace JwDevice

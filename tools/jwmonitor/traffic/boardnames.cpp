#include "boardnames.h"

#include "trafficrecord.h"

#include <algorithm>

namespace JwMonitor {

bool BoardNames::add(const TrafficRecord &record)
{
    QString &port = m_ports[record.key()];
    const bool isNew = port != record.port;
    port = record.port;
    return isNew;
}

QString BoardNames::name(const QString &key) const
{
    const QString port = m_ports.value(key);
    const bool isUnique = std::count(m_ports.begin(), m_ports.end(), port) == 1;
    return isUnique || key == port ? port : QStringLiteral("%1 (%2)").arg(port, key);
}

} // namespace JwMonitor

#pragma once

#include <device/portreport.h>

#include <QByteArray>
#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QString>

namespace JwBridge {

/// Says about each candidate port whether it has a board, and if not, why and what helps.
class PortsReport
{
public:
    /// Returns a JSON array with an object for each port. Looks for the reason again only if the report of a port has
    /// changed, because that takes time.
    QByteArray json(const QList<JwDevice::PortReport> &reports);

private:
    struct Known
    {
        QString state; // differs if the reason differs
        QJsonObject object;
    };

    QHash<QString, Known> m_known; // by port name
};

} // namespace JwBridge

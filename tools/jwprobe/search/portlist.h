#pragma once

#include "portidentity.h"

#include <QList>
#include <QString>
#include <QStringList>

namespace JwProbe {

struct ListedPort
{
    PortIdentity port;
    bool probed = false;
    QString reason; ///< why a search probes the port, or why it does not
};

/// Returns all ports of the system, sorted by name, and whether a search would probe each port. If `named` contains
/// names, a search probes the ports with these names. If `named` is empty, a search probes the candidates, see
/// JwDevice::isCandidate().
QList<ListedPort> listPorts(const QStringList &named);

/// Returns the ports that a search would probe, including names in `named` that the system doesn't know.
QList<PortIdentity> candidatePorts(const QStringList &named);

/// Returns the rule for candidates as text: the manufacturer or the vendor id that a port must have.
QString candidateRule();

} // namespace JwProbe

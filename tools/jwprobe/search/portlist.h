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

/// Returns all ports of the system, sorted by name. A search probes the ports in `named`. If `named` is empty, it
/// probes the ports that look like a board.
QList<ListedPort> listPorts(const QStringList &named);

/// Returns the ports that a search probes, including names in `named` that the system doesn't know.
QList<PortIdentity> candidatePorts(const QStringList &named);

/// A text that says which ports a search without names probes.
QString candidateRule();

} // namespace JwProbe

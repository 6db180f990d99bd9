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
    QString reason; ///< why it is probed, or why not
};

/// Every port of the system, in the order of the names, and whether a search would probe it: those `named`, or without
/// names those that look like a board.
QList<ListedPort> listPorts(const QStringList &named);

/// The ports that a search probes. A name that the system doesn't know is among them.
QList<PortIdentity> candidatePorts(const QStringList &named);

/// Whether a search probes it without its being named.
bool looksLikeBoard(const PortIdentity &port);

/// What a port must have to be probed without being named, in words.
QString candidateRule();

} // namespace JwProbe

#pragma once

#include "portidentity.h"

#include <QList>
#include <QString>
#include <QStringList>

class QSerialPortInfo;

namespace JwProbe {

/// The ports that the user named. A port must fit both members.
struct PortChoice
{
    QStringList names; ///< values of --port; empty if every name fits
    QString id; ///< value of --id; empty if every id fits

    bool isEmpty() const { return names.isEmpty() && id.isEmpty(); }
    /// Returns whether `port` fits both members.
    bool contains(const QSerialPortInfo &port) const;
    /// Returns the options with which the user named the ports, for example "--port".
    QString options() const;
};

struct ListedPort
{
    PortIdentity port;
    bool probed = false;
    QString reason; ///< why a search probes the port, or why it does not
};

/// Returns all ports of the system, sorted by name. A search probes the ports that `choice` names. If `choice` names
/// none, it probes the ports that look like a board.
QList<ListedPort> listPorts(const PortChoice &choice);

/// Returns the ports that a search probes. Without an id in `choice`, they include named ports that the system doesn't
/// know.
QList<PortIdentity> candidatePorts(const PortChoice &choice);

/// Returns advice for a search that has no candidate port: why, and which ids the user can give instead.
QStringList noCandidateAdvice(const PortChoice &choice);

/// A text that says which ports a search without names probes.
QString candidateRule();

} // namespace JwProbe

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
    /// Returns whether a search leaves `port` closed, because udev's property JWDEVICE_IGNORE is set and the user did
    /// not name the port by --port.
    bool leavesAlone(const PortIdentity &port) const { return port.isIgnored && names.isEmpty(); }
    /// Returns the options with which the user named the ports, for example "--port".
    QString options() const;
};

struct ListedPort
{
    PortIdentity port;
    bool probed = false;
    QString reason; ///< why a search probes the port, or why it does not
};

/// Returns all ports of the system, sorted by name, and whether a search would probe each port. If `choice` names
/// ports, a search probes these ports. If not, a search probes the candidates, see JwDevice::isCandidate().
QList<ListedPort> listPorts(const PortChoice &choice);

/// Returns the ports that a search would probe, and the ports that it would probe without udev's property
/// JWDEVICE_IGNORE. If `choice` has no id, the result includes named ports that the system doesn't know.
QList<PortIdentity> candidatePorts(const PortChoice &choice);

/// Returns advice for a search that has no candidate port: why, and which ids the user can give instead.
QStringList noCandidateAdvice(const PortChoice &choice);

/// Returns the rule for candidates as text: the manufacturer or the vendor id that a port must have.
QString candidateRule();

} // namespace JwProbe

#pragma once

#include "obstacle.h"

#include <QList>

#include <optional>

namespace JwProbe {

struct PortIdentity;

/// The lock file that keeps the port from opening, and who wrote it.
std::optional<Obstacle> findLock(const PortIdentity &port);

/// The obstacle in place of the port's lock file at which QSerialPort would wait for ever: do not open such a port.
std::optional<Obstacle> findTrap(const PortIdentity &port);

/// The processes, this one left out, that have the port open. Those of other users can't be looked into, except by
/// root.
QList<qint64> findOpeners(const QString &location);

/// For a process that was seen to have the port open, and keeps others out.
Obstacle heldBy(qint64 pid);

/// For a process that was seen to have the port open, and lets others open it too.
Obstacle sharedWith(qint64 pid);

} // namespace JwProbe

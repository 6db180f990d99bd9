#pragma once

#include "obstacle.h"

#include <QList>

#include <optional>

namespace JwProbe {

struct PortIdentity;

/// The obstacle of a lock file that keeps the port from opening, with the program that wrote it.
std::optional<Obstacle> findLock(const PortIdentity &port);

/// The obstacle of a thing in place of the lock file, such as a named pipe. QSerialPort would wait for ever there: do
/// not open the port.
std::optional<Obstacle> findTrap(const PortIdentity &port);

/// The other processes that have the port open. Only root sees the processes of other users.
QList<qint64> findOpeners(const QString &location);

/// The obstacle of a process that has the port open and keeps others out.
Obstacle heldBy(qint64 pid);

/// The obstacle of a process that has the port open and lets others open it too.
Obstacle sharedWith(qint64 pid);

} // namespace JwProbe

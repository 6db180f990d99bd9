#pragma once

#include "obstacle.h"

#include <QList>

#include <optional>

namespace JwProbe {

struct PortIdentity;

/// Returns an obstacle if a lock file keeps the port from opening. The obstacle names the program that wrote the file.
std::optional<Obstacle> findLock(const PortIdentity &port);

/// Returns an obstacle if something else, for example a named pipe, is at the path of the lock file. Then don't open
/// the port, because QSerialPort would wait for ever.
std::optional<Obstacle> findTrap(const PortIdentity &port);

/// Returns the other processes that have the port open. Only root can see this for processes of other users.
QList<qint64> findOpeners(const QString &location);

/// Makes the obstacle for a process that has the port open and keeps other programs from opening it.
Obstacle heldBy(qint64 pid);

/// Makes the obstacle for a process that has the port open and allows other programs to open it too.
Obstacle sharedWith(qint64 pid);

} // namespace JwProbe

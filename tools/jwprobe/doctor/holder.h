#pragma once

#include "obstacle.h"

#include <QList>

#include <optional>

namespace JwProbe {

struct PortIdentity;

/// Returns an obstacle if a lock file, or something else at its path, keeps the port from opening. If the process that
/// wrote the lock file still runs, the obstacle names its program. Otherwise the obstacle names the path.
std::optional<Obstacle> findLock(const PortIdentity &port);

/// Returns the numbers of the other processes that have the port open. Processes of other users are included only if
/// the user root runs this program.
QList<qint64> findOpeners(const QString &location);

/// Makes the obstacle for a process that has the port open and keeps other programs from opening it.
Obstacle heldBy(qint64 pid);

/// Makes the obstacle for a process that has the port open and allows other programs to open it too.
Obstacle sharedWith(qint64 pid);

} // namespace JwProbe

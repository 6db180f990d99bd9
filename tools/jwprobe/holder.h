#pragma once

#include "obstacle.h"

#include <QList>

#include <optional>

namespace JwProbe {

/// Who keeps a port for itself: a process that has it open, or a lock file.
struct Holder
{
    qint64 pid = 0; ///< 0: the lock file names no process of this machine
    QString lockFile; ///< empty: the process was found to have the port open
    bool isRunning = false;
};

/// The lock file at which QSerialPort would stop; nothing when there is none, or only such as it walks over.
std::optional<Holder> findLock(const QString &portName);

/// The processes, this one left out, that have the port open. Those of other users can't be looked into, except by
/// root.
QList<Holder> findOpeners(const QString &location);

Obstacle heldBy(const Holder &holder);

/// Of a process that has the port open and leaves it to others too.
Obstacle sharedWith(const Holder &opener);

} // namespace JwProbe

#pragma once

#include "obstacle.h"

#include <QList>

struct stat;

namespace JwProbe {

/// Who keeps a port for itself: a process that has it open, or a lock file.
struct Holder
{
    qint64 pid = 0; ///< 0: the lock file doesn't tell
    QString lockFile; ///< empty: the process was found to have the port open
    bool isRunning = false;
};

/// Running processes come first, each once. Processes of other users can't be looked into, except by root; those with a
/// lock file show all the same.
QList<Holder> findHolders(const QString &portName, const struct stat &device);

Obstacle heldBy(const Holder &holder);

} // namespace JwProbe

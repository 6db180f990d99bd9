#pragma once

#include <QList>
#include <QString>

namespace JwProbe {

/// All processes that this process can see.
QList<qint64> processIds();

/// Whether a process of this system can have the number.
bool isPossiblePid(qint64 pid);

/// Whether the process exists; false for an impossible number.
bool isAlive(qint64 pid);

/// The short name of the program that a process runs, printable; empty if unknown.
QString programName(qint64 pid);

/// The name of the file that a process runs; empty if unknown, for example for another user's process.
QString executableName(qint64 pid);

/// The shell command that ends a process.
QString endCommand(qint64 pid);

} // namespace JwProbe

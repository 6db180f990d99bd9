#pragma once

#include <QList>
#include <QString>

namespace JwProbe {

/// Every process that can be seen from here.
QList<qint64> processIds();

/// Whether the system gives such a number to a process.
bool isPossiblePid(qint64 pid);

/// False for a number that no process can have.
bool isAlive(qint64 pid);

/// The short name of the program that a process runs, fit for a terminal; empty when it can't be told.
QString programName(qint64 pid);

/// The name of the file that a process runs; empty when it can't be told, as of another user's process.
QString executableName(qint64 pid);

/// The shell command that ends a process.
QString endCommand(qint64 pid);

} // namespace JwProbe

#pragma once

#include <QList>
#include <QString>

namespace JwProbe {

/// Returns the numbers of all processes that this program can see.
QList<qint64> processIds();

/// Returns whether a process of this system can have the number `pid`.
bool isPossiblePid(qint64 pid);

/// Returns whether the process exists. False for an impossible number.
bool isAlive(qint64 pid);

/// Returns the name that the kernel shows for a process, at most 15 characters, in printable form. Empty if the name is
/// not known.
QString programName(qint64 pid);

/// Returns the name of the file that a process runs. Empty if it is not known, for example for another user's process.
QString executableName(qint64 pid);

/// Returns the shell command that ends a process. It contains sudo if this user may not end the process.
QString endCommand(qint64 pid);

} // namespace JwProbe

#pragma once

#include <QString>

#include <optional>

namespace JwProbe {

/// The thing at the path of a lock file. Every user may write there, so something else can be at the path.
struct LockFile
{
    QString path;
    QString foreignKind; ///< what else is at the path, for example "a named pipe"; empty for a lock file
    qint64 pid = 0; ///< number of the process that the file names; 0 if this machine can't have such a process
    QString application; ///< file name of that process's program; empty if QLockFile did not write the lock file
};

/// Returns the lock file that keeps QSerialPort from opening the port, or makes it wait for ever. Empty if there is no
/// lock file, or if QSerialPort would ignore it as stale.
std::optional<LockFile> findLockFile(const QString &portName);

} // namespace JwProbe

#pragma once

#include <QString>

#include <optional>

namespace JwProbe {

/// The lock file with which QSerialPort stops other programs from opening a port, or something else that is at the path
/// of the lock file. Every user may write in the folder of lock files, so anything can be at the path.
struct LockFile
{
    QString path;
    QString foreignKind; ///< what else is at the path, for example "a named pipe"; empty for a lock file
    qint64 pid = 0; ///< number of the process that wrote the file; 0 if the file names no process of this machine
    QString application; ///< program of that process, as QLockFile writes it; empty if the file has no second line
    bool isUnreadable = false; ///< this user may not read the file, so `pid` and `application` are not known
};

/// Returns the lock file, or the other thing at its path, that keeps QSerialPort from opening the port. Empty if
/// nothing is at the path, or if QSerialPort would ignore the lock file as stale.
std::optional<LockFile> findLockFile(const QString &portName);

} // namespace JwProbe

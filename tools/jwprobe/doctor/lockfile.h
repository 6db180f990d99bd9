#pragma once

#include <QString>

#include <optional>

namespace JwProbe {

/// The content of a lock file's path. Everybody may write there, so it may be anything.
struct LockFile
{
    QString path;
    QString foreignKind; ///< such as "a named pipe", when it is no lock file; nothing else is known then
    qint64 pid = 0; ///< that it names; 0 when it names none that a process of this machine can have
    QString application; ///< the file name of that process's program, where the file tells it as QLockFile does
};

/// The lock file at which QSerialPort would stop or wait for ever. Empty if there is no lock file, or if QSerialPort
/// would ignore it as stale.
std::optional<LockFile> findLockFile(const QString &portName);

} // namespace JwProbe

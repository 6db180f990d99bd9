#pragma once

#include <QString>

#include <optional>

namespace JwProbe {

/// What stands at the path of a lock file. Everybody may write there, so that nothing of it is taken for granted.
struct LockFile
{
    QString path;
    QString foreignKind; ///< such as "a named pipe", when it is no lock file; nothing else is known then
    qint64 pid = 0; ///< that it names; 0 when it names none that a process of this machine can have
    QString application; ///< the file name of that process's program, where the file tells it as QLockFile does
};

/// The lock file at which QSerialPort would stop, or wait without end; nothing when there is none, or only such as it
/// walks over.
std::optional<LockFile> findLockFile(const QString &portName);

} // namespace JwProbe

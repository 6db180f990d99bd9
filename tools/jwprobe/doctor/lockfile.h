#pragma once

#include <QString>

#include <optional>

namespace JwProbe {

/// The thing at a lock file's path. Everybody may write there, so it can be anything.
struct LockFile
{
    QString path;
    QString foreignKind; ///< if it is no lock file: such as "a named pipe"; then only the path is known
    qint64 pid = 0; ///< the process that it names; 0 if it names no possible process of this machine
    QString application; ///< the file name of that process's program; empty if QLockFile did not write the file
};

/// The lock file at which QSerialPort would stop or wait for ever. Empty if there is no lock file, or if QSerialPort
/// would ignore it as stale.
std::optional<LockFile> findLockFile(const QString &portName);

} // namespace JwProbe

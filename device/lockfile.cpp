#include "lockfile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdint>
#include <filesystem>
#include <system_error>

namespace JwDevice {

// The lock file is in the first of QSerialPort's folders where it exists or can be created.
QString lockFilePath(const QString &portName)
{
    static const char *const folders[] = {"/var/lock", "/etc/locks", "/var/spool/locks",  "/var/spool/uucp",
                                          "/tmp",      "/var/tmp",   "/var/lock/lockdev", "/run/lock"};
    const QString name = QStringLiteral("LCK..") + QString(portName).replace(QLatin1Char('/'), QLatin1Char('_'));
    for (const char *folder : folders) {
        const QFileInfo info{QLatin1String(folder)};
        const QFileInfo file(QDir(info.filePath()), name);
        if (info.isReadable() && (file.exists() || info.isWritable()))
            return file.filePath();
    }
    return {};
}

QString foreignLockKind(const QString &path)
{
    const std::filesystem::path file(QFile::encodeName(path).toStdString());
    std::error_code error;
    switch (std::filesystem::symlink_status(file, error).type()) {
    case std::filesystem::file_type::none:
    case std::filesystem::file_type::not_found:
        return {};
    case std::filesystem::file_type::regular:
        break;
    case std::filesystem::file_type::fifo:
        return QStringLiteral("a named pipe");
    case std::filesystem::file_type::socket:
        return QStringLiteral("a socket");
    case std::filesystem::file_type::symlink:
        return QStringLiteral("a symbolic link");
    case std::filesystem::file_type::directory:
        return QStringLiteral("a folder");
    default:
        return QStringLiteral("a device");
    }
    constexpr std::uintmax_t largestLockFile = 4096; // bytes; a lock file has at most five short lines
    const std::uintmax_t size = std::filesystem::file_size(file, error);
    return error || size <= largestLockFile ? QString() : QStringLiteral("a file of %1 bytes").arg(size);
}

QString lockTrap(const QString &portName)
{
    // Before QLockFile removes a lock file that was left behind, it creates a second lock file with this ending.
    for (QString path = lockFilePath(portName);; path += QLatin1String(".rmlock")) {
        const QString kind = foreignLockKind(path);
        if (!kind.isEmpty())
            return QStringLiteral("%1 is %2, no lock file").arg(path, kind);
        if (!QFile::exists(path))
            return {};
    }
}

} // namespace JwDevice

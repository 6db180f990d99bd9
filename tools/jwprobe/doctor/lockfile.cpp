#include "lockfile.h"

#include "process.h"

#include <device/lockfile.h>

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStringList>
#include <QSysInfo>

#include <cstdlib>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace JwProbe {

namespace {

constexpr qint64 staleLockTime = 30000; // ms; an older lock file is stale; this is the default of QLockFile
constexpr int largestLockFile = 4096; // bytes; JwDevice::foreignLockKind() takes a larger file for no lock file

// Returns the content of the file, or nothing if the file can't be opened. Never blocks, even if somebody replaced the
// file by a named pipe just before.
std::optional<QByteArray> readFile(const QString &path)
{
    const int descriptor =
        ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC);
    if (descriptor < 0)
        return std::nullopt;
    QByteArray text(largestLockFile, '\0');
    struct stat status = {};
    const bool isFile = ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    const ssize_t count = isFile ? ::read(descriptor, text.data(), static_cast<std::size_t>(text.size())) : 0;
    ::close(descriptor);
    return text.left(static_cast<int>(std::max<ssize_t>(count, 0)));
}

// Splits `text` like QLockFile, which removes the last character of each line even if that character is no newline.
QStringList linesAsQLockFileReads(QByteArray text)
{
    QStringList lines;
    while (!text.isEmpty()) {
        const auto newline = text.indexOf('\n');
        const auto end = newline < 0 ? text.size() - 1 : newline;
        lines.append(QString::fromUtf8(text.left(end)));
        text.remove(0, end + 1);
    }
    return lines;
}

bool isOfAnotherMachine(const QStringList &lines)
{
    const QString host = lines.value(2);
    return !host.isEmpty() && host != QSysInfo::machineHostName();
}

// Returns the data in `text`, which is the content of a lock file. The content starts with a process number. Some
// serial programs, for example minicom, write their name and the user's name on the same line. So the pattern allows
// more text after the number.
LockFile readLock(const QString &path, const QByteArray &text)
{
    LockFile lock;
    lock.path = path;
    const QStringList lines = linesAsQLockFileReads(text);
    if (isOfAnotherMachine(lines))
        return lock;
    static const QRegularExpression number(QStringLiteral("^ *(\\d+)(?:\\s|$)"));
    const QString start = QString::fromUtf8(text.constData()); // ends at a NUL, where QLockFile also stops
    const qint64 pid = number.match(start).captured(1).toLongLong();
    if (isPossiblePid(pid))
        lock.pid = pid;
    lock.application = lines.value(1);
    return lock;
}

// Returns whether QLockFile would ignore the lock file as stale. A file is stale if it is older than staleLockTime. A
// file that names a process of this machine is also stale if that process is gone, runs another program than the file
// names, or runs a program whose name can't be read.
bool isStale(const struct stat &status, const QByteArray &text)
{
    const QStringList lines = linesAsQLockFileReads(text);
    const qint64 pid = lines.value(0).toLongLong(); // as in QLockFile: 0 if the line contains more than a number
    if (pid > 0 && !isOfAnotherMachine(lines)) {
        const QString name = isAlive(pid) ? executableName(pid) : QString();
        if (name.isEmpty() || name != lines.value(1))
            return true;
    }
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    return std::abs(now - status.st_mtim.tv_sec * 1000 - status.st_mtim.tv_nsec / 1000000) > staleLockTime;
}

// Returns whether QLockFile could write, lock and remove the file.
bool isRemovable(const QString &path, const struct stat &file)
{
    const QFileInfo folder(QFileInfo(path).path());
    const uint user = ::geteuid();
    struct stat status = {};
    if (!folder.isWritable() || ::stat(QFile::encodeName(folder.filePath()).constData(), &status) != 0)
        return false;
    if ((status.st_mode & S_ISVTX) != 0 && user != 0 && user != file.st_uid && user != folder.ownerId())
        return false;
    const int descriptor = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if (descriptor < 0)
        return false;
    const bool isFree = ::flock(descriptor, LOCK_EX | LOCK_NB) == 0;
    ::close(descriptor);
    return isFree;
}

std::optional<LockFile> examineLock(const QString &path)
{
    const QString kind = JwDevice::foreignLockKind(path);
    if (!kind.isEmpty())
        return LockFile{path, kind, 0, QString()};
    struct stat status = {};
    if (::lstat(QFile::encodeName(path).constData(), &status) != 0)
        return std::nullopt;
    const std::optional<QByteArray> content = readFile(path);
    const QByteArray text = content.value_or(QByteArray());
    if (!isStale(status, text) || !isRemovable(path, status)) {
        LockFile lock = readLock(path, text);
        lock.isUnreadable = !content;
        return lock;
    }
    // QLockFile would remove the stale file. Before that, QLockFile creates a second lock file, which can also be an
    // obstacle.
    return examineLock(path + QLatin1String(".rmlock"));
}

} // namespace

std::optional<LockFile> findLockFile(const QString &portName)
{
    return examineLock(JwDevice::lockFilePath(portName));
}

} // namespace JwProbe

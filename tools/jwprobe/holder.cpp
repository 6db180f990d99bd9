#include "holder.h"

#include "process.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QSysInfo>

#include <algorithm>
#include <cstdlib>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace JwProbe {

namespace {

constexpr qint64 staleLockTime = 30000; // ms, QLockFile's own

// As QSerialPort chooses it: the first that is there, or that could be made.
QFileInfo findLockFile(const QString &portName)
{
    static const char *const folders[] = {"/var/lock", "/etc/locks", "/var/spool/locks",  "/var/spool/uucp",
                                          "/tmp",      "/var/tmp",   "/var/lock/lockdev", "/run/lock"};
    const QString name = QStringLiteral("LCK..") + QString(portName).replace(QLatin1Char('/'), QLatin1Char('_'));
    for (const char *folder : folders) {
        const QFileInfo info{QLatin1String(folder)};
        const QFileInfo file(QDir(info.filePath()), name);
        if (info.isReadable() && (file.exists() || info.isWritable()))
            return file;
    }
    return {};
}

// As QLockFile sees it: a process whose program is another one, or can't be told, has the number of one that is gone.
bool isStale(const QFileInfo &file, const Holder &holder, const QString &application)
{
    if (holder.pid != 0) {
        const QString name = isAlive(holder.pid) ? executableName(holder.pid) : QString();
        if (name.isEmpty() || name != application)
            return true;
    }
    return std::abs(file.lastModified().msecsTo(QDateTime::currentDateTime())) > staleLockTime;
}

// Whether QLockFile could write to it, lock it and take it out of its folder.
bool isRemovable(const QFileInfo &file)
{
    const QFileInfo folder(file.path());
    const uint user = ::geteuid();
    struct stat status = {};
    if (!folder.isWritable() || ::stat(QFile::encodeName(folder.filePath()).constData(), &status) != 0)
        return false;
    if ((status.st_mode & S_ISVTX) != 0 && user != 0 && user != file.ownerId() && user != folder.ownerId())
        return false;
    const int descriptor = ::open(QFile::encodeName(file.filePath()).constData(), O_WRONLY | O_CLOEXEC);
    if (descriptor < 0)
        return false;
    const bool isFree = ::flock(descriptor, LOCK_EX | LOCK_NB) == 0;
    ::close(descriptor);
    return isFree;
}

QString processText(qint64 pid)
{
    const QString name = programName(pid);
    return name.isEmpty() ? QStringLiteral("process %1").arg(pid) : QStringLiteral("%1 (pid %2)").arg(name).arg(pid);
}

// The number may be another process's by now. One that can't be looked into counts as the owner.
bool isOwner(qint64 pid, const QString &application)
{
    const QString name = executableName(pid);
    return isAlive(pid) && (application.isEmpty() || name.isEmpty() || name == application);
}

bool hasOpen(qint64 pid, const struct stat &device)
{
    const QDir descriptors(QStringLiteral("/proc/%1/fd").arg(pid));
    const QFileInfoList entries = descriptors.entryInfoList(QDir::Files | QDir::System | QDir::NoDotAndDotDot);
    return std::any_of(entries.begin(), entries.end(), [&device](const QFileInfo &entry) {
        struct stat status = {};
        return ::stat(QFile::encodeName(entry.filePath()).constData(), &status) == 0 && S_ISCHR(status.st_mode)
            && status.st_rdev == device.st_rdev;
    });
}

} // namespace

std::optional<Holder> findLock(const QString &portName)
{
    const QFileInfo file = findLockFile(portName);
    if (!file.exists())
        return std::nullopt;
    Holder holder;
    holder.lockFile = file.filePath();
    QString host;
    QString application;
    const bool isReadable = QLockFile(holder.lockFile).getLockInfo(&holder.pid, &host, &application);
    if (!isReadable || (!host.isEmpty() && host != QSysInfo::machineHostName()))
        holder.pid = 0;
    if (isStale(file, holder, application) && isRemovable(file))
        return std::nullopt;
    holder.isRunning = holder.pid != 0 && isOwner(holder.pid, application);
    return holder;
}

QList<Holder> findOpeners(const QString &location)
{
    QList<Holder> openers;
    struct stat device = {};
    if (::stat(QFile::encodeName(location).constData(), &device) != 0 || !S_ISCHR(device.st_mode))
        return openers;
    const QList<qint64> pids = processIds();
    for (const qint64 pid : pids) {
        if (pid != ::getpid() && hasOpen(pid, device))
            openers.append({pid, QString(), true});
    }
    return openers;
}

Obstacle heldBy(const Holder &holder)
{
    if (holder.isRunning) {
        return {Obstacle::Held,
                QStringLiteral("held by another program: %1").arg(processText(holder.pid)),
                {QStringLiteral("Let that program close the port, or end it, and run jwprobe again:"),
                 QStringLiteral("    ") + endCommand(holder.pid)}};
    }
    const QString remove = QStringLiteral("    sudo rm %1").arg(holder.lockFile);
    if (holder.pid == 0) {
        return {Obstacle::Held,
                QStringLiteral("locked by %1, which names no process of this machine").arg(holder.lockFile),
                {QStringLiteral("If no program uses the port, remove the file:"), remove}};
    }
    return {Obstacle::Held,
            QStringLiteral("locked by %1, which process %2 left behind").arg(holder.lockFile).arg(holder.pid),
            {QStringLiteral("That process is gone. Remove the file:"), remove}};
}

Obstacle sharedWith(const Holder &opener)
{
    return {
        Obstacle::Shared,
        QStringLiteral("also open in %1: both will lose bytes").arg(processText(opener.pid)),
        {QStringLiteral("What the board sends goes to the one or the other. Let that program close the port, or end "
                        "it:"),
         QStringLiteral("    ") + endCommand(opener.pid)}};
}

} // namespace JwProbe

#include "holder.h"

#include "lockfile.h"
#include "process.h"
#include <jwprobe/search/portidentity.h>

#include <QDir>
#include <QFile>

#include <algorithm>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace JwProbe {

namespace {

QString processText(qint64 pid)
{
    const QString name = programName(pid);
    return name.isEmpty() ? QStringLiteral("process %1").arg(pid) : QStringLiteral("%1 (pid %2)").arg(name).arg(pid);
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

// Returns whether the process has the port open. Uses fstat() on a descriptor, because the simulator changes the device
// number that stat() returns for the path of a simulated port.
bool hasOpen(qint64 pid, const QString &location)
{
    const int descriptor = ::open(QFile::encodeName(location).constData(), O_PATH | O_CLOEXEC);
    struct stat device = {};
    const bool isDevice = descriptor >= 0 && ::fstat(descriptor, &device) == 0 && S_ISCHR(device.st_mode);
    if (descriptor >= 0)
        ::close(descriptor);
    return isDevice && hasOpen(pid, device);
}

// Returns whether the process that wrote the lock file still runs. Compares program names too, because a new process
// may have the same process number. If one of the two names is not known, only the number is compared.
bool isAliveOwner(const LockFile &lock)
{
    const QString name = executableName(lock.pid);
    return isAlive(lock.pid) && (lock.application.isEmpty() || name.isEmpty() || name == lock.application);
}

Obstacle foreignThing(const LockFile &lock)
{
    return {Obstacle::Held,
            QStringLiteral("%1 is %2, no lock file").arg(lock.path, lock.foreignKind),
            {QStringLiteral("jwprobe opens no port while something else is in place of its lock file. See who owns "
                            "it, and remove it:"),
             QStringLiteral("    ls -ld %1").arg(lock.path), QStringLiteral("    sudo rm -d %1").arg(lock.path)}};
}

Obstacle unreadableLock(const LockFile &lock)
{
    return {
        Obstacle::Held,
        QStringLiteral("locked by %1, which this user may not read").arg(lock.path),
        {QStringLiteral("See as root which process the file names. Let that process close the port, and run jwprobe "
                        "again:"),
         QStringLiteral("    sudo cat %1").arg(lock.path)}};
}

Obstacle lockWithoutHolder(const LockFile &lock, const PortIdentity &port)
{
    return {Obstacle::Held,
            QStringLiteral("locked by %1, which names no process of this machine").arg(lock.path),
            {QStringLiteral("See whether a program uses the port:"),
             QStringLiteral("    sudo fuser -v %1").arg(port.location),
             QStringLiteral("If no program uses the port, remove the file:"),
             QStringLiteral("    sudo rm %1").arg(lock.path)}};
}

Obstacle lockLeftBehind(const LockFile &lock)
{
    return {
        Obstacle::Held,
        QStringLiteral("locked by %1, which process %2 left behind").arg(lock.path).arg(lock.pid),
        {QStringLiteral("That process is gone. Remove the file:"), QStringLiteral("    sudo rm %1").arg(lock.path)}};
}

// Makes the obstacle for a lock file that names a living process that does not seem to have the port open. Anybody can
// write any process number into a lock file. So the advice has no command that ends the process or removes the file.
Obstacle lockOfUnseenHolder(const LockFile &lock, const PortIdentity &port)
{
    return {Obstacle::Held,
            QStringLiteral("locked by %1, which names %2").arg(lock.path, processText(lock.pid)),
            {QStringLiteral("That program does not seem to have the port open. See which program has, and who wrote "
                            "the file:"),
             QStringLiteral("    sudo fuser -v %1").arg(port.location), QStringLiteral("    ls -l %1").arg(lock.path),
             QStringLiteral("Let the program that uses the port close it, and run jwprobe again.")}};
}

Obstacle lockedBy(const LockFile &lock, const PortIdentity &port)
{
    if (!lock.foreignKind.isEmpty())
        return foreignThing(lock);
    if (lock.isUnreadable)
        return unreadableLock(lock);
    if (lock.pid == 0)
        return lockWithoutHolder(lock, port);
    if (!isAliveOwner(lock))
        return lockLeftBehind(lock);
    return hasOpen(lock.pid, port.location) ? heldBy(lock.pid) : lockOfUnseenHolder(lock, port);
}

} // namespace

std::optional<Obstacle> findLock(const PortIdentity &port)
{
    const std::optional<LockFile> lock = findLockFile(port.name);
    return lock ? std::make_optional(lockedBy(*lock, port)) : std::nullopt;
}

QList<qint64> findOpeners(const QString &location)
{
    QList<qint64> openers;
    struct stat device = {};
    if (::stat(QFile::encodeName(location).constData(), &device) != 0 || !S_ISCHR(device.st_mode))
        return openers;
    const QList<qint64> pids = processIds();
    for (const qint64 pid : pids) {
        if (pid != ::getpid() && hasOpen(pid, device))
            openers.append(pid);
    }
    return openers;
}

Obstacle heldBy(qint64 pid)
{
    return {Obstacle::Held,
            QStringLiteral("held by another program: %1").arg(processText(pid)),
            {QStringLiteral("Let that program close the port, or end it, and run jwprobe again:"),
             QStringLiteral("    ") + endCommand(pid)}};
}

Obstacle sharedWith(qint64 pid)
{
    return {
        Obstacle::Shared,
        QStringLiteral("also open in %1: both will lose bytes").arg(processText(pid)),
        {QStringLiteral("Each byte from the board goes to one program only. Let that program close the port, or end "
                        "it:"),
         QStringLiteral("    ") + endCommand(pid)}};
}

} // namespace JwProbe

#include "holder.h"

#include "process.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>

#include <algorithm>

#include <sys/stat.h>
#include <unistd.h>

namespace JwProbe {

namespace {

// Where programs that keep to the custom leave word that they use a port; QSerialPort takes the first it can write to.
QList<Holder> lockHolders(const QString &portName)
{
    static const char *const folders[] = {"/var/lock", "/etc/locks", "/var/spool/locks",  "/var/spool/uucp",
                                          "/tmp",      "/var/tmp",   "/var/lock/lockdev", "/run/lock"};
    const QString name = QStringLiteral("LCK..") + QString(portName).replace(QLatin1Char('/'), QLatin1Char('_'));
    QList<Holder> holders;
    QStringList seen; // one folder is often a link to another
    for (const char *folder : folders) {
        const QFileInfo file(QDir(QLatin1String(folder)), name);
        const QString path = file.canonicalFilePath();
        if (path.isEmpty() || seen.contains(path))
            continue;
        seen.append(path);
        Holder holder;
        holder.lockFile = file.filePath();
        QString host;
        QString application;
        if (QLockFile(holder.lockFile).getLockInfo(&holder.pid, &host, &application))
            holder.isRunning = isAlive(holder.pid);
        else
            holder.pid = 0;
        holders.append(holder);
    }
    return holders;
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

QList<Holder> openHolders(const struct stat &device)
{
    QList<Holder> holders;
    if (!S_ISCHR(device.st_mode))
        return holders;
    const QList<qint64> pids = processIds();
    for (const qint64 pid : pids) {
        if (pid != ::getpid() && hasOpen(pid, device))
            holders.append({pid, QString(), true});
    }
    return holders;
}

} // namespace

QList<Holder> findHolders(const QString &portName, const struct stat &device)
{
    QList<Holder> holders = lockHolders(portName);
    const QList<Holder> openers = openHolders(device);
    for (const Holder &opener : openers) {
        const auto isSame = [&opener](const Holder &holder) { return holder.pid == opener.pid; };
        if (std::none_of(holders.begin(), holders.end(), isSame))
            holders.append(opener);
    }
    std::stable_partition(holders.begin(), holders.end(), [](const Holder &holder) { return holder.isRunning; });
    return holders;
}

Obstacle heldBy(const Holder &holder)
{
    if (holder.isRunning) {
        const QString program = programName(holder.pid);
        return {Obstacle::Held,
                program.isEmpty() ? QStringLiteral("held by another program (pid %1)").arg(holder.pid)
                                  : QStringLiteral("held by another program: %1 (pid %2)").arg(program).arg(holder.pid),
                {QStringLiteral("Let that program close the port, or end it, and run jwprobe again:"),
                 QStringLiteral("    ") + endCommand(holder.pid)}};
    }
    const QString remove = QStringLiteral("    sudo rm %1").arg(holder.lockFile);
    if (holder.pid == 0) {
        return {Obstacle::Held,
                QStringLiteral("locked by %1, which doesn't tell whose it is").arg(holder.lockFile),
                {QStringLiteral("If no program uses the port, remove the file:"), remove}};
    }
    return {Obstacle::Held,
            QStringLiteral("locked by %1, which process %2 left behind").arg(holder.lockFile).arg(holder.pid),
            {QStringLiteral("That process is gone. Remove the file:"), remove}};
}

} // namespace JwProbe

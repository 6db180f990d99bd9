#include "process.h"

#include <common/printable.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <csignal>

namespace JwProbe {

namespace {

constexpr qint64 kernelsHighestPid = 4194304;

} // namespace

QList<qint64> processIds()
{
    QList<qint64> pids;
    const QStringList names = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &name : names) {
        bool isNumber = false;
        const qint64 pid = name.toLongLong(&isNumber);
        if (isNumber)
            pids.append(pid);
    }
    return pids;
}

bool isPossiblePid(qint64 pid)
{
    QFile file(QStringLiteral("/proc/sys/kernel/pid_max"));
    const qint64 highest = file.open(QIODevice::ReadOnly) ? file.readAll().trimmed().toLongLong() : kernelsHighestPid;
    return pid >= 1 && pid <= highest;
}

// Checks the number first, because pid_t has fewer bits than qint64. A number that is too large would become the number
// of another process, or of a group of processes.
bool isAlive(qint64 pid)
{
    if (!isPossiblePid(pid))
        return false;
    return ::kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM;
}

QString programName(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/comm").arg(pid));
    return file.open(QIODevice::ReadOnly) ? JwTools::printable(QString::fromLocal8Bit(file.readAll()).trimmed())
                                          : QString();
}

QString executableName(qint64 pid)
{
    QString path = QFile::symLinkTarget(QStringLiteral("/proc/%1/exe").arg(pid));
    const QLatin1String mark(" (deleted)"); // Linux adds this to the path if an update replaced the file
    if (path.endsWith(mark))
        path.chop(mark.size());
    return QFileInfo(path).fileName();
}

QString endCommand(qint64 pid)
{
    const bool isOurs = ::kill(static_cast<pid_t>(pid), 0) == 0;
    return QStringLiteral("%1kill %2").arg(isOurs ? QString() : QStringLiteral("sudo ")).arg(pid);
}

} // namespace JwProbe

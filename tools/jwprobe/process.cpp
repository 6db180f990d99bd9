#include "process.h"

#include "output.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <csignal>

namespace JwProbe {

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

bool isAlive(qint64 pid)
{
    return ::kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM;
}

QString programName(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/comm").arg(pid));
    return file.open(QIODevice::ReadOnly) ? printable(QString::fromLocal8Bit(file.readAll()).trimmed()) : QString();
}

QString executableName(qint64 pid)
{
    QString path = QFile::symLinkTarget(QStringLiteral("/proc/%1/exe").arg(pid));
    const QLatin1String mark(" (deleted)"); // an update replaced it
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

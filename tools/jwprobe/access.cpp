#include "access.h"

#include "output.h"
#include "portidentity.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QSerialPort>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>
#include <vector>

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace JwProbe {

namespace {

const char *const rulesFile = "/etc/udev/rules.d/70-jwdevice.rules"; // before 73, where uaccess takes effect

struct Holder
{
    qint64 pid = 0;
    QString program; // empty: there is no such process (any more)
    QString lockFile; // empty: it was found to have the port open
};

QString systemError(int number)
{
    return QString::fromLocal8Bit(std::strerror(number));
}

QString programName(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/comm").arg(pid));
    return file.open(QIODevice::ReadOnly) ? printable(QString::fromLocal8Bit(file.readAll()).trimmed()) : QString();
}

bool isAlive(qint64 pid)
{
    return ::kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM;
}

// Where programs that keep to the custom leave word that they use a port; QSerialPort takes the first it can write to.
std::optional<Holder> lockHolder(const QString &portName)
{
    static const char *const folders[] = {"/var/lock", "/etc/locks", "/var/spool/locks",  "/var/spool/uucp",
                                          "/tmp",      "/var/tmp",   "/var/lock/lockdev", "/run/lock"};
    std::optional<Holder> left;
    for (const char *folder : folders) {
        QString name = portName;
        name.replace(QLatin1Char('/'), QLatin1Char('_'));
        const QString file = QStringLiteral("%1/LCK..%2").arg(QLatin1String(folder), name);
        Holder holder;
        QString host;
        QString application;
        if (!QLockFile(file).getLockInfo(&holder.pid, &host, &application))
            continue;
        holder.lockFile = file;
        if (isAlive(holder.pid)) {
            holder.program = programName(holder.pid);
            return holder;
        }
        left = holder;
    }
    return left;
}

bool hasOpen(const QString &descriptors, const struct stat &device)
{
    const QFileInfoList entries = QDir(descriptors).entryInfoList(QDir::Files | QDir::System | QDir::NoDotAndDotDot);
    for (const QFileInfo &entry : entries) {
        struct stat status = {};
        if (::stat(QFile::encodeName(entry.filePath()).constData(), &status) == 0 && S_ISCHR(status.st_mode)
            && status.st_rdev == device.st_rdev)
            return true;
    }
    return false;
}

// A process of another user can't be looked into, except by root.
std::optional<Holder> openHolder(const struct stat &device)
{
    if (!S_ISCHR(device.st_mode))
        return std::nullopt;
    const QStringList processes = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &process : processes) {
        bool isNumber = false;
        const qint64 pid = process.toLongLong(&isNumber);
        if (isNumber && pid != ::getpid() && hasOpen(QStringLiteral("/proc/%1/fd").arg(pid), device))
            return Holder{pid, programName(pid), QString()};
    }
    return std::nullopt;
}

Obstacle heldBy(const Holder &holder)
{
    if (!isAlive(holder.pid)) {
        return {Obstacle::Held,
                QStringLiteral("locked by %1, which process %2 left behind").arg(holder.lockFile).arg(holder.pid),
                {QStringLiteral("That process is gone. Remove the file:"),
                 QStringLiteral("    sudo rm %1").arg(holder.lockFile)}};
    }
    Obstacle obstacle;
    obstacle.kind = Obstacle::Held;
    obstacle.summary = holder.program.isEmpty()
        ? QStringLiteral("held by another program (pid %1)").arg(holder.pid)
        : QStringLiteral("held by another program: %1 (pid %2)").arg(holder.program).arg(holder.pid);
    obstacle.advice.append(QStringLiteral("End that program, or let it close the port, and run jwprobe again."));
    return obstacle;
}

QString ownerName(uid_t uid)
{
    const passwd *entry = ::getpwuid(uid);
    return entry ? QString::fromLocal8Bit(entry->pw_name) : QString::number(uid);
}

QString groupName(gid_t gid)
{
    const group *entry = ::getgrgid(gid);
    return entry ? QString::fromLocal8Bit(entry->gr_name) : QString::number(gid);
}

bool isListedMember(gid_t gid)
{
    const passwd *user = ::getpwuid(::getuid());
    if (!user)
        return false;
    int count = 0;
    ::getgrouplist(user->pw_name, user->pw_gid, nullptr, &count);
    std::vector<gid_t> groups(static_cast<std::size_t>(count));
    ::getgrouplist(user->pw_name, user->pw_gid, groups.data(), &count);
    return std::find(groups.begin(), groups.end(), gid) != groups.end();
}

QStringList permissionAdvice(const PortIdentity &port, const struct stat &device)
{
    QStringList advice;
    const QString group = groupName(device.st_gid);
    const bool groupMayOpen = (device.st_mode & 0060) == 0060 && device.st_gid != 0 && ::geteuid() != 0;
    if (groupMayOpen && isListedMember(device.st_gid)) {
        advice.append(
            QStringLiteral("You joined the group %1 after this session began: log out and in again.").arg(group));
    } else if (groupMayOpen) {
        advice.append(QStringLiteral("Join the group %1, then log out and in again:").arg(group));
        advice.append(QStringLiteral("    sudo usermod -aG %1 $USER").arg(group));
    }
    if (port.vendorId) {
        advice.append(
            QStringLiteral("%1 this line into %2, run \"sudo udevadm control --reload\", and plug the board "
                           "in again:")
                .arg(advice.isEmpty() ? QStringLiteral("Put") : QStringLiteral("Or put"), QLatin1String(rulesFile)));
        advice.append(QStringLiteral("    SUBSYSTEM==\"tty\", ATTRS{idVendor}==\"%1\", TAG+=\"uaccess\"")
                          .arg(idText(port.vendorId)));
    }
    if (advice.isEmpty())
        advice.append(QStringLiteral("Ask the owner of the file for access."));
    return advice;
}

Obstacle noPermission(const PortIdentity &port, const struct stat &device)
{
    return {Obstacle::NoPermission,
            QStringLiteral("no permission: %1 is %2:%3, mode %4")
                .arg(port.location, ownerName(device.st_uid), groupName(device.st_gid))
                .arg(device.st_mode & 07777, 4, 8, QLatin1Char('0')),
            permissionAdvice(port, device)};
}

bool isPermissionError(int number)
{
    return number == EACCES || number == EPERM || number == EROFS;
}

Obstacle find(const PortIdentity &port, struct stat &device)
{
    if (!port.isKnown) {
        return {Obstacle::NoSuchPort,
                QStringLiteral("no such port: the system has no serial port of this name"),
                {QStringLiteral("\"jwprobe --list\" shows the ports that there are.")}};
    }
    const QByteArray path = QFile::encodeName(port.location);
    if (::stat(path.constData(), &device) != 0) {
        return {Obstacle::Other,
                QStringLiteral("%1: %2").arg(port.location, systemError(errno)),
                {QStringLiteral("Unplug the board, plug it in again and run jwprobe again.")}};
    }
    if (::access(path.constData(), R_OK | W_OK) != 0 && isPermissionError(errno))
        return noPermission(port, device);
    std::optional<Holder> holder = lockHolder(port.name);
    if (!holder || holder->program.isEmpty()) {
        if (const std::optional<Holder> opener = openHolder(device))
            holder = opener;
    }
    return holder ? heldBy(*holder) : Obstacle();
}

} // namespace

Obstacle findObstacle(const PortIdentity &port)
{
    struct stat device = {};
    return find(port, device);
}

Obstacle explainOpenError(const PortIdentity &port, int openError)
{
    struct stat device = {};
    const Obstacle obstacle = find(port, device);
    if (obstacle.kind != Obstacle::None)
        return obstacle;

    const int descriptor =
        ::open(QFile::encodeName(port.location).constData(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    const int error = descriptor < 0 ? errno : 0;
    if (descriptor >= 0)
        ::close(descriptor);
    if (isPermissionError(error))
        return noPermission(port, device);
    if (error == EBUSY || (error == 0 && openError == QSerialPort::PermissionError)) {
        return {Obstacle::Held,
                QStringLiteral("held by another program, which one can't be seen from here"),
                {QStringLiteral("Find and end it, then run jwprobe again:"),
                 QStringLiteral("    sudo fuser -v %1").arg(port.location)}};
    }
    return {Obstacle::Other,
            QStringLiteral("does not open: %1")
                .arg(error != 0 ? systemError(error) : QStringLiteral("serial port error %1").arg(openError)),
            {QStringLiteral("Unplug the board, plug it in again and run jwprobe again.")}};
}

} // namespace JwProbe

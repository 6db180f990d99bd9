#include "access.h"

#include "holder.h"
#include "permission.h"
#include <jwprobe/search/portidentity.h>

#include <QFile>
#include <QMetaEnum>
#include <QSerialPort>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

namespace JwProbe {

namespace {

QString systemError(int number)
{
    return QString::fromLocal8Bit(std::strerror(number));
}

bool isPermissionError(int number)
{
    return number == EACCES || number == EPERM || number == EROFS;
}

QStringList replug()
{
    return {
        QStringLiteral("Unplug the board, plug it in again and run jwprobe again. This shows what the kernel says:"),
        QStringLiteral("    sudo dmesg | tail")};
}

Obstacle hiddenHolder(const PortIdentity &port)
{
    return {Obstacle::Held,
            QStringLiteral("held by another program that this user can't see"),
            {QStringLiteral("Find and end it, then run jwprobe again:"),
             QStringLiteral("    sudo fuser -v %1").arg(port.location)}};
}

// Returns one obstacle for each program that has the port open. If this user can see no such program, returns one
// obstacle that says so. Call this only if neither permissions nor a lock file keep the port from opening.
QList<Obstacle> findExclusiveHolders(const PortIdentity &port)
{
    QList<Obstacle> obstacles;
    const QList<qint64> openers = findOpeners(port.location);
    for (const qint64 opener : openers)
        obstacles.append(heldBy(opener));
    return obstacles.isEmpty() ? QList<Obstacle>{hiddenHolder(port)} : obstacles;
}

std::optional<Obstacle> findMissingNode(const PortIdentity &port, struct stat &device)
{
    if (!port.isKnown) {
        return Obstacle{Obstacle::NoSuchPort,
                        QStringLiteral("no such port: the system has no serial port of this name"),
                        {QStringLiteral("\"jwprobe --list\" shows the ports that there are.")}};
    }
    if (::stat(QFile::encodeName(port.location).constData(), &device) != 0) {
        return Obstacle{Obstacle::Other, QStringLiteral("%1: %2").arg(port.location, systemError(errno)), replug()};
    }
    return std::nullopt;
}

} // namespace

QList<Obstacle> findObstacles(const PortIdentity &port)
{
    struct stat device = {};
    if (const std::optional<Obstacle> missing = findMissingNode(port, device))
        return {*missing};
    QList<Obstacle> obstacles;
    if (::access(QFile::encodeName(port.location).constData(), R_OK | W_OK) != 0 && isPermissionError(errno))
        obstacles.append(noPermission(port, device));
    if (const std::optional<Obstacle> lock = findLock(port))
        obstacles.append(*lock);
    return obstacles;
}

Obstacle findObstacle(const PortIdentity &port)
{
    return findObstacles(port).value(0);
}

std::optional<Obstacle> findIgnore(const PortIdentity &port)
{
    if (!port.isIgnored)
        return std::nullopt;
    return Obstacle{
        Obstacle::Ignored,
        QStringLiteral("left alone, because the udev property JWDEVICE_IGNORE is set"),
        {QStringLiteral("To search this port once, name it with --port %1. To search it always, remove the udev rule "
                        "that sets the property, then plug the board in again. This command shows the rule:")
             .arg(port.name),
         QStringLiteral("    grep -rs JWDEVICE_IGNORE /etc/udev/rules.d /run/udev/rules.d /usr/lib/udev/rules.d")}};
}

QString obstacleState(Obstacle::Kind kind)
{
    switch (kind) {
    case Obstacle::NoSuchPort:
        return QStringLiteral("noSuchPort");
    case Obstacle::NoPermission:
        return QStringLiteral("noPermission");
    case Obstacle::Held:
        return QStringLiteral("held");
    case Obstacle::Shared:
        return QStringLiteral("shared");
    case Obstacle::Ignored:
        return QStringLiteral("ignored");
    case Obstacle::None:
    case Obstacle::Other:
        break;
    }
    return QStringLiteral("openFailed");
}

QList<Obstacle> tryToOpen(const PortIdentity &port)
{
    const int descriptor =
        ::open(QFile::encodeName(port.location).constData(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    termios settings = {};
    const int error = descriptor < 0 || ::tcgetattr(descriptor, &settings) != 0 ? errno : 0;
    if (descriptor >= 0)
        ::close(descriptor);
    if (error == 0)
        return {};
    struct stat device = {};
    if (isPermissionError(error) && ::stat(QFile::encodeName(port.location).constData(), &device) == 0)
        return {noPermission(port, device)};
    if (error == EBUSY)
        return findExclusiveHolders(port);
    return {{Obstacle::Other, QStringLiteral("does not open: %1").arg(systemError(error)), replug()}};
}

QList<Obstacle> findSharers(const PortIdentity &port)
{
    QList<Obstacle> obstacles;
    const QList<qint64> openers = findOpeners(port.location);
    for (const qint64 opener : openers)
        obstacles.append(sharedWith(opener));
    return obstacles;
}

Obstacle explainOpenError(const PortIdentity &port, int openError)
{
    QList<Obstacle> obstacles = findObstacles(port);
    if (obstacles.isEmpty())
        obstacles = tryToOpen(port);
    if (obstacles.isEmpty() && openError == QSerialPort::PermissionError)
        obstacles = findExclusiveHolders(port);
    if (!obstacles.isEmpty())
        return obstacles.first();
    // The name, because the numbers of the errors depend on the version of Qt.
    const auto *const name = QMetaEnum::fromType<QSerialPort::SerialPortError>().valueToKey(openError);
    return {Obstacle::Other, QStringLiteral("does not open: %1").arg(QLatin1String(name)), replug()};
}

} // namespace JwProbe

#include "access.h"

#include "holder.h"
#include "permission.h"
#include "portidentity.h"

#include <QFile>
#include <QSerialPort>

#include <cerrno>
#include <cstring>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
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

QString replug()
{
    return QStringLiteral("Unplug the board, plug it in again and run jwprobe again.");
}

Obstacle hiddenHolder(const PortIdentity &port)
{
    return {Obstacle::Held,
            QStringLiteral("held by another program, which one can't be seen from here"),
            {QStringLiteral("Find and end it, then run jwprobe again:"),
             QStringLiteral("    sudo fuser -v %1").arg(port.location)}};
}

std::optional<Obstacle> findMissingNode(const PortIdentity &port, struct stat &device)
{
    if (!port.isKnown) {
        return Obstacle{Obstacle::NoSuchPort,
                        QStringLiteral("no such port: the system has no serial port of this name"),
                        {QStringLiteral("\"jwprobe --list\" shows the ports that there are.")}};
    }
    if (::stat(QFile::encodeName(port.location).constData(), &device) != 0) {
        return Obstacle{Obstacle::Other, QStringLiteral("%1: %2").arg(port.location, systemError(errno)), {replug()}};
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
    const QList<Holder> holders = findHolders(port.name, device);
    for (const Holder &holder : holders)
        obstacles.append(heldBy(holder));
    return obstacles;
}

Obstacle findObstacle(const PortIdentity &port)
{
    return findObstacles(port).value(0);
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
    case Obstacle::None:
    case Obstacle::Other:
        break;
    }
    return QStringLiteral("openFailed");
}

Obstacle tryToOpen(const PortIdentity &port)
{
    const int descriptor =
        ::open(QFile::encodeName(port.location).constData(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    const int error = descriptor < 0 ? errno : 0;
    if (descriptor >= 0)
        ::close(descriptor);
    if (error == 0)
        return {};
    struct stat device = {};
    if (isPermissionError(error) && ::stat(QFile::encodeName(port.location).constData(), &device) == 0)
        return noPermission(port, device);
    if (error == EBUSY)
        return hiddenHolder(port);
    return {Obstacle::Other, QStringLiteral("does not open: %1").arg(systemError(error)), {replug()}};
}

Obstacle explainOpenError(const PortIdentity &port, int openError)
{
    Obstacle obstacle = findObstacle(port);
    if (obstacle.kind == Obstacle::None)
        obstacle = tryToOpen(port);
    if (obstacle.kind != Obstacle::None)
        return obstacle;
    if (openError == QSerialPort::PermissionError)
        return hiddenHolder(port);
    return {Obstacle::Other, QStringLiteral("does not open: serial port error %1").arg(openError), {replug()}};
}

} // namespace JwProbe

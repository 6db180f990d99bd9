#include "doctor.h"

#include "access.h"
#include "process.h"
#include "udevdevice.h"
#include "udevrules.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace JwProbe {

namespace {

qint64 findModemManager()
{
    const QList<qint64> pids = processIds();
    const auto found = std::find_if(pids.begin(), pids.end(),
                                    [](qint64 pid) { return programName(pid) == QLatin1String("ModemManager"); });
    return found == pids.end() ? 0 : *found;
}

// Returns a trouble if ModemManager may use the port. ModemManager is a service of Linux that opens every new port that
// might be a modem. It writes commands that a board doesn't understand.
std::optional<Trouble> modemManagerTrouble(const PortIdentity &port)
{
    const UdevDevice device(port.name);
    if (!port.vendorId || device.isMarked("ID_MM_DEVICE_IGNORE") || device.isMarked("ID_MM_PORT_IGNORE"))
        return std::nullopt;
    const qint64 pid = findModemManager();
    if (pid == 0)
        return std::nullopt;
    Trouble trouble{QStringLiteral("modemManager"),
                    QStringLiteral("ModemManager (pid %1) is not told to leave this port alone").arg(pid),
                    {QStringLiteral("It may take the port for a modem, and hold it for a while whenever the board is "
                                    "plugged in.")}};
    const QString file = findModemManagerRule(port);
    if (file.isEmpty()) {
        trouble.advice += QStringLiteral("Install the udev rules that keep it off, then plug the board in again:");
        trouble.advice += installRulesCommands(port);
    } else {
        trouble.advice +=
            QStringLiteral("Apply the udev rule that keeps it off, in %1, then plug the board in again:").arg(file);
        trouble.advice += applyRulesCommands();
    }
    trouble.advice += QStringLiteral("Or stop it, if this machine has no modem:");
    trouble.advice += QStringLiteral("    sudo systemctl disable --now ModemManager");
    return trouble;
}

} // namespace

QList<Trouble> examine(const PortIdentity &port)
{
    QList<Obstacle> obstacles = findObstacles(port);
    if (const std::optional<Obstacle> ignored = findIgnore(port))
        obstacles.append(*ignored);
    if (obstacles.isEmpty())
        obstacles = tryToOpen(port);
    if (obstacles.isEmpty())
        obstacles = findSharers(port);
    QList<Trouble> troubles;
    for (const Obstacle &obstacle : std::as_const(obstacles))
        troubles.append({obstacleState(obstacle.kind), obstacle.summary, obstacle.advice});
    if (const std::optional<Trouble> trouble = modemManagerTrouble(port))
        troubles.append(*trouble);
    return troubles;
}

} // namespace JwProbe

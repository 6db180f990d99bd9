#include "listreport.h"

#include "output.h"
#include "table.h"
#include <jwprobe/app/options.h>
#include <jwprobe/doctor/access.h>
#include <jwprobe/search/portlist.h>

#include <QJsonArray>
#include <QJsonObject>

#include <unistd.h>

namespace JwProbe {

namespace {

QString listText(const QList<ListedPort> &ports, const PortChoice &choice)
{
    if (ports.isEmpty())
        return QStringLiteral("There is no serial port: plug the board in and check its cable.\n");
    Table table({QStringLiteral("PORT"), QStringLiteral("PROBED"), QStringLiteral("USB ID"),
                 QStringLiteral("MANUFACTURER"), QStringLiteral("SERIAL NUMBER"), QStringLiteral("ID")});
    table.setShrinkable(3);
    for (const ListedPort &listed : ports) {
        const PortIdentity &port = listed.port;
        const QString id =
            port.vendorId ? idText(port.vendorId) + QLatin1Char(':') + idText(port.productId) : QString();
        const Obstacle obstacle = findObstacle(port);
        const QString note = obstacle.kind == Obstacle::None
            ? listed.reason
            : QStringLiteral("%1; %2").arg(listed.reason, obstacle.summary);
        table.addRow({port.name, listed.probed ? QStringLiteral("yes") : QStringLiteral("no"), orDash(id),
                      orDash(port.manufacturer), orDash(port.serialNumber), orDash(port.id)},
                     note);
    }
    const int width = terminalWidth(STDOUT_FILENO);
    const QString rule = !choice.isEmpty()
        ? QStringLiteral("A search probes the ports named by %1.").arg(choice.options())
        : QStringLiteral("A search probes the ports that have %1. --port names others.").arg(candidateRule());
    return table.toText(width) + QLatin1Char('\n') + wrapped(rule, 0, width) + QLatin1Char('\n');
}

QString listJson(const QList<ListedPort> &ports)
{
    QJsonArray array;
    for (const ListedPort &listed : ports) {
        QJsonObject object = listed.port.toJson();
        object[QLatin1String("probed")] = listed.probed;
        object[QLatin1String("reason")] = listed.reason;
        object[QLatin1String("obstacle")] = orNull(findObstacle(listed.port).summary);
        array.append(object);
    }
    const QJsonObject document{{QStringLiteral("version"), QStringLiteral(JWPROBE_VERSION)},
                               {QStringLiteral("ports"), array}};
    return jsonText(document, QJsonDocument::Indented);
}

} // namespace

int showList(const Options &options)
{
    const QList<ListedPort> ports = listPorts(options.portChoice());
    return print(options.json ? listJson(ports) : listText(ports, options.portChoice())) ? 0 : 1;
}

} // namespace JwProbe

#include "portlist.h"

#include <common/portname.h>
#include <common/printable.h>

#include <device/boardrules.h>
#include <watch/portid.h>

#include <QSerialPortInfo>

#include <algorithm>

namespace JwProbe {

namespace {

/// Returns whether a search without --port opens `port`, and why. JwDevice::isCandidate() has the rule.
ListedPort judge(const PortIdentity &port)
{
    if (port.isCandidate)
        return {port, true,
                port.manufacturer == QLatin1String(JwDevice::boardManufacturer)
                    ? QStringLiteral("its USB manufacturer is a board's")
                    : QStringLiteral("its USB vendor id is a board's")};
    if (!port.vendorId && port.manufacturer.isEmpty())
        return {port, false, QStringLiteral("not a USB device")};
    return {port, false, QStringLiteral("neither its USB manufacturer nor its vendor id is a board's")};
}

ListedPort judgeByChoice(const PortIdentity &port, bool isChosen, const QString &options)
{
    return {port, isChosen,
            (isChosen ? QStringLiteral("named by %1") : QStringLiteral("not named by %1")).arg(options)};
}

/// Returns the same as listPorts(), but treats a port with udev's property JWDEVICE_IGNORE like any other port.
QList<ListedPort> judgedPorts(const PortChoice &choice)
{
    QList<ListedPort> ports;
    const QList<QSerialPortInfo> available = QSerialPortInfo::availablePorts();
    const QStringList ids = JwDevice::boardIds(available);
    for (int i = 0; i < available.size(); ++i) {
        const PortIdentity port = PortIdentity::of(available[i], ids[i]);
        ports.append(choice.isEmpty() ? judge(port)
                                      : judgeByChoice(port, choice.contains(available[i]), choice.options()));
    }
    std::sort(ports.begin(), ports.end(),
              [](const ListedPort &a, const ListedPort &b) { return JwTools::isPortBefore(a.port.name, b.port.name); });
    return ports;
}

} // namespace

bool PortChoice::contains(const QSerialPortInfo &port) const
{
    return (names.isEmpty() || names.contains(port.portName())) && (id.isEmpty() || JwDevice::canHaveBoardId(port, id));
}

QString PortChoice::options() const
{
    if (id.isEmpty())
        return QStringLiteral("--port");
    return names.isEmpty() ? QStringLiteral("--id") : QStringLiteral("--port and --id");
}

QList<ListedPort> listPorts(const PortChoice &choice)
{
    QList<ListedPort> ports = judgedPorts(choice);
    for (ListedPort &listed : ports) {
        if (!listed.probed || !choice.leavesAlone(listed.port))
            continue;
        listed.probed = false;
        listed.reason += QStringLiteral(", but the udev property JWDEVICE_IGNORE is set");
    }
    return ports;
}

QList<PortIdentity> candidatePorts(const PortChoice &choice)
{
    QList<PortIdentity> candidates;
    const QList<ListedPort> ports = judgedPorts(choice);
    for (const ListedPort &port : ports) {
        if (port.probed)
            candidates.append(port.port);
    }
    if (!choice.id.isEmpty())
        return candidates;
    for (const QString &name : choice.names) {
        const auto hasName = [&name](const PortIdentity &port) { return port.name == name; };
        if (std::any_of(candidates.begin(), candidates.end(), hasName))
            continue;
        PortIdentity unknown;
        unknown.name = name;
        unknown.location = QStringLiteral("/dev/") + name;
        candidates.append(unknown);
    }
    return candidates;
}

QStringList noCandidateAdvice(const PortChoice &choice)
{
    const QString noBoard = QStringLiteral("No candidate port: no serial port has %1.").arg(candidateRule());
    if (choice.id.isEmpty())
        return {noBoard};
    QStringList advice{choice.names.isEmpty()
                           ? QStringLiteral("No port has the id \"%1\".").arg(choice.id)
                           : QStringLiteral("No port named by --port has the id \"%1\".").arg(choice.id)};
    QStringList ids;
    const QList<PortIdentity> others = candidatePorts({choice.names, {}});
    for (const PortIdentity &port : others) {
        if (port.isKnown)
            ids.append(QStringLiteral("%1 (%2)").arg(JwTools::printable(port.id), port.name));
    }
    advice.append(ids.isEmpty() ? noBoard
                                : QStringLiteral("These ids are there: %1.").arg(ids.join(QLatin1String(", "))));
    return advice;
}

QString candidateRule()
{
    return QStringLiteral("the USB manufacturer \"%1\" or the vendor id %2")
        .arg(QLatin1String(JwDevice::boardManufacturer), idText(JwDevice::boardVendorId));
}

} // namespace JwProbe

#include "portlist.h"

#include <common/portname.h>

#include <device/boardrules.h>

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

ListedPort judgeByName(const PortIdentity &port, const QStringList &named)
{
    if (named.contains(port.name))
        return {port, true, QStringLiteral("named by --port")};
    return {port, false, QStringLiteral("not named by --port")};
}

} // namespace

QList<ListedPort> listPorts(const QStringList &named)
{
    QList<ListedPort> ports;
    const QList<QSerialPortInfo> available = QSerialPortInfo::availablePorts();
    for (const QSerialPortInfo &info : available) {
        const PortIdentity port = PortIdentity::of(info);
        ports.append(named.isEmpty() ? judge(port) : judgeByName(port, named));
    }
    std::sort(ports.begin(), ports.end(),
              [](const ListedPort &a, const ListedPort &b) { return JwTools::isPortBefore(a.port.name, b.port.name); });
    return ports;
}

QList<PortIdentity> candidatePorts(const QStringList &named)
{
    QList<PortIdentity> candidates;
    const QList<ListedPort> ports = listPorts(named);
    for (const ListedPort &port : ports) {
        if (port.probed)
            candidates.append(port.port);
    }
    for (const QString &name : named) {
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

QString candidateRule()
{
    return QStringLiteral("the USB manufacturer \"%1\" or the vendor id %2")
        .arg(QLatin1String(JwDevice::boardManufacturer), idText(JwDevice::boardVendorId));
}

} // namespace JwProbe

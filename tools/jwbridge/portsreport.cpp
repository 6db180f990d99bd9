#include "portsreport.h"

#include <jwprobe/doctor/diagnosis.h>
#include <jwprobe/search/portlist.h>

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <utility>

using JwDevice::PortReport;

namespace JwBridge {

namespace {

// Returns whether the watch itself left the port closed. Then the text says why.
bool isExcluded(const PortReport &report)
{
    return report.verdict == PortReport::NotOpened && report.error == QSerialPort::NoError;
}

// Without the text of payloads, because a port that talks all the time would have a new reason at each attempt.
QString stateOf(const PortReport &report)
{
    return QStringLiteral("%1 %2 %3 %4 %5")
        .arg(report.verdict)
        .arg(report.error)
        .arg(report.reply.isEmpty())
        .arg(report.serialNumber, report.errorText);
}

QJsonObject objectOf(const PortReport &report)
{
    QJsonObject object{{QStringLiteral("port"), report.portName},
                       {QStringLiteral("verdict"), JwDevice::verdictName(report.verdict)},
                       {QStringLiteral("state"), QStringLiteral("ready")},
                       {QStringLiteral("summary"), report.errorText},
                       {QStringLiteral("advice"), QJsonArray()}};
    if (report.verdict == PortReport::Awaiting || (isExcluded(report) && report.errorText.isEmpty())) {
        object[QLatin1String("state")] = QStringLiteral("probing");
    } else if (isExcluded(report)) {
        object[QLatin1String("state")] = QStringLiteral("excluded");
    } else if (report.verdict != PortReport::HandedOver) {
        const QList<JwProbe::ListedPort> ports = JwProbe::listPorts({});
        const auto listed = std::find_if(ports.begin(), ports.end(), [&report](const JwProbe::ListedPort &port) {
            return port.port.name == report.portName;
        });
        JwProbe::PortIdentity identity;
        identity.name = report.portName;
        identity.location = report.location;
        const JwProbe::Diagnosis diagnosis = JwProbe::diagnose(listed == ports.end() ? identity : listed->port, report);
        object[QLatin1String("state")] = diagnosis.state;
        object[QLatin1String("summary")] = diagnosis.summary;
        object[QLatin1String("advice")] = QJsonArray::fromStringList(diagnosis.advice);
    }
    return object;
}

} // namespace

QByteArray PortsReport::json(const QList<PortReport> &reports)
{
    const QHash<QString, Known> before = std::exchange(m_known, {});
    QJsonArray array;
    for (const PortReport &report : reports) {
        Known known = before.value(report.portName);
        if (known.state != stateOf(report))
            known = {stateOf(report), objectOf(report)};
        array.append(known.object);
        m_known.insert(report.portName, known);
    }
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
}

} // namespace JwBridge

#include "refusals.h"

#include <jwprobe/doctor/access.h>
#include <jwprobe/doctor/diagnosis.h>
#include <jwprobe/search/portlist.h>

#include <algorithm>

using JwDevice::PortReport;

namespace JwProbe {

namespace {

// Returns whether the probe of the port ended without a board.
bool isRefused(const PortReport &report)
{
    switch (report.verdict) {
    case PortReport::NotOpened:
        return report.error != QSerialPort::NoError || !report.errorText.isEmpty();
    case PortReport::Awaiting:
    case PortReport::HandedOver:
        return false;
    default:
        return true;
    }
}

QString stateOf(const PortReport &report)
{
    // Without the text of payloads, because a port that talks all the time would have a new reason at each attempt.
    return QStringLiteral("%1 %2 %3 %4")
        .arg(report.verdict)
        .arg(report.error)
        .arg(report.reply.isEmpty())
        .arg(report.errorText);
}

Refusal refusalOf(const PortReport &report, const QList<ListedPort> &ports)
{
    PortIdentity port;
    port.name = report.portName;
    port.location = report.location;
    for (const ListedPort &listed : ports) {
        if (listed.port.name == report.portName)
            port = listed.port;
    }
    // The watch itself decided not to open the port.
    if (report.verdict == PortReport::NotOpened && report.error == QSerialPort::NoError)
        return {port, QStringLiteral("excluded"), report.errorText};
    const Diagnosis diagnosis = diagnose(port, report);
    return {port, diagnosis.state, diagnosis.summary};
}

} // namespace

QList<Refusal> Refusals::update(const QList<PortReport> &reports)
{
    QMap<QString, Known> known;
    QList<Refusal> fresh;
    QList<ListedPort> ports; // listed when first needed and only once, because that takes time
    for (const PortReport &report : reports) {
        const auto before = m_known.constFind(report.portName);
        if (report.verdict == PortReport::HandedOver)
            continue;
        if (!isRefused(report) || (before != m_known.constEnd() && before->state == stateOf(report))) {
            if (before != m_known.constEnd())
                known.insert(report.portName, *before);
            continue;
        }
        if (ports.isEmpty())
            ports = listPorts({});
        const Refusal refusal = refusalOf(report, ports);
        fresh.append(refusal);
        known.insert(report.portName, {stateOf(report), refusal});
    }
    m_known = known;
    return fresh;
}

void Refusals::skip(const PortReport &report)
{
    m_known.insert(report.portName, {stateOf(report), {}});
}

QMap<QString, Refusal> Refusals::all() const
{
    QMap<QString, Refusal> refusals;
    for (const Known &known : m_known) {
        if (!known.refusal.summary.isEmpty())
            refusals.insert(known.refusal.port.name, known.refusal);
    }
    return refusals;
}

} // namespace JwProbe

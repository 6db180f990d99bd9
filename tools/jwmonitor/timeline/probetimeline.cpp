#include "probetimeline.h"

#include <common/boardtype.h>
#include <common/portname.h>
#include <common/printable.h>
#include <jwmonitor/find/boardfinder.h>
#include <jwmonitor/find/portverdict.h>
#include <jwmonitor/history/clock.h>

#include <device/boardrules.h>

#include <algorithm>
#include <utility>

using JwDevice::PortEvent;
using JwDevice::PortReport;

namespace JwMonitor {

namespace {

TimelineEvent fromPortEvent(const PortEvent &event)
{
    const bool isUnreadable = event.kind == PortEvent::Unreadable;
    const QString text = isUnreadable
        ? QStringLiteral("%1 (%2)").arg(JwTools::printable(event.text), JwTools::printable(event.reason))
        : event.kind == PortEvent::HandedOver ? JwTools::boardName(event.type)
                                              : JwTools::printable(event.text);
    return {event.kind, static_cast<double>(event.nanoseconds) / 1e6, text, static_cast<int>(event.round)};
}

} // namespace

ProbeTimeline::ProbeTimeline(BoardFinder *finder, QObject *parent)
    : QObject(parent)
{
    connect(finder, &BoardFinder::searchStarted, this, &ProbeTimeline::start);
    connect(finder, &BoardFinder::portEvent, this, &ProbeTimeline::onPortEvent);
    connect(finder, &BoardFinder::reported, this, &ProbeTimeline::onReported);
    connect(finder, &BoardFinder::searchEnded, this, &ProbeTimeline::finish);
}

ProbeTimeline::~ProbeTimeline() = default;

void ProbeTimeline::start(qint64 timeUs)
{
    m_lanes.clear();
    m_rounds.clear();
    m_startUs = timeUs;
    m_isRunning = true;
    Q_EMIT changed();
}

void ProbeTimeline::finish()
{
    m_endMs = duration();
    m_isRunning = false;
    for (TimelineLane &line : m_lanes) {
        if (!line.isGood)
            line.outcome = verdictText(line.report, true);
    }
    Q_EMIT changed();
}

double ProbeTimeline::duration() const
{
    return m_isRunning ? sinceStart(microsecondsSinceEpoch()) : m_endMs;
}

void ProbeTimeline::onPortEvent(const PortEvent &event)
{
    if (!m_isRunning)
        return;
    startRounds(event);
    TimelineLane &line = lane(event.portName);
    line.events.append(fromPortEvent(event));
    if (event.kind == PortEvent::Asked)
        ++line.queries;
    if (line.events.size() > maxEvents) {
        line.events.removeFirst();
        ++line.dropped;
    }
    Q_EMIT changed();
}

/// Stores the start of a retry round if `event` is the first event of this round on any port.
void ProbeTimeline::startRounds(const PortEvent &event)
{
    while (m_rounds.size() < static_cast<int>(event.round))
        m_rounds.append(fromPortEvent(event).ms);
}

void ProbeTimeline::onReported(const QList<PortReport> &reports)
{
    if (!m_isRunning)
        return;
    for (const PortReport &report : reports) {
        TimelineLane &line = lane(report.portName);
        line.report = report;
        line.isGood = report.verdict == PortReport::HandedOver;
        line.outcome = line.isGood ? JwTools::boardName(report.type) : verdictText(report, false);
    }
    Q_EMIT changed();
}

TimelineLane &ProbeTimeline::lane(const QString &port)
{
    const auto it = std::find_if(m_lanes.begin(), m_lanes.end(),
                                 [&port](const TimelineLane &line) { return !JwTools::isPortBefore(line.port, port); });
    if (it != m_lanes.end() && it->port == port)
        return *it;
    TimelineLane line;
    line.port = port;
    return *m_lanes.insert(it, line);
}

QString ProbeTimeline::kindName(PortEvent::Kind kind)
{
    switch (kind) {
    case PortEvent::Opened:
        return tr("opened");
    case PortEvent::NotOpened:
        return tr("not opened");
    case PortEvent::Asked:
        return tr("query sent");
    case PortEvent::Answered:
        return tr("reply");
    case PortEvent::Unreadable:
        return tr("unreadable");
    case PortEvent::TimedOut:
        return tr("no answer in %1 ms").arg(JwDevice::replyTime);
    case PortEvent::Lost:
        return tr("lost");
    case PortEvent::HandedOver:
        return tr("handed over");
    }
    return QString();
}

} // namespace JwMonitor

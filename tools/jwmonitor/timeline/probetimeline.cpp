#include "probetimeline.h"

#include <common/boardtype.h>
#include <common/portname.h>
#include <common/printable.h>
#include <jwmonitor/find/boardfinder.h>
#include <jwmonitor/find/portverdict.h>

#include <device/boardrules.h>

#include <algorithm>

using JwDevice::PortEvent;

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
    , m_finder(finder)
{
    m_clock.start();
    connect(finder, &BoardFinder::started, this, &ProbeTimeline::start);
    connect(finder, &BoardFinder::portEvent, this, &ProbeTimeline::onPortEvent);
    connect(finder, &BoardFinder::changed, this, &ProbeTimeline::readResults);
    connect(finder, &BoardFinder::stopped, this, &ProbeTimeline::finish);
}

ProbeTimeline::~ProbeTimeline() = default;

void ProbeTimeline::start()
{
    m_lanes.clear();
    m_isCollecting = true;
    m_wasStarted = true;
    Q_EMIT changed();
}

void ProbeTimeline::finish()
{
    readResults();
    m_isCollecting = false;
    for (TimelineLane &lane : m_lanes) {
        lane.endMs = duration(lane);
        lane.isRunning = false;
    }
    Q_EMIT changed();
}

bool ProbeTimeline::isRunning() const
{
    return std::any_of(m_lanes.begin(), m_lanes.end(), [](const TimelineLane &lane) { return lane.isRunning; });
}

double ProbeTimeline::duration() const
{
    double longest = 0;
    for (const TimelineLane &lane : m_lanes)
        longest = std::max(longest, duration(lane));
    return longest;
}

double ProbeTimeline::duration(const TimelineLane &lane) const
{
    const double now = static_cast<double>(m_clock.nsecsElapsed() - lane.startNs) / 1e6;
    return lane.isRunning ? std::max(now, lane.endMs) : lane.endMs;
}

void ProbeTimeline::onPortEvent(const PortEvent &event)
{
    if (!m_isCollecting)
        return;
    TimelineLane &line = lane(event.portName);
    const bool isFirst = event.round == 0 && (event.kind == PortEvent::Opened || event.kind == PortEvent::NotOpened);
    // A port that does not open is tried again and again. The same error does not change the lane, so the user's mark
    // stays.
    const bool isKnown = event.kind == PortEvent::NotOpened && line.events.size() == 1
        && line.events.first().kind == event.kind && line.events.first().text == fromPortEvent(event).text;
    if (isKnown)
        return;
    if (isFirst) {
        line = TimelineLane();
        line.port = event.portName;
        line.startNs = m_clock.nsecsElapsed() - event.nanoseconds;
    }
    append(line, fromPortEvent(event));
    Q_EMIT changed();
}

void ProbeTimeline::append(TimelineLane &lane, const TimelineEvent &event)
{
    lane.events.append(event);
    if (event.kind == PortEvent::Asked)
        ++lane.queries;
    if (lane.events.size() > maxEvents) {
        lane.events.removeFirst();
        ++lane.dropped;
    }
    lane.endMs = event.ms;
}

void ProbeTimeline::readResults()
{
    if (!m_isCollecting)
        return;
    const QVector<PortEntry> entries = m_finder->ports();
    for (TimelineLane &line : m_lanes) {
        const auto entry = std::find_if(entries.begin(), entries.end(), [&line](const PortEntry &other) {
            return other.isPresent && other.report && other.port.name == line.port;
        });
        const bool isThere = entry != entries.end();
        if (isThere) {
            line.isGood = entry->report->verdict == JwDevice::PortReport::HandedOver;
            line.outcome =
                line.isGood ? JwTools::boardName(entry->report->type) : verdictText(*entry->report, entry->isOver);
        } else if (line.isRunning) {
            line.outcome = kindName(PortEvent::Lost);
            if (line.events.last().kind != PortEvent::Lost) // removed without an error
                append(line, {PortEvent::Lost, duration(line), tr("the port is gone")});
        }
        line.isRunning = isThere && !isSettled(*entry->report);
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

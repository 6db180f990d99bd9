#include "probetimeline.h"

#include <jwmonitor/find/boardfinder.h>
#include <common/boardtype.h>
#include <jwmonitor/history/clock.h>
#include <jwmonitor/find/portverdict.h>
#include <common/portname.h>

#include <algorithm>
#include <utility>

namespace JwMonitor {

namespace {

/// A text as the log writes it, between quotes.
QString quoted(const QString &record)
{
    const int first = record.indexOf(QLatin1Char('"'));
    const int last = record.lastIndexOf(QLatin1Char('"'));
    return first < last ? record.mid(first + 1, last - first - 1).replace(QLatin1String("\\\""), QLatin1String("\""))
                        : QString();
}

bool has(const TimelineLane &lane, TimelineEvent::Kind kind)
{
    return std::any_of(lane.events.begin(), lane.events.end(),
                       [kind](const TimelineEvent &event) { return event.kind == kind; });
}

} // namespace

ProbeTimeline::ProbeTimeline(BoardFinder *finder, QObject *parent)
    : QObject(parent)
{
    connect(finder, &BoardFinder::searchStarted, this, &ProbeTimeline::start);
    connect(finder, &BoardFinder::reported, this, &ProbeTimeline::takeReports);
    connect(finder, &BoardFinder::boardFound, this, &ProbeTimeline::takeBoard);
    connect(finder, &BoardFinder::searchEnded, this, &ProbeTimeline::finish);
    connect(&m_log, &ProbeLog::recorded, this, &ProbeTimeline::take);
    connect(&m_log, &ProbeLog::recorded, finder, &BoardFinder::refreshSoon);
}

ProbeTimeline::~ProbeTimeline() = default;

void ProbeTimeline::start(qint64 timeUs)
{
    m_lanes.clear();
    m_rounds.clear();
    m_startUs = timeUs;
    m_isRunning = true;
    m_asking.clear();
    m_answering.clear();
    m_log.start();
    Q_EMIT changed();
}

void ProbeTimeline::finish()
{
    m_endMs = duration();
    m_isRunning = false;
    m_log.stop();
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

void ProbeTimeline::take(const ProbeRecord &record)
{
    if (!m_isRunning || record.timeUs < m_startUs) // what an earlier search left to say
        return;
    if (record.isPayload)
        takePayload(record);
    else
        takeStep(record);
    Q_EMIT changed();
}

void ProbeTimeline::takePayload(const ProbeRecord &record)
{
    if (!record.text.startsWith(QLatin1String("->")))
        m_received = quoted(record.text);
    else if (!m_asking.isEmpty())
        add(m_asking, TimelineEvent::Query, sinceStart(record.timeUs), quoted(record.text));
}

void ProbeTimeline::takeStep(const ProbeRecord &record)
{
    const double ms = sinceStart(record.timeUs);
    const auto begins = [&record](const char *text) { return record.text.startsWith(QLatin1String(text)); };
    if (begins("Serial port opened for probing")) {
        m_asking = quoted(record.text);
        add(m_asking, TimelineEvent::Opened, ms);
    } else if (begins("Retry probing")) {
        m_asking.clear();
        m_rounds.append(ms);
    } else if (begins("Read timeout for")) {
        add(quoted(record.text), TimelineEvent::TimedOut, ms);
    } else if (begins("Read succes on port")) {
        m_answering = quoted(record.text);
        add(m_answering, TimelineEvent::Reply, ms, m_received);
    } else if (begins("Parse failed") && !m_answering.isEmpty()) {
        TimelineEvent &event = lane(m_answering).events.last();
        event.kind = TimelineEvent::Unreadable;
        event.text = tr("%1 (%2)").arg(event.text, quoted(record.text));
    }
}

void ProbeTimeline::takeReports(const QList<JwDevice::PortReport> &reports)
{
    m_asking.clear();
    if (!m_isRunning)
        return;
    const double ms = sinceStart(microsecondsSinceEpoch());
    for (const JwDevice::PortReport &report : reports) {
        TimelineLane &line = lane(report.portName);
        addRepeatedQueries(report);
        const bool isLost = report.verdict == JwDevice::PortReport::Lost;
        const bool isRefused =
            report.verdict == JwDevice::PortReport::NotOpened && report.error != QSerialPort::NoError;
        if (isRefused && !has(line, TimelineEvent::NotOpened))
            add(report.portName, TimelineEvent::NotOpened, ms, report.errorText);
        if (isLost && !has(line, TimelineEvent::Lost))
            add(report.portName, TimelineEvent::Lost, ms, report.errorText);
        line.report = report;
        line.isGood = report.verdict == JwDevice::PortReport::HandedOver;
        line.outcome = line.isGood ? JwTools::boardName(report.type) : verdictText(report, false);
    }
    Q_EMIT changed();
}

void ProbeTimeline::takeBoard(const BoardLink &link, qint64 timeUs)
{
    if (!m_isRunning)
        return;
    TimelineLane &line = lane(link.port);
    line.isGood = true;
    line.outcome = JwTools::boardName(link.type);
    add(link.port, TimelineEvent::HandedOver, sinceStart(timeUs), line.outcome);
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

void ProbeTimeline::add(const QString &port, TimelineEvent::Kind kind, double ms, const QString &text)
{
    const auto isBefore = [](double time, const TimelineEvent &event) { return time < event.ms; };
    const auto isLater = [](double time, double begin) { return time < begin; };
    const auto round = std::upper_bound(m_rounds.begin(), m_rounds.end(), ms, isLater) - m_rounds.begin();
    TimelineLane &line = lane(port);
    line.events.insert(std::upper_bound(line.events.begin(), line.events.end(), ms, isBefore),
                       {kind, ms, text, static_cast<int>(round)});
    if (kind == TimelineEvent::Query) {
        ++line.queries;
        if (round == 0)
            line.asked.append(text);
    }
    if (line.events.size() > maxEvents) {
        line.events.removeFirst();
        ++line.dropped;
    }
}

void ProbeTimeline::addRepeatedQueries(const JwDevice::PortReport &report)
{
    // The log doesn't say to which port a query of a retry round goes, but the reports count them. Each round asks the
    // same, so the count names the round. A report may be late by some rounds, or come before the record of its last.
    const TimelineLane &line = lane(report.portName);
    const int perRound = line.asked.size();
    const int known = qMin(report.queries, perRound * (m_rounds.size() + 1));
    while (line.queries < known) {
        const int round = line.queries / perRound;
        add(report.portName, TimelineEvent::Query, m_rounds.at(round - 1), line.asked.at(line.queries % perRound));
    }
}

QString ProbeTimeline::kindName(TimelineEvent::Kind kind)
{
    switch (kind) {
    case TimelineEvent::Opened:
        return tr("opened");
    case TimelineEvent::NotOpened:
        return tr("not opened");
    case TimelineEvent::Query:
        return tr("query sent");
    case TimelineEvent::Reply:
        return tr("reply");
    case TimelineEvent::Unreadable:
        return tr("unreadable");
    case TimelineEvent::TimedOut:
        return tr("no answer in 400 ms");
    case TimelineEvent::Lost:
        return tr("lost");
    case TimelineEvent::HandedOver:
        return tr("handed over");
    }
    return QString();
}

} // namespace JwMonitor

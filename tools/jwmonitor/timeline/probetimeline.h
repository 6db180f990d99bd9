#pragma once

#include <device/portevent.h>
#include <device/portreport.h>

#include <QObject>
#include <QStringList>
#include <QVector>

namespace JwMonitor {

class BoardFinder;

/// An event on one port during a search, as the timeline shows it.
struct TimelineEvent
{
    JwDevice::PortEvent::Kind kind;
    double ms; ///< milliseconds since the start of the search
    QString text; ///< text of the sentence or of the error; may be empty
    int round = 0; ///< number of the round: 0 for the first queries, 1 for the first retry round
};

/// A lane (horizontal strip) of the timeline: the events on one port, oldest first, and the result.
struct TimelineLane
{
    QString port;
    QVector<TimelineEvent> events; ///< only the newest events; at most ProbeTimeline::maxEvents
    int dropped = 0; ///< number of older events that are no longer in `events`
    int queries = 0; ///< number of queries sent in all rounds
    JwDevice::PortReport report; ///< the newest report about the port
    QString outcome; ///< the result in a few words; empty while the result is not known
    bool isGood = false; ///< whether a board was found on the port
};

/// Collects the events and reports of a search, so that the timeline can show what happened on each port and when.
class ProbeTimeline : public QObject
{
    Q_OBJECT

public:
    static constexpr int maxEvents = 2000; ///< in one lane; the limit is needed because a search may last for an hour

    /// Collects the events of each search of `finder`. When a new search starts, removes the events of the search
    /// before.
    explicit ProbeTimeline(BoardFinder *finder, QObject *parent = nullptr);
    ~ProbeTimeline() override;

    const QVector<TimelineLane> &lanes() const { return m_lanes; }
    /// Returns the times at which the retry rounds started, in ms since the start of the search.
    const QVector<double> &rounds() const { return m_rounds; }
    bool isRunning() const { return m_isRunning; }
    /// Returns the duration of the search in ms. While the search runs, this is the time since its start.
    double duration() const;
    /// Returns the time when the search started, in microseconds since the epoch. 0 before the first search.
    qint64 startTime() const { return m_startUs; }

    static QString kindName(JwDevice::PortEvent::Kind kind);

Q_SIGNALS:
    void changed();

private:
    void start(qint64 timeUs);
    void onPortEvent(const JwDevice::PortEvent &event);
    void onReported(const QList<JwDevice::PortReport> &reports);
    void finish();
    TimelineLane &lane(const QString &port);
    void startRounds(const JwDevice::PortEvent &event);
    double sinceStart(qint64 timeUs) const { return static_cast<double>(timeUs - m_startUs) / 1000; }

    QVector<TimelineLane> m_lanes;
    QVector<double> m_rounds;
    qint64 m_startUs = 0;
    double m_endMs = 0;
    bool m_isRunning = false;
};

} // namespace JwMonitor

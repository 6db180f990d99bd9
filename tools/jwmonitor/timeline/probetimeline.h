#pragma once

#include <device/portevent.h>

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QVector>

namespace JwMonitor {

class BoardFinder;

/// An event on one port during a probe, as the timeline shows it.
struct TimelineEvent
{
    JwDevice::PortEvent::Kind kind;
    double ms; ///< milliseconds since the start of the port's probe
    QString text; ///< text of the sentence or of the error; may be empty
    int round = 0; ///< number of the round: 0 for the first queries, 1 for the first retry round
};

/// A lane (horizontal strip) of the timeline: the events of the newest probe of one port, oldest first, and the result.
struct TimelineLane
{
    QString port;
    QVector<TimelineEvent> events; ///< only the newest events; at most ProbeTimeline::maxEvents
    int dropped = 0; ///< number of older events that are no longer in `events`
    int queries = 0; ///< number of queries sent in all rounds
    qint64 startNs = 0; ///< when the probe started, on the clock of the timeline
    bool isRunning = true; ///< whether the probe has no result yet
    double endMs = 0; ///< the last event or, after BoardFinder::stop(), the end; in ms since the start of the probe
    QString outcome; ///< the result in a few words; empty while the result is not known
    bool isGood = false; ///< whether a board was found on the port
};

/// Collects the events of the newest probe of each port, so that the timeline can show what happened and when. Each
/// lane has its own time, which starts with the probe of its port.
class ProbeTimeline : public QObject
{
    Q_OBJECT

public:
    static constexpr int maxEvents = 2000; ///< in one lane; the limit is needed because a probe may last for an hour

    /// Collects the events of `finder` from BoardFinder::start() to BoardFinder::stop(). The next start() removes them.
    explicit ProbeTimeline(BoardFinder *finder, QObject *parent = nullptr);
    ~ProbeTimeline() override;

    const QVector<TimelineLane> &lanes() const { return m_lanes; }
    /// Returns whether the probe of any port has no result yet.
    bool isRunning() const;
    /// Returns the duration of the longest probe in ms. A running probe lasts from its start until now.
    double duration() const;
    /// Returns the duration of the probe of `lane` in ms.
    double duration(const TimelineLane &lane) const;
    /// Returns whether BoardFinder::start() was ever called.
    bool wasStarted() const { return m_wasStarted; }

    static QString kindName(JwDevice::PortEvent::Kind kind);

Q_SIGNALS:
    void changed();

private:
    void start();
    void onPortEvent(const JwDevice::PortEvent &event);
    void readResults();
    void finish();
    TimelineLane &lane(const QString &port);
    static void append(TimelineLane &lane, const TimelineEvent &event);

    BoardFinder *const m_finder;
    QVector<TimelineLane> m_lanes;
    QElapsedTimer m_clock;
    bool m_isCollecting = false;
    bool m_wasStarted = false;
};

} // namespace JwMonitor

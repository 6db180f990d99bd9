#pragma once

#include <device/portevent.h>
#include <device/portreport.h>

#include <QObject>
#include <QStringList>
#include <QVector>

namespace JwMonitor {

class BoardFinder;

/// An event of one port in a search, as the timeline shows it.
struct TimelineEvent
{
    JwDevice::PortEvent::Kind kind;
    double ms; ///< since the start of the search
    QString text; ///< the sentence or the error; may be empty
    int round = 0; ///< 0 while ports are asked first, 1 in the first retry round
};

/// What happened on one port, in order.
struct TimelineLane
{
    QString port;
    QVector<TimelineEvent> events; ///< the newest ProbeTimeline::maxEvents
    int dropped = 0; ///< number of older events, which are not kept
    int queries = 0; ///< in all rounds
    JwDevice::PortReport report; ///< the newest one
    QString outcome; ///< in a few words; empty while it is open
    bool isGood = false; ///< a board was found on the port
};

/// What a search did on each port and when, from the events and reports of the search.
class ProbeTimeline : public QObject
{
    Q_OBJECT

public:
    static constexpr int maxEvents = 2000; ///< in one lane; a search may last for an hour

    /// Shows the newest search of `finder`.
    explicit ProbeTimeline(BoardFinder *finder, QObject *parent = nullptr);
    ~ProbeTimeline() override;

    const QVector<TimelineLane> &lanes() const { return m_lanes; }
    /// The starts of the retry rounds, in ms.
    const QVector<double> &rounds() const { return m_rounds; }
    bool isRunning() const { return m_isRunning; }
    /// How long the search has taken so far, in ms.
    double duration() const;
    /// When the search started, in microseconds since the epoch; 0 before the first search.
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

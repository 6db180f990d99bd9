#pragma once

#include "probelog.h"

#include <device/portreport.h>
#include <QObject>
#include <QStringList>
#include <QVector>

namespace JwMonitor {

class BoardFinder;
struct BoardLink;

/// Something that happened on one port in a search.
struct TimelineEvent
{
    enum Kind {
        Opened,
        NotOpened, ///< it could not be opened
        Query, ///< sent to it
        Reply, ///< a sentence from it
        Unreadable, ///< something from it that the library can't read
        TimedOut, ///< its 400 ms are over
        Lost, ///< it failed
        HandedOver, ///< it has a wanted board
    };

    Kind kind;
    double ms; ///< from the start of the search
    QString text; ///< the sentence, or what went wrong; empty for none
    int round = 0; ///< 0 is the first asking, 1 the first retry
};

/// What happened on one port, in order.
struct TimelineLane
{
    QString port;
    QVector<TimelineEvent> events; ///< the newest ProbeTimeline::maxEvents
    int dropped = 0; ///< events that were older
    QStringList asked; ///< the queries of the first round, which each round repeats
    int queries = 0; ///< of all rounds
    JwDevice::PortReport report; ///< the newest one
    QString outcome; ///< in a few words; empty as long as there is none
    bool isGood = false; ///< the outcome is a board that was found
};

/**
 * What a search did on each port and when: from the library's log, which tells every step with its time, and from the
 * search's own reports for what only these tell.
 */
class ProbeTimeline : public QObject
{
    Q_OBJECT

public:
    static constexpr int maxEvents = 2000; ///< of one lane; a search may last for an hour

    /// Of each search of `finder`, the newest one.
    explicit ProbeTimeline(BoardFinder *finder, QObject *parent = nullptr);
    ~ProbeTimeline() override;

    const QVector<TimelineLane> &lanes() const { return m_lanes; }
    /// The starts of the retry rounds, in ms.
    const QVector<double> &rounds() const { return m_rounds; }
    bool isRunning() const { return m_isRunning; }
    /// Of the search so far, in ms.
    double duration() const;
    /// The start, in microseconds since the epoch; 0 before the first one.
    qint64 startTime() const { return m_startUs; }

    static QString kindName(TimelineEvent::Kind kind);

Q_SIGNALS:
    void changed();

private:
    void start(qint64 timeUs);
    void take(const ProbeRecord &record);
    void takeReports(const QList<JwDevice::PortReport> &reports);
    void takeBoard(const BoardLink &link, qint64 timeUs);
    void finish();
    TimelineLane &lane(const QString &port);
    void add(const QString &port, TimelineEvent::Kind kind, double ms, const QString &text = QString());
    void takePayload(const ProbeRecord &record);
    void takeStep(const ProbeRecord &record);
    void addRepeatedQueries(const JwDevice::PortReport &report);
    double sinceStart(qint64 timeUs) const { return static_cast<double>(timeUs - m_startUs) / 1000; }

    ProbeLog m_log;
    QVector<TimelineLane> m_lanes;
    QVector<double> m_rounds;
    qint64 m_startUs = 0;
    double m_endMs = 0;
    bool m_isRunning = false;
    QString m_asking; // the port that was opened last: the queries that follow at once are for it
    QString m_received; // the newest payload that came, from whichever port
    QString m_answering; // the port whose payload was taken last
};

} // namespace JwMonitor

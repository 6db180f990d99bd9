#pragma once

#include "livetable.h"
#include "refusals.h"
#include "watchevent.h"
#include <jwprobe/app/options.h>
#include <jwprobe/output/eventoutput.h>

#include <watch/boardwatch.h>

#include <QObject>
#include <QSet>
#include <QTimer>

namespace JwProbe {

/// Shows boards that come and go, from start() on. Opens every port that may have a board, and writes only queries.
class Watch : public QObject
{
    Q_OBJECT

public:
    explicit Watch(const Options &options);

    void start();

Q_SIGNALS:
    /// Emitted from the event loop at the deadline, or when nobody reads standard output any more.
    void ended(int exitStatus);

private:
    bool isWanted(const QSerialPortInfo &port);
    void onBoardThere(WatchEvent::Kind kind, const JwDevice::Board &board);
    void onBoardLost(const JwDevice::Board &board);
    void receive(const JwDevice::Board &board);
    void show(const QList<Refusal> &refusals); // the new refusals; the table shows all of them
    int exitStatus() const;

    const Options m_options;
    QTimer m_deadline;
    EventOutput<LiveTable, WatchEvent> m_output; // before m_watch, whose signals use it
    Refusals m_refusals;
    QSet<int> m_foundTypes;
    bool m_hadCandidate = false;
    JwDevice::BoardWatch m_watch;
};

/// Runs a watch until Watch::ended() or a Unix signal. Returns the exit status.
int runWatch(const Options &options);

} // namespace JwProbe

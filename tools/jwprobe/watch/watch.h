#pragma once

#include "refusals.h"
#include "watchevent.h"
#include <jwprobe/app/options.h>

#include <watch/boardwatch.h>

#include <QElapsedTimer>
#include <QObject>
#include <QSet>
#include <QTimer>

#include <memory>

namespace JwProbe {

class LiveTable;

/// Shows boards that come and go, from start() on. Opens every port that may have a board, and writes only queries.
class Watch : public QObject
{
    Q_OBJECT

public:
    explicit Watch(const Options &options);
    /// Draws the changes of the table that were not yet drawn.
    ~Watch() override;

    void start();

Q_SIGNALS:
    /// Emitted from the event loop at the deadline, or when nobody reads standard output any more.
    void ended(int exitStatus);

private:
    bool isWanted(const QSerialPortInfo &port);
    void onBoardThere(WatchEvent::Kind kind, const JwDevice::Board &board);
    void onBoardLost(const JwDevice::Board &board);
    void receive(const JwDevice::Board &board);
    void show(WatchEvent event);
    void show(const QList<Refusal> &refusals); // the new refusals; the table shows all of them
    void drawSoon();
    void draw();
    int exitStatus() const;

    const Options m_options;
    std::unique_ptr<LiveTable> m_table; // null if events are printed one by one
    QTimer m_drawTimer;
    QTimer m_deadline;
    QElapsedTimer m_clock;
    Refusals m_refusals;
    QSet<int> m_foundTypes;
    bool m_hadCandidate = false;
    JwDevice::BoardWatch m_watch;
};

/// Runs a watch until Watch::ended() or a Unix signal. Returns the exit status.
int runWatch(const Options &options);

} // namespace JwProbe

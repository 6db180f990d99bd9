#pragma once

#include <jwprobe/app/options.h>

#include <fleet/fleetwatch.h>

#include <QObject>
#include <QString>
#include <QTimer>

namespace JwProbe {

/// Sends one line to a board on a broker, see --send, and prints the result.
class FleetSend : public QObject
{
    Q_OBJECT

public:
    explicit FleetSend(const Options &options);

    void start();

Q_SIGNALS:
    /// Emitted once, from the event loop.
    void ended(int exitStatus);

private:
    void send();
    void onDeadline();
    void finish(qint64 id, const QString &error);

    const Options m_options;
    JwFleet::RemoteBoard m_board; // empty until it is known
    QTimer m_deadline;
    QString m_failure; // why there is no connection
    bool m_isSent = false;
    JwFleet::FleetWatch m_watch;
};

} // namespace JwProbe

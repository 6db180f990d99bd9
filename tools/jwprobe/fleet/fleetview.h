#pragma once

#include "fleetevent.h"
#include "fleettable.h"
#include <jwprobe/app/options.h>
#include <jwprobe/output/eventoutput.h>

#include <fleet/fleetwatch.h>

#include <QMap>
#include <QObject>
#include <QString>
#include <QTimer>

namespace JwProbe {

class Input;

/// Shows the boards on a broker, from start() on. With --monitor, also shows their payloads, and sends the lines of
/// standard input.
class FleetView : public QObject
{
    Q_OBJECT

public:
    explicit FleetView(const Options &options);

    void start();

Q_SIGNALS:
    /// Emitted from the event loop at the deadline, or when nobody reads standard output any more.
    void ended(int exitStatus);

private:
    void connectWatch();
    void onMachine(const JwFleet::Machine &machine);
    void onBoard(FleetEvent::Kind kind, const JwFleet::RemoteBoard &board);
    void onPayload(const JwFleet::RemoteBoard &board, qint64 time, qint64 seq, const QString &text);
    void onPorts(const QString &host);
    void onFailed(const QString &reason);
    void send(const QString &line);
    void onSent(int number, const QString &error);

    const Options m_options;
    QTimer m_deadline;
    EventOutput<FleetTable, FleetEvent> m_output; // before m_watch, whose signals use it
    QMap<QString, QMap<QString, QString>> m_refusals; // reasons by port, by host
    QMap<int, FleetEvent> m_sent; // lines on their way
    Input *m_input = nullptr; // null without --monitor
    QString m_failure;
    bool m_wasFound = false; // whether a wanted board was there
    JwFleet::FleetWatch m_watch;
};

/// Shows the fleet until FleetView::ended() or a Unix signal, or sends the line of --send. Returns the exit status.
int runFleet(const Options &options);

} // namespace JwProbe

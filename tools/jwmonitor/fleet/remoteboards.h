#pragma once

#include <jwmonitor/find/portrows.h>
#include <jwmonitor/traffic/trafficrecord.h>

#include <QString>

namespace JwMonitor {

/**
 * The boards of other machines, as the window needs them. The name of a board is "MACHINE/ID".
 *
 * The window knows only this class, so that it can be built without a client of MQTT brokers.
 */
class RemoteBoards : public PortRows
{
    Q_OBJECT

public:
    using PortRows::PortRows;

    /// Returns a line about the connection to the broker, and about the machines and boards.
    virtual QString summary() const = 0;
    /// Sends a sentence to a board. Returns the number of the sentence, which sendFinished() reports. Returns 0 if
    /// there is no connection to the broker.
    virtual uint send(const QString &board, const QString &sentence) = 0;

Q_SIGNALS:
    /// Emitted when a board is found, and when a lost board is back. `type` is for example "BoardA".
    void boardFound(const QString &board, const QString &type);
    /// The bridge removed a board that was lost for a long time.
    void boardForgotten(const QString &board);
    void payloadReceived(const JwMonitor::TrafficRecord &record);
    /// If `error` is empty, the bridge wrote the sentence to the board.
    void sendFinished(const QString &board, uint number, const QString &error);
};

} // namespace JwMonitor

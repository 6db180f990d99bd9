#pragma once

#include "remoteboards.h"
#include <fleet/fleetwatch.h>

#include <QHash>
#include <QTimer>

namespace JwMonitor {

/// The boards of all machines that are on an MQTT broker. Makes the rows of the machines, of their boards, and of
/// their ports without a board.
class FleetBoards : public RemoteBoards
{
    Q_OBJECT

public:
    FleetBoards(const JwFleet::BrokerSettings &broker, const QString &prefix, QObject *parent = nullptr);
    ~FleetBoards() override;

    /// Connects to the broker. Call this when all signals are connected.
    void start() { m_watch.start(); }

    QVector<PortEntry> ports() const override;
    QString summary() const override;
    uint send(const QString &board, const QString &sentence) override;

private:
    struct Address
    {
        QString host;
        QString id;
    };

    void onFound(const JwFleet::RemoteBoard &board);
    void onPayload(const JwFleet::RemoteBoard &board, qint64 time, const QString &text);
    void setFailure(const QString &reason);
    void changeSoon();

    const QString m_broker; // its address
    QString m_failure; // why there is no connection; empty if there is one
    QString m_refusal; // which topics the broker does not let this program read; empty if it may read all
    QHash<QString, Address> m_addresses; // of the boards that were found, by name
    QHash<uint, QString> m_sent; // names of the boards to which sentences are on their way, by number
    QTimer m_changeTimer;
    JwFleet::FleetWatch m_watch;
};

} // namespace JwMonitor

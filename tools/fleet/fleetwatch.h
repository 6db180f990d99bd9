#pragma once

#include "broker.h"
#include "remoteboard.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QMap>
#include <QObject>
#include <QPair>
#include <QString>

#include <optional>

namespace JwFleet {

/**
 * Watches the boards of all machines that are on a broker, as JwDevice::BoardWatch watches those of one machine. Sends
 * sentences to boards.
 *
 * If the connection to the broker is lost, all boards are lost until the broker has sent their states again.
 *
 * Receivers of the signals may call every function, but must not delete this object.
 */
class FleetWatch : public QObject
{
    Q_OBJECT

public:
    enum Payloads { WithPayloads, WithoutPayloads };

    /// If `settings` has no client id, this object makes one that no other client has.
    FleetWatch(const BrokerSettings &settings, const QString &prefix, Payloads payloads, QObject *parent = nullptr);

    void start() { m_broker.start(); }
    bool isConnected() const { return m_broker.isConnected(); }

    /// Returns the boards that are known, also lost boards, ordered by machine and id.
    QList<RemoteBoard> boards() const;
    QList<Machine> machines() const; ///< ordered by name
    QList<RemotePort> ports(const QString &host) const { return m_ports.value(host); }

    /// Sends a line to a board. The bridge makes a sentence of it and writes it. Returns the number of the line, which
    /// sendFinished() reports. Returns 0 if there is no connection to the broker, or if the broker can't take the line.
    int send(const QString &host, const QString &id, const QString &line);

Q_SIGNALS:
    void connected();
    /// Emitted when the connection ended, or when an attempt to connect failed. `reason` says why. The watch tries
    /// again.
    void failed(const QString &reason);
    /// The broker does not allow a subscription, so some of the other signals are missing.
    void subscriptionRefused(const QByteArray &filter, const QString &reason);

    /// The broker has sent the states that it had stored before the newest connection. If the broker is a cluster or
    /// does not let this client publish, the signal may come earlier.
    void settled();

    void machineChanged(const JwFleet::Machine &machine);
    /// Emitted when a board is there for the first time.
    void boardFound(const JwFleet::RemoteBoard &board);
    /// Emitted when a board is lost, again when the reason changes, and for each board that is lost when the watch
    /// hears of it for the first time.
    void boardLost(const JwFleet::RemoteBoard &board);
    void boardBack(const JwFleet::RemoteBoard &board);
    /// Emitted when the bridge has removed a board that was lost for a long time, also if it did so while there was no
    /// connection. With a cluster of brokers, the signal may come by mistake after a reconnect; then boardFound()
    /// follows.
    void boardForgotten(const JwFleet::RemoteBoard &board);
    /// The bridge received `text` from the board at `time`, in µs since the epoch. Each payload is reported once, also
    /// if the bridge sends it again after an interruption. Without `state`, `board` is not yet known.
    void payloadReceived(const JwFleet::RemoteBoard &board, qint64 time, qint64 seq, const QString &text);
    void portsChanged(const QString &host);
    /// If `error` is empty, the bridge wrote the line to the board as the payload `id`. Emitted at most 5 seconds after
    /// send().
    void sendFinished(int number, qint64 id, const QString &error);

private:
    using Key = QPair<QString, QByteArray>; // host, and the board's part of the topic

    struct Entry
    {
        RemoteBoard board; // as reported last
        std::optional<RemoteBoard> stated; // what the broker sent since the newest connection
        bool wasFound = false;
    };
    struct Newest
    {
        qint64 seq = 0;
        qint64 time = 0;
    };

    void onConnected();
    void onFailed(const QString &reason);
    void onReceived(const Message &message);
    void onState(const Key &key, const QByteArray &payload);
    void onStoredStatesEnd();
    void onPayload(const Key &key, const Message &message);
    void onPorts(const QString &host, const QByteArray &payload);
    void onAcknowledged(int brokerNumber, const QString &refusal);
    void onResult(const Message &message);
    void onRefused(int brokerNumber, const QString &error);
    void setMachine(const QString &host, Machine::State state);
    void update(const Key &key);
    void report(const Key &key, const RemoteBoard &board);
    void finish(int number, qint64 id, const QString &error);

    const BrokerSettings m_settings;
    const QString m_prefix;
    const Payloads m_payloads;
    const QByteArray m_resultTopic; // not below the prefix, because bridges write no results there
    QMap<QString, Machine::State> m_machines;
    QMap<Key, Entry> m_boards;
    QMap<QString, QList<RemotePort>> m_ports; // by host
    QHash<Key, Newest> m_newest; // payloads that were reported last
    QMap<int, int> m_sent; // lines without a result: the broker's number, by number
    int m_newestSent = 0;
    int m_mark = 0; // the broker's number of the message that comes back after the stored states
    Broker m_broker;
};

} // namespace JwFleet

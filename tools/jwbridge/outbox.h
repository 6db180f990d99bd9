#pragma once

#include <fleet/topics.h>

#include <QByteArray>
#include <QObject>
#include <QString>

#include <deque>

namespace JwFleet {
class Broker;
}

namespace JwBridge {

class Spool;

/// Sends the payloads of the spool to the broker, in order. Removes them from the spool when the broker has
/// acknowledged them. After a lost connection, begins again with the oldest payload that is not acknowledged.
class Outbox : public QObject
{
    Q_OBJECT

public:
    Outbox(JwFleet::Broker &broker, Spool &spool, const JwFleet::Topics &topics, QObject *parent = nullptr);

Q_SIGNALS:
    /// The broker refused a payload for `topic`.
    void refused(const QByteArray &topic, const QString &reason);

private:
    struct Sent
    {
        int number;
        qint64 seq;
        QByteArray board;
        bool isSettled;
    };

    void restart();
    void send();
    void onAcknowledged(int number, const QString &refusal);
    void settle(Sent &sent, const QString &refusal);

    JwFleet::Broker &m_broker;
    Spool &m_spool;
    const JwFleet::Topics m_topics;
    std::deque<Sent> m_sent; // oldest first
    qint64 m_newest = 0; // seq of the newest payload that was sent
};

} // namespace JwBridge

#pragma once

#include <QByteArray>
#include <QHash>
#include <QMap>
#include <QObject>
#include <QString>

namespace JwFleet {
class Broker;
}

namespace JwBridge {

/// The retained messages of this machine. Publishes each of them when it changes, and all of them after each connect,
/// because a broker may have forgotten them.
class StateBook : public QObject
{
    Q_OBJECT

public:
    explicit StateBook(JwFleet::Broker &broker, QObject *parent = nullptr);

    void set(const QByteArray &topic, const QByteArray &payload);
    /// Empties the topic, also at a later connect if there is no connection now. Emits emptied() when that is done.
    void empty(const QByteArray &topic) { set(topic, QByteArray()); }

Q_SIGNALS:
    /// The broker no longer has a retained message for `topic`.
    void emptied(const QByteArray &topic);
    void refused(const QByteArray &topic, const QString &reason);

private:
    void publish(const QByteArray &topic);
    void publishAll();
    void onAcknowledged(int number, const QString &refusal);

    JwFleet::Broker &m_broker;
    QMap<QByteArray, QByteArray> m_states; // by topic
    QHash<int, QByteArray> m_sent; // topics of the messages that are not acknowledged, by number
};

} // namespace JwBridge

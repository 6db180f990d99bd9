#include "statebook.h"

#include <fleet/broker.h>

namespace JwBridge {

StateBook::StateBook(JwFleet::Broker &broker, QObject *parent)
    : QObject(parent)
    , m_broker(broker)
{
    connect(&broker, &JwFleet::Broker::connected, this, &StateBook::publishAll);
    connect(&broker, &JwFleet::Broker::acknowledged, this, &StateBook::onAcknowledged);
}

void StateBook::set(const QByteArray &topic, const QByteArray &payload)
{
    const auto known = m_states.constFind(topic);
    if (known != m_states.constEnd() && *known == payload)
        return;
    m_states.insert(topic, payload);
    publish(topic);
}

void StateBook::publish(const QByteArray &topic)
{
    const int number = m_broker.publish(topic, m_states.value(topic), true);
    if (number > 0)
        m_sent.insert(number, topic);
    else if (number == JwFleet::Broker::NotAllowed)
        Q_EMIT refused(topic, JwFleet::Broker::notAllowedText());
}

void StateBook::publishAll()
{
    m_sent.clear();
    const QList<QByteArray> topics = m_states.keys();
    for (const QByteArray &topic : topics)
        publish(topic);
}

void StateBook::onAcknowledged(int number, const QString &refusal)
{
    const QByteArray topic = m_sent.take(number);
    if (topic.isEmpty())
        return;
    if (!refusal.isEmpty()) {
        Q_EMIT refused(topic, refusal);
    } else if (m_states.value(topic).isEmpty() && !m_sent.values().contains(topic)) {
        m_states.remove(topic);
        Q_EMIT emptied(topic);
    }
}

} // namespace JwBridge

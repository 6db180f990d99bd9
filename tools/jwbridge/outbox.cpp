#include "outbox.h"

#include "spool.h"
#include <fleet/broker.h>

#include <algorithm>

namespace JwBridge {

namespace {

// Payloads that may wait for an acknowledgement. More would be repeated after a lost connection. The broker itself
// limits how many of them libmosquitto sends at once, usually to 20.
constexpr std::size_t window = 200;

} // namespace

Outbox::Outbox(JwFleet::Broker &broker, Spool &spool, const JwFleet::Topics &topics, QObject *parent)
    : QObject(parent)
    , m_broker(broker)
    , m_spool(spool)
    , m_topics(topics)
{
    connect(&broker, &JwFleet::Broker::connected, this, &Outbox::restart);
    connect(&broker, &JwFleet::Broker::failed, this, &Outbox::restart);
    connect(&broker, &JwFleet::Broker::acknowledged, this, &Outbox::onAcknowledged);
    connect(&spool, &Spool::added, this, &Outbox::send);
}

void Outbox::restart()
{
    m_sent.clear();
    m_newest = 0;
    m_spool.giveAgain();
    send();
}

void Outbox::send()
{
    while (m_broker.isConnected() && m_sent.size() < window) {
        const Payload *const payload = m_spool.after(m_newest);
        if (!payload)
            return;
        const int number = m_broker.publish(m_topics.rx(payload->board), payload->text, false,
                                            {{QByteArrayLiteral("time"), QByteArray::number(payload->time)},
                                             {QByteArrayLiteral("seq"), QByteArray::number(payload->seq)}});
        if (number == JwFleet::Broker::NotConnected)
            return;
        m_newest = payload->seq;
        m_sent.push_back({number, payload->seq, payload->board, false});
        if (number == JwFleet::Broker::NotAllowed)
            settle(m_sent.back(), JwFleet::Broker::notAllowedText());
    }
}

void Outbox::onAcknowledged(int number, const QString &refusal)
{
    // Brokers acknowledge in order, so this is nearly always the first one.
    const auto sent = std::find_if(m_sent.begin(), m_sent.end(),
                                   [number](const Sent &one) { return one.number == number && !one.isSettled; });
    if (sent == m_sent.end())
        return;
    settle(*sent, refusal);
    send();
}

// Must not call send(), because send() calls this function for each payload that no broker can take.
void Outbox::settle(Sent &sent, const QString &refusal)
{
    sent.isSettled = true;
    if (!refusal.isEmpty()) {
        m_spool.countRefused();
        Q_EMIT refused(m_topics.rx(sent.board), refusal);
    }
    while (!m_sent.empty() && m_sent.front().isSettled) {
        m_spool.acknowledge(m_sent.front().seq);
        m_sent.pop_front();
    }
}

} // namespace JwBridge

#include "sender.h"

#include "boards.h"
#include "txline.h"

#include <device/communicator.h>

#include <QIODevice>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

namespace JwBridge {

namespace {

constexpr qint64 maxUnsent = 4096; // bytes that may wait for a board

} // namespace

Sender::Sender(JwFleet::Broker &broker, const Boards &boards, const JwFleet::Topics &topics, int rate, QObject *parent)
    : QObject(parent)
    , m_broker(broker)
    , m_boards(boards)
    , m_topics(topics)
    , m_rate(rate)
{
    m_clock.start();
    connect(&broker, &JwFleet::Broker::connected, this, [this] { m_broker.subscribe(m_topics.everyTx(), false); });
    connect(&broker, &JwFleet::Broker::received, this, &Sender::onReceived);
}

void Sender::onReceived(const JwFleet::Message &message)
{
    const QByteArray part = m_topics.partOfTx(message.topic);
    if (part.isEmpty() || message.isRetained)
        return;
    uint id = 0;
    const QString refusal = write(part, message.payload, &id);
    const QJsonObject result = refusal.isEmpty() ? QJsonObject{{QStringLiteral("id"), static_cast<qint64>(id)}}
                                                 : QJsonObject{{QStringLiteral("error"), refusal}};
    // Who may only send must not use the bridge to write to its other topics. So a response topic below the prefix is
    // not used.
    const bool isAnswered = !message.responseTopic.isEmpty() && !m_topics.isOurs(message.responseTopic);
    const QByteArray text = QJsonDocument(result).toJson(QJsonDocument::Compact);
    m_broker.publish(isAnswered ? message.responseTopic : m_topics.txResult(part), text, false, {},
                     message.correlation);
}

// Returns why the line was not written, or an empty text. Sets `id` to the id of the written payload.
QString Sender::write(const QByteArray &part, const QByteArray &line, uint *id)
{
    JwDevice::Communicator *const communicator = m_boards.communicator(part);
    if (!communicator)
        return QStringLiteral("the board is not there: its state topic says since when");
    const TxLine checked(line);
    if (!checked.fault().isEmpty())
        return checked.fault();
    if (isTooFast(part))
        return QStringLiteral("too fast: a board takes at most %1 sentences a second, see --tx-rate").arg(m_rate);
    QIODevice *const port = communicator->device();
    if (port && port->bytesToWrite() > maxUnsent)
        return QStringLiteral("the board does not take what was sent before: try again later");
    // Not by writePayload(): it does not say whether the port took the payload, and it keeps memory for each payload.
    const QByteArray bytes = checked.sentence().toLatin1();
    if (!port || !port->isWritable() || port->write(bytes) != bytes.size())
        return QStringLiteral("the port of the board can't be written: its state topic soon says why");
    *id = ++m_written;
    return QString();
}

bool Sender::isTooFast(const QByteArray &part)
{
    const qint64 now = m_clock.elapsed();
    Allowance allowance = m_allowances.value(part, {static_cast<double>(m_rate), now});
    allowance.sentences =
        std::min<double>(m_rate, allowance.sentences + static_cast<double>((now - allowance.time) * m_rate) / 1000);
    allowance.time = now;
    const bool isTooFast = allowance.sentences < 1;
    if (!isTooFast)
        allowance.sentences -= 1;
    m_allowances.insert(part, allowance);
    return isTooFast;
}

} // namespace JwBridge

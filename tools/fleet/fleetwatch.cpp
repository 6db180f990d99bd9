#include "fleetwatch.h"

#include "topics.h"

#include <common/utf8.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QTimer>

#include <utility>

namespace JwFleet {

namespace {

constexpr int sendPatience = 5000; // ms
constexpr quint32 maxPacket = 1024 * 1024; // bytes; "ports" of a machine with many ports is long

BrokerSettings completed(BrokerSettings settings)
{
    if (settings.clientId.isEmpty())
        settings.clientId = "jw-" + QByteArray::number(QRandomGenerator::system()->generate64(), 36);
    settings.maxPacket = maxPacket;
    return settings;
}

qint64 numberIn(const Message &message, const QByteArray &name)
{
    for (const auto &property : message.userProperties) {
        if (property.first == name)
            return property.second.toLongLong();
    }
    return 0;
}

QString textIn(const QJsonObject &object, const char *key)
{
    return object[QLatin1String(key)].toString();
}

RemoteBoard boardOf(const QString &host, const QByteArray &part)
{
    RemoteBoard board;
    board.host = host;
    board.id = Topics::unescaped(part);
    return board;
}

} // namespace

FleetWatch::FleetWatch(const BrokerSettings &settings, const QString &prefix, Payloads payloads, QObject *parent)
    : QObject(parent)
    , m_settings(completed(settings))
    , m_prefix(prefix)
    , m_payloads(payloads)
    , m_resultTopic(prefix.toUtf8() + "-result/" + m_settings.clientId)
    , m_broker(m_settings)
{
    connect(&m_broker, &Broker::connected, this, &FleetWatch::onConnected);
    connect(&m_broker, &Broker::failed, this, &FleetWatch::onFailed);
    connect(&m_broker, &Broker::subscriptionRefused, this, &FleetWatch::subscriptionRefused);
    connect(&m_broker, &Broker::received, this, &FleetWatch::onReceived);
    connect(&m_broker, &Broker::acknowledged, this, &FleetWatch::onAcknowledged);
    connect(&m_broker, &Broker::unwanted, this, [this](int number) {
        onRefused(number, QStringLiteral("no bridge takes the line: it is offline, or was started with --read-only"));
    });
}

QList<RemoteBoard> FleetWatch::boards() const
{
    QList<RemoteBoard> boards;
    for (const Entry &entry : m_boards) {
        if (!entry.board.state.isEmpty())
            boards.append(entry.board);
    }
    return boards;
}

QList<Machine> FleetWatch::machines() const
{
    QList<Machine> machines;
    for (auto it = m_machines.begin(); it != m_machines.end(); ++it)
        machines.append({it.key(), *it});
    return machines;
}

int FleetWatch::send(const QString &host, const QString &id, const QString &line)
{
    const int number = m_newestSent + 1;
    const int brokerNumber = m_broker.publish(Topics(m_prefix, host).tx(Topics::escaped(id)), line.toUtf8(), false, {},
                                              QByteArray::number(number), m_resultTopic);
    if (brokerNumber <= 0)
        return 0;
    m_newestSent = number;
    m_sent.insert(number, brokerNumber);
    QTimer::singleShot(sendPatience, this, [this, number] {
        finish(number, 0,
               QStringLiteral("the bridge did not answer within %1 seconds. Perhaps the board got the line")
                   .arg(sendPatience / 1000));
    });
    return number;
}

void FleetWatch::onConnected()
{
    const QByteArray machine = m_prefix.toUtf8() + "/+/";
    m_broker.subscribe(m_resultTopic, false);
    for (const char *leaf : {"online", "ports", "boards/+/state"})
        m_broker.subscribe(machine + leaf, true);
    if (m_payloads == WithPayloads)
        m_broker.subscribe(machine + "boards/+/rx", false);
    m_mark = m_broker.publish(m_resultTopic, QByteArray(), false);
    Q_EMIT connected();
}

void FleetWatch::onFailed(const QString &reason)
{
    Q_EMIT failed(reason);
    const QList<int> sent = m_sent.keys();
    for (const int number : sent) {
        finish(number, 0, QStringLiteral("the connection to the broker was lost. Perhaps the board got the line"));
    }
    for (Entry &entry : m_boards)
        entry.stated.reset();
    const QStringList hosts = m_machines.keys();
    for (const QString &host : hosts)
        setMachine(host, Machine::NoNews);
}

void FleetWatch::onReceived(const Message &message)
{
    if (message.topic == m_resultTopic) {
        if (message.correlation.isEmpty())
            onStoredStatesEnd();
        else
            onResult(message);
        return;
    }
    const QList<QByteArray> levels = message.topic.mid(m_prefix.toUtf8().size() + 1).split('/');
    const QString host = QString::fromUtf8(levels.first());
    if (levels.size() == 2 && levels[1] == "online")
        setMachine(host, message.payload == "true" ? Machine::Online : Machine::Offline);
    else if (levels.size() == 2 && levels[1] == "ports")
        onPorts(host, message.payload);
    else if (levels.size() == 4 && levels[3] == "state")
        onState({host, levels[2]}, message.payload);
    else if (levels.size() == 4 && levels[3] == "rx")
        onPayload({host, levels[2]}, message);
}

void FleetWatch::setMachine(const QString &host, Machine::State state)
{
    if (m_machines.contains(host) && m_machines.value(host) == state)
        return;
    m_machines.insert(host, state);
    Q_EMIT machineChanged({host, state});
    QList<Key> keys;
    for (auto it = m_boards.lowerBound({host, {}}); it != m_boards.end() && it.key().first == host; ++it)
        keys.append(it.key());
    for (const Key &key : keys)
        update(key);
}

void FleetWatch::onState(const Key &key, const QByteArray &payload)
{
    if (payload.isEmpty()) {
        m_newest.remove(key);
        const Entry entry = m_boards.take(key);
        if (!entry.board.state.isEmpty())
            Q_EMIT boardForgotten(entry.board);
        return;
    }
    const QJsonObject object = QJsonDocument::fromJson(payload).object();
    RemoteBoard board = boardOf(key.first, key.second);
    board.state = textIn(object, "state");
    if (board.state.isEmpty())
        return; // not the message of a bridge
    board.type = textIn(object, "type");
    board.portName = textIn(object, "port");
    board.serialNumber = textIn(object, "serialNumber");
    board.hardwareVersion = textIn(object, "hardwareVersion");
    board.reason = textIn(object, "reason");
    board.since = QDateTime::fromString(textIn(object, "since"), Qt::ISODateWithMs);
    m_boards[key].stated = board;
    update(key);
}

// If the broker has news of a machine, but no state of one of its boards, the board was forgotten while there was no
// connection.
void FleetWatch::onStoredStatesEnd()
{
    QList<Key> forgotten;
    for (auto it = m_boards.cbegin(); it != m_boards.cend(); ++it) {
        if (!it->stated && m_machines.value(it.key().first, Machine::NoNews) != Machine::NoNews)
            forgotten.append(it.key());
    }
    for (const Key &key : std::as_const(forgotten))
        onState(key, QByteArray());
    Q_EMIT settled();
}

// Reports a board if both its state and that of its machine are known. Until then, the board can't be used.
void FleetWatch::update(const Key &key)
{
    const Entry entry = m_boards.value(key);
    const Machine::State machine = m_machines.value(key.first, Machine::NoNews);
    if (entry.stated && machine == Machine::Online) {
        report(key, *entry.stated);
        return;
    }
    const bool isKnown = entry.stated && machine == Machine::Offline;
    RemoteBoard board = isKnown ? *entry.stated : entry.board;
    if (board.isThere()) {
        board.state = isKnown ? QStringLiteral("offline") : QStringLiteral("noNews");
        board.reason.clear();
    }
    if (!board.state.isEmpty())
        report(key, board);
}

void FleetWatch::report(const Key &key, const RemoteBoard &board)
{
    Entry &entry = m_boards[key];
    const RemoteBoard before = std::exchange(entry.board, board);
    if (board.isThere()) {
        if (before.isThere())
            return;
        if (std::exchange(entry.wasFound, true))
            Q_EMIT boardBack(board);
        else
            Q_EMIT boardFound(board);
    } else if (board.state != before.state || board.reason != before.reason) {
        Q_EMIT boardLost(board);
    }
}

void FleetWatch::onPayload(const Key &key, const Message &message)
{
    const Newest now{numberIn(message, "seq"), numberIn(message, "time")};
    Newest &newest = m_newest[key];
    // A bridge whose spool was deleted counts from 1 again, so the time decides too.
    if (now.seq <= newest.seq && now.time <= newest.time)
        return;
    newest = now;
    const auto entry = m_boards.constFind(key);
    const bool isKnown = entry != m_boards.constEnd() && !entry->board.state.isEmpty();
    const RemoteBoard board = isKnown ? entry->board : boardOf(key.first, key.second);
    Q_EMIT payloadReceived(board, now.time, now.seq, JwTools::textOf(message.payload));
}

void FleetWatch::onPorts(const QString &host, const QByteArray &payload)
{
    QList<RemotePort> ports;
    const QJsonArray array = QJsonDocument::fromJson(payload).array();
    for (const QJsonValue value : array) {
        const QJsonObject object = value.toObject();
        RemotePort port{textIn(object, "port"), textIn(object, "state"), textIn(object, "summary"), {}};
        const QJsonArray advice = object[QLatin1String("advice")].toArray();
        for (const QJsonValue line : advice)
            port.advice.append(line.toString());
        ports.append(port);
    }
    m_ports.insert(host, ports);
    Q_EMIT portsChanged(host);
}

void FleetWatch::onResult(const Message &message)
{
    const QJsonObject result = QJsonDocument::fromJson(message.payload).object();
    finish(message.correlation.toInt(), static_cast<qint64>(result[QLatin1String("id")].toDouble()),
           textIn(result, "error"));
}

void FleetWatch::onAcknowledged(int brokerNumber, const QString &refusal)
{
    if (refusal.isEmpty())
        return;
    if (brokerNumber == m_mark)
        Q_EMIT settled();
    onRefused(brokerNumber, QStringLiteral("the broker refuses the line: %1").arg(refusal));
}

void FleetWatch::onRefused(int brokerNumber, const QString &error)
{
    const int number = m_sent.key(brokerNumber);
    if (number > 0)
        finish(number, 0, error);
}

void FleetWatch::finish(int number, qint64 id, const QString &error)
{
    if (m_sent.remove(number) > 0)
        Q_EMIT sendFinished(number, id, error);
}

} // namespace JwFleet

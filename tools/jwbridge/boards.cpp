#include "boards.h"

#include <common/boardtype.h>
#include <fleet/topics.h>

#include <device/boardrules.h>
#include <device/communicator.h>

#include <QDateTime>
#include <QJsonDocument>
#include <QSerialPortInfo>

#include <algorithm>
#include <chrono>

namespace JwBridge {

namespace {

constexpr qint64 longestTimer = 24 * 3600; // seconds

QString ready()
{
    return QStringLiteral("ready");
}

qint64 microseconds()
{
    using namespace std::chrono;
    return duration_cast<std::chrono::microseconds>(system_clock::now().time_since_epoch()).count();
}

QString timeText(const QDateTime &time)
{
    return time.toUTC().toString(Qt::ISODateWithMs);
}

QJsonValue orNull(const QString &text)
{
    return text.isEmpty() ? QJsonValue() : QJsonValue(text);
}

QJsonObject stateOf(const JwDevice::Board &board, const QString &state, const QDateTime &since)
{
    return {{QStringLiteral("id"), board.id},
            {QStringLiteral("type"), JwTools::boardName(board.type)},
            {QStringLiteral("port"), board.portName},
            {QStringLiteral("serialNumber"), orNull(board.serialNumber)},
            {QStringLiteral("hardwareVersion"), orNull(board.hardwareVersion)},
            {QStringLiteral("state"), state},
            {QStringLiteral("since"), timeText(since)}};
}

QByteArray jsonOf(const QJsonObject &object)
{
    return object.isEmpty() ? QByteArray() : QJsonDocument(object).toJson(QJsonDocument::Compact);
}

} // namespace

Boards::Boards(Database &database, const JwTools::SearchSettings &search, qint64 forgetAfter, QObject *parent)
    : QObject(parent)
    , m_database(database)
    , m_forgetAfter(forgetAfter)
{
    m_forgetTimer.setSingleShot(true);
    connect(&m_forgetTimer, &QTimer::timeout, this, &Boards::forget);
    m_watch.setTypes(search.types);
    m_watch.setMaxRetries(static_cast<uint>(search.retries));
    m_watch.setDelay(search.delay);
    if (!search.ports.isEmpty()) {
        m_watch.setCandidateRule(
            [ports = search.ports](const QSerialPortInfo &port) { return ports.contains(port.portName()); });
    }
    connect(&m_watch, &JwDevice::BoardWatch::boardFound, this, &Boards::onThere);
    connect(&m_watch, &JwDevice::BoardWatch::boardBack, this, &Boards::onThere);
    connect(&m_watch, &JwDevice::BoardWatch::boardLost, this, &Boards::onLost);
    connect(&m_watch, &JwDevice::BoardWatch::portsChanged, this, &Boards::portsChanged);
}

bool Boards::load(QString *error)
{
    if (!m_database.run("CREATE TABLE IF NOT EXISTS boards(part BLOB PRIMARY KEY, state BLOB)")) {
        *error = m_database.trouble();
        return false;
    }
    Transaction transaction(m_database); // one for all boards, because each transaction waits for the disk
    QMap<QByteArray, QJsonObject> known;
    Statement statement(m_database, "SELECT part, state FROM boards");
    while (statement.next())
        known.insert(statement.bytes(0), QJsonDocument::fromJson(statement.bytes(1)).object());
    for (auto it = known.begin(); it != known.end(); ++it) {
        if (it->value(QLatin1String("state")) == ready()) {
            it->insert(QStringLiteral("state"), QStringLiteral("lost"));
            it->insert(QStringLiteral("reason"), QStringLiteral("bridgeStopped"));
            it->insert(QStringLiteral("since"), timeText(QDateTime::currentDateTimeUtc()));
        }
        setState(it.key(), *it);
    }
    forget();
    transaction.commit();
    return true;
}

void Boards::onThere(const JwDevice::Board &board)
{
    const QByteArray part = JwFleet::Topics::escaped(board.id);
    m_connections.insert(part, board.communicator);
    setState(part, stateOf(board, ready(), board.since));
    connect(board.communicator, qOverload<>(&JwDevice::Communicator::readyRead), this,
            [this, part, communicator = board.communicator] { receive(part, communicator); });
    receive(part, board.communicator);
}

void Boards::receive(const QByteArray &part, JwDevice::Communicator *communicator)
{
    const qint64 now = microseconds();
    QString payload;
    while (communicator->readPayload(payload))
        Q_EMIT payloadReceived(part, now, payload.chopped(2));
}

void Boards::onLost(const JwDevice::Board &board)
{
    const QByteArray part = JwFleet::Topics::escaped(board.id);
    m_connections.remove(part);
    const bool isLent = board.loss == JwDevice::Board::Lent;
    QJsonObject state =
        stateOf(board, isLent ? QStringLiteral("lent") : QStringLiteral("lost"), QDateTime::currentDateTimeUtc());
    state[QLatin1String("reason")] = JwDevice::lossName(board.loss);
    setState(part, state);
    forget();
}

void Boards::setState(const QByteArray &part, const QJsonObject &state)
{
    m_states.insert(part, state);
    Statement statement(m_database, "INSERT OR REPLACE INTO boards VALUES(?, ?)");
    statement.bind(0, part).bind(1, jsonOf(state)).run();
    Q_EMIT stateChanged(part, state);
}

// Forgets the boards that are lost for too long, and sets the timer for the next one.
void Boards::forget()
{
    const QDateTime now = QDateTime::currentDateTimeUtc();
    qint64 next = longestTimer;
    bool isAnyLost = false;
    const QMap<QByteArray, QJsonObject> states = m_states;
    for (auto it = states.begin(); it != states.end(); ++it) {
        if (it->isEmpty() || it->value(QLatin1String("state")) == ready())
            continue;
        const QDateTime since = QDateTime::fromString(it->value(QLatin1String("since")).toString(), Qt::ISODateWithMs);
        const qint64 left = m_forgetAfter - since.secsTo(now);
        if (left <= 0) {
            setState(it.key(), {});
        } else {
            isAnyLost = true;
            next = std::min(next, left);
        }
    }
    m_forgetTimer.stop();
    if (isAnyLost)
        m_forgetTimer.start(static_cast<int>(next) * 1000);
}

void Boards::onEmptied(const QByteArray &part)
{
    if (!m_states.contains(part) || !m_states.value(part).isEmpty())
        return;
    m_states.remove(part);
    Statement(m_database, "DELETE FROM boards WHERE part = ?").bind(0, part).run();
}

} // namespace JwBridge

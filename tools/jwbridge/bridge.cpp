#include "bridge.h"

#include "message.h"

#include <QDateTime>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>

#include <utility>

namespace JwBridge {

namespace {

JwFleet::BrokerSettings withWill(JwFleet::BrokerSettings settings, const JwFleet::Topics &topics)
{
    settings.willTopic = topics.online();
    settings.will = QByteArrayLiteral("false");
    return settings;
}

} // namespace

Bridge::Bridge(const Options &options)
    : m_options(options)
    , m_topics(options.prefix, options.host)
    , m_spool(m_database, options.spoolLimits)
    , m_broker(withWill(options.broker, m_topics))
    , m_states(m_broker)
    , m_outbox(m_broker, m_spool, m_topics)
    , m_boards(m_database, options.search, options.forgetAfter)
{
    if (!options.readOnly)
        m_sender = std::make_unique<Sender>(m_broker, m_boards, m_topics, options.txRate);
    connectParts();
}

Bridge::~Bridge()
{
    QString error;
    const int lost = m_spool.finish(&error);
    if (lost > 0)
        say(QStringLiteral("%1 payloads are lost, because the spool can't be written: %2").arg(lost).arg(error));
}

void Bridge::connectParts()
{
    connect(
        &m_boards, &Boards::payloadReceived, this,
        [this](const QByteArray &part, qint64 time, const QString &text) { m_spool.add(part, time, text.toUtf8()); });
    connect(&m_boards, &Boards::stateChanged, this, [this](const QByteArray &part, const QJsonObject &state) {
        if (state.isEmpty())
            m_states.empty(m_topics.state(part));
        else
            m_states.set(m_topics.state(part), QJsonDocument(state).toJson(QJsonDocument::Compact));
    });
    connect(&m_boards, &Boards::portsChanged, this,
            [this] { m_states.set(m_topics.ports(), m_ports.json(m_boards.portReports())); });
    connect(&m_states, &StateBook::emptied, this,
            [this](const QByteArray &topic) { m_boards.onEmptied(m_topics.partOfState(topic)); });

    connect(&m_broker, &JwFleet::Broker::connected, this, [this] {
        m_failure.clear();
        m_isLossSaid = false;
        m_refused.clear();
        say(QStringLiteral("connected to %1 as %2").arg(m_options.broker.address.text(), m_options.host));
    });
    connect(&m_broker, &JwFleet::Broker::failed, this, &Bridge::onFailed);
    connect(&m_broker, &JwFleet::Broker::subscriptionRefused, this,
            [](const QByteArray &filter, const QString &reason) {
                say(QStringLiteral("the broker refuses the subscription to %1: %2. Nothing can be sent to boards")
                        .arg(QString::fromUtf8(filter), reason));
            });
    const auto onRefused = [this](const QByteArray &topic, const QString &reason) {
        if (m_refused.contains(topic))
            return;
        m_refused.insert(topic);
        say(QStringLiteral("the broker refuses a message to %1: %2").arg(QString::fromUtf8(topic), reason));
    };
    connect(&m_outbox, &Outbox::refused, this, onRefused);
    connect(&m_states, &StateBook::refused, this, onRefused);

    connect(&m_spool, &Spool::lossesChanged, this, &Bridge::onLoss);
    connect(&m_spool, &Spool::diskTrouble, this, [](const QString &text) {
        say(text.isEmpty() ? QStringLiteral("the spool can be written again")
                           : QStringLiteral("can't write the spool: %1. Payloads stay in memory").arg(text));
    });
    connect(&m_spool, &Spool::readTrouble, this,
            [](const QString &text) { say(QStringLiteral("can't read the spool: %1").arg(text)); });
}

bool Bridge::start()
{
    QString error;
    const QString file = QDir(m_options.spoolFolder).filePath(QStringLiteral("jwbridge.db"));
    if (!m_database.open(file, &error)) {
        say(error);
        return false;
    }
    const bool isNew = !m_database.setAside().isEmpty();
    if (isNew)
        say(m_database.setAside());
    // The numbers of a spool that was set aside must not come again. This clock is always ahead of them.
    const qint64 first = isNew ? QDateTime::currentMSecsSinceEpoch() * 1000 : 1;
    if (!m_spool.load(&error, first) || !m_boards.load(&error)) {
        say(QStringLiteral("can't use %1: %2").arg(file, error));
        return false;
    }
    m_states.set(m_topics.online(), QByteArrayLiteral("true"));
    m_states.set(m_topics.ports(), QByteArrayLiteral("[]"));
    setLosses();
    m_boards.start();
    m_broker.start();
    return true;
}

void Bridge::setLosses()
{
    const LossCount losses = m_spool.losses();
    const QJsonObject object{{QStringLiteral("size"), losses.size},
                             {QStringLiteral("age"), losses.age},
                             {QStringLiteral("disk"), losses.disk},
                             {QStringLiteral("refused"), losses.refused}};
    m_states.set(m_topics.lost(), QJsonDocument(object).toJson(QJsonDocument::Compact));
}

void Bridge::onLoss()
{
    if (!std::exchange(m_isLossSaid, true))
        say(QStringLiteral("payloads are given up: the topic %1 has their numbers")
                .arg(QString::fromUtf8(m_topics.lost())));
    setLosses();
}

void Bridge::onFailed(const QString &reason)
{
    if (reason != m_failure) // otherwise the same line would come every 30 seconds
        say(QStringLiteral("no connection to %1: %2. Trying again").arg(m_options.broker.address.text(), reason));
    m_failure = reason;
}

} // namespace JwBridge

#include "broker.h"

#include "gate.h"
#include "tlscontext.h"

#include <QHostInfo>
#include <QRandomGenerator>
#include <QSocketNotifier>

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <sys/ioctl.h>

namespace JwFleet {

namespace {

constexpr int firstDelay = 250; // ms
constexpr int longestDelay = 30000; // ms
constexpr int steadyAfter = 5000; // ms; a connection that lasted for this time was a good one
constexpr int readPackets = 100; // packets that one call may read
constexpr int lowestError = 128; // codes of MQTT 5 from this one on are errors
constexpr int messageOverhead = 500; // bytes that libmosquitto keeps for a message besides its texts, rounded up
constexpr qint64 maxUnacknowledged = 32 * 1024 * 1024; // bytes of messages that libmosquitto may keep

Broker *brokerOf(void *self)
{
    return static_cast<Broker *>(self);
}

bool isError(int code)
{
    return code >= lowestError;
}

QString codeText(int code)
{
    return QString::fromUtf8(mosquitto_reason_string(code));
}

// Returns a property as bytes. libmosquitto allocates strings with malloc().
QByteArray textProperty(const mosquitto_property *properties, int identifier)
{
    char *text = nullptr;
    if (!mosquitto_property_read_string(properties, identifier, &text, false))
        return QByteArray();
    const QByteArray bytes(text);
    std::free(text);
    return bytes;
}

// Returns false only if the broker says that it lacks a feature.
bool hasFeature(const mosquitto_property *properties, int identifier)
{
    uint8_t value = 1;
    mosquitto_property_read_byte(properties, identifier, &value, false);
    return value != 0;
}

QByteArray dataProperty(const mosquitto_property *properties, int identifier)
{
    void *data = nullptr;
    uint16_t size = 0;
    if (!mosquitto_property_read_binary(properties, identifier, &data, &size, false))
        return QByteArray();
    const QByteArray bytes(static_cast<const char *>(data), size);
    std::free(data);
    return bytes;
}

UserProperties userPropertiesOf(const mosquitto_property *properties)
{
    UserProperties pairs;
    char *name = nullptr;
    char *value = nullptr;
    for (const mosquitto_property *property = properties; property; property = mosquitto_property_next(property)) {
        if (mosquitto_property_identifier(property) != MQTT_PROP_USER_PROPERTY)
            continue;
        if (!mosquitto_property_read_string_pair(property, MQTT_PROP_USER_PROPERTY, &name, &value, false))
            break;
        pairs.append({QByteArray(name), QByteArray(value)});
        std::free(name);
        std::free(value);
    }
    return pairs;
}

// The properties of one packet.
class Properties
{
public:
    Properties() = default;
    ~Properties() { mosquitto_property_free_all(&m_list); }
    Properties(const Properties &) = delete;
    Properties &operator=(const Properties &) = delete;

    void add(int identifier, const QByteArray &name, const QByteArray &value)
    {
        mosquitto_property_add_string_pair(&m_list, identifier, name.constData(), value.constData());
    }
    void add(int identifier, const QByteArray &data)
    {
        mosquitto_property_add_binary(&m_list, identifier, data.constData(), static_cast<uint16_t>(data.size()));
    }
    void addText(int identifier, const QByteArray &text)
    {
        mosquitto_property_add_string(&m_list, identifier, text.constData());
    }
    void add(int identifier, quint32 number) { mosquitto_property_add_int32(&m_list, identifier, number); }
    const mosquitto_property *list() const { return m_list; }

private:
    mosquitto_property *m_list = nullptr;
};

} // namespace

Broker::Broker(const BrokerSettings &settings, QObject *parent)
    : QObject(parent)
    , m_settings(settings)
    , m_client(nullptr, &mosquitto_destroy)
    , m_delay(firstDelay)
{
    mosquitto_lib_init();
    m_retryTimer.setSingleShot(true);
    connect(&m_retryTimer, &QTimer::timeout, this, &Broker::lookUp);
    m_answerTimer.setSingleShot(true);
    m_answerTimer.setInterval(settings.keepAlive * 1000);
    connect(&m_answerTimer, &QTimer::timeout, this, [this] {
        fail(m_isOpening ? QStringLiteral("no answer from this address: check network and firewall")
                         : QStringLiteral("the connection opens, but the other end does not answer as a broker"));
    });
    // libmosquitto then sends a ping if it is time, and ends a connection on which no answer came.
    m_keepAliveTimer.setInterval(settings.keepAlive * 1000 / 4);
    connect(&m_keepAliveTimer, &QTimer::timeout, this, [this] { after(mosquitto_loop_misc(m_client.get())); });
    m_acknowledgeTimer.setSingleShot(true);
    // Longer than libmosquitto waits for the answer to a ping, which says more.
    m_acknowledgeTimer.setInterval(3 * settings.keepAlive * 1000);
    connect(&m_acknowledgeTimer, &QTimer::timeout, this, [this] { fail(unacknowledgedText()); });
}

Broker::~Broker()
{
    stop();
    mosquitto_lib_cleanup();
}

void Broker::start()
{
    m_delay = firstDelay;
    lookUp();
}

void Broker::stop()
{
    m_retryTimer.stop();
    if (m_isConnected)
        mosquitto_disconnect_v5(m_client.get(), MQTT_RC_DISCONNECT_WITH_WILL_MSG, nullptr);
    close();
}

// Looks the name up before libmosquitto gets an address, because libmosquitto would wait for the answer.
void Broker::lookUp()
{
    // By the slot's name, because Qt never frees a connection by its address if the lookup is aborted.
    m_lookup = QHostInfo::lookupHost(m_settings.address.host, this, SLOT(onLookedUp(QHostInfo)));
}

void Broker::onLookedUp(const QHostInfo &info)
{
    m_lookup = -1;
    const QList<QHostAddress> addresses = info.addresses();
    if (addresses.isEmpty()) {
        fail(QStringLiteral("the name \"%1\" has no address: %2").arg(m_settings.address.host, info.errorString()));
        return;
    }
    // Another address at each attempt, because perhaps not every address of the name can be reached.
    open(addresses.at(m_attempt++ % addresses.size()).toString().toLatin1());
}

void Broker::open(const QByteArray &address)
{
    m_client.reset(mosquitto_new(m_settings.clientId.constData(), true, this));
    if (!m_client) {
        fail(QString::fromLocal8Bit(std::strerror(errno)));
        return;
    }
    setUp();
    if (m_tls && !m_tls->fault().isEmpty()) {
        fail(m_tls->fault());
        return;
    }
    m_isOpening = true;
    const int result = mosquitto_connect_bind_async(m_client.get(), address.constData(), m_settings.address.port,
                                                    m_settings.keepAlive, nullptr);
    const int socket = mosquitto_socket(m_client.get());
    if (socket < 0) {
        fail(lossText(result));
        return;
    }
    m_gate = std::make_unique<Gate>(m_client.get(), m_settings.maxPacket);
    if (m_gate->errorNumber() != 0) {
        fail(QString::fromLocal8Bit(std::strerror(m_gate->errorNumber())));
        return;
    }
    connect(m_gate.get(), &Gate::opened, this, &Broker::onOpened);
    connect(m_gate.get(), &Gate::arrived, this, &Broker::onArrived);
    connect(m_gate.get(), &Gate::refused, this, &Broker::onRefused);
    connect(m_gate.get(), &Gate::broken, this, [this](int error) {
        errno = error;
        fail(lossText(MOSQ_ERR_ERRNO));
    });
    m_writable = std::make_unique<QSocketNotifier>(socket, QSocketNotifier::Write);
    connect(m_writable.get(), &QSocketNotifier::activated, this,
            [this] { after(mosquitto_loop_write(m_client.get(), readPackets)); });
    m_answerTimer.start();
}

void Broker::setUp()
{
    mosquitto *const client = m_client.get();
    mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1); // else a small packet waits for the next one
    if (!m_settings.user.isEmpty())
        mosquitto_username_pw_set(client, m_settings.user.constData(), m_settings.password.constData());
    if (!m_settings.willTopic.isEmpty())
        mosquitto_will_set_v5(client, m_settings.willTopic.constData(), static_cast<int>(m_settings.will.size()),
                              m_settings.will.constData(), 1, true, nullptr);
    if (m_settings.address.isTls) {
        m_tls = std::make_unique<TlsContext>(m_settings);
        mosquitto_int_option(client, MOSQ_OPT_SSL_CTX_WITH_DEFAULTS, 0);
        mosquitto_void_option(client, MOSQ_OPT_SSL_CTX, m_tls->get());
    }
    mosquitto_connect_v5_callback_set(client, &Broker::onConnected);
    mosquitto_disconnect_v5_callback_set(client, &Broker::onDisconnected);
    mosquitto_publish_v5_callback_set(client, &Broker::onPublished);
    mosquitto_subscribe_v5_callback_set(client, &Broker::onSubscribed);
    mosquitto_message_v5_callback_set(client, &Broker::onMessage);
    // Only this function takes properties for the connection, but it would wait until the connection is open. So it
    // gets no address: it notes the properties, and fails. mosquitto_connect_bind_async() then sends them.
    Properties properties;
    properties.add(MQTT_PROP_MAXIMUM_PACKET_SIZE, m_settings.maxPacket);
    mosquitto_connect_bind_v5(client, "", 0, m_settings.keepAlive, nullptr, properties.list());
}

void Broker::onOpened(int error)
{
    m_isOpening = false;
    if (error != 0)
        fail(QString::fromLocal8Bit(std::strerror(error)));
}

void Broker::onArrived()
{
    int result = MOSQ_ERR_SUCCESS;
    int left = 0;
    int before = 0;
    do { // because libmosquitto reads only some packets at once
        before = std::exchange(left, 0);
        result = mosquitto_loop_read(m_client.get(), readPackets);
        ::ioctl(mosquitto_socket(m_client.get()), FIONREAD, &left);
    } while (result == MOSQ_ERR_SUCCESS && left > 0 && left != before);
    after(result);
}

void Broker::onRefused(PacketCheck::Result why)
{
    if (why == PacketCheck::TooLarge)
        m_reason = tooLargeText();
    fail(lossText(MOSQ_ERR_MALFORMED_PACKET));
}

// Must be called after each function of libmosquitto that may use the socket.
void Broker::after(int result)
{
    deliver();
    if (!m_client)
        return;
    if (result != MOSQ_ERR_SUCCESS || mosquitto_socket(m_client.get()) < 0 || !m_reason.isEmpty())
        fail(lossText(result));
    else
        update();
}

// A caller of publish() must not see a signal before publish() returns. So a connection that ends is handled later.
void Broker::checkLater()
{
    if (std::exchange(m_isCheckQueued, true))
        return;
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_isCheckQueued = false;
            if (m_client)
                after(MOSQ_ERR_SUCCESS);
        },
        Qt::QueuedConnection);
}

void Broker::update()
{
    m_writable->setEnabled(mosquitto_want_write(m_client.get()));
}

void Broker::deliver()
{
    const std::vector<Event> events = std::exchange(m_events, {});
    for (const Event &event : events) {
        if (!m_client)
            return;
        switch (event.kind) {
        case Event::Connected:
            m_isConnected = true;
            m_connectedSince.start();
            m_answerTimer.stop();
            m_keepAliveTimer.start();
            Q_EMIT connected();
            break;
        case Event::Acknowledged:
            m_unacknowledgedBytes -= m_unacknowledged.take(event.number);
            if (m_unacknowledged.isEmpty())
                m_acknowledgeTimer.stop();
            else
                m_acknowledgeTimer.start();
            if (event.code == MQTT_RC_NO_MATCHING_SUBSCRIBERS)
                Q_EMIT unwanted(event.number);
            Q_EMIT acknowledged(event.number, isError(event.code) ? codeText(event.code) : QString());
            break;
        case Event::Subscribed: {
            const QByteArray filter = m_filters.take(event.number);
            if (isError(event.code))
                Q_EMIT subscriptionRefused(filter, codeText(event.code));
            break;
        }
        case Event::Received:
            Q_EMIT received(event.message);
            break;
        }
    }
}

void Broker::fail(const QString &reason)
{
    const bool wasSteady = m_connectedSince.isValid() && m_connectedSince.elapsed() >= steadyAfter;
    if (wasSteady) {
        m_delay = firstDelay;
        m_shortConnections = 0;
    } else if (m_connectedSince.isValid()) {
        ++m_shortConnections;
    }
    if (m_isTakenOver)
        m_delay = longestDelay;
    close();
    // Many clients of one broker should not come back at the same moment.
    m_retryTimer.start(m_delay * QRandomGenerator::global()->bounded(80, 120) / 100);
    m_delay = std::min(m_delay * 2, longestDelay);
    Q_EMIT failed(reason);
}

void Broker::close()
{
    if (m_lookup >= 0)
        QHostInfo::abortHostLookup(std::exchange(m_lookup, -1));
    m_answerTimer.stop();
    m_keepAliveTimer.stop();
    m_acknowledgeTimer.stop();
    m_unacknowledged.clear();
    m_unacknowledgedBytes = 0;
    if (m_writable) { // perhaps the notifier is emitting its signal, so it is deleted later
        m_writable->setEnabled(false);
        m_writable.release()->deleteLater();
    }
    m_client.reset();
    if (m_gate) {
        m_gate->close();
        m_gate.release()->deleteLater();
    }
    m_tls.reset();
    m_events.clear();
    m_filters.clear();
    m_reason.clear();
    m_isOpening = false;
    m_isConnected = false;
    m_isTakenOver = false;
    m_connectedSince.invalidate();
}

QString Broker::connectionText(int code) const
{
    switch (code) {
    case MQTT_RC_BAD_USERNAME_OR_PASSWORD:
    case MQTT_RC_NOT_AUTHORIZED:
        return QStringLiteral("the broker refuses the user or the password: check the file of --login");
    case MQTT_RC_SESSION_TAKEN_OVER:
        return doubleText();
    default:
        return QStringLiteral("the broker ended the connection: %1").arg(codeText(code));
    }
}

QString Broker::tooLargeText() const
{
    return QStringLiteral("the broker sends a message of more than %1 bytes, although the connection limits the size")
        .arg(m_settings.maxPacket);
}

QString Broker::unacknowledgedText()
{
    return QStringLiteral("the broker does not acknowledge messages");
}

QString Broker::doubleText() const
{
    return QStringLiteral("another program is connected to the broker as \"%1\": give each machine its own --host")
        .arg(QString::fromUtf8(m_settings.clientId));
}

QString Broker::lossText(int result) const
{
    if (m_tls && !m_tls->fault().isEmpty())
        return m_tls->fault();
    if (!m_reason.isEmpty())
        return m_reason;
    if (result == MOSQ_ERR_PROTOCOL || result == MOSQ_ERR_MALFORMED_PACKET)
        return QStringLiteral("the other end does not speak MQTT 5: check the port of the broker");
    if (result == MOSQ_ERR_TLS || (m_tls && !m_isConnected && !m_isOpening))
        return QStringLiteral("TLS failed: check whether the broker's port speaks TLS, and --certificate");
    if (result == MOSQ_ERR_ERRNO)
        return QString::fromLocal8Bit(std::strerror(errno));
    // Some brokers do not say that another program has the same client id. They only close the connection.
    if (m_isConnected && m_shortConnections > 0)
        return QStringLiteral("the broker closes the connection again and again. Perhaps ") + doubleText();
    if (result == MOSQ_ERR_SUCCESS || result == MOSQ_ERR_CONN_LOST)
        return QStringLiteral("the broker closed the connection");
    return QString::fromUtf8(mosquitto_strerror(result));
}

int Broker::publish(const QByteArray &topic, const QByteArray &payload, bool isRetained,
                    const UserProperties &properties, const QByteArray &correlation, const QByteArray &responseTopic)
{
    if (!m_isConnected || !m_reason.isEmpty())
        return NotConnected;
    const auto size = topic.size() + payload.size() + correlation.size() + responseTopic.size() + messageOverhead;
    if (m_unacknowledgedBytes + size > maxUnacknowledged) {
        m_reason = unacknowledgedText();
        checkLater();
        return NotConnected;
    }
    Properties list;
    for (const QPair<QByteArray, QByteArray> &pair : properties)
        list.add(MQTT_PROP_USER_PROPERTY, pair.first, pair.second);
    if (!correlation.isEmpty())
        list.add(MQTT_PROP_CORRELATION_DATA, correlation);
    if (!responseTopic.isEmpty())
        list.addText(MQTT_PROP_RESPONSE_TOPIC, responseTopic);
    int number = NotConnected;
    const int result =
        mosquitto_publish_v5(m_client.get(), &number, topic.constData(), static_cast<int>(payload.size()),
                             payload.constData(), 1, isRetained, list.list());
    if (mosquitto_socket(m_client.get()) < 0) {
        checkLater();
        return NotConnected;
    }
    update();
    if (result != MOSQ_ERR_SUCCESS)
        return NotAllowed;
    if (m_unacknowledged.isEmpty())
        m_acknowledgeTimer.start();
    m_unacknowledged.insert(number, static_cast<int>(size));
    m_unacknowledgedBytes += size;
    return number;
}

QString Broker::notAllowedText()
{
    return QStringLiteral("the topic has a wildcard, or the message is larger than the broker allows");
}

void Broker::subscribe(const QByteArray &filter, bool withRetained)
{
    if (!m_isConnected)
        return;
    int number = 0;
    const int options = withRetained ? MQTT_SUB_OPT_SEND_RETAIN_ALWAYS : MQTT_SUB_OPT_SEND_RETAIN_NEVER;
    if (mosquitto_subscribe_v5(m_client.get(), &number, filter.constData(), 1, options, nullptr) == MOSQ_ERR_SUCCESS)
        m_filters.insert(number, filter);
    if (mosquitto_socket(m_client.get()) >= 0)
        update();
}

void Broker::onConnected(mosquitto *, void *self, int code, int, const mqtt5__property *properties)
{
    Broker *const broker = brokerOf(self);
    const QString text = QStringLiteral("the broker does not support %1: use another broker");
    if (code != MQTT_RC_SUCCESS)
        broker->m_reason = broker->connectionText(code);
    else if (!hasFeature(properties, MQTT_PROP_MAXIMUM_QOS))
        broker->m_reason = text.arg(QStringLiteral("quality of service 1"));
    else if (!hasFeature(properties, MQTT_PROP_RETAIN_AVAILABLE))
        broker->m_reason = text.arg(QStringLiteral("retained messages"));
    else
        broker->m_events.push_back({Event::Connected});
}

void Broker::onDisconnected(mosquitto *, void *self, int code, const mqtt5__property *)
{
    Broker *const broker = brokerOf(self);
    if (code == MOSQ_ERR_KEEPALIVE)
        broker->m_reason = QStringLiteral("the broker does not answer any more");
    if (!isError(code) || !broker->m_reason.isEmpty())
        return;
    broker->m_isTakenOver = code == MQTT_RC_SESSION_TAKEN_OVER;
    broker->m_reason = broker->connectionText(code);
}

void Broker::onPublished(mosquitto *, void *self, int number, int code, const mqtt5__property *)
{
    Broker *const broker = brokerOf(self);
    if (code == MQTT_RC_QUOTA_EXCEEDED) // later, the broker may take the message
        broker->m_reason = QStringLiteral("the broker takes no message now: %1").arg(codeText(code));
    else
        broker->m_events.push_back({Event::Acknowledged, number, code});
}

void Broker::onSubscribed(mosquitto *, void *self, int number, int count, const int *granted, const mqtt5__property *)
{
    brokerOf(self)->m_events.push_back({Event::Subscribed, number, count > 0 ? granted[0] : lowestError});
}

void Broker::onMessage(mosquitto *, void *self, const mosquitto_message *message, const mqtt5__property *properties)
{
    Event event{Event::Received};
    event.message.topic = message->topic;
    event.message.payload = QByteArray(static_cast<const char *>(message->payload), message->payloadlen);
    event.message.userProperties = userPropertiesOf(properties);
    event.message.responseTopic = textProperty(properties, MQTT_PROP_RESPONSE_TOPIC);
    event.message.correlation = dataProperty(properties, MQTT_PROP_CORRELATION_DATA);
    event.message.isRetained = message->retain;
    brokerOf(self)->m_events.push_back(event);
}

} // namespace JwFleet

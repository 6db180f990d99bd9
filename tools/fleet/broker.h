#pragma once

#include "brokersettings.h"
#include "packetcheck.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QHash>
#include <QList>
#include <QObject>
#include <QPair>
#include <QString>
#include <QTimer>

#include <memory>
#include <vector>

class QHostInfo;
class QSocketNotifier;
struct mosquitto;
struct mosquitto_message;
struct mqtt5__property;

namespace JwFleet {

class Gate;
class TlsContext;

using UserProperties = QList<QPair<QByteArray, QByteArray>>;

/// A message that the broker sent.
struct Message
{
    QByteArray topic;
    QByteArray payload;
    UserProperties userProperties;
    QByteArray responseTopic; ///< where the sender wants the answer; empty if nowhere
    QByteArray correlation; ///< data that belongs into the answer
    bool isRetained = false; ///< whether the broker had stored the message before the subscription
};

/**
 * The connection to an MQTT 5 broker, on Qt's event loop, without a thread. It connects again and again until stop().
 * The waiting time between two attempts grows from 250 ms to 30 s.
 *
 * Each connection starts from nothing: the broker keeps no session, and this class keeps no message of a lost
 * connection. So publish and subscribe again after each connected().
 *
 * Receivers of the signals may call every function, but must not delete this object.
 */
class Broker : public QObject
{
    Q_OBJECT

public:
    /// Values that publish() returns if it does not send the message.
    enum Failure {
        NotConnected = 0, ///< there is no connection
        NotAllowed = -1, ///< this broker can't take the message, see notAllowedText()
    };

    explicit Broker(const BrokerSettings &settings, QObject *parent = nullptr);
    ~Broker() override;

    void start();
    /// Disconnects. The broker publishes the will. Emits no signal.
    void stop();
    bool isConnected() const { return m_isConnected; }

    /// Sends a message with quality of service 1. Returns its number, which acknowledged() reports later, or a Failure.
    int publish(const QByteArray &topic, const QByteArray &payload, bool isRetained,
                const UserProperties &properties = {}, const QByteArray &correlation = {},
                const QByteArray &responseTopic = {});
    /// Says why publish() returned NotAllowed.
    static QString notAllowedText();
    /// Asks for messages. With `withRetained` false, the broker leaves out the messages that it has stored.
    void subscribe(const QByteArray &filter, bool withRetained);

Q_SIGNALS:
    void connected();
    /// Emitted when the connection ended, or when an attempt to connect failed. `reason` says why.
    void failed(const QString &reason);
    /// The broker has taken the message `number`. If `refusal` is not empty, the broker refused it, for this reason.
    void acknowledged(int number, const QString &refusal);
    /// Emitted before acknowledged() if the broker says that no client wants the message. Not every broker says so.
    void unwanted(int number);
    void subscriptionRefused(const QByteArray &filter, const QString &reason);
    void received(const JwFleet::Message &message);

private:
    struct Event
    {
        enum Kind { Connected, Acknowledged, Subscribed, Received } kind;
        int number = 0;
        int code = 0;
        Message message = {};
    };

    // Called by libmosquitto. They only note what happened, because libmosquitto holds a lock while it calls them.
    static void onConnected(mosquitto *, void *self, int code, int, const mqtt5__property *);
    static void onDisconnected(mosquitto *, void *self, int code, const mqtt5__property *);
    static void onPublished(mosquitto *, void *self, int number, int code, const mqtt5__property *);
    static void onSubscribed(mosquitto *, void *self, int number, int count, const int *granted,
                             const mqtt5__property *);
    static void onMessage(mosquitto *, void *self, const mosquitto_message *message, const mqtt5__property *properties);

    void lookUp();
    Q_SLOT void onLookedUp(const QHostInfo &info);
    void open(const QByteArray &address);
    void setUp();
    void onOpened(int error);
    void onArrived();
    void onRefused(PacketCheck::Result why);
    void after(int result);
    void checkLater();
    void update();
    void deliver();
    void fail(const QString &reason);
    void close();
    QString connectionText(int code) const;
    QString lossText(int result) const;
    QString tooLargeText() const;
    static QString unacknowledgedText();
    QString doubleText() const;

    const BrokerSettings m_settings;
    std::unique_ptr<TlsContext> m_tls;
    std::unique_ptr<mosquitto, void (*)(mosquitto *)> m_client;
    std::unique_ptr<Gate> m_gate;
    std::unique_ptr<QSocketNotifier> m_writable; // whether libmosquitto can write to the gate
    std::vector<Event> m_events; // noted by the functions that libmosquitto calls
    QHash<int, QByteArray> m_filters; // subscriptions that the broker has not answered, by number
    QHash<int, int> m_unacknowledged; // sizes of the messages that the broker has not acknowledged, by number
    qint64 m_unacknowledgedBytes = 0;
    QString m_reason; // why the connection ends, if that is known; the next after() ends it
    bool m_isOpening = false; // whether the socket is not yet connected
    bool m_isConnected = false;
    bool m_isTakenOver = false;
    bool m_isCheckQueued = false;
    int m_shortConnections = 0; // that ended soon, since the newest one that lasted
    int m_lookup = -1;
    int m_attempt = 0;
    int m_delay; // ms until the next attempt
    QElapsedTimer m_connectedSince;
    QTimer m_retryTimer;
    QTimer m_answerTimer; // ends an attempt that the broker does not answer
    QTimer m_keepAliveTimer;
    QTimer m_acknowledgeTimer; // ends a connection on which the broker acknowledges nothing
};

} // namespace JwFleet

#pragma once

#include "discoveryschedule.h"

#include <QStringList>

#include <algorithm>
#include <iterator>

#include <deque>
#include <vector>

/// Takes an Initializer, the real one or the model of it, through a schedule, and notes all that can be seen:
/// emissions, log lines, what the boards received and, after each step, the state of each probed port.
///
/// It is also the application: it owns the boards that were handed over, in their order (0, 1 ...).
class DiscoveryPlay
{
public:
    explicit DiscoveryPlay(const DiscoverySchedule &schedule)
        : m_schedule(schedule)
    {
        std::fill(std::begin(m_begun), std::end(m_begun), -1);
    }
    virtual ~DiscoveryPlay() = default;
    DiscoveryPlay(const DiscoveryPlay &) = delete;
    DiscoveryPlay &operator=(const DiscoveryPlay &) = delete;

    /// What was seen, in its order.
    const QStringList &run();
    /// Every whole sentence that did not come through as it was sent, though it was all that its board sent.
    const QStringList &spoilt() const { return m_spoilt; }

protected:
    static constexpr const char *writtenByApplication = "$PAPPL,1*40\r\n";
    static constexpr const char *otherDevice = "$PJWVER,7300022,1,4,0*0d\r\n$PJWVER*0c\r\n$half";

    const DiscoverySchedule &schedule() const { return m_schedule; }
    void note(const QString &text) { m_trace.append(text); }
    void noteLog(int level, const char *category, const char *file, const QString &text);
    void deviceInitialized(JwDevice::Type type, const QString &port);
    void deviceNotFound(JwDevice::Type type);
    /// The board on the port received a sentence. The first piece of its answer is sent at once, unless it is to come
    /// later or others are under way; the rest when the event loop has nothing left to do, before time goes on.
    void answer(int port);
    /// When the next piece is to be sent; -1 for never.
    qint64 nextPieceDue() const;
    /// Those that arrive in the same turn of the event loop.
    void sendPieces();

    virtual qint64 now() const = 0;
    /// Whether the port is open, and a Communicator reads from it.
    virtual bool isListening(int port) const = 0;
    virtual bool hasInitializer() const = 0;
    virtual bool probe(const QList<JwDevice::Type> &types, int delay, const QVector<int> &ports) = 0;
    virtual void send(int port, const QByteArray &bytes) = 0;
    virtual void pull(int port) = 0;
    virtual void plug(int port) = 0;
    virtual void hold(int port, bool held) = 0;
    virtual uint setMaxRetries(uint retries) = 0;
    virtual void deleteInitializer() = 0;
    virtual void deleteInitializerLater() = 0;
    /// The event loop; false when it does not come to rest.
    virtual bool wait(int milliseconds) = 0;
    /// Of every port that is probed, in the order of opening.
    virtual QStringList states() const = 0;
    /// All that the board received since the last call.
    virtual QByteArray takeReceived(int port) = 0;

    virtual bool isAlive(int handOver) const = 0;
    virtual bool readPayload(int handOver, QString &payload) = 0;
    virtual void write(int handOver) = 0;
    virtual void deleteNow(int handOver) = 0;
    virtual void deleteLater(int handOver) = 0;
    virtual void unbind(int handOver) = 0;
    virtual void rebind(int handOver) = 0;

private:
    struct Piece
    {
        QByteArray bytes;
        qint64 due;
        QByteArray ends; // the whole sentence, when this is its end
    };
    /// A sentence that was sent and must come through whole.
    struct Promise
    {
        int port;
        QByteArray sentence;
        int from; // position in the trace
    };

    bool takeFromLimit(int port, const QByteArray &bytes);
    void takeSteps(int most);
    void take(const DiscoverySchedule::Step &step);
    void settle(int milliseconds = 0);
    void readAll(int handOver);
    void sendNext(int port);
    void checkPromises();
    void nest(int steps);

    const DiscoverySchedule &m_schedule;
    QStringList m_trace;
    int m_nextStep = 0;
    int m_depth = 0; // of nested event loops
    int m_handOvers = 0;
    int m_notFound = 0;
    uint m_maxRetries = 3;
    int m_sent[DiscoverySchedule::portCount] = {};
    int m_answered[DiscoverySchedule::portCount] = {};
    int m_opened[DiscoverySchedule::portCount] = {}; // how often
    int m_begun[DiscoverySchedule::portCount]; // m_opened when the sentence that is under way began; -1: none is
    std::deque<Piece> m_pieces[DiscoverySchedule::portCount]; // that boards will send
    int m_turns = 0;
    std::vector<Promise> m_promises;
    QStringList m_spoilt;
};

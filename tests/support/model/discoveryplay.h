#pragma once

#include "discoveryschedule.h"

#include <QStringList>

#include <algorithm>
#include <iterator>

#include <deque>
#include <vector>

/// Runs a schedule on an Initializer (the real one or the model) and writes a trace: signals, log lines, bytes that the
/// boards received, and after each step the state of each probed port.
///
/// It also plays the application and owns the handed-over boards, numbered 0, 1 ... in the order of the hand-overs.
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

    /// Runs the schedule and returns the trace.
    const QStringList &run();
    /// The sentences that arrived changed or not at all, on ports whose boards sent whole sentences only.
    const QStringList &spoilt() const { return m_spoilt; }

protected:
    static constexpr const char *writtenByApplication = "$PAPPL,1*40\r\n";
    static constexpr const char *otherDevice = "$PJWVER,7300022,1,4,0*0d\r\n$PJWVER*0c\r\n$half";

    const DiscoverySchedule &schedule() const { return m_schedule; }
    void note(const QString &text) { m_trace.append(text); }
    void noteLog(int level, const char *category, const char *file, const QString &text);
    void deviceInitialized(JwDevice::Type type, const QString &port);
    void deviceNotFound(JwDevice::Type type);
    /// Call it when the board on the port received a sentence. Sends the first piece of the answer at once, unless it
    /// has a delay or earlier pieces wait. The other pieces follow when the event loop is idle, before time moves on.
    void answer(int port);
    /// Time at which the next piece is due; -1 if there is none.
    qint64 nextPieceDue() const;
    /// Sends the pieces that arrive in the same turn of the event loop.
    void sendPieces();

    virtual qint64 now() const = 0;
    /// Whether the port is open and a Communicator reads from it.
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
    /// Runs the event loop for this time. False if it never becomes idle.
    virtual bool wait(int milliseconds) = 0;
    /// The state of every probed port, in the order of opening.
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
        QByteArray ends; // the whole sentence, if this piece is its end
    };
    /// A sentence that was sent and must arrive whole.
    struct Promise
    {
        int port;
        QByteArray sentence;
        int from; // position in the trace from which it may arrive
    };

    bool countSent(int port, const QByteArray &bytes);
    void performSteps(int most);
    void perform(const DiscoverySchedule::Step &step);
    void settle(int milliseconds = 0);
    void readAll(int handOver);
    void sendNext(int port);
    void checkPromises();
    void nest(int steps);

    const DiscoverySchedule &m_schedule;
    QStringList m_trace;
    int m_nextStep = 0;
    int m_depth = 0; // number of nested event loops
    int m_handOvers = 0;
    int m_notFound = 0;
    uint m_maxRetries = 3;
    int m_sent[DiscoverySchedule::portCount] = {};
    int m_answered[DiscoverySchedule::portCount] = {};
    int m_opened[DiscoverySchedule::portCount] = {}; // how often the port was opened
    int m_begun[DiscoverySchedule::portCount]; // value of m_opened when the current sentence began; -1: no sentence
    std::deque<Piece> m_pieces[DiscoverySchedule::portCount]; // not yet sent
    int m_turns = 0;
    std::vector<Promise> m_promises;
    QStringList m_spoilt;
};

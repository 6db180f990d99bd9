#pragma once

#include "discoveryschedule.h"

#include <QStringList>

#include <algorithm>
#include <iterator>

#include <deque>
#include <vector>

/// Runs a schedule on the real Initializer or on the model, and writes a trace (a record of the run). The trace
/// contains signals, log lines, the bytes that the boards received, and after each step the state of each probed port.
///
/// This class also acts as the application, so it owns the handed-over boards. The numbers of these boards are
/// 0, 1 ... in the order of the hand-overs.
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
    /// Returns the sentences that did not arrive, or did not arrive unchanged. Contains only sentences of boards for
    /// which the schedule's sendsWholeSentences() returns true.
    const QStringList &spoilt() const { return m_spoilt; }

protected:
    static constexpr const char *writtenByApplication = "$PAPPL,1*40\r\n";
    static constexpr const char *otherDevice = "$PJWVER,7300022,1,4,0*0d\r\n$PJWVER*0c\r\n$half";

    const DiscoverySchedule &schedule() const { return m_schedule; }
    void note(const QString &text) { m_trace.append(text); }
    void noteLog(int level, const char *category, const char *file, const QString &text);
    void deviceInitialized(JwDevice::Type type, const QString &port);
    void deviceNotFound(JwDevice::Type type);
    /// Makes the board on the port answer. Call it when that board has received a sentence. Sends the first piece of
    /// the answer at once, unless the piece has a delay or earlier pieces wait. The other pieces are sent when the
    /// event loop is idle, before the clock moves.
    void answer(int port);
    /// Returns the time at which the next piece is due, or -1 if no piece waits.
    qint64 nextPieceDue() const;
    /// Sends the pieces that the next entry of the schedule's `turns` chooses.
    void sendPieces();

    virtual qint64 now() const = 0;
    /// Returns whether the port is open and a Communicator reads from it.
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
    /// Runs the event loop for this time. Returns false if the event loop never becomes idle.
    virtual bool wait(int milliseconds) = 0;
    /// Returns the state of every probed port, in the order of opening.
    virtual QStringList states() const = 0;
    /// Returns the bytes that the board received since the last call.
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
        QByteArray ends; // the whole sentence if this piece ends a sentence, otherwise empty
    };
    /// A sentence that a board has sent and that must arrive unchanged.
    struct Promise
    {
        int port;
        QByteArray sentence;
        QStringList::size_type from; // the sentence must be in the trace at this position or later
    };

    bool countSent(int port, const QByteArray &bytes);
    void performSteps(qsizetype most);
    void perform(const DiscoverySchedule::Step &step);
    void settle(int milliseconds = 0);
    void readAll(int handOver);
    void sendNext(int port);
    void checkPromises();
    void nest(int steps);

    const DiscoverySchedule &m_schedule;
    QStringList m_trace;
    int m_nextStep = 0;
    int m_depth = 0; // number of nested event loops that are running
    int m_handOvers = 0;
    int m_notFound = 0;
    uint m_maxRetries = 3;
    qsizetype m_sent[DiscoverySchedule::portCount] = {};
    int m_answered[DiscoverySchedule::portCount] = {};
    int m_opened[DiscoverySchedule::portCount] = {}; // number of times that the port was opened
    // m_opened at the time when the board began its unfinished sentence; -1 if the board is between two sentences.
    int m_begun[DiscoverySchedule::portCount];
    std::deque<Piece> m_pieces[DiscoverySchedule::portCount]; // pieces that wait to be sent
    int m_turns = 0;
    std::vector<Promise> m_promises;
    QStringList m_spoilt;
};

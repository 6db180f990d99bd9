#pragma once

#include <simulator/boardconfig.h>

#include <QtCore/QByteArray>
#include <QtCore/QElapsedTimer>
#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QRandomGenerator>

#include <memory>

namespace JwSimulator {

class Port;

/** What travelled on a board's line. */
struct JournalEntry
{
    /** Which way it travelled. */
    enum Direction {
        Received, ///< from the host: one line through its line feed, or what came of one so far
        Sent ///< from the board: one piece as it was sent (a reply, a chunk of it, a send())
    };
    Direction direction; ///< which way it travelled
    qint64 milliseconds; ///< on the Testbed's clock, at the last byte of it
    QByteArray bytes; ///< as they were on the line
};

/**
 * One simulated board on one simulated port.
 *
 * It is made by Testbed::add() and belongs to the Testbed. It has no thread of its own: it lives in the thread that
 * made it, answers from that thread's event loop, and does all its waiting by QTimer. Only the journal's times and
 * pullTime() are real time.
 *
 * @code
 * JwSimulator::Testbed testbed;
 * JwSimulator::BoardConfig config;
 * config.kind = JwSimulator::BoardConfig::Kind::Silent;
 * JwSimulator::Board *board = testbed.add(config);
 * QObject::connect(board, &JwSimulator::Board::sentenceReceived, board, [board] { board->send("whatever\r\n"); });
 * @endcode
 */
class Board : public QObject
{
    Q_OBJECT

public:
    ~Board() override;

    /** As given to Testbed::add(), with port, serial and hwversion filled in. */
    const BoardConfig &config() const { return m_config; }
    /** Name of the port without folder, such as "ttyACM0". */
    QString portName() const { return m_config.port; }

    /** Sends these bytes as they are, after what is still waiting to be sent, at the line's speed. What the host does
     *  not take now is kept until it does. False when no host can get them: the cable is pulled or the port is denied.
     */
    bool send(const QByteArray &bytes);

    /** Pulls the cable: an open port reports an error to the host, and the device leaves the system. What was not sent
     *  yet, or not read by the host, is lost. Does nothing when it is pulled already. */
    void pull();
    /** Plugs the cable in again after pull(): a new device of the same port name. Counters and journal go on. False and
     *  one line in @p error (may be null) when the system refuses, or it is not pulled. */
    bool plug(QString *error = nullptr);
    /** Whether the cable is in. */
    bool isPlugged() const { return m_plugged; }
    /** Milliseconds on the Testbed's clock at the last pull; -1 when it was never pulled. */
    qint64 pullTime() const { return m_pullTime; }

    /** Queries of this board's own that arrived whole and with the right checksum, the ignored ones included. */
    int queryCount() const { return m_queries; }
    /** Everything received and sent so far, in order; of a very long run, the newest 20000 entries of at most 4 MiB
     *  together. */
    QList<JournalEntry> journal() const;

Q_SIGNALS:
    /** Bytes arrived from the host: as they were read, or as a paced line delivers them. */
    void received(const QByteArray &bytes);
    /** A whole line with the right checksum arrived; without its line end. A reply to it was not begun yet. */
    void sentenceReceived(const QByteArray &sentence);
    /** The host can read these bytes now: a whole reply, a chunk of one, a send(). */
    void sent(const QByteArray &bytes);
    /** The cable was pulled, by pull() or as configured. */
    void pulled();

private:
    friend class Testbed;
    class Line;

    Board(const BoardConfig &config, const QElapsedTimer &clock, std::unique_ptr<Port> port);

    void connectLine();
    void readLine();
    void takeReceived(const QByteArray &bytes);
    void takeSentence(const QByteArray &sentence);
    void reply();
    QByteArray makeReply();
    QByteArray takePiece();
    void sendUnasked();
    void sendNext();
    void writePending();
    QByteArray randomBytes(int count, int least);
    void record(JournalEntry::Direction direction, const QByteArray &bytes);

    BoardConfig m_config;
    const QElapsedTimer &m_clock;
    const std::unique_ptr<Port> m_port;
    Line *m_line = nullptr; // a child of this object; none while the cable is pulled or the port is denied
    bool m_plugged = false;
    int m_queries = 0;
    qint64 m_bytesSent = 0;
    int m_unaskedSent = 0;
    QRandomGenerator m_random;
    qint64 m_pullTime = -1;
    QByteArray m_partialLine;
    qint64 m_partialTime = 0;
    QList<JournalEntry> m_journal;
    qint64 m_journalBytes = 0;
};

} // namespace JwSimulator

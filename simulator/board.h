#pragma once

#include <simulator/boardconfig.h>

#include <QByteArray>
#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QRandomGenerator>

#include <memory>

namespace JwSimulator {

class Port;

/// One entry of a board's journal: bytes that travelled on its line.
struct JournalEntry
{
    /// Which way the bytes travelled.
    enum Direction {
        Received, ///< from the host: one line with its line feed, or the part of a line that came so far
        Sent ///< from the board: a reply, a chunk of a reply, or the bytes of a send()
    };
    Direction direction; ///< which way the bytes travelled
    qint64 milliseconds; ///< on the Testbed's clock, when the last byte travelled
    QByteArray bytes; ///< the bytes themselves
};

/**
 * One simulated board on one simulated port.
 *
 * Testbed::add() makes the board, and the Testbed owns it. The board lives in the thread that made it, answers from
 * that thread's event loop, and waits by QTimer only. The times in the journal and pullTime() are real time.
 *
 * \code
 * JwSimulator::Testbed testbed;
 * JwSimulator::BoardConfig config;
 * config.kind = JwSimulator::BoardConfig::Kind::Silent;
 * JwSimulator::Board *board = testbed.add(config);
 * QObject::connect(board, &JwSimulator::Board::sentenceReceived, board, [board] { board->send("whatever\r\n"); });
 * \endcode
 */
class Board : public QObject
{
    Q_OBJECT

public:
    ~Board() override;

    /// The value given to Testbed::add(), with port, serial and hwversion filled in.
    const BoardConfig &config() const { return m_config; }
    /// Name of the port without folder, for example "ttyACM0".
    QString portName() const { return m_config.port; }

    /// Sends `bytes` unchanged, at the speed of the line, after everything that still waits to be sent. The board keeps
    /// the bytes until the host reads them. Returns false if the cable is pulled or the port is denied.
    bool send(const QByteArray &bytes);

    /// Pulls the cable: an open port reports an error to the host, and the device leaves the system. Bytes that were
    /// not sent yet, or that the host has not read, are lost. Does nothing if the cable is already pulled.
    void pull();
    /// Plugs the cable in again after pull(), as a new device with the same port name. Counters and journal go on.
    /// Returns false if the cable is not pulled or the system refuses; `error` (may be null) then has one line.
    bool plug(QString *error = nullptr);
    /// Whether the cable is plugged in.
    bool isPlugged() const { return m_plugged; }
    /// Milliseconds on the Testbed's clock at the last pull; -1 if the cable was never pulled.
    qint64 pullTime() const { return m_pullTime; }

    /// Number of whole queries with the right checksum that this kind of board answers, including the ignored ones.
    int queryCount() const { return m_queries; }
    /// Everything received and sent so far, in order. Only the newest 20000 entries stay, and at most 4 MiB.
    QList<JournalEntry> journal() const;

Q_SIGNALS:
    /// Bytes arrived from the host. On a paced line they arrive in the pieces that the line delivers.
    void received(const QByteArray &bytes);
    /// A whole sentence with the right checksum arrived; `sentence` has no line end. The reply has not begun yet.
    void sentenceReceived(const QByteArray &sentence);
    /// The host can read these bytes now: a whole reply, a chunk of a reply, or the bytes of a send().
    void sent(const QByteArray &bytes);
    /// The cable was pulled, by pull() or as configured.
    void pulled();

private:
    friend class Testbed;
    class Line;

    Board(const BoardConfig &config, const QElapsedTimer &clock, std::unique_ptr<Port> port);

    void connectLine();
    void onReadable();
    void onReceived(const QByteArray &bytes);
    void onSentence(const QByteArray &sentence);
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
    Line *m_line = nullptr; // a child of this object; null while the cable is pulled or the port is denied
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

#pragma once

#include <simulator/boardconfig.h>

#include <QByteArray>
#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QRandomGenerator>
#include <QTimer>

#include <memory>

namespace JwSimulator {

class Hub;
class Port;

/// One entry of a board's journal: bytes that the board received or sent.
struct JournalEntry
{
    /// The direction in which the bytes travelled.
    enum Direction {
        Received, ///< from the host: one line of text with its line feed, or a line whose end has not arrived
        Sent ///< from the board: a reply, a chunk of a reply, or the bytes of one call of send()
    };
    Direction direction; ///< direction in which the bytes travelled
    qint64 milliseconds; ///< when the last byte travelled, in milliseconds on the Testbed's clock
    QByteArray bytes; ///< the bytes themselves
};

/**
 * A simulated board on its own simulated port.
 *
 * Testbed::add() makes the board, and the Testbed owns it. The board belongs to the thread that called add(). It
 * answers in the event loop of this thread. All its delays are QTimers, so it never blocks the thread. The times in the
 * journal and the result of pullTime() are read from a clock, so they also contain delays of a slow machine.
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

    /// Returns the configuration that Testbed::add() got. Its port, serial and hwversion are never null, because the
    /// Testbed fills them in.
    const BoardConfig &config() const { return m_config; }
    /// Returns the name of the port without the folder, for example "ttyACM0". While the cable is not plugged in, this
    /// is the name that the port had last, or will have first.
    QString portName() const;

    /// Sends `bytes` unchanged, at the speed of the serial line, after all bytes that still wait to be sent. The board
    /// keeps the bytes until the host reads them. Returns false if the cable is pulled, or is about to be pulled
    /// because of BoardConfig::pullAfterBytes, or if BoardConfig::open is Denied.
    bool send(const QByteArray &bytes);

    /// Pulls the cable of this board only, also if the board is behind a hub. The system then removes the device, and a
    /// port that the host has open reports an error. Bytes that the board has not sent, or that the host has not read,
    /// are lost. Does nothing if the cable is already pulled.
    void pull();
    /// Plugs the cable in, for example after pull(). The system then has a new device, with the port name that the
    /// configuration says. Counters and journal continue. If the cable is plugged in already, or the system refuses,
    /// returns false and sets `error` (may be null) to one line. A board behind a hub can be plugged in only while the
    /// hub is; see Testbed::plugHub().
    bool plug(QString *error = nullptr);
    /// Returns whether the cable is plugged in.
    bool isPlugged() const { return m_plugged; }
    /// Returns the time of the last pull, in milliseconds on the Testbed's clock. -1 if the cable was never pulled.
    qint64 pullTime() const { return m_pullTime; }

    /// Returns the number of queries that the board received so far: whole sentences with the right checksum that this
    /// kind of board answers. Queries without a reply because of BoardConfig::ignore are counted too.
    int queryCount() const { return m_queries; }
    /// Returns what the board received and sent so far, oldest first. The board keeps only the newest 20000 entries,
    /// and at most 4 MiB.
    QList<JournalEntry> journal() const;

Q_SIGNALS:
    /// Emitted when bytes arrived from the host. BoardConfig::usb and BoardConfig::speed decide how many bytes arrive
    /// together.
    void received(const QByteArray &bytes);
    /// Emitted when a whole sentence with the right checksum arrived, before the board starts to reply. `sentence` has
    /// no line end.
    void sentenceReceived(const QByteArray &sentence);
    /// Emitted when the host can read `bytes`: a whole reply, a chunk of a reply, or the bytes of one call of send().
    void sent(const QByteArray &bytes);
    /// Emitted when the cable was plugged in: by plug(), or because of BoardConfig::plugAfter or replugAfter.
    void plugged();
    /// Emitted when the cable was pulled: by pull(), or because of BoardConfig::pullAfter or pullAfterBytes.
    void pulled();

private:
    friend class Hub;
    friend class Testbed;
    class Line;

    Board(const BoardConfig &config, const QElapsedTimer &clock, std::unique_ptr<Port> port, Hub *hub);

    bool start(QString *error);
    QString nextName() const;
    void appear();
    void plugAsConfigured();
    void pullAsConfigured();
    bool isPullDue() const { return m_configuredPulls < m_config.cycles; }
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
    // Child of this object. Null while the cable is pulled, and always if BoardConfig::open is Denied.
    Line *m_line = nullptr;
    bool m_plugged = false;
    Hub *const m_hub; // null if the board is not behind a hub
    QTimer m_plugTimer; // runs until the configuration plugs the cable in
    QTimer m_pullTimer; // runs until the configuration pulls the cable
    int m_configuredPulls = 0;
    int m_queries = 0;
    qint64 m_bytesSent = 0; // since the cable was plugged in
    int m_unaskedSent = 0;
    QRandomGenerator m_random;
    qint64 m_pullTime = -1;
    QByteArray m_partialLine;
    qint64 m_partialTime = 0;
    QList<JournalEntry> m_journal;
    qint64 m_journalBytes = 0;
};

} // namespace JwSimulator

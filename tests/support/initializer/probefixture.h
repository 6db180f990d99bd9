#pragma once

#include "support/common/eventloop.h"
#include "initializerstate.h"
#include "support/common/recordsink.h"

#include <device/initializer.h>
#include <simulator/board.h>
#include <simulator/testbed.h>
#include <simulator/wire.h>

#include <QPointer>
#include <QSerialPort>
#include <QStringList>
#include <QVector>

#include <functional>
#include <memory>

Q_DECLARE_METATYPE(JwDevice::Type)
Q_DECLARE_METATYPE(PortState)

using TypeList = QList<JwDevice::Type>;

/// Simulated boards, an Initializer that searches for these boards, and a timeline of the Initializer's signals and log
/// records.
class ProbeFixture
{
public:
    struct HandOver
    {
        JwDevice::Type type;
        QPointer<JwDevice::Communicator> comm;
        QPointer<QSerialPort> port;
    };

    ProbeFixture();
    /// Deletes the Initializer, then the Communicators and ports that it handed over, then the boards.
    ~ProbeFixture();
    ProbeFixture(const ProbeFixture &) = delete;
    ProbeFixture &operator=(const ProbeFixture &) = delete;

    /// Adds a board on a port that no other test program uses. `board` is in the form of jwsim's option --board, for
    /// example "BoardA,delay=20".
    JwSimulator::Board *attach(const char *board);
    QStringList portNames() const;
    /// Starts a probe of exactly the ports of the attached boards: gives their names to the Initializer.
    void probe(const TypeList &types);
    /// Attaches a silent board and probes it for BoardA, without retry rounds, until the time-out. Returns the board.
    JwSimulator::Board *probeSilentBoard();
    /// Deletes the Initializer and makes a new one.
    JwDevice::Initializer *renew();

    /// Returns the Communicator that probes the port of `board`. Null if the board is handed over.
    JwDevice::Communicator *comm(const JwSimulator::Board *board) const;
    QSerialPort *port(const JwSimulator::Board *board) const;
    QTimer *replyTimer(const JwSimulator::Board *board) const;
    PortState state(const JwSimulator::Board *board) const;
    /// Returns the last hand-over on the port of `board`.
    HandOver handOver(const JwSimulator::Board *board) const;

    /// Makes every running reply timer fire in the next turn of the event loop.
    void endReplyTimers();
    /// Makes only the reply timer of this board's port fire, and waits for the time-out.
    void timeOut(const JwSimulator::Board *board);
    /// Sends payloads from `board`. The Communicator stores the payloads but emits no signal, so the Initializer does
    /// not read them yet.
    void store(JwSimulator::Board *board, const QList<QByteArray> &payloads) const;
    bool isTimerActive() const;
    bool isOver() const { return timeline.contains(QStringLiteral("Disconnect from signals")); }
    /// Returns the entries of the timeline that are decisions: the signals deviceInitialized and deviceNotFound, retry
    /// rounds, and the end of the probe.
    QStringList decisions() const;

    QPointer<JwDevice::Initializer> initializer;
    /// The texts of the Initializer's log records and its signals in order, for example "deviceInitialized BoardA".
    QStringList timeline;
    QVector<HandOver> handOvers;
    /// Called with every log record, before the record is added to the timeline.
    std::function<void(const LogRecord &)> onRecord;
    LogCapture log;
    JwSimulator::Testbed testbed;

private:
    std::shared_ptr<spdlog::sinks::sink> m_timelineSink;
};

/// Returns all bytes that `board` received.
QByteArray received(const JwSimulator::Board *board);
/// Returns all bytes that `board` sent.
QByteArray sent(const JwSimulator::Board *board);

/// Returns a board's reply to the version query.
QByteArray versionReply(const QByteArray &hardwareVersion);
/// Returns a board's reply to the information request.
QByteArray informationReply(const QByteArray &subcommand);

/// Returns the text in quotes, in the same form as in the log.
QString quoted(const QString &text);

extern const QByteArray versionQuery;
extern const QByteArray informationRequest;

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

/// Simulated boards, an Initializer that searches for them, and a timeline of its log records and signals.
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

    /// Adds a board by its text form, for example "BoardA,delay=20", on a port that no other test program uses.
    JwSimulator::Board *attach(const char *board);
    QStringList portNames() const;
    /// Probes the ports of all attached boards, by name.
    void probe(const TypeList &types);
    /// Attaches a silent board and probes it for BoardA, without retry rounds, until it times out. Returns the board.
    JwSimulator::Board *probeSilentBoard();
    /// Deletes the Initializer and makes a new one.
    JwDevice::Initializer *renew();

    /// The Communicator that probes the port of `board`. Null if the board is handed over.
    JwDevice::Communicator *comm(const JwSimulator::Board *board) const;
    QSerialPort *port(const JwSimulator::Board *board) const;
    QTimer *replyTimer(const JwSimulator::Board *board) const;
    PortState state(const JwSimulator::Board *board) const;
    /// The last hand-over on the port of `board`.
    HandOver handOver(const JwSimulator::Board *board) const;

    /// Makes every running reply timer end in the next turn of the event loop.
    void endReplyTimers();
    /// Ends the reply timer of this port only, and waits for the time-out.
    void timeOut(const JwSimulator::Board *board);
    /// Sends payloads from `board`. Its Communicator stores them but emits no signal.
    void store(JwSimulator::Board *board, const QList<QByteArray> &payloads) const;
    bool isTimerActive() const;
    bool isOver() const { return timeline.contains(QStringLiteral("Disconnect from signals")); }
    /// The decisions in the timeline: both signals, retry rounds, the end of the probe.
    QStringList decisions() const;

    QPointer<JwDevice::Initializer> initializer;
    /// The texts of the Initializer's log records, and its signals, for example "deviceInitialized BoardA".
    QStringList timeline;
    QVector<HandOver> handOvers;
    /// Called with every log record, before the record is in the timeline.
    std::function<void(const LogRecord &)> onRecord;
    LogCapture log;
    JwSimulator::Testbed testbed;

private:
    std::shared_ptr<spdlog::sinks::sink> m_timelineSink;
};

/// All bytes that `board` received.
QByteArray received(const JwSimulator::Board *board);
/// All bytes that `board` sent.
QByteArray sent(const JwSimulator::Board *board);

/// A board's reply to the version query.
QByteArray versionReply(const QByteArray &hardwareVersion);
/// A board's reply to the information request.
QByteArray informationReply(const QByteArray &subcommand);

/// The text in quotes, as in the log.
QString quoted(const QString &text);

extern const QByteArray versionQuery;
extern const QByteArray informationRequest;

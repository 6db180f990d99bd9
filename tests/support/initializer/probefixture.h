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

/// Simulated boards and an Initializer that looks for them, with everything it says in its order.
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
    /// Deletes the Initializer, then gives back what it handed over, then takes the boards away.
    ~ProbeFixture();
    ProbeFixture(const ProbeFixture &) = delete;
    ProbeFixture &operator=(const ProbeFixture &) = delete;

    /// Adds a board from its text form, such as "BoardA,delay=20", on a port that no other test program uses.
    JwSimulator::Board *attach(const char *board);
    QStringList portNames() const;
    /// Probes exactly the ports of the boards.
    void probe(const TypeList &types);
    /// The Initializer of the fixture, and another one when that was deleted.
    JwDevice::Initializer *renew();

    /// The Communicator that probes the port of `board`; it must not be handed over.
    JwDevice::Communicator *comm(const JwSimulator::Board *board) const;
    QSerialPort *port(const JwSimulator::Board *board) const;
    QTimer *replyTimer(const JwSimulator::Board *board) const;
    PortState state(const JwSimulator::Board *board) const;
    /// What was handed over for the port of `board`; the last one if several.
    HandOver handOver(const JwSimulator::Board *board) const;

    /// Lets every reply timer that runs end in the next turn of the event loop.
    void endReplyTimers();
    /// The time-out of one port, and no other.
    void timeOut(const JwSimulator::Board *board);
    /// Lets `board` send payloads, which its Communicator stores without telling anybody.
    void store(JwSimulator::Board *board, const QList<QByteArray> &payloads) const;
    bool isTimerActive() const;
    bool isOver() const { return timeline.contains(QStringLiteral("Disconnect from signals")); }
    /// The part of the timeline that decides: both signals, retry rounds, the end.
    QStringList decisions() const;

    QPointer<JwDevice::Initializer> initializer;
    /// The texts of the Initializer's own records and, as "deviceInitialized BoardA", its signals.
    QStringList timeline;
    QVector<HandOver> handOvers;
    /// Runs at every record, before it is in the timeline.
    std::function<void(const LogRecord &)> onRecord;
    LogCapture log;
    JwSimulator::Testbed testbed;

private:
    std::shared_ptr<spdlog::sinks::sink> m_timelineSink;
};

/// The bytes that `board` received, and what it sent.
QByteArray received(const JwSimulator::Board *board);
QByteArray sent(const JwSimulator::Board *board);

/// A version reply and an information reply as a board sends them.
QByteArray versionReply(const QByteArray &hardwareVersion);
QByteArray informationReply(const QByteArray &subcommand);

/// As the log quotes it.
QString quoted(const QString &text);

extern const QByteArray versionQuery;
extern const QByteArray informationRequest;

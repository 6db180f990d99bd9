#pragma once

#include <device/type.h>

#include <QByteArray>
#include <QList>
#include <QString>
#include <QVector>

#include <functional>

/// Describes everything that happens to one Initializer and its ports, in order.
struct DiscoverySchedule
{
    static constexpr int mostPorts = 8; ///< ports with a board, numbers 0 to 7
    /// More ports, which can't be opened. A probe tries such a port only if Step::ports contains it.
    enum ExtraPort { Busy = mostPorts, Denied, Absent, portCount };

    /// One action from outside the Initializer. After the action, the event loop runs until it is idle.
    struct Step
    {
        enum Action {
            Probe, ///< calls probe(types, number, ports); `number` is the delay. Not in a nested event loop.
            Wait, ///< waits `number` ms
            Send, ///< the board on the port sends the bytes
            SendWithNext, ///< like Send, but the next step happens in the same turn of the event loop
            Pull, ///< pulls the port's cable while no bytes are on the cable
            PullWithNext, ///< pulls the cable even if bytes are on it; the next step happens in the same turn
            Plug, ///< plugs the cable in again, which makes a new device with the same port name
            Hold, ///< blocks the signals of the port's Communicator
            Release, ///< ends the effect of Hold
            SetMaxRetries, ///< calls setMaxRetries(number)
            Destroy ///< deletes the Initializer. Not in a nested event loop.
        };
        Action action = Wait;
        int port = 0;
        int number = 0;
        QByteArray bytes;
        QList<JwDevice::Type> types;
        QVector<int> ports;
    };

    /// The application's action inside deviceInitialized, followed by some steps in a nested event loop.
    struct OnInitialized
    {
        enum Action { Keep, Read, Write, Delete, DeleteLater, Unbind, Rebind, DeleteInitializerLater, actionCount };
        Action action = Keep;
        int nestedSteps = 0;
    };
    /// The application's action inside deviceNotFound, followed by some steps in a nested event loop.
    struct OnNotFound
    {
        enum Action { Nothing, RaiseMaxRetries, DeleteInitializer, actionCount };
        Action action = Nothing;
        int nestedSteps = 0;
    };

    /// A part of a board's answer.
    struct Piece
    {
        QByteArray bytes;
        int after = 0; ///< ms after the previous piece; for the first piece, after the sentence that it answers
    };
    using Answer = QVector<Piece>;

    /// Chooses which waiting pieces are sent when the event loop is idle. These pieces arrive in the same turn.
    struct Turn
    {
        /// The port that sends first: an index into the list of ports with unsent pieces. After the end of the list,
        /// the index continues at the start.
        int first = 0;
        int pieces = 1; ///< number of pieces: one from the first port, one from the next port in the list, and so on
    };

    int ports = 1; ///< number of ports whose cable is plugged in at the start, from port 0 on
    /// For each port, the board's answers to the sentences that it receives, in order. After the last answer, the board
    /// is silent.
    QVector<QVector<Answer>> answers;
    QVector<Turn> turns; ///< the turns in order; after the last turn, the first turn is used again
    QVector<Step> steps;
    /// For each emission of deviceInitialized, in order, its action. After the last entry: Keep, no steps.
    QVector<OnInitialized> onInitialized;
    QVector<OnNotFound> onNotFound;

    /// Returns the schedule as readable text.
    QString toString() const;
    /// Returns whether the board sends only whole sentences and its cable stays plugged in.
    bool sendsWholeSentences(int port) const;
};

/// Returns the bytes of all pieces of the answer, joined.
QByteArray bytesOf(const DiscoverySchedule::Answer &answer);

/// Returns a random schedule. The same seed gives the same schedule on every machine.
DiscoverySchedule randomSchedule(quint32 seed);

/// Returns a shorter and simpler schedule for which `fails` still returns true.
DiscoverySchedule shortestSchedule(DiscoverySchedule schedule,
                                   const std::function<bool(const DiscoverySchedule &)> &fails);

/// Returns the name of a port, without folder. No other process uses the same names.
QString portName(int port);

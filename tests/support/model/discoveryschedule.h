#pragma once

#include <device/type.h>

#include <QByteArray>
#include <QList>
#include <QString>
#include <QVector>

#include <functional>

/// All that happens to one Initializer and its ports, in order.
struct DiscoverySchedule
{
    static constexpr int mostPorts = 8; ///< ports with a board, numbers 0 to 7
    enum ExtraPort { Busy = mostPorts, Denied, Absent, portCount }; ///< probed by explicit name only

    /// One event from outside. After it the event loop runs until it is idle.
    struct Step
    {
        enum Action {
            Probe, ///< starts a probe: types, number (the delay), ports (none: search). Not in a nested event loop.
            Wait, ///< waits `number` ms
            Send, ///< the board on the port sends the bytes
            SendWithNext, ///< like Send, but the next step happens in the same turn of the event loop
            Pull, ///< pulls the port's cable while no bytes are on it
            PullWithNext, ///< pulls the cable at any time; the next step happens in the same turn
            Plug, ///< plugs the cable in again: a new device with the same port name
            Hold, ///< blocks the signals of the port's Communicator
            Release, ///< ends Hold
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

    /// The application's action inside deviceInitialized, and the number of steps that then run in a nested event loop.
    struct OnInitialized
    {
        enum Action { Keep, Read, Write, Delete, DeleteLater, Unbind, Rebind, DeleteInitializerLater, actionCount };
        Action action = Keep;
        int nestedSteps = 0;
    };
    /// The same inside deviceNotFound.
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

    /// The pieces that arrive in the same turn of the event loop, when it is idle.
    struct Turn
    {
        int first = 0; ///< number of the first port, counted among ports with unsent pieces (modulo their count)
        int pieces = 1; ///< number of pieces: one from the first port, one from the next such port ...
    };

    int ports = 1; ///< number of plugged-in cables, from port 0 on
    QVector<QVector<Answer>> answers; ///< by port: the answers to the first, second ... sentence
    QVector<Turn> turns; ///< used in order; after the last one, from the first one again
    QVector<Step> steps;
    QVector<OnInitialized> onInitialized; ///< for the first, second ... emission; later ones have no action
    QVector<OnNotFound> onNotFound;

    /// Text for people.
    QString toString() const;
    /// Whether the board sends whole sentences only and its cable stays plugged in.
    bool sendsWholeSentences(int port) const;
};

/// All bytes of the answer.
QByteArray bytesOf(const DiscoverySchedule::Answer &answer);

/// A random schedule. The same seed gives the same schedule on any machine.
DiscoverySchedule randomSchedule(quint32 seed);

/// Removes and simplifies parts of the schedule as long as it still `fails`.
DiscoverySchedule shortestSchedule(DiscoverySchedule schedule,
                                   const std::function<bool(const DiscoverySchedule &)> &fails);

/// Name of a port, without folder. No other process uses the same names.
QString portName(int port);

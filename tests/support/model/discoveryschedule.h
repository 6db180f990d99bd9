#pragma once

#include <device/type.h>

#include <QByteArray>
#include <QList>
#include <QString>
#include <QVector>

#include <functional>

/// Everything that happens to one Initializer and its ports, in its order.
struct DiscoverySchedule
{
    static constexpr int mostPorts = 8; ///< boards that can be found; ports 0 to 7
    enum ExtraPort { Busy = mostPorts, Denied, Absent, portCount }; ///< by explicit name only

    /// One thing from outside. Afterwards the event loop runs until nothing is left to do.
    struct Step
    {
        enum Action {
            Probe, ///< with the types, number as delay, and ports; without ports it searches. Not in a nested loop.
            Wait, ///< number in ms
            Send, ///< the board on the port sends the bytes
            SendWithNext, ///< the same, but what follows happens in the same turn of the event loop
            Pull, ///< the port's cable, when nothing is under way
            PullWithNext, ///< the same, whatever is under way, and what follows happens in the same turn
            Plug, ///< the cable comes back: a new device on the port's name
            Hold, ///< the port's Communicator keeps its payloads to itself
            Release, ///< and no longer
            SetMaxRetries, ///< number
            Destroy ///< the Initializer. Not in a nested loop.
        };
        Action action = Wait;
        int port = 0;
        int number = 0;
        QByteArray bytes;
        QList<JwDevice::Type> types;
        QVector<int> ports;
    };

    /// What the application does within deviceInitialized, then how many steps it takes in a nested event loop.
    struct OnInitialized
    {
        enum Action { Keep, Read, Write, Delete, DeleteLater, Unbind, Rebind, DeleteInitializerLater, actionCount };
        Action action = Keep;
        int nestedSteps = 0;
    };
    /// Likewise within deviceNotFound.
    struct OnNotFound
    {
        enum Action { Nothing, RaiseMaxRetries, DeleteInitializer, actionCount };
        Action action = Nothing;
        int nestedSteps = 0;
    };

    /// A part of what a board sends to a sentence that it receives.
    struct Piece
    {
        QByteArray bytes;
        int after = 0; ///< ms after the piece before it; of the first one, after the sentence
    };
    using Answer = QVector<Piece>;

    /// Which pieces arrive next when nothing is left to do in the event loop; before it goes on.
    struct Turn
    {
        int first = 0; ///< of the ports that have a piece to send, modulo their number
        int pieces = 1; ///< the first one's, that of the next such port ...
    };

    int ports = 1; ///< cables plugged in, from port 0 on
    QVector<QVector<Answer>> answers; ///< by port: what its board sends to the first, second ... sentence
    QVector<Turn> turns; ///< used one after the other, again and again
    QVector<Step> steps;
    QVector<OnInitialized> onInitialized; ///< the first, second ... emission; nothing special after that
    QVector<OnNotFound> onNotFound;

    /// As text for people.
    QString toString() const;
    /// Whether a port's board sends nothing but whole sentences, and its cable stays plugged in.
    bool sendsWholeSentences(int port) const;
};

/// The pieces put together.
QByteArray bytesOf(const DiscoverySchedule::Answer &answer);

/// The same schedule for the same seed, on any machine.
DiscoverySchedule randomSchedule(quint32 seed);

/// The shortest schedule that can be had from this one by leaving out and simplifying while it still `fails`.
DiscoverySchedule shortestSchedule(DiscoverySchedule schedule,
                                   const std::function<bool(const DiscoverySchedule &)> &fails);

/// Name of a port, without folder; no other process has the same.
QString portName(int port);

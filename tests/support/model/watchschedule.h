#pragma once

#include <device/type.h>

#include <QList>
#include <QString>
#include <QVector>

#include <functional>

/// Describes everything that happens to one BoardWatch and its boards, in order.
struct WatchSchedule
{
    /// A board with one port. Boards at the same USB device are one device with several ports.
    struct Board
    {
        enum Kind { BoardA, BoardB, BoardC, Silent, Other, Babble, kindCount };
        Kind kind = BoardA; ///< Other answers a sentence of no type, Babble a text that is no sentence
        int delay = 7; ///< ms from a query to its answer; ends with 7, so that it never meets one of the watch's timers
        int ignores = 0; ///< number of queries after each plug that get no answer
        QString serial;
        int interface = 0;
        bool isCandidate = true;
        bool isIgnored = false;
    };

    struct Settings
    {
        QList<JwDevice::Type> types = {JwDevice::BoardA, JwDevice::BoardB, JwDevice::BoardC};
        int maxRetries = 1;
        int delay = 0;
        int checkInterval = 0;
        QVector<int> excludedNames;
        QStringList excluded; ///< entries of setNeverOpened(), except port names
    };

    /// One action. After the action, the event loop runs until it is idle.
    struct Step
    {
        enum Action {
            Wait, ///< waits `number` ms
            Plug, ///< plugs the board in at the USB device `number`, under the port name `name`
            PlugLate, ///< like Plug, but programs can't open the port before Permit
            Pull, ///< pulls the board's USB device, with all its ports
            Permit, ///< lets programs open the port, with an event
            Change, ///< the system reports a change of the port that means nothing
            Occupy, ///< another program opens the port, if it is closed
            Vacate, ///< the other program closes the port
            Mute, ///< the board's firmware hangs: it answers nothing
            Unmute,
            Say, ///< the board sends a sentence that nobody asked for
            Start,
            Stop,
            Lend,
            LendUntilPlugged,
            TakeBack,
            LookAgain,
            CheckBoards,
            Delete, ///< deletes the board's Communicator
            DeleteLater, ///< deletes it by deleteLater()
            DeletePort, ///< deletes the board's port by deleteLater()
            DeleteWatch,
            Configure, ///< sets the next of `settings`
            actionCount
        };
        Action action = Wait;
        int board = 0;
        int number = 0;
        int name = 0;
        bool withNext = false; ///< the next step happens in the same turn of the event loop
    };

    /// The application's action inside a signal, followed by some steps in a nested event loop.
    struct Reaction
    {
        Step::Action action = Step::Wait; ///< Wait does nothing
        bool onSameBoard = true; ///< on the board of the signal; otherwise on `board`
        int board = 0;
        int nestedSteps = 0;
    };

    QVector<Board> boards;
    QVector<Settings> settings; ///< the first settings are those at the start
    QVector<Step> steps;
    QVector<Reaction> reactions; ///< for the first, second ... signal of the watch
    QVector<Reaction> readReactions; ///< for the first, second ... payload that a found board sends

    /// Returns the schedule as text that people can read.
    QString toString() const;
};

/// Returns a random schedule. The same seed gives the same schedule on every machine.
WatchSchedule randomWatchSchedule(quint32 seed);

/// Returns a shorter and simpler schedule for which `fails` still returns true.
WatchSchedule shortestWatchSchedule(WatchSchedule schedule, const std::function<bool(const WatchSchedule &)> &fails);

#pragma once

#include <device/boardrules.h>

#include <QList>
#include <QString>
#include <QVector>

#include <functional>

/// Describes everything that happens to one BoardWatch and its boards, in order.
struct WatchSchedule
{
    /// A board with one port. Boards that are plugged in with the same device number are one USB device with several
    /// ports.
    struct Board
    {
        enum Kind { BoardA, BoardB, BoardC, Silent, Other, Babble, kindCount };
        Kind kind = BoardA; ///< Other answers a sentence of no board type; Babble answers a text that is no sentence
        int delay = 7; ///< ms from query to answer; ends with 7, so that no timer of the watch ends in the same ms
        int ignores = 0; ///< after each plug, the board ignores this number of queries
        QString serial;
        int interface = 0;
        bool isCandidate = true;
        bool isIgnored = false;
    };

    struct Settings
    {
        QList<JwDevice::Type> types = JwDevice::boardTypes();
        int maxRetries = 1;
        int delay = 0;
        int checkInterval = 0;
        QVector<int> excludedNames;
        QStringList excluded; ///< the entries for setNeverOpened() that are not port names
    };

    /// One action. After it, the event loop runs until it is idle, except if withNext is set.
    struct Step
    {
        enum Action {
            Wait, ///< waits `number` ms
            Plug, ///< plugs the board in at the USB device `number`, under the port name number `name`
            PlugLate, ///< like Plug, but programs can't open the port before Permit
            Pull, ///< pulls the board's USB device, with all its ports
            PullPort, ///< removes the board's port; other ports of its USB device stay
            Permit, ///< programs may open the port from now on; the system then reports a change of the port
            Change, ///< the system reports a change of the port, but nothing changed
            Occupy, ///< another program opens the port, if no program has it open
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
            DeleteLater, ///< deletes the board's Communicator by deleteLater()
            DeletePort, ///< deletes the board's port by deleteLater()
            DeleteWatch,
            Configure, ///< gives the watch the next entry of `settings`
            actionCount
        };
        Action action = Wait;
        int board = 0;
        int number = 0;
        int name = 0;
        bool withNext = false; ///< the event loop does not run between this step and the next
    };

    /// What the application does when it gets a signal: one action, then the next `nestedSteps` steps of the schedule
    /// in nested event loops.
    struct Reaction
    {
        Step::Action action = Step::Wait; ///< Wait: no action
        bool onSameBoard = true; ///< true: acts on the board that the signal is about; false: acts on `board`
        int board = 0;
        int nestedSteps = 0;
    };

    QVector<Board> boards;
    QVector<Settings> settings; ///< the first entry is for the start, each later entry for one Configure
    QVector<Step> steps;
    QVector<Reaction> reactions; ///< for each signal of the watch, in order, the reaction; later signals: none
    /// For each payload from a found board, in order, the reaction. The application does not react to later payloads.
    QVector<Reaction> readReactions;

    /// Returns the schedule as text that people can read.
    QString toString() const;
};

/// Returns a random schedule. The same seed gives the same schedule on every machine.
WatchSchedule randomWatchSchedule(quint32 seed);

/// Returns a shorter and simpler schedule for which `fails` still returns true.
WatchSchedule shortestWatchSchedule(WatchSchedule schedule, const std::function<bool(const WatchSchedule &)> &fails);

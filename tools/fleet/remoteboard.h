#pragma once

#include <QDateTime>
#include <QString>
#include <QStringList>

namespace JwFleet {

/// A machine whose boards are on a broker.
struct Machine
{
    enum State {
        NoNews, ///< since the newest connection to the broker, no message told the state of the machine
        Online,
        Offline, ///< the bridge of the machine has no connection to the broker
    };

    QString host; ///< name of the machine in the topics
    State state = NoNews;
};

/// A board of a machine. A RemoteBoard is a copy of the data at one moment.
struct RemoteBoard
{
    QString host; ///< name of the board's machine
    QString id; ///< identifies the board on its machine, see JwDevice::Board::id
    // The texts below are those of the topic "state". They are empty if they are not known.
    QString type; ///< for example "BoardA"
    QString portName;
    QString serialNumber;
    QString hardwareVersion;
    /// "ready", "lost" or "lent" as the bridge says, "offline" if the machine is offline, or "noNews" if there is no
    /// connection to the broker, or if the broker has not yet sent the state again.
    QString state;
    QString reason; ///< why the bridge lost the board, for example "cablePulled"
    QDateTime since; ///< when the bridge noted the state

    /// Returns whether the board can be used.
    bool isThere() const { return state == QLatin1String("ready"); }
    /// Returns why the board can't be used, as a word for programs.
    QString loss() const { return reason.isEmpty() ? state : reason; }
};

/// A candidate port of a machine, see the topic "ports".
struct RemotePort
{
    QString portName;
    QString state; ///< "ready", "probing", or why there is no board, as a word for programs
    QString summary; ///< the reason as a sentence
    QStringList advice;

    /// Returns whether the search ended without a board.
    bool isRefused() const { return state != QLatin1String("ready") && state != QLatin1String("probing"); }
};

/// Returns the full name of a board: "MACHINE/ID".
QString fullName(const RemoteBoard &board);
/// Returns a word for programs, for example "cablePulled", as words for people.
QString wordsOf(const QString &name);
/// Returns for people whether the board can be used, or why not.
QString stateText(const RemoteBoard &board);

} // namespace JwFleet

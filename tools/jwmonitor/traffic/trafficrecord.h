#pragma once

#include <QString>
#include <QtGlobal>

namespace JwMonitor {

enum class Direction { Received, Sent };

/// The progress of a sent payload. The model changes it only to a later value of this list.
enum class Transfer {
    None, ///< the payload was received, not sent
    Waiting, ///< the port still has bytes of the payload that the system has not taken
    Taken, ///< the system took all bytes of the payload from the port
    Transferred, ///< the Communicator reported the payload as transferred
    Lost, ///< the payload still waited when the board was lost or closed
    Written, ///< the bridge of another machine wrote the payload to the board
    Failed, ///< the bridge of another machine reported an error, or nothing
};

/// A payload that was received from a board or sent to a board.
struct TrafficRecord
{
    qint64 timeUs; ///< microseconds since the epoch
    QString port;
    Direction direction;
    QString payload; ///< the whole sentence, with its line end
    uint id; ///< the Communicator's id of the payload; 0 if the payload arrived before BoardTraffic existed
    Transfer transfer = Transfer::None; ///< the model sets and updates this member
    QString board = QString(); ///< JwDevice::Board::id; empty if not known

    /// Identifies the board, also if it comes back on another port.
    const QString &key() const { return board.isEmpty() ? port : board; }
};

} // namespace JwMonitor

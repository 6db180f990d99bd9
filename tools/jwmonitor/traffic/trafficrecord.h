#pragma once

#include <QString>
#include <QtGlobal>

namespace JwMonitor {

enum class Direction { Received, Sent };

/// How far a sent payload came, as far as this program can know.
enum class Transfer {
    None, ///< the payload was received, not sent
    Waiting,
    Taken, ///< the system took all its bytes
    Transferred, ///< the Communicator reported it
    Lost, ///< it still waited when the board was lost or let go
};

/// A payload from or to a board.
struct TrafficRecord
{
    qint64 timeUs; ///< since the epoch
    QString port;
    Direction direction;
    QString payload; ///< the whole sentence, with its line end
    uint id; ///< of the Communicator; 0 if not known
    Transfer transfer = Transfer::None; ///< set by the model
};

} // namespace JwMonitor

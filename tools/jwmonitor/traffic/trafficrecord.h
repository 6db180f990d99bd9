#pragma once

#include <QString>
#include <QtGlobal>

namespace JwMonitor {

enum class Direction { Received, Sent };

/// How far a sent payload came, as far as one can tell.
enum class Transfer {
    None, ///< it was received
    Waiting,
    Taken, ///< by the system: nothing of it waits in the port
    Transferred, ///< so the Communicator said
    Lost, ///< it waited when the board went
};

/// One payload that passed.
struct TrafficRecord
{
    qint64 timeUs; ///< since the epoch
    QString port;
    Direction direction;
    QString payload; ///< the whole sentence, with its line end
    uint id; ///< the Communicator's; 0 when it is not known
    Transfer transfer = Transfer::None; ///< kept by the model
};

} // namespace JwMonitor

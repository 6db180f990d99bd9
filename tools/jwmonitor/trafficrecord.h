#pragma once

#include <QString>
#include <QtGlobal>

namespace JwMonitor {

enum class Direction { Received, Sent };

/// One payload that passed.
struct TrafficRecord
{
    qint64 timeUs; ///< since the epoch
    QString port;
    Direction direction;
    QString payload; ///< the whole sentence, with its line end
    uint id; ///< the Communicator's; 0 when it is not known
};

} // namespace JwMonitor

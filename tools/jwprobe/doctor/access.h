#pragma once

#include "obstacle.h"

#include <QList>

namespace JwProbe {

struct PortIdentity;

/// All that is seen to keep the port from opening, the worst first. Doesn't open it.
QList<Obstacle> findObstacles(const PortIdentity &port);

/// The first of findObstacles(), or one of the kind None.
Obstacle findObstacle(const PortIdentity &port);

/// The word that --help lists for an obstacle of this kind.
QString obstacleState(Obstacle::Kind kind);

/// What shows when the port is opened for an instant; nothing when it opens.
QList<Obstacle> tryToOpen(const PortIdentity &port);

/// The other programs that have a port open which opens all the same.
QList<Obstacle> findSharers(const PortIdentity &port);

/// Why the port did not open a moment ago, with this QSerialPort::SerialPortError. Opens it for an instant when nothing
/// else tells.
Obstacle explainOpenError(const PortIdentity &port, int openError);

} // namespace JwProbe

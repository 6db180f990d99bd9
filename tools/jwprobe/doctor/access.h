#pragma once

#include "obstacle.h"

#include <QList>

namespace JwProbe {

struct PortIdentity;

/// All obstacles that can be seen without opening the port, the worst first.
QList<Obstacle> findObstacles(const PortIdentity &port);

/// The first of findObstacles(), or an obstacle of the kind None.
Obstacle findObstacle(const PortIdentity &port);

/// The word for this kind in --json. --help lists the words.
QString obstacleState(Obstacle::Kind kind);

/// Opens the port for an instant. Returns the obstacles if it does not open.
QList<Obstacle> tryToOpen(const PortIdentity &port);

/// The other programs that have the port open although we can open it too.
QList<Obstacle> findSharers(const PortIdentity &port);

/// Why the port did not open a moment ago, when QSerialPort reported `openError`. Opens the port for an instant if
/// nothing else explains the error.
Obstacle explainOpenError(const PortIdentity &port, int openError);

} // namespace JwProbe

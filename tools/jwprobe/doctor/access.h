#pragma once

#include "obstacle.h"

#include <QList>

namespace JwProbe {

struct PortIdentity;

/// Returns all obstacles that can be found without opening the port. The worst obstacle is first.
QList<Obstacle> findObstacles(const PortIdentity &port);

/// Returns the first obstacle of findObstacles(). If there is none, the kind of the result is Obstacle::None.
Obstacle findObstacle(const PortIdentity &port);

/// Returns the word that the output of --json uses for this kind. The text of --help lists the words.
QString obstacleState(Obstacle::Kind kind);

/// Opens the port and closes it at once. Returns the obstacles if the port does not open.
QList<Obstacle> tryToOpen(const PortIdentity &port);

/// Returns one obstacle for each other program that has the port open. Call this for a port that this program could
/// open.
QList<Obstacle> findSharers(const PortIdentity &port);

/// Returns why QSerialPort just failed to open the port with `openError`. If nothing else explains the error, the
/// function opens the port for a moment.
Obstacle explainOpenError(const PortIdentity &port, int openError);

} // namespace JwProbe

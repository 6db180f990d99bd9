#pragma once

#include "obstacle.h"

#include <QList>

#include <optional>

namespace JwProbe {

struct PortIdentity;

/// Returns all obstacles that can be found without opening the port. If the port exists, missing permission comes
/// first, then the lock file.
QList<Obstacle> findObstacles(const PortIdentity &port);

/// Returns the first obstacle of findObstacles(). If there is none, the kind of the result is Obstacle::None.
Obstacle findObstacle(const PortIdentity &port);

/// Returns an obstacle if the udev property JWDEVICE_IGNORE of the port is set.
std::optional<Obstacle> findIgnore(const PortIdentity &port);

/// Returns the word for `kind` in the output of `jwprobe --json`. The text of `jwprobe --help` lists the words.
QString obstacleState(Obstacle::Kind kind);

/// Opens the port and closes it at once. Returns why the port does not open. Empty if the port opens.
QList<Obstacle> tryToOpen(const PortIdentity &port);

/// Returns one obstacle for each other program that has the port open. Call this only if tryToOpen() found no obstacle,
/// because the returned obstacles say that this program can open the port too.
QList<Obstacle> findSharers(const PortIdentity &port);

/// Returns why QSerialPort just failed to open the port. `openError` is the error of QSerialPort. If nothing else
/// explains the error, the function tries to open the port once more.
Obstacle explainOpenError(const PortIdentity &port, int openError);

} // namespace JwProbe

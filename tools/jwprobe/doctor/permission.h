#pragma once

#include "obstacle.h"

struct stat;

namespace JwProbe {

struct PortIdentity;

/// The obstacle of a port that this user may not read and write. The advice names groups, sessions and udev rules.
Obstacle noPermission(const PortIdentity &port, const struct stat &device);

} // namespace JwProbe

#pragma once

#include "obstacle.h"

struct stat;

namespace JwProbe {

struct PortIdentity;

/// Makes the obstacle for a port that this user may not read and write. The advice is about groups, sessions and udev
/// rules.
Obstacle noPermission(const PortIdentity &port, const struct stat &device);

} // namespace JwProbe

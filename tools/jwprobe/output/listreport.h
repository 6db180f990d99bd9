#pragma once

namespace JwProbe {

struct Options;

/// Prints every port of the system: whether a search probes it, and why. Opens no port. Returns the exit status.
int showList(const Options &options);

} // namespace JwProbe

#pragma once

namespace JwProbe {

struct Options;

/// Prints every port of the system, whether a search probes the port, and why. Opens no port. Returns the exit status.
int showList(const Options &options);

} // namespace JwProbe

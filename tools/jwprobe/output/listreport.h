#pragma once

namespace JwProbe {

struct Options;

/// Shows every port of the system on standard output: whether a search would probe it, and why not. Opens none. Returns
/// the exit status.
int showList(const Options &options);

} // namespace JwProbe

#pragma once

namespace JwProbe {

struct Options;

/// Prints the troubles of each candidate port, or of each port that --port names, and what helps. Returns the exit
/// status.
int showDoctor(const Options &options);

} // namespace JwProbe

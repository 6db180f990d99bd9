#pragma once

namespace JwProbe {

struct Options;

/// Shows on standard output what keeps each candidate port from opening, and what helps. Returns the exit status.
int showDoctor(const Options &options);

} // namespace JwProbe

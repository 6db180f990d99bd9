#pragma once

namespace JwProbe {

struct Options;

/// Prints for each candidate port why the port does not open, and what helps. Returns the exit status.
int showDoctor(const Options &options);

} // namespace JwProbe

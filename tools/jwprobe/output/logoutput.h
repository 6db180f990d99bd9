#pragma once

namespace JwProbe {

struct Options;

/// Sets up the log: standard error shows what --log, --traffic and --raw-traffic ask for.
void setUpLogOutput(const Options &options);

} // namespace JwProbe

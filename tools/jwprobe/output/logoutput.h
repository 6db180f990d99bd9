#pragma once

namespace JwProbe {

struct Options;

/// Sets up the log. Standard error then shows the records that --log, --traffic and --raw-traffic ask for.
void setUpLogOutput(const Options &options);

} // namespace JwProbe

#pragma once

namespace JwProbe {

struct Options;

/// Makes the log show on standard error what --log, --traffic and --raw-traffic ask for, and nothing else.
void setUpLogOutput(const Options &options);

} // namespace JwProbe

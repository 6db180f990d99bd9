#pragma once

#include <device/type.h>

#include <QList>
#include <QStringList>

namespace JwTools {

/// What to search for, and how.
struct SearchSettings
{
    static constexpr int maxDelay = 3600000; // ms, an hour
    static constexpr int maxRetries = 10000;

    QList<JwDevice::Type> types; ///< wanted, each once, in the order given
    QStringList ports; ///< names such as "ttyACM0", each once; empty: every port that looks like a board's
    int delay = 0; ///< ms before the ports are opened; counts only when BoardC is wanted
    int retries = 3; ///< how often a port is asked again
};

} // namespace JwTools

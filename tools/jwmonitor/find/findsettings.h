#pragma once

#include <device/type.h>

#include <QList>
#include <QStringList>

namespace JwMonitor {

/// What to look for, and how.
struct FindSettings
{
    static constexpr int maxDelay = 3600000; // ms, an hour
    static constexpr int maxRetries = 10000;

    QList<JwDevice::Type> types; ///< wanted, each once
    QStringList ports; ///< names such as "ttyACM0"; empty: every port that looks like a board's
    int delay = 0; ///< ms before the ports are opened; counts only when BoardC is wanted
    int retries = 3; ///< how often ports are asked again
};

} // namespace JwMonitor

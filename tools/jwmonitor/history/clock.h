#pragma once

#include <QtGlobal>

#include <chrono>

namespace JwMonitor {

/// Returns the current time in microseconds since the epoch, as the records of traffic and log store it.
inline qint64 microsecondsSinceEpoch()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

} // namespace JwMonitor

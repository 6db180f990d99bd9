#pragma once

#include <QtGlobal>

#include <chrono>

namespace JwMonitor {

/// The current time, in the form that records of traffic and log have.
inline qint64 microsecondsSinceEpoch()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

} // namespace JwMonitor

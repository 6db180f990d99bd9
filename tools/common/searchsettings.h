#pragma once

#include <device/type.h>

#include <QList>
#include <QStringList>

namespace JwTools {

/// The settings of a search for boards.
struct SearchSettings
{
    static constexpr int maxDelay = 3600000; // ms; one hour
    static constexpr int maxRetries = 10000;

    QList<JwDevice::Type> types; ///< the types to find, without repetition, in the user's order
    /// The names of the ports to try, for example "ttyACM0". If empty, a search tries all ports that
    /// JwDevice::isCandidate() accepts.
    QStringList ports;
    int delay = 0; ///< ms before the ports are opened; used only if `types` contains BoardC
    int retries = 3; ///< how many more times the ports are asked while a wanted board is missing
};

} // namespace JwTools

#pragma once

#include <device/type.h>

#include <QString>

namespace JwProbe {

/// What a payload says about the board that sent it.
struct Reply
{
    QString fault; ///< why the payload can't be read; empty if it can
    QString hardwareVersion; ///< empty if the payload has none
    JwDevice::Type type = JwDevice::Unknown;
};

/// Reads a payload as the library does. `payload` has no line end.
Reply readReply(const QString &payload);

} // namespace JwProbe

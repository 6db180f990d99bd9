#pragma once

#include <device/type.h>

#include <QString>

namespace JwProbe {

/// What a payload from a board says about the board.
struct Reply
{
    QString fault; ///< why it can't be read; empty when it can
    QString hardwareVersion; ///< empty when it carries none
    JwDevice::Type type = JwDevice::Unknown;
};

/// Reads a payload, given without its line end, as the library reads it.
Reply readReply(const QString &payload);

} // namespace JwProbe

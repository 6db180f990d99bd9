#pragma once

#include <device/type.h>

#include <QString>

namespace JwProbe {

/// What a payload from a board says about the board.
struct Reply
{
    QString text; ///< the payload, without its line end
    QString fault; ///< why it can't be read; empty when it can
    QString hardwareVersion; ///< null when it carries none
    JwDevice::Type type = JwDevice::Unknown;
};

Reply readReply(const QString &payload);

} // namespace JwProbe

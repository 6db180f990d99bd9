#pragma once

#include <device/type.h>

#include <QString>

namespace JwProbe {

/// The data that readReply() finds in a payload.
struct Reply
{
    QString fault; ///< why the payload can't be read; empty if it can be read
    QString hardwareVersion; ///< the board's hardware version; empty if the payload contains none
    JwDevice::Type type = JwDevice::Unknown;
};

/// Reads `payload`, which has no line end, with the library's parser.
Reply readReply(const QString &payload);

} // namespace JwProbe

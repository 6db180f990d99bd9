#pragma once

#include <jwprobe/search/portidentity.h>

#include <device/portreport.h>

#include <QString>
#include <QStringList>

namespace JwProbe {

/// Why a probed port holds no board that was found, and what the user can do about it.
struct Diagnosis
{
    PortIdentity port;
    JwDevice::PortReport report;
    QString state; ///< the word in --json; --help lists the words
    QString summary; ///< such as "its cable was pulled during the search"
    QStringList advice; ///< a line with blanks in front is a command; show it unchanged
};

Diagnosis diagnose(const PortIdentity &port, const JwDevice::PortReport &report);

} // namespace JwProbe

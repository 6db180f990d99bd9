#pragma once

#include <jwprobe/search/portidentity.h>

#include <device/portreport.h>

#include <QString>
#include <QStringList>

namespace JwProbe {

/// Says why no board was found on a port that the search tried, and what the user can do about it.
struct Diagnosis
{
    PortIdentity port;
    JwDevice::PortReport report;
    QString state; ///< a word for programs, printed with --json; --help lists the words
    QString summary; ///< the reason, for example "its cable was pulled during the search"
    QStringList advice; ///< lines of advice; a line that starts with blanks is a command and must be shown unchanged
};

Diagnosis diagnose(const PortIdentity &port, const JwDevice::PortReport &report);

} // namespace JwProbe

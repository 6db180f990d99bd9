#pragma once

#include <jwprobe/search/portidentity.h>

#include <device/portreport.h>

#include <QString>
#include <QStringList>

namespace JwProbe {

/// What became of a probed port that holds no board that was found, and what can be done about it.
struct Diagnosis
{
    PortIdentity port;
    JwDevice::PortReport report;
    QString state; ///< one of the words that --help lists
    QString summary; ///< such as "its cable was pulled during the search"
    QStringList advice; ///< lines with blanks in front are to be copied as they are
};

Diagnosis diagnose(const PortIdentity &port, const JwDevice::PortReport &report);

} // namespace JwProbe

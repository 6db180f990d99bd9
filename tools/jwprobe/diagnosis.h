#pragma once

#include "portidentity.h"

#include <device/type.h>

#include <QList>
#include <QString>
#include <QStringList>

namespace JwProbe {

struct PortRecord;

/// What became of a probed port that holds no board that was found, and what can be done about it.
struct Diagnosis
{
    PortIdentity port;
    QString state; ///< one of the words that --help lists
    QString summary; ///< such as "silent: no sentence came in 4 rounds of 400 ms"
    QStringList advice; ///< lines with blanks in front are to be copied as they are
};

/// `found` are the types found on other ports.
Diagnosis diagnose(const PortIdentity &port, const PortRecord &record, const QList<JwDevice::Type> &found);

} // namespace JwProbe

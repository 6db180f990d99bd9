#pragma once

#include <jwprobe/search/portidentity.h>

#include <QList>
#include <QString>
#include <QStringList>

namespace JwProbe {

/// One thing that keeps a port from opening, or may keep a board on it from being found.
struct Trouble
{
    QString kind; ///< one of the words that --help lists
    QString summary; ///< such as "held by another program: minicom (pid 4711)"
    QStringList advice; ///< what mends it; lines with blanks in front are to be copied as they are
};

/// Looks for everything that keeps a port from opening on Linux. Opens it for an instant when nothing else shows, and
/// changes nothing.
QList<Trouble> examine(const PortIdentity &port);

} // namespace JwProbe

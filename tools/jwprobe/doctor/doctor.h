#pragma once

#include <jwprobe/search/portidentity.h>

#include <QList>
#include <QString>
#include <QStringList>

namespace JwProbe {

/// A thing that keeps a port from opening, or that may keep a board on the port from being found.
struct Trouble
{
    QString kind; ///< the word in --json; --help lists the words
    QString summary; ///< such as "held by another program: minicom (pid 4711)"
    QStringList advice; ///< what helps; a line with blanks in front is a command; show it unchanged
};

/// Finds all troubles of a port. Opens the port for an instant if nothing else shows. Changes nothing.
QList<Trouble> examine(const PortIdentity &port);

} // namespace JwProbe

#pragma once

#include <jwprobe/search/portidentity.h>

#include <QList>
#include <QString>
#include <QStringList>

namespace JwProbe {

/// A reason why a port does not open, or why a board on the port may not be found.
struct Trouble
{
    QString kind; ///< a word for programs, printed with --json; --help lists the words
    QString summary; ///< for example "held by another program: minicom (pid 4711)"
    QStringList advice; ///< what helps; a line that starts with blanks is a command and must be shown unchanged
};

/// Returns all troubles of a port, and changes nothing. The function first looks for reasons why the port can't open.
/// If it finds none, it opens the port and closes it at once.
QList<Trouble> examine(const PortIdentity &port);

} // namespace JwProbe

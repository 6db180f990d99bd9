#pragma once

#include <QString>
#include <QStringList>

namespace JwProbe {

/// A reason why this user can't open a port. If the kind is Shared, the port opens, but another program has it open
/// too. If the kind is Ignored, the port may open, but searches leave it alone.
struct Obstacle
{
    enum Kind { None, NoSuchPort, NoPermission, Held, Shared, Ignored, Other };

    Kind kind = None;
    QString summary; ///< for example "held by another program: minicom (pid 4711)"
    QStringList advice; ///< what helps; a line that starts with blanks is a command and must be shown unchanged
};

} // namespace JwProbe

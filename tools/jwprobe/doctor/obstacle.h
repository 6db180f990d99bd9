#pragma once

#include <QString>
#include <QStringList>

namespace JwProbe {

/// A reason why this user can't open a port, or can't have the port alone.
struct Obstacle
{
    enum Kind { None, NoSuchPort, NoPermission, Held, Shared, Other };

    Kind kind = None;
    QString summary; ///< such as "held by minicom (pid 4711)"
    QStringList advice; ///< what helps; a line with blanks in front is a command; show it unchanged
};

} // namespace JwProbe

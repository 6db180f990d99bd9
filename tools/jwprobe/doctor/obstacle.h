#pragma once

#include <QString>
#include <QStringList>

namespace JwProbe {

/// What keeps this user from opening a port, or from having it for himself.
struct Obstacle
{
    enum Kind { None, NoSuchPort, NoPermission, Held, Shared, Other };

    Kind kind = None;
    QString summary; ///< such as "held by minicom (pid 4711)"
    QStringList advice; ///< what can be done; lines with blanks in front are to be copied as they are
};

} // namespace JwProbe

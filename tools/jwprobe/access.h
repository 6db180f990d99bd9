#pragma once

#include <QString>
#include <QStringList>

namespace JwProbe {

struct PortIdentity;

/// What keeps this user from opening a port.
struct Obstacle
{
    enum Kind { None, NoSuchPort, NoPermission, Held, Other };

    Kind kind = None;
    QString summary; ///< such as "held by minicom (pid 4711)"
    QStringList advice; ///< what can be done; lines with blanks in front are to be copied as they are
};

/// Looks for an obstacle without opening the port.
Obstacle findObstacle(const PortIdentity &port);

/// Why the port did not open a moment ago, with this QSerialPort::SerialPortError. Opens it for an instant when nothing
/// else tells.
Obstacle explainOpenError(const PortIdentity &port, int openError);

} // namespace JwProbe

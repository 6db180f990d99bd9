#pragma once

#include <fleet/remoteboard.h>

#include <QDateTime>
#include <QJsonObject>
#include <QString>

namespace JwProbe {

/// Something that happened to a machine, to a board of a machine, or to a port without a board.
struct FleetEvent
{
    enum Kind { Online, Offline, Found, Lost, Back, Forgotten, Payload, Refused };

    Kind kind;
    JwFleet::RemoteBoard board; ///< if Online or Offline, only host is set; if Refused, only host and portName
    QString text; ///< if Payload, the payload; if Refused, why no board was found
    QString reason; ///< if Offline or Refused, the reason as a word for programs
    bool isReceived = true; ///< if Payload, false if this program sent it
    qint64 seq = 0; ///< if Payload and received, its number on its machine
    QDateTime time = QDateTime::currentDateTime(); ///< if Payload and received, when the bridge received it
    double milliseconds = 0; ///< time since the program started
};

/// Returns the object that --json prints. --help describes it.
QJsonObject eventJson(const FleetEvent &event);

/// Returns the line that is printed if there is neither --json nor a table.
QString eventLine(const FleetEvent &event);

} // namespace JwProbe

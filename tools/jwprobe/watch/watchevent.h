#pragma once

#include <watch/board.h>

#include <QDateTime>
#include <QJsonObject>
#include <QString>

namespace JwProbe {

/// Something that happened to a board, or to a port without a board.
struct WatchEvent
{
    enum Kind { Found, Lost, Back, Payload, Refused };

    Kind kind;
    JwDevice::Board board; ///< if Refused, only id, portName, location and serialNumber are set
    QString text; ///< if Payload, the payload; if Refused, why no board was found
    QString reason; ///< if Refused, the reason as a word for programs
    QDateTime time = QDateTime::currentDateTime();
    double milliseconds = 0; ///< time since the watch started
};

/// Returns the object that --json prints. --help describes it.
QJsonObject eventJson(const WatchEvent &event);

/// Returns the line that is printed if there is neither --json nor a table.
QString eventLine(const WatchEvent &event);

/// Returns why a board was lost, for example "cable pulled".
QString lossText(JwDevice::Board::Loss loss);

} // namespace JwProbe

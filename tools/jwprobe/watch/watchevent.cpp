#include "watchevent.h"

#include <common/boardtype.h>
#include <common/printable.h>
#include <jwprobe/output/output.h>
#include <jwprobe/search/portidentity.h>

#include <cmath>

namespace JwProbe {

namespace {

QString eventName(WatchEvent::Kind kind)
{
    switch (kind) {
    case WatchEvent::Found:
        return QStringLiteral("found");
    case WatchEvent::Lost:
        return QStringLiteral("lost");
    case WatchEvent::Back:
        return QStringLiteral("back");
    case WatchEvent::Payload:
        return QStringLiteral("payload");
    case WatchEvent::Refused:
        break;
    }
    return QStringLiteral("refused");
}

QString boardText(const WatchEvent &event)
{
    const JwDevice::Board &board = event.board;
    QString text = QStringLiteral("%1, id %2").arg(JwTools::boardName(board.type), JwTools::printable(board.id));
    if (event.kind == WatchEvent::Lost)
        return text + QStringLiteral(", %1").arg(lossText(board.loss));
    if (!board.hardwareVersion.isEmpty())
        text += QStringLiteral(", hardware %1").arg(JwTools::printable(board.hardwareVersion));
    if (board.sharesSerialNumber)
        text += QStringLiteral(", another board has the same serial number");
    return text;
}

} // namespace

QJsonObject eventJson(const WatchEvent &event)
{
    const JwDevice::Board &board = event.board;
    QJsonObject object{{QStringLiteral("event"), eventName(event.kind)},
                       {QStringLiteral("time"), isoText(event.time)},
                       {QStringLiteral("milliseconds"), std::round(event.milliseconds * 10) / 10},
                       {QStringLiteral("id"), board.id},
                       {QStringLiteral("type"), orNull(JwTools::boardName(board.type))},
                       {QStringLiteral("port"), board.portName},
                       {QStringLiteral("location"), board.location},
                       {QStringLiteral("serialNumber"), orNull(board.serialNumber)},
                       {QStringLiteral("hardwareVersion"), orNull(board.hardwareVersion)}};
    switch (event.kind) {
    case WatchEvent::Lost:
        object[QLatin1String("reason")] = JwDevice::lossName(board.loss);
        Q_FALLTHROUGH();
    case WatchEvent::Found:
    case WatchEvent::Back:
        object[QLatin1String("sharesSerialNumber")] = board.sharesSerialNumber;
        break;
    case WatchEvent::Payload:
        object[QLatin1String("direction")] = directionName(true);
        object[QLatin1String("text")] = event.text;
        break;
    case WatchEvent::Refused:
        object[QLatin1String("reason")] = event.reason;
        object[QLatin1String("summary")] = event.text;
        break;
    }
    return object;
}

QString eventLine(const WatchEvent &event)
{
    if (event.kind == WatchEvent::Payload)
        return payloadLine(event.time, event.board.portName, true, event.text);
    return QStringLiteral("%1  %2  %3  %4\n")
        .arg(clockText(event.time), event.board.portName, eventName(event.kind),
             event.kind == WatchEvent::Refused ? event.text : boardText(event));
}

QString lossText(JwDevice::Board::Loss loss)
{
    switch (loss) {
    case JwDevice::Board::CablePulled:
        return QStringLiteral("cable pulled");
    case JwDevice::Board::NoAnswer:
        return QStringLiteral("no answer");
    default:
        return QStringLiteral("port failed"); // jwprobe causes none of the other losses
    }
}

} // namespace JwProbe

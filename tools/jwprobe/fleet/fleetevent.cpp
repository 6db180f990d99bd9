#include "fleetevent.h"

#include <common/printable.h>
#include <jwprobe/output/output.h>
#include <jwprobe/search/portidentity.h>

#include <cmath>

namespace JwProbe {

namespace {

QString eventName(FleetEvent::Kind kind)
{
    switch (kind) {
    case FleetEvent::Online:
        return QStringLiteral("online");
    case FleetEvent::Offline:
        return QStringLiteral("offline");
    case FleetEvent::Found:
        return QStringLiteral("found");
    case FleetEvent::Lost:
        return QStringLiteral("lost");
    case FleetEvent::Back:
        return QStringLiteral("back");
    case FleetEvent::Forgotten:
        return QStringLiteral("forgotten");
    case FleetEvent::Payload:
        return QStringLiteral("payload");
    case FleetEvent::Refused:
        break;
    }
    return QStringLiteral("refused");
}

QString detailText(const FleetEvent &event)
{
    const JwFleet::RemoteBoard &board = event.board;
    switch (event.kind) {
    case FleetEvent::Online:
        return QString();
    case FleetEvent::Offline:
        return JwFleet::wordsOf(event.reason);
    case FleetEvent::Refused:
        return JwTools::printable(event.text);
    default:
        break;
    }
    QString text = QStringLiteral("%1 on %2").arg(orDash(board.type), orDash(board.portName));
    if (event.kind == FleetEvent::Lost)
        text += QStringLiteral(", %1").arg(stateText(board));
    else if (!board.hardwareVersion.isEmpty())
        text += QStringLiteral(", hardware %1").arg(JwTools::printable(board.hardwareVersion));
    return text;
}

QString placeText(const FleetEvent &event)
{
    const JwFleet::RemoteBoard &board = event.board;
    switch (event.kind) {
    case FleetEvent::Online:
    case FleetEvent::Offline:
        return JwTools::printable(board.host);
    case FleetEvent::Refused:
        return JwTools::printable(board.host + QLatin1Char('/') + board.portName);
    default:
        return JwTools::printable(fullName(board));
    }
}

} // namespace

QJsonObject eventJson(const FleetEvent &event)
{
    const JwFleet::RemoteBoard &board = event.board;
    QJsonObject object{{QStringLiteral("event"), eventName(event.kind)},
                       {QStringLiteral("time"), isoText(event.time)},
                       {QStringLiteral("milliseconds"), std::round(event.milliseconds * 10) / 10},
                       {QStringLiteral("machine"), board.host}};
    if (event.kind == FleetEvent::Online)
        return object;
    if (event.kind == FleetEvent::Offline) {
        object[QLatin1String("reason")] = event.reason;
        return object;
    }
    object[QLatin1String("port")] = orNull(board.portName);
    if (event.kind == FleetEvent::Refused) {
        object[QLatin1String("reason")] = event.reason;
        object[QLatin1String("summary")] = event.text;
        return object;
    }
    object[QLatin1String("id")] = board.id;
    object[QLatin1String("type")] = orNull(board.type);
    object[QLatin1String("serialNumber")] = orNull(board.serialNumber);
    object[QLatin1String("hardwareVersion")] = orNull(board.hardwareVersion);
    if (event.kind == FleetEvent::Payload) {
        object[QLatin1String("direction")] = directionName(event.isReceived);
        object[QLatin1String("text")] = event.text;
        if (event.isReceived)
            object[QLatin1String("seq")] = event.seq;
    } else {
        object[QLatin1String("since")] = board.since.isValid() ? QJsonValue(isoText(board.since)) : QJsonValue();
    }
    if (event.kind == FleetEvent::Lost)
        object[QLatin1String("reason")] = board.loss();
    return object;
}

QString eventLine(const FleetEvent &event)
{
    if (event.kind == FleetEvent::Payload)
        return payloadLine(event.time, placeText(event), event.isReceived, event.text);
    const QString line = QStringLiteral("%1  %2  %3  %4")
                             .arg(clockText(event.time), placeText(event), eventName(event.kind), detailText(event));
    return line.trimmed() + QLatin1Char('\n');
}

} // namespace JwProbe

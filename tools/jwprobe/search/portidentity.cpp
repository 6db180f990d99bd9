#include "portidentity.h"

#include <device/boardrules.h>
#include <watch/portid.h>

#include <QSerialPortInfo>

namespace JwProbe {

PortIdentity PortIdentity::of(const QSerialPortInfo &info, const QString &id)
{
    PortIdentity port;
    port.name = info.portName();
    port.location = info.systemLocation();
    port.manufacturer = info.manufacturer();
    port.serialNumber = info.serialNumber();
    port.id = id;
    if (info.hasVendorIdentifier())
        port.vendorId = info.vendorIdentifier();
    if (info.hasProductIdentifier())
        port.productId = info.productIdentifier();
    port.isKnown = true;
    port.isCandidate = JwDevice::isCandidate(info);
    port.isIgnored = JwDevice::isIgnoredPort(info);
    return port;
}

QJsonObject PortIdentity::toJson() const
{
    return {{QStringLiteral("port"), name},
            {QStringLiteral("location"), location},
            {QStringLiteral("manufacturer"), orNull(manufacturer)},
            {QStringLiteral("serialNumber"), orNull(serialNumber)},
            {QStringLiteral("id"), orNull(id)},
            {QStringLiteral("vendorId"), orNull(idText(vendorId))},
            {QStringLiteral("productId"), orNull(idText(productId))}};
}

QString idText(const std::optional<quint16> &id)
{
    return id ? QStringLiteral("%1").arg(*id, 4, 16, QLatin1Char('0')) : QString();
}

QJsonValue orNull(const QString &text)
{
    return text.isEmpty() ? QJsonValue(QJsonValue::Null) : QJsonValue(text);
}

} // namespace JwProbe

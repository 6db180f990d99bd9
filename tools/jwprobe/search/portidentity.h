#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include <optional>

class QSerialPortInfo;

namespace JwProbe {

/// What the system knows of a port.
struct PortIdentity
{
    QString name; ///< such as "ttyACM0"
    QString location; ///< such as "/dev/ttyACM0"
    QString manufacturer;
    QString serialNumber;
    std::optional<quint16> vendorId;
    std::optional<quint16> productId;
    bool isKnown = false; ///< the system lists the port
    bool isCandidate = false; ///< a search without port names opens the port, see JwDevice::isCandidate()

    static PortIdentity of(const QSerialPortInfo &info);
    QJsonObject toJson() const;
};

/// The id as four hexadecimal digits; empty without an id.
QString idText(const std::optional<quint16> &id);

/// The text as JSON; null for an empty text.
QJsonValue orNull(const QString &text);

} // namespace JwProbe

#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include <optional>

class QSerialPortInfo;

namespace JwProbe {

/// What the system tells of a port.
struct PortIdentity
{
    QString name; ///< such as "ttyACM0"
    QString location; ///< such as "/dev/ttyACM0"
    QString manufacturer;
    QString serialNumber;
    std::optional<quint16> vendorId;
    std::optional<quint16> productId;
    bool isKnown = false; ///< the system lists it

    static PortIdentity of(const QSerialPortInfo &info);
    QJsonObject toJson() const;
};

/// Four hexadecimal digits; empty for none.
QString idText(const std::optional<quint16> &id);

/// JSON's null for an empty text.
QJsonValue orNull(const QString &text);

} // namespace JwProbe

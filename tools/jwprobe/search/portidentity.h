#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include <optional>

class QSerialPortInfo;

namespace JwProbe {

/// The data by which the system identifies a port.
struct PortIdentity
{
    QString name; ///< for example "ttyACM0"
    QString location; ///< for example "/dev/ttyACM0"
    QString manufacturer;
    QString serialNumber;
    QString id; ///< selects the board with --id, see JwDevice::Board::id; empty if the system does not list the port
    std::optional<quint16> vendorId;
    std::optional<quint16> productId;
    bool isKnown = false; ///< whether the system lists the port
    bool isCandidate = false; ///< whether a search without --port opens the port, see JwDevice::isCandidate()
    bool isIgnored = false; ///< whether udev's property JWDEVICE_IGNORE is set, see JwDevice::isIgnoredPort()

    static PortIdentity of(const QSerialPortInfo &info, const QString &id);
    QJsonObject toJson() const;
};

/// Returns the id as four hexadecimal digits. Empty if there is no id.
QString idText(const std::optional<quint16> &id);

/// Returns the text as a JSON string. If the text is empty, returns JSON null.
QJsonValue orNull(const QString &text);

} // namespace JwProbe

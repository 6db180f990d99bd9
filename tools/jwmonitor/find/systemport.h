#pragma once

#include <QMetaType>
#include <QString>
#include <QVector>

namespace JwMonitor {

/// A serial port in the system's list of ports.
struct SystemPort
{
    QString name; ///< for example "ttyACM0"
    QString usbId; ///< for example "0483:5740"; empty if the port has no USB id
    QString manufacturer;
    QString product;
    QString serialNumber;
};

inline bool operator==(const SystemPort &a, const SystemPort &b)
{
    return a.name == b.name && a.usbId == b.usbId && a.manufacturer == b.manufacturer && a.product == b.product
        && a.serialNumber == b.serialNumber;
}

} // namespace JwMonitor

Q_DECLARE_METATYPE(QVector<JwMonitor::SystemPort>)

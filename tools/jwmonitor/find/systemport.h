#pragma once

#include <QMetaType>
#include <QString>
#include <QVector>

namespace JwMonitor {

/// A serial port as the system lists it.
struct SystemPort
{
    QString name; ///< such as "ttyACM0"
    QString usbId; ///< such as "0483:5740"; empty where there is none
    QString manufacturer;
    QString product;
    QString serialNumber;
};

inline bool operator==(const SystemPort &a, const SystemPort &b)
{
    return a.name == b.name && a.usbId == b.usbId && a.manufacturer == b.manufacturer && a.product == b.product
        && a.serialNumber == b.serialNumber;
}

/// The name that the library takes, from one that people have at hand, such as "/dev/ttyACM0" or a link to it.
QString portName(const QString &name);

/// Whether port `a` stands before `b` in a list: ttyACM2 before ttyACM10.
bool isBefore(const QString &a, const QString &b);

} // namespace JwMonitor

Q_DECLARE_METATYPE(QVector<JwMonitor::SystemPort>)

#pragma once

#include <QObject>
#include <QSerialPortInfo>
#include <QString>
#include <QVector>

#include <memory>

namespace JwDevice {

/// A serial port that the system lists.
struct SystemPort
{
    QSerialPortInfo info;
    QString place; // name of the USB interface, for example "1-4.2:1.0"; empty if not known
    bool isIgnored = false; // whether udev's property JWDEVICE_IGNORE is "1"; see BoardWatch::setNeverOpened()
    QString instance; // this text changes when the port is pulled and plugged in again; empty if not known
    quint64 plug = 0; // this value changes when the port is pulled and plugged in again, and when its data changes
    quint64 change = 0; // this value changes when the system changes the port, for example its permissions

    /// Returns the name of the USB device, for example "1-4.2". All ports of one device have the same. Empty if not
    /// known.
    QString device() const { return place.section(QLatin1Char(':'), 0, 0); }
};

/// Returns `info` with the data that only the system knows. `plug` and `change` stay 0.
SystemPort systemPort(const QSerialPortInfo &info);

/// Returns whether two ports with one name are the same device with the same data. Ignores `plug` and `change`.
bool isSamePort(const SystemPort &port, const SystemPort &other);

/// Lists the serial ports, and reports when the list may have changed.
class PortSource : public QObject
{
    Q_OBJECT

public:
    /// Returns the ports of the system, in the order of QSerialPortInfo::availablePorts(). The list contains
    /// every change that changed() has reported.
    virtual QVector<SystemPort> list() = 0;

Q_SIGNALS:
    void changed();
};

/// Returns a source that gets events from the system. If the system reports no events, returns a source that lists the
/// ports every `pollInterval` ms.
std::unique_ptr<PortSource> makePortSource(int pollInterval);

} // namespace JwDevice

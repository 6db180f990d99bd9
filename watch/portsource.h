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
    bool isIgnored = false; // whether the system's settings say that no board is on the port
    quint64 plug = 0; // another value after the port was pulled and plugged in again
    quint64 change = 0; // another value after the system changed something about the port, for example its permissions

    /// Returns the name of the USB device, for example "1-4.2". All ports of one device have the same. Empty if not
    /// known.
    QString device() const { return place.section(QLatin1Char(':'), 0, 0); }
};

/// Returns `info` with the data that only the system knows. `plug` and `change` stay 0.
SystemPort systemPort(const QSerialPortInfo &info);

/// Lists the serial ports, and reports when the list may have changed.
class PortSource : public QObject
{
    Q_OBJECT

public:
    /// Returns the ports of the system, in the order of QSerialPortInfo::availablePorts(). The list is never older than
    /// the newest changed().
    virtual QVector<SystemPort> list() = 0;

Q_SIGNALS:
    void changed();
};

/// Returns the best source of this system. `pollInterval` in ms is used only where the system reports no events.
std::unique_ptr<PortSource> makePortSource(int pollInterval);

} // namespace JwDevice

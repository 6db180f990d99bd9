#pragma once

#include <QSerialPortInfo>
#include <QStringList>

/// Returns the names of all ports that the system lists now.
inline QStringList systemPorts()
{
    QStringList names;
    const auto ports = QSerialPortInfo::availablePorts();
    for (const QSerialPortInfo &port : ports)
        names.append(port.portName());
    return names;
}

#include "portid.h"

#include "boardids.h"

namespace JwDevice {

QStringList boardIds(const QList<QSerialPortInfo> &ports)
{
    BoardIds ids;
    QStringList texts;
    QVector<SystemPort> others;
    for (const QSerialPortInfo &info : ports) {
        const SystemPort port = systemPort(info);
        texts.append(ids.idOf(port, others).text);
        others.append(port);
    }
    return texts;
}

bool canHaveBoardId(const QSerialPortInfo &port, const QString &id)
{
    const SystemPort system = systemPort(port);
    return !id.isEmpty() && (id == BoardIds().idOf(system, {}).text || id == system.place || id == port.portName());
}

bool isIgnoredPort(const QSerialPortInfo &port)
{
    return systemPort(port).isIgnored;
}

} // namespace JwDevice

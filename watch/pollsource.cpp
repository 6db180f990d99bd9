#include "pollsource.h"

#include <QDateTime>
#include <QFileInfo>

namespace JwDevice {

namespace {

/// Returns a text that changes when another device appears under the same port name.
QString identityOf(const QSerialPortInfo &info)
{
    return QStringLiteral("%1:%2 %3 %4")
        .arg(info.vendorIdentifier())
        .arg(info.productIdentifier())
        .arg(info.serialNumber())
        .arg(QFileInfo(info.systemLocation()).metadataChangeTime().toMSecsSinceEpoch());
}

} // namespace

PollSource::PollSource(int interval)
{
    connect(&m_timer, &QTimer::timeout, this, &PollSource::changed);
    m_timer.start(interval);
}

QVector<SystemPort> PollSource::list()
{
    QVector<SystemPort> ports;
    QHash<QString, Seen> seen;
    const QList<QSerialPortInfo> infos = QSerialPortInfo::availablePorts();
    for (const QSerialPortInfo &info : infos) {
        const QString identity = identityOf(info);
        const auto known = m_seen.constFind(info.portName());
        const bool isKnown = known != m_seen.constEnd() && known->identity == identity;
        const quint64 plug = isKnown ? known->plug : ++m_plugs;
        seen.insert(info.portName(), {identity, plug});
        SystemPort port = systemPort(info);
        port.plug = plug;
        ports.append(port);
    }
    m_seen = seen;
    return ports;
}

} // namespace JwDevice

#include "pollsource.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

namespace JwDevice {

namespace {

/// Returns a text that changes when the system makes the port's node in /dev again. Empty where the system has no
/// nodes.
QString nodeOf(const QString &location)
{
#ifdef Q_OS_UNIX
    struct stat node;
    if (::stat(QFile::encodeName(location).constData(), &node) == 0)
        return QStringLiteral("%1 %2").arg(node.st_ino).arg(node.st_rdev);
#else
    Q_UNUSED(location)
#endif
    return QString();
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
        SystemPort port = systemPort(info);
        const QString node = nodeOf(info.systemLocation());
        const auto known = m_seen.constFind(info.portName());
        const bool isKnown = known != m_seen.constEnd() && known->node == node && isSamePort(known->port, port);
        port.plug = isKnown ? known->port.plug : ++m_plugs;
        // The time when the node's owner, group or permissions were changed.
        port.change = static_cast<quint64>(QFileInfo(info.systemLocation()).metadataChangeTime().toMSecsSinceEpoch());
        seen.insert(info.portName(), {port, node});
        ports.append(port);
    }
    m_seen = seen;
    return ports;
}

} // namespace JwDevice

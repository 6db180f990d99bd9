#include "boardtypes.h"

namespace JwMonitor {

QList<JwDevice::Type> boardTypes()
{
    return {JwDevice::BoardA, JwDevice::BoardB, JwDevice::BoardC};
}

QString boardName(JwDevice::Type type)
{
    switch (type) {
    case JwDevice::BoardA:
        return QStringLiteral("BoardA");
    case JwDevice::BoardB:
        return QStringLiteral("BoardB");
    case JwDevice::BoardC:
        return QStringLiteral("BoardC");
    case JwDevice::Unknown:
        break;
    }
    return QString();
}

JwDevice::Type boardType(const QString &name)
{
    const QList<JwDevice::Type> types = boardTypes();
    for (const JwDevice::Type type : types) {
        if (name.compare(boardName(type), Qt::CaseInsensitive) == 0)
            return type;
    }
    return JwDevice::Unknown;
}

} // namespace JwMonitor

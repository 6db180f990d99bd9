#include "boardtype.h"

#include <QStringList>

namespace JwProbe {

QList<JwDevice::Type> allTypes()
{
    return {JwDevice::BoardA, JwDevice::BoardB, JwDevice::BoardC};
}

QString typeName(JwDevice::Type type)
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
    return QStringLiteral("Unknown");
}

QString typeNames(const QList<JwDevice::Type> &types, const QString &conjunction)
{
    QStringList names;
    for (const JwDevice::Type type : types)
        names.append(typeName(type));
    if (names.size() < 2)
        return names.join(QString());
    const QString last = names.takeLast();
    return QStringLiteral("%1 %2 %3").arg(names.join(QLatin1String(", ")), conjunction, last);
}

std::optional<JwDevice::Type> typeFromName(const QString &name)
{
    const QList<JwDevice::Type> types = allTypes();
    for (const JwDevice::Type type : types) {
        if (typeName(type).compare(name, Qt::CaseInsensitive) == 0)
            return type;
    }
    return std::nullopt;
}

} // namespace JwProbe

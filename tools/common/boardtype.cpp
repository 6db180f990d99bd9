#include "boardtype.h"

#include <device/boardrules.h>

#include <QStringList>

namespace JwTools {

QString boardName(JwDevice::Type type)
{
    return JwDevice::boardTypes().contains(type) ? JwDevice::typeName(type) : QString();
}

QString boardNames(const QList<JwDevice::Type> &types, const QString &conjunction)
{
    QStringList names;
    for (const JwDevice::Type type : types)
        names.append(boardName(type));
    if (names.size() < 2)
        return names.join(QString());
    const QString last = names.takeLast();
    return QStringLiteral("%1 %2 %3").arg(names.join(QLatin1String(", ")), conjunction, last);
}

std::optional<JwDevice::Type> boardType(const QString &name)
{
    const QList<JwDevice::Type> types = JwDevice::boardTypes();
    for (const JwDevice::Type type : types) {
        if (name.compare(boardName(type), Qt::CaseInsensitive) == 0)
            return type;
    }
    return std::nullopt;
}

} // namespace JwTools

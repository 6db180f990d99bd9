#include "boardtype.h"

#include <QStringList>

namespace JwTools {

namespace {

struct BoardType
{
    JwDevice::Type type;
    QLatin1String name;
};

const BoardType table[] = {
    {JwDevice::BoardA, QLatin1String("BoardA")},
    {JwDevice::BoardB, QLatin1String("BoardB")},
    {JwDevice::BoardC, QLatin1String("BoardC")},
};

} // namespace

QList<JwDevice::Type> boardTypes()
{
    QList<JwDevice::Type> types;
    for (const BoardType &entry : table)
        types.append(entry.type);
    return types;
}

QString boardName(JwDevice::Type type)
{
    for (const BoardType &entry : table) {
        if (entry.type == type)
            return entry.name;
    }
    return QString();
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
    for (const BoardType &entry : table) {
        if (name.compare(entry.name, Qt::CaseInsensitive) == 0)
            return entry.type;
    }
    return std::nullopt;
}

} // namespace JwTools

#include "addressing.h"

#include <common/boardtype.h>
#include <common/printable.h>
#include <jwprobe/app/options.h>
#include <jwprobe/output/output.h>

#include <QStringList>

namespace JwProbe {

namespace {

bool isNamed(const JwFleet::RemoteBoard &board, const QString &name)
{
    return name == board.id || name == fullName(board);
}

} // namespace

bool isWanted(const JwFleet::RemoteBoard &board, const Options &options)
{
    if (!options.id.isEmpty() && !isNamed(board, options.id))
        return false;
    const std::optional<JwDevice::Type> type = JwTools::boardType(board.type);
    return options.anyType || (type && options.types.contains(*type));
}

std::optional<JwFleet::RemoteBoard> boardNamed(const QString &name, const QList<JwFleet::RemoteBoard> &boards,
                                               QString *error)
{
    QList<JwFleet::RemoteBoard> found;
    QStringList names;
    for (const JwFleet::RemoteBoard &board : boards) {
        if (isNamed(board, name)) {
            found.append(board);
            names.append(JwTools::printable(fullName(board)));
        }
    }
    if (found.isEmpty()) {
        *error = QStringLiteral("there is no board \"%1\": \"jwprobe --fleet\" shows the ids").arg(name);
    } else if (found.size() > 1) {
        *error = QStringLiteral("several boards have the id \"%1\": give one of %2")
                     .arg(name, names.join(QLatin1String(", ")));
    } else if (!found.first().isThere()) {
        *error = QStringLiteral("the board %1 is not there: %2 since %3")
                     .arg(names.first(), stateText(found.first()), sinceText(found.first().since));
    } else {
        return found.first();
    }
    return std::nullopt;
}

} // namespace JwProbe

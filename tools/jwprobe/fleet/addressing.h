#pragma once

#include <fleet/remoteboard.h>

#include <QList>
#include <QString>

#include <optional>

namespace JwProbe {

struct Options;

/// Returns whether the user wants to see this board, see --type and --id.
bool isWanted(const JwFleet::RemoteBoard &board, const Options &options);

/// Returns the board with the name "ID" or "MACHINE/ID". If there is no such board, if it can't be used now, or if
/// several machines have one, returns nothing and sets `error`.
std::optional<JwFleet::RemoteBoard> boardNamed(const QString &name, const QList<JwFleet::RemoteBoard> &boards,
                                               QString *error);

} // namespace JwProbe

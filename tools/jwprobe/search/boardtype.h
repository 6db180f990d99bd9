#pragma once

#include <device/type.h>

#include <QList>
#include <QString>

#include <optional>

namespace JwProbe {

/// All types of board, in the order of the library.
QList<JwDevice::Type> allTypes();

/// "BoardA"; "Unknown" for a type that is none of allTypes().
QString typeName(JwDevice::Type type);

/// The names of `types`, such as "BoardA, BoardB and BoardC", with `conjunction` before the last one.
QString typeNames(const QList<JwDevice::Type> &types, const QString &conjunction);

/// The type of that name, in any letter case.
std::optional<JwDevice::Type> typeFromName(const QString &name);

} // namespace JwProbe

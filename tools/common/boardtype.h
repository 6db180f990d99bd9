#pragma once

#include <device/type.h>

#include <QList>
#include <QString>

#include <optional>

namespace JwTools {

/// The library's name of a board type, such as "BoardA"; empty for a type that is none of JwDevice::boardTypes(). Names
/// are never translated.
QString boardName(JwDevice::Type type);

/// The names of `types`, such as "BoardA, BoardB and BoardC", with `conjunction` before the last one.
QString boardNames(const QList<JwDevice::Type> &types, const QString &conjunction);

/// The type of that name, in any letter case.
std::optional<JwDevice::Type> boardType(const QString &name);

} // namespace JwTools

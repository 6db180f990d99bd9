#pragma once

#include <device/type.h>

#include <QList>
#include <QString>

#include <optional>

namespace JwTools {

/// Returns the library's name of a board type, for example "BoardA". Empty if JwDevice::boardTypes() does not contain
/// the type. Names are never translated.
QString boardName(JwDevice::Type type);

/// Returns the names of `types` as one text, for example "BoardA and BoardC". The word `conjunction`, here "and",
/// stands before the last name.
QString boardNames(const QList<JwDevice::Type> &types, const QString &conjunction);

/// Returns the type that has this name, in upper or lower case. Empty if no type has the name.
std::optional<JwDevice::Type> boardType(const QString &name);

} // namespace JwTools

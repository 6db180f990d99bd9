#pragma once

#include <device/type.h>

#include <QList>
#include <QString>

namespace JwMonitor {

/// The types of board that can be wanted, in the library's order.
QList<JwDevice::Type> boardTypes();

/// A product name such as "BoardA", which is not translated; empty for what is none of boardTypes().
QString boardName(JwDevice::Type type);

/// The one of boardTypes() that has this name, in any letter case; else Unknown.
JwDevice::Type boardType(const QString &name);

} // namespace JwMonitor

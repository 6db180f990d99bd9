#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace JwBridge {

/// Reads a file with lines "NAME = VALUE". Returns a command-line option for each, for example "--prefix=lab". The
/// value "true" gives an option without a value, "false" gives none. Returns nothing and sets `error` if the file can't
/// be read or a line has another form.
std::optional<QStringList> readSettingsFile(const QString &name, QString *error);

} // namespace JwBridge

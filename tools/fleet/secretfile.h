#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace JwFleet {

/// Returns the content of a file. Returns nothing and sets `error` if the file can't be read, or if every user of the
/// system can read or change it.
std::optional<QByteArray> readSecretFile(const QString &name, QString *error);

} // namespace JwFleet

#pragma once

#include <QString>

#include <optional>

namespace JwProbe {

/// Makes a whole sentence of a typed line: adds the start flag "$", the checksum and the line end where they are
/// missing. On a fault nothing is returned and `error` is one line that says what is wrong. The line must not be blank.
std::optional<QString> frameSentence(const QString &line, QString *error);

} // namespace JwProbe

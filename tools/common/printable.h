#pragma once

#include <QString>

namespace JwTools {

/// Returns `text`, for example a payload, in a form that a terminal or a table can show. A carriage return becomes \r
/// and a line feed becomes \n. Other characters that are not printable become \xHH or \uHHHH.
QString printable(const QString &text);

} // namespace JwTools

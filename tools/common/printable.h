#pragma once

#include <QString>

namespace JwTools {

/// `text` from a device, made fit for a terminal or a table. A line end becomes \r and \n, another character that is
/// not printable becomes \xHH or \uHHHH.
QString printable(const QString &text);

} // namespace JwTools

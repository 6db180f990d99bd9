#pragma once

#include <QStringView>

namespace Nmea {

/// Reads `text` as QString::toInt() of Qt 5 does, also with Qt 6. Unlike toInt() of Qt 6, it skips the blanks
/// around the number that are not ASCII, takes the sign U+2212 as "-", and refuses a NUL after the number.
int readNumber(QStringView text, int base, bool *ok = nullptr);

} // namespace Nmea

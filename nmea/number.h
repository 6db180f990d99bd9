#pragma once

#include <QStringView>

namespace Nmea {

/// Reads a number as QString::toInt() of Qt 5 does, with either Qt. toInt() of Qt 6 does not skip blanks that are not
/// ASCII, does not take U+2212 as a minus sign, and accepts a NUL after the number.
int readNumber(QStringView text, int base, bool *ok = nullptr);

} // namespace Nmea

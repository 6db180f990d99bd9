#pragma once

#include <QString>

namespace JwTools {

/// Returns the name that the library uses for a port, for example "ttyACM0". `given` is what the user typed: the name,
/// the file "/dev/ttyACM0", or a link to the file, for example a link in /dev/serial/by-id. Tests
/// use another folder instead of /dev.
QString portName(const QString &given, const QString &deviceFolder = QStringLiteral("/dev/"));

/// Returns whether port `a` is before port `b` in a sorted list. Numbers within names are compared by value, so ttyACM2
/// is before ttyACM10.
bool isPortBefore(const QString &a, const QString &b);

} // namespace JwTools

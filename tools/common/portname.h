#pragma once

#include <QString>

namespace JwTools {

/// The name that the library takes, such as "ttyACM0". `given` is what a user has at hand: the name, the file
/// "/dev/ttyACM0", or a link to that file, such as one in /dev/serial/by-id.
QString portName(const QString &given);

/// Whether port `a` stands before port `b` in a list. Numbers within names are compared by value: ttyACM2 stands
/// before ttyACM10.
bool isPortBefore(const QString &a, const QString &b);

} // namespace JwTools

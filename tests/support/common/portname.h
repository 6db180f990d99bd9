#pragma once

#include <QString>

#include <unistd.h>

/// Returns a port name that no other running test program uses. Two programs with the same port name would disturb each
/// other, because the name of a port's lock file is made from the port name.
inline QString uniquePortName()
{
    static int number = 0;
    QString letters;
    for (int id = ::getpid(); letters.size() < 6; id /= 26)
        letters += QLatin1Char(static_cast<char>('A' + id % 26));
    return QStringLiteral("tty%1%2").arg(letters).arg(number++);
}

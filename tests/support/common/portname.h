#pragma once

#include <QString>

#include <unistd.h>

/// A port name that no other running test program uses, because lock files have the name of the port.
inline QString uniquePortName()
{
    static int number = 0;
    QString letters;
    for (int id = ::getpid(); letters.size() < 6; id /= 26)
        letters += QLatin1Char(static_cast<char>('A' + id % 26));
    return QStringLiteral("tty%1%2").arg(letters).arg(number++);
}

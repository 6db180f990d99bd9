#pragma once

#include <QString>

#include <unistd.h>

/// A name for a simulated port that no other test program that runs now uses: lock files go by the name.
inline QString uniquePortName()
{
    static int number = 0;
    QString letters;
    for (int id = ::getpid(); letters.size() < 6; id /= 26)
        letters += QLatin1Char(static_cast<char>('A' + id % 26));
    return QStringLiteral("tty%1%2").arg(letters).arg(number++);
}

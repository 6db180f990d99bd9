#pragma once

#include <QString>

#include <unistd.h>

/// Returns a port name that no other running test program uses. QSerialPort locks a port by a file with the port's name
/// in its file name, so two programs with the same port name would lock out each other.
inline QString uniquePortName()
{
    static int number = 0;
    QString letters;
    for (int id = ::getpid(); letters.size() < 6; id /= 26)
        letters += QLatin1Char(static_cast<char>('A' + id % 26));
    return QStringLiteral("tty%1%2").arg(letters).arg(number++);
}

#include "checksum.h"

#include <nmea/number.h>

#include <QString>

namespace Nmea {

namespace {

/// Returns the value of a hexadecimal digit. -1 if `digit` is no such digit.
int hexValue(QChar digit)
{
    const int code = digit.unicode();
    if (code >= '0' && code <= '9')
        return code - '0';
    if (code >= 'a' && code <= 'f')
        return code - 'a' + 10;
    if (code >= 'A' && code <= 'F')
        return code - 'A' + 10;
    return -1;
}

} // namespace

int calculateCrc(const QString &text, int length)
{
    const QStringView whole(text);
    if (length < 0)
        return 0;
    return xorOf(length == 0 || length > text.size() ? whole : whole.left(length));
}

int xorOf(QStringView text)
{
    int crc = 0;
    for (const QChar character : text)
        crc ^= character.unicode() <= 0xff ? character.unicode() : '?';
    return crc;
}

int readChecksum(QStringView text, bool *ok)
{
    // Nearly every checksum is two digits and a line end, so this case is handled without a copy of the text.
    if (text.size() == 4 && text.endsWith(QLatin1String("\r\n"))) {
        const int high = hexValue(text[0]);
        const int low = hexValue(text[1]);
        if (high >= 0 && low >= 0) {
            *ok = true;
            return high * 16 + low;
        }
    }
    return readNumber(text, 16, ok);
}

void appendChecksum(QString &sentence, int checksum)
{
    static const char digits[] = "0123456789abcdef";
    const auto value = static_cast<qint8>(checksum);
    if (value < 0) {
        sentence += QString::number(static_cast<qulonglong>(value), 16); // unsigned, because Qt 6 would write a "-"
        return;
    }
    sentence += QLatin1Char(digits[value / 16]);
    sentence += QLatin1Char(digits[value % 16]);
}

} // namespace Nmea

#include "checksum.h"

#include <QByteArray>
#include <QString>

#include <algorithm>

namespace Nmea {

int calculateCrc(const QString &text, int length)
{
    const QByteArray bytes = text.toLatin1();
    const int end = length == 0 ? bytes.size() : std::min(length, bytes.size());
    int crc = 0;
    for (int i = 0; i < end; ++i)
        crc ^= static_cast<uchar>(bytes[i]);
    return crc;
}

} // namespace Nmea

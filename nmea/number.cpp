#include "number.h"

#include <QString>

namespace Nmea {

int readNumber(QStringView text, int base, bool *ok)
{
    QString number = text.trimmed().toString();
    number.replace(QChar(0x2212), QLatin1Char('-'));
    if (number.contains(QChar::Null))
        number.clear(); // an empty text is no number
    return number.toInt(ok, base);
}

} // namespace Nmea

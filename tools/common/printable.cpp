#include "printable.h"

namespace JwTools {

QString printable(const QString &text)
{
    QString result;
    for (const QChar c : text) {
        const uint code = c.unicode();
        if (c == QLatin1Char('\r'))
            result += QLatin1String("\\r");
        else if (c == QLatin1Char('\n'))
            result += QLatin1String("\\n");
        else if (c.isPrint() || c.isSurrogate())
            result += c;
        else if (code <= 0xff)
            result += QStringLiteral("\\x%1").arg(code, 2, 16, QLatin1Char('0'));
        else
            result += QStringLiteral("\\u%1").arg(code, 4, 16, QLatin1Char('0'));
    }
    return result;
}

} // namespace JwTools

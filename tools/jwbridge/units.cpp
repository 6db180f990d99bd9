#include "units.h"

#include <QMap>

namespace JwBridge {

namespace {

std::optional<qint64> read(const QString &text, const QMap<QChar, qint64> &units)
{
    if (text.isEmpty() || !units.contains(text.back()))
        return std::nullopt;
    bool isNumber = false;
    const int number = text.chopped(1).toInt(&isNumber);
    return isNumber && number >= 0 ? std::optional<qint64>(number * units.value(text.back())) : std::nullopt;
}

} // namespace

std::optional<qint64> readSize(const QString &text)
{
    return read(text,
                {{QLatin1Char('K'), 1024}, {QLatin1Char('M'), 1024 * 1024}, {QLatin1Char('G'), 1024 * 1024 * 1024}});
}

std::optional<qint64> readTime(const QString &text)
{
    return read(text,
                {{QLatin1Char('s'), 1}, {QLatin1Char('m'), 60}, {QLatin1Char('h'), 3600}, {QLatin1Char('d'), 86400}});
}

} // namespace JwBridge

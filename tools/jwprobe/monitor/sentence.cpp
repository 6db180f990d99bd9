#include "sentence.h"

#include <nmea/checksum.h>

#include <algorithm>

namespace JwProbe {

std::optional<QString> frameSentence(const QString &line, QString *error)
{
    QString sentence = line.trimmed();
    const auto isAllowed = [](QChar c) { return c >= QLatin1Char(' ') && c <= QLatin1Char('~'); };
    if (!std::all_of(sentence.begin(), sentence.end(), isAllowed)) {
        *error = QStringLiteral("only printable ASCII characters can be sent");
        return std::nullopt;
    }
    if (!sentence.startsWith(QLatin1Char('$')) && !sentence.startsWith(QLatin1Char('!')))
        sentence.prepend(QLatin1Char('$'));
    if (sentence.indexOf(QLatin1Char('$'), 1) > 0) {
        *error = QStringLiteral("\"$\" can only stand at the start");
        return std::nullopt;
    }

    const int star = sentence.indexOf(QLatin1Char('*'));
    const QString body = sentence.mid(1, star < 0 ? -1 : star - 1);
    if (body.isEmpty()) {
        *error = QStringLiteral("there is no text in it");
        return std::nullopt;
    }
    const QString checksum = QStringLiteral("%1").arg(Nmea::calculateCrc(body, 0), 2, 16, QLatin1Char('0'));
    if (star < 0) {
        sentence += QLatin1Char('*') + checksum;
    } else if (sentence.mid(star + 1).compare(checksum, Qt::CaseInsensitive) != 0) {
        *error = QStringLiteral("the checksum must be *%1, not %2; without one it is added")
                     .arg(checksum, sentence.mid(star));
        return std::nullopt;
    }
    return sentence + QLatin1String("\r\n");
}

} // namespace JwProbe

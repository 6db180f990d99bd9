#include "remoteboard.h"

#include <common/printable.h>

namespace JwFleet {

QString fullName(const RemoteBoard &board)
{
    return board.host + QLatin1Char('/') + board.id;
}

QString wordsOf(const QString &name)
{
    QString words;
    for (const QChar c : name)
        words += c.isUpper() ? QLatin1Char(' ') + QString(c.toLower()) : QString(c);
    return JwTools::printable(words);
}

QString stateText(const RemoteBoard &board)
{
    if (board.state == QLatin1String("offline"))
        return QStringLiteral("machine offline");
    return wordsOf(board.loss());
}

} // namespace JwFleet

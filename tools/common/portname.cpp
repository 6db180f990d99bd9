#include "portname.h"

#include <QFileInfo>
#include <QLatin1String>
#include <QStringView>

namespace JwTools {

namespace {

constexpr int mostLinks = 40; // Linux also follows at most 40 symbolic links, because links in a circle never end

bool isDigit(QChar c)
{
    return c >= QLatin1Char('0') && c <= QLatin1Char('9');
}

// Removes the number at the start of `text`. Returns the digits of the number without leading zeros.
QStringView takeNumber(QStringView &text)
{
    int begin = 0;
    while (begin < text.size() && text[begin] == QLatin1Char('0'))
        ++begin;
    int end = begin;
    while (end < text.size() && isDigit(text[end]))
        ++end;
    const QStringView number = text.mid(begin, end - begin);
    text = text.mid(end);
    return number;
}

} // namespace

QString portName(const QString &given, const QString &deviceFolder)
{
    QString path = given.startsWith(QLatin1Char('/')) ? given : deviceFolder + given;
    for (int link = 0; link < mostLinks && QFileInfo(path).isSymLink(); ++link) {
        const QString target = QFileInfo(path).symLinkTarget();
        // A target outside /dev has no port name. The file of a simulated port is a link to such a target.
        if (!target.startsWith(deviceFolder))
            break;
        path = target;
    }
    return path.startsWith(deviceFolder) ? path.mid(deviceFolder.size()) : path;
}

bool isPortBefore(const QString &a, const QString &b)
{
    QStringView restA(a);
    QStringView restB(b);
    while (!restA.isEmpty() && !restB.isEmpty()) {
        if (isDigit(restA.first()) && isDigit(restB.first())) {
            const QStringView numberA = takeNumber(restA);
            const QStringView numberB = takeNumber(restB);
            if (numberA.size() != numberB.size())
                return numberA.size() < numberB.size();
            if (numberA != numberB)
                return numberA < numberB;
        } else {
            if (restA.first() != restB.first())
                return restA.first() < restB.first();
            restA = restA.mid(1);
            restB = restB.mid(1);
        }
    }
    if (restA.isEmpty() && restB.isEmpty())
        return a < b; // names that differ only in zeros, for example ttyS1 and ttyS01
    return restA.isEmpty();
}

} // namespace JwTools

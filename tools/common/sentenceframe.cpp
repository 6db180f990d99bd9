#include "sentenceframe.h"

#include "printable.h"

#include <nmea/checksum.h>

#include <algorithm>

namespace JwTools {

namespace {

// Returns whether `typed` is a right checksum of `body`. It is right if the library accepts it in a received sentence,
// or if it equals `written`, the checksum that the library writes. `typed` and `written` start with "*".
bool isRight(const QString &typed, const QString &written, const QString &body)
{
    bool isRead = false;
    const int read = Nmea::readChecksum(QStringView(typed).mid(1), &isRead);
    return (isRead && (read & 0xff) == Nmea::xorOf(body)) || typed.compare(written, Qt::CaseInsensitive) == 0;
}

} // namespace

SentenceFrame::SentenceFrame(const QString &line)
    : m_sentence(line.trimmed())
{
    if (m_sentence.isEmpty()) {
        m_fault = tr("Type a sentence, such as PJWVER.");
        return;
    }
    if (!m_sentence.startsWith(QLatin1Char('$')) && !m_sentence.startsWith(QLatin1Char('!')))
        m_sentence.prepend(QLatin1Char('$'));

    const auto star = m_sentence.indexOf(QLatin1Char('*'));
    const QString body = m_sentence.mid(1, star < 0 ? -1 : star - 1);
    const QString typedChecksum = star < 0 ? QString() : m_sentence.mid(star);
    QString checksum = QStringLiteral("*");
    Nmea::appendChecksum(checksum, Nmea::xorOf(body));
    if (star < 0)
        m_sentence += checksum;
    m_sentence += QLatin1String("\r\n");
    m_fault = findFault(body, typedChecksum, checksum);
}

QString SentenceFrame::findFault(const QString &body, const QString &typedChecksum, const QString &checksum) const
{
    const QString line = m_sentence.chopped(2);
    const auto isBeyondLatin1 = [](QChar c) { return c.unicode() > 0xff; };
    const auto beyondLatin1 = std::find_if(line.begin(), line.end(), isBeyondLatin1);
    if (beyondLatin1 != line.end())
        return tr("Take out \"%1\": boards take Latin-1 characters only.").arg(printable(*beyondLatin1));
    const auto isControl = [](QChar c) { return !c.isPrint(); };
    const auto control = std::find_if(line.begin(), line.end(), isControl);
    if (control != line.end())
        return tr("Take out the control character %1.").arg(printable(*control));
    if (body.isEmpty())
        return tr("Type an identifier after the start flag, such as $PJWVER.");
    if (body.contains(QLatin1Char('$')))
        return tr("Take the \"$\" out of the text: it can only stand at the start.");
    if (!typedChecksum.isEmpty() && !isRight(typedChecksum, checksum, body))
        return tr("The checksum is %1, not %2: leave it out and it is added.").arg(checksum, typedChecksum);
    if (m_sentence.size() > maxLength)
        return tr("Make it shorter: the sentence has %1 characters, and boards take at most %2.")
            .arg(m_sentence.size())
            .arg(maxLength);
    return QString();
}

} // namespace JwTools

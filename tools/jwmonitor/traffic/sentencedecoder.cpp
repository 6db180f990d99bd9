#include "sentencedecoder.h"

#include <device/sessioninit.h>
#include <nmea/checksum.h>
#include <nmea/exception.h>
#include <nmea/parserinit.h>

#include <algorithm>

namespace JwMonitor {

namespace {

const QLatin1Char fieldSeparator(',');
const QLatin1Char checksumDelimiter('*');

/// Reads the protected tables of the library's parser, so that SentenceDecoder uses the parser's names of fields.
class InitTables : public Nmea::ParserInit
{
public:
    QHash<QString, QStringList> receivedNames() { return names(initSentenceFormatsParse()); }
    QHash<QString, QStringList> sentNames() { return names(initSentenceFormatsBuild()); }

private:
    QHash<QString, QStringList> names(const QHash<int, QString> &formats)
    {
        const QHash<int, QString> identifiers = initSentenceIdentifiers();
        QHash<QString, QStringList> result;
        for (auto format = formats.begin(); format != formats.end(); ++format)
            result.insert(identifiers.value(format.key()), format->split(fieldSeparator));
        return result;
    }
};

/// Returns the text between the start flag and the checksum. Without a checksum, the text ends at the line end. Null if
/// there is no start flag.
QStringView bodyOf(const QString &payload)
{
    if (!payload.startsWith(QLatin1Char('$')) && !payload.startsWith(QLatin1Char('!')))
        return QStringView();
    auto end = payload.indexOf(checksumDelimiter);
    if (end < 0)
        end = payload.endsWith(QLatin1String("\r\n")) ? payload.size() - 2 : payload.size();
    return QStringView(payload).mid(1, end - 1);
}

} // namespace

SentenceDecoder::SentenceDecoder()
{
    InitTables tables;
    m_receivedNames = tables.receivedNames();
    m_sentNames = tables.sentNames();
}

Sentence SentenceDecoder::decode(const QString &payload, Direction direction) const
{
    Sentence sentence;
    const QStringView body = bodyOf(payload);
    if (body.isNull())
        return sentence;
    QStringList parts = body.toString().split(fieldSeparator);
    sentence.identifier = parts.takeFirst();
    for (QStringList::size_type i = 0; i < parts.size(); ++i)
        sentence.fields.append({fieldName(sentence.identifier, direction, i), parts[i]});
    sentence.checksum = checksum(payload);
    return sentence;
}

QString SentenceDecoder::fault(const QString &payload) const
{
    Nmea::ParserInit parser;
    parser.init();
    JwDevice::SessionInit session;
    try {
        parser.parse(&session, payload);
    } catch (const Nmea::Exception &exception) {
        return exception.message();
    }
    return QString();
}

QString SentenceDecoder::fieldName(const QString &identifier, Direction direction, QStringList::size_type index) const
{
    const QStringList names = (direction == Direction::Received ? m_receivedNames : m_sentNames).value(identifier);
    const QString name = names.value(index);
    return name.isEmpty() ? QString::number(index + 1) : name;
}

QStringView SentenceDecoder::identifier(const QString &payload)
{
    const QStringView body = bodyOf(payload);
    return body.left(std::find(body.begin(), body.end(), fieldSeparator) - body.begin());
}

// Repeats the rules of the library's parser, so that parser and decoder judge a checksum in the same way.
ChecksumState SentenceDecoder::checksum(const QString &payload)
{
    const auto delimiter = payload.indexOf(checksumDelimiter);
    if (delimiter < 0)
        return ChecksumState::Missing;
    bool ok = false;
    const int checksum = Nmea::readChecksum(QStringView(payload).mid(delimiter + 1), &ok);
    const int expected = Nmea::calculateCrc(bodyOf(payload).toString(), 0);
    return ok && (checksum & 0xff) == expected ? ChecksumState::Good : ChecksumState::Bad;
}

QStringView SentenceDecoder::field(const QString &payload, int index)
{
    const QStringView body = bodyOf(payload);
    auto begin = std::find(body.begin(), body.end(), fieldSeparator);
    for (; index > 0 && begin != body.end(); --index)
        begin = std::find(begin + 1, body.end(), fieldSeparator);
    if (begin == body.end())
        return QStringView();
    const auto end = std::find(begin + 1, body.end(), fieldSeparator);
    return body.mid(begin + 1 - body.begin(), end - begin - 1);
}

} // namespace JwMonitor

#pragma once

#include <nmea/checksum.h>
#include <nmea/exception.h>
#include <nmea/sentenceplan.h>

#include <QChar>
#include <QHash>
#include <QString>
#include <QStringList>
#include <QStringView>
#include <QtGlobal>

#include <algorithm>
#include <utility>

namespace Nmea {

QT_WARNING_PUSH // no warning about the virtual destructor, which is missing on purpose
QT_WARNING_DISABLE_GCC("-Wnon-virtual-dtor")
QT_WARNING_DISABLE_CLANG("-Wnon-virtual-dtor")

/**
 * Parses and builds sentences in the style of NMEA 0183 with tables. Derive your parser from this class, return your
 * tables from the functions init...(), and call init() once after construction.
 *
 * \verbatim
 *  1 2      3       4    5
 *  | |      |       |    |
 *  $ PJWVER ,a,b,c  *hh  <CR><LF>
 *
 *  1 start flag: "$"; a received sentence may also begin with "!"
 *  2 identifier; in a received sentence at least 3 characters
 *  3 fields, each after a ","; a sentence without fields has no ","
 *  4 checksum, see calculateCrc(); a received sentence without a checksum is accepted
 *  5 line end
 * \endverbatim
 *
 * A received sentence may have at most 74 characters, with start flag and line end. This is the limit of the boards;
 * NMEA 0183 itself allows 82. Building does not check the length.
 *
 * A format lists the names of the fields in the order of the sentence, separated by ",", for example
 * "hwversion,v1,v2,v3". When a sentence is parsed, an empty name skips a field. When a sentence is built, an empty name
 * adds nothing, not even a separator.
 *
 * Every failure throws an Exception. The documentation of each function lists the texts; %1 stands for the unknown
 * identifier or field name. Fields before the fault may then already be stored, but the parser does not change. A
 * delegate is your function that stores or returns one field; its exceptions pass through. While a parser parses or
 * builds, its delegates and virtual functions must not change the parser or the caller's arguments. Before init(),
 * parsing throws "Undefined sentence ID: %1" and building throws "No formatter found".
 *
 * Use a parser in one thread only. The class has no virtual destructor: never delete a parser through a pointer to it.
 *
 * \tparam Session the class of the records that the delegates fill and read
 */
template <typename Session>
class ParserAbstract
{
public:
    /// A function that stores the text `value` of the field `name` in `session`. The parser ignores the returned value.
    using ParserDelegate = bool (*)(Session *session, const QString &value, const QString &name);
    /// A function that returns the text of the field `name` in `session`.
    using BuilderDelegate = QString (*)(const Session *session, const QString &name);

    ParserAbstract() = default;
    ParserAbstract(const ParserAbstract &) = default;
    ParserAbstract &operator=(const ParserAbstract &) = default;
    ~ParserAbstract();

    /// Fills the tables with the results of the virtual functions init...(). Later calls do nothing. Returns true.
    bool init();

    /**
     * Fills `session` from one whole sentence. Returns true. Makes tests in this order, and throws at the first that
     * fails: "Start flag not found", "Sentence too long", "Bad end", "Checksum field" (more than one "*"), "Checksum
     * misspelled", "CRC calculation failed", then the texts of parseTrimmed(). The checksum is read as a hexadecimal
     * number, like QString::toInt(), and only its low byte is compared. Without a "*", the last field contains the line
     * end.
     */
    bool parseSentence(Session *session, const QString &sentence);
    /**
     * Replaces `out` with the whole sentence whose key is `sentenceId`. The values of the fields are in `session`.
     * Returns true. Throws "No formatter found", "Sentence ID not found", and the texts of buildParameters(). If it
     * throws, `out` does not change.
     *
     * A checksum of 0x80 or more is written with 16 digits. Only characters beyond ASCII lead to such a checksum.
     */
    bool buildSentence(const Session *session, int sentenceId, QString &out);

    /// Removes the start flag from `sentence` and splits the rest at the "*" into `body` and `checksum`. Without a "*",
    /// `checksum` becomes null. Throws "Checksum field" if there is more than one "*".
    void splitSentence(QString &sentence, QString &body, QString &checksum);
    /// Parses `body`: the identifier and the fields, without start flag and checksum. Throws "Wrong sentence
    /// description length" if the identifier has fewer than 3 characters, and the texts of parseListed().
    bool parseTrimmed(Session *session, const QString &body);
    /// Parses a sentence that is already split. `sentenceId` is the text of the identifier, and `params` are the texts
    /// of the fields. Throws "Undefined sentence ID: %1", "Format not found for sentence ID", and the texts of
    /// parseParameters().
    bool parseListed(Session *session, const QString &sentenceId, const QStringList &params);
    /// Stores each text of `params` in the field whose name is at the same place in `format`. There may be fewer texts
    /// than names. Throws "Specified parameters list and formatting string incompatible" (more texts than names), and
    /// "Unknown format token in sentence formatter".
    bool parseParameters(Session *session, const QStringList &params, const QString &format);
    /// Returns the texts of the fields that `format` names, with separators between them. Throws "Unknown format token
    /// in sentence formatter: %1", where %1 is the name without a delegate.
    QString buildParameters(const Session *session, const QString &format);

protected:
    /// Returns the table from sentence key to identifier. All identifiers must differ. No key may be m_undefinedId.
    virtual QHash<int, QString> initSentenceIdentifiers();
    /// Not used: this class never calls this function, so you need not override it. Returns an empty table.
    virtual QHash<int, QString> initTalkerIdentifiers();
    /// Returns the table from sentence key to the format of a received sentence. A sentence without a format can't be
    /// parsed.
    virtual QHash<int, QString> initSentenceFormatsParse();
    /// Returns the table from sentence key to the format of a built sentence. A sentence without a format can't be
    /// built.
    virtual QHash<int, QString> initSentenceFormatsBuild();
    /// Returns the table from field name to delegate, for every name in the formats of received sentences.
    virtual QHash<QString, ParserDelegate> initParserDelegates();
    /// Returns the table from field name to delegate, for every name in the formats of built sentences.
    virtual QHash<QString, BuilderDelegate> initBuilderDelegates();
    /// Called when the sentence with the key `sentenceId` was recognised, so that a derived class can store the key in
    /// `session`. Does nothing in this class.
    virtual void setSentenceId(Session *session, int sentenceId);

    QHash<int, QString> m_sentenceIds; ///< the table from initSentenceIdentifiers()
    QHash<int, QString> m_formatsParse; ///< the table from initSentenceFormatsParse()
    QHash<int, QString> m_formatsBuild; ///< the table from initSentenceFormatsBuild()
    QChar m_startFlag = QLatin1Char('$'); ///< first character of every built sentence
    QChar m_startFlagAlt = QLatin1Char('!'); ///< another first character that a received sentence may have
    QString m_lineEnd = QStringLiteral("\r\n"); ///< last characters of every sentence
    int m_maxLength = 74; ///< largest length of a received sentence, with start flag and line end
    QChar m_checksumDelimiter = QLatin1Char('*'); ///< character between the fields and the checksum
    QChar m_fieldSeparator = QLatin1Char(','); ///< character before each field
    QChar m_formatSeparator = QLatin1Char(','); ///< character between the names of a format
    int m_reservedId = -9999; ///< a number that is no key of a sentence; this class does not use it
    int m_undefinedId = -9999; ///< the key that an identifier gets if the table does not contain it
    bool m_initialized = false; ///< whether init() was called
    QHash<QString, ParserDelegate> m_parserDelegates; ///< the table from initParserDelegates()
    QHash<QString, BuilderDelegate> m_builderDelegates; ///< the table from initBuilderDelegates()
    /// Exchanges the formats, so that a derived parser can act as the board. If true, the parser uses the formats of
    /// built sentences to parse, and the formats of received sentences to build.
    bool m_reversed = false;

private:
    using SentenceFields = typename SentencePlan<Session>::Fields;

    const SentencePlan<Session> &currentSentencePlan();
    bool parseSentenceBody(Session *session, QStringView body);
    template <typename NextParam>
    bool parseSentenceFields(Session *session, QStringView identifier, QStringList::size_type count,
                             NextParam nextParam);
    template <typename NextParam>
    bool storeSentenceFields(Session *session, const SentenceFields &fields, QStringList::size_type count,
                             NextParam nextParam);
    void appendSentenceFields(QString &out, const Session *session, const SentenceFields &fields);

    SentencePlan<Session> m_sentencePlan;
};

QT_WARNING_POP

template <typename Session>
ParserAbstract<Session>::~ParserAbstract()
{
    m_sentenceIds.clear();
    m_formatsBuild.clear();
    m_formatsParse.clear();
    m_parserDelegates.clear();
    m_builderDelegates.clear();
}

template <typename Session>
bool ParserAbstract<Session>::init()
{
    if (m_initialized)
        return true;
    m_sentenceIds = initSentenceIdentifiers();
    m_formatsParse = initSentenceFormatsParse();
    m_formatsBuild = initSentenceFormatsBuild();
    m_parserDelegates = initParserDelegates();
    m_builderDelegates = initBuilderDelegates();
    currentSentencePlan();
    m_initialized = true;
    return true;
}

template <typename Session>
const SentencePlan<Session> &ParserAbstract<Session>::currentSentencePlan()
{
    m_sentencePlan.update(m_sentenceIds, m_formatsParse, m_formatsBuild, m_parserDelegates, m_builderDelegates,
                          m_formatSeparator);
    return m_sentencePlan;
}

template <typename Session>
bool ParserAbstract<Session>::parseSentence(Session *session, const QString &sentence)
{
    if (!sentence.startsWith(m_startFlag) && !sentence.startsWith(m_startFlagAlt))
        throw Exception(QStringLiteral("Start flag not found"));
    if (m_maxLength < sentence.size())
        throw Exception(QStringLiteral("Sentence too long"));
    if (!sentence.endsWith(m_lineEnd))
        throw Exception(QStringLiteral("Bad end"));

    const QStringView rest = QStringView(sentence).mid(1);
    const auto delimiter = std::find(rest.begin(), rest.end(), m_checksumDelimiter);
    const QStringView checksum = delimiter == rest.end() ? QStringView() : QStringView(delimiter + 1, rest.end());
    if (std::find(checksum.begin(), checksum.end(), m_checksumDelimiter) != checksum.end())
        throw Exception(QStringLiteral("Checksum field"));
    const QStringView body = checksum.isEmpty() ? rest : QStringView(rest.begin(), delimiter);
    if (!checksum.isEmpty()) {
        bool ok = false;
        const int expected = readChecksum(checksum, &ok);
        if (!ok)
            throw Exception(QStringLiteral("Checksum misspelled"));
        if ((expected & 0xff) != xorOf(body))
            throw Exception(QStringLiteral("CRC calculation failed"));
    }
    return parseSentenceBody(session, body);
}

template <typename Session>
bool ParserAbstract<Session>::buildSentence(const Session *session, int sentenceId, QString &out)
{
    const SentencePlan<Session> &plan = currentSentencePlan();
    const auto &formats = m_reversed ? plan.fieldsParse() : plan.fieldsBuild();
    const auto format = formats.constFind(sentenceId);
    if (format == formats.constEnd())
        throw Exception(QStringLiteral("No formatter found"));
    const auto identifier = m_sentenceIds.constFind(sentenceId);
    if (identifier == m_sentenceIds.constEnd())
        throw Exception(QStringLiteral("Sentence ID not found"));

    QString sentence;
    sentence.reserve(m_maxLength);
    sentence += m_startFlag;
    sentence += *identifier;
    const auto withoutFields = sentence.size();
    sentence += m_fieldSeparator;
    appendSentenceFields(sentence, session, *format);
    if (sentence.size() == withoutFields + 1) // no fields, or one empty field: remove the separator
        sentence.chop(1);
    sentence += m_checksumDelimiter;
    const QStringView checked = QStringView(sentence).mid(1);
    // The checksum does not include the delimiter. But if there is neither an identifier nor a field, the checksum is
    // computed from the delimiter alone.
    appendChecksum(sentence, xorOf(checked.size() > 1 ? checked.chopped(1) : checked));
    sentence += m_lineEnd;
    out = std::move(sentence);
    return true;
}

template <typename Session>
void ParserAbstract<Session>::splitSentence(QString &sentence, QString &body, QString &checksum)
{
    sentence.remove(0, 1);
    if (!sentence.contains(m_checksumDelimiter)) {
        body = sentence;
        checksum = QString();
        return;
    }
    const QStringList parts = sentence.split(m_checksumDelimiter);
    if (parts.size() != 2)
        throw Exception(QStringLiteral("Checksum field"));
    body = parts[0];
    checksum = parts[1];
}

template <typename Session>
bool ParserAbstract<Session>::parseTrimmed(Session *session, const QString &body)
{
    return parseSentenceBody(session, body);
}

template <typename Session>
bool ParserAbstract<Session>::parseListed(Session *session, const QString &sentenceId, const QStringList &params)
{
    return parseSentenceFields(session, sentenceId, params.size(),
                               [next = params.begin()]() mutable -> const QString & { return *next++; });
}

template <typename Session>
bool ParserAbstract<Session>::parseParameters(Session *session, const QStringList &params, const QString &format)
{
    return storeSentenceFields(session, currentSentencePlan().fieldsOf(format), params.size(),
                               [next = params.begin()]() mutable -> const QString & { return *next++; });
}

template <typename Session>
QString ParserAbstract<Session>::buildParameters(const Session *session, const QString &format)
{
    QString fields;
    appendSentenceFields(fields, session, currentSentencePlan().fieldsOf(format));
    return fields;
}

template <typename Session>
bool ParserAbstract<Session>::parseSentenceBody(Session *session, QStringView body)
{
    const auto *const end = body.end();
    const auto *at = std::find(body.begin(), end, m_fieldSeparator);
    const QStringView identifier(body.begin(), at);
    if (identifier.size() < 3)
        throw Exception(QStringLiteral("Wrong sentence description length"));

    // `param` contains the text of one field, then of the next. If the delegate keeps no copy of the text, the next
    // text uses the same memory. This saves time at all fields that are numbers, because their delegates keep no copy.
    QString param;
    const auto nextParam = [&]() -> const QString & {
        const auto *const begin = at + 1;
        at = std::find(begin, end, m_fieldSeparator);
        const auto size = static_cast<int>(at - begin);
        if (param.isDetached())
            param.setUnicode(begin, size);
        else
            param = QString(begin, size);
        return param;
    };
    return parseSentenceFields(session, identifier, static_cast<int>(std::count(at, end, m_fieldSeparator)), nextParam);
}

template <typename Session>
template <typename NextParam>
bool ParserAbstract<Session>::parseSentenceFields(Session *session, QStringView identifier,
                                                  QStringList::size_type count, NextParam nextParam)
{
    const SentencePlan<Session> &plan = currentSentencePlan();
    const int key = plan.key(identifier, m_undefinedId);
    if (key == m_undefinedId)
        throw Exception(QStringLiteral("Undefined sentence ID: %1").arg(identifier));
    const auto &formats = m_reversed ? plan.fieldsBuild() : plan.fieldsParse();
    const auto format = formats.constFind(key);
    if (format == formats.constEnd())
        throw Exception(QStringLiteral("Format not found for sentence ID"));
    setSentenceId(session, key);
    return storeSentenceFields(session, *format, count, nextParam);
}

template <typename Session>
template <typename NextParam>
bool ParserAbstract<Session>::storeSentenceFields(Session *session, const SentenceFields &fields,
                                                  QStringList::size_type count, NextParam nextParam)
{
    if (fields.size() < count)
        throw Exception(QStringLiteral("Specified parameters list and formatting string incompatible"));
    for (QStringList::size_type i = 0; i < count; ++i) {
        const QString &param = nextParam();
        const auto &field = fields[i];
        if (field.name.isEmpty())
            continue;
        if (!field.parse)
            throw Exception(QStringLiteral("Unknown format token in sentence formatter"));
        field.parse(session, param, field.name);
    }
    return true;
}

template <typename Session>
void ParserAbstract<Session>::appendSentenceFields(QString &out, const Session *session, const SentenceFields &fields)
{
    for (int i = 0; i < fields.size(); ++i) {
        const auto &field = fields[i];
        if (field.name.isEmpty())
            continue;
        if (!field.build)
            throw Exception(QStringLiteral("Unknown format token in sentence formatter: %1").arg(field.name));
        out += field.build(session, field.name);
        if (i + 1 < fields.size())
            out += m_fieldSeparator;
    }
}

template <typename Session>
QHash<int, QString> ParserAbstract<Session>::initSentenceIdentifiers()
{
    return {};
}

template <typename Session>
QHash<int, QString> ParserAbstract<Session>::initTalkerIdentifiers()
{
    return {};
}

template <typename Session>
QHash<int, QString> ParserAbstract<Session>::initSentenceFormatsParse()
{
    return {};
}

template <typename Session>
QHash<int, QString> ParserAbstract<Session>::initSentenceFormatsBuild()
{
    return {};
}

template <typename Session>
QHash<QString, typename ParserAbstract<Session>::ParserDelegate> ParserAbstract<Session>::initParserDelegates()
{
    return {};
}

template <typename Session>
QHash<QString, typename ParserAbstract<Session>::BuilderDelegate> ParserAbstract<Session>::initBuilderDelegates()
{
    return {};
}

template <typename Session>
void ParserAbstract<Session>::setSentenceId(Session *, int)
{
}

} // namespace Nmea

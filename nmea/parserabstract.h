#pragma once

#include <nmea/checksum.h>
#include <nmea/exception.h>

#include <QChar>
#include <QHash>
#include <QString>
#include <QStringList>

namespace Nmea {

/**
 * A parser and builder of NMEA 0183 style sentences, driven by tables: derive from it, return your tables from the
 * hooks, and call init() once after construction.
 *
 * \verbatim
 *  1 2      3       4    5
 *  | |      |       |    |
 *  $ PJWVER ,a,b,c  *hh  <CR><LF>
 *
 *  1 start flag, "$" or, on receipt, also "!"
 *  2 identifier, at least 3 characters on receipt
 *  3 fields, each after a ","; none at all, not even the ",", when there are no fields
 *  4 checksum, see calculateCrc(); on receipt it may be missing and is then not tested
 *  5 line end
 * \endverbatim
 *
 * A received sentence has at most 74 characters, all counted; this is the boards' own limit, not the 82 of the
 * standard. Building tests no length.
 *
 * A format lists the names of the fields in the order of the wire, separated by ",", such as "hwversion,v1,v2,v3". An
 * empty name skips a field of a received sentence; in a built one it leaves nothing, not even a separator.
 *
 * Every failure is a thrown Exception; its text is given at the operation. Once parseParameters() has begun, the record
 * keeps what was stored before the fault; the parser itself never changes. What a delegate throws passes through.
 * Before init() nothing can be parsed ("Undefined sentence ID: %1") or built ("No formatter found").
 *
 * A parser is used by one thread only. It has no virtual destructor: don't delete one through a pointer to this class.
 *
 * \tparam Session the record that the delegates fill and read
 */
template <typename Session>
class ParserAbstract
{
public:
    /// Stores the text `value` of the field `name` in `session`. The result is ignored.
    using ParserDelegate = bool (*)(Session *session, const QString &value, const QString &name);
    /// Returns the text of the field `name` of `session`.
    using BuilderDelegate = QString (*)(const Session *session, const QString &name);

    ParserAbstract() = default;
    ParserAbstract(const ParserAbstract &) = default;
    ParserAbstract &operator=(const ParserAbstract &) = default;
    ~ParserAbstract();

    /// Loads the tables from the hooks. Later calls keep them as they are. Returns true.
    bool init();

    /**
     * Fills `session` from one whole sentence. Returns true. Throws, tested in this order: "Start flag not found",
     * "Sentence too long", "Bad end", "Checksum field" (more than one "*"), "Checksum misspelled", "CRC calculation
     * failed", and what parseTrimmed() throws. The checksum is read as QString::toInt() reads a base 16
     * number, and only its low byte is compared. Without a "*" the line end stays on the last field.
     */
    bool parseSentence(Session *session, const QString &sentence);
    /**
     * Replaces `out` with the whole sentence `sentenceId`, the fields taken from `session`. Returns true. Throws "No
     * formatter found", "Sentence ID not found", and what buildParameters() throws; `out` is then left as it was.
     *
     * A checksum of 0x80 or more, which only characters beyond ASCII can make, is written with 16 digits.
     */
    bool buildSentence(const Session *session, int sentenceId, QString &out);

    /// Takes the start flag off `sentence` and cuts the rest at the "*"; without one `checksum` becomes null. Throws
    /// "Checksum field" when there is more than one.
    void splitSentence(QString &sentence, QString &body, QString &checksum);
    /// Parses identifier and fields, without start flag and checksum. Throws "Wrong sentence description length" and
    /// what parseListed() throws.
    bool parseTrimmed(Session *session, const QString &body);
    /// `sentenceId` is the identifier text, `params` the texts of the fields. Throws "Undefined sentence ID: %1",
    /// "Format not found for sentence ID", and what parseParameters() throws.
    bool parseListed(Session *session, const QString &sentenceId, const QStringList &params);
    /// Fields may be fewer than names, the rest is left alone. Throws "Specified parameters list and formatting string
    /// incompatible" (more fields than names), "Unknown format token in sentence formatter".
    bool parseParameters(Session *session, const QStringList &params, const QString &format);
    /// The fields of a sentence, joined. Throws "Unknown format token in sentence formatter: %1".
    QString buildParameters(const Session *session, const QString &format);

protected:
    /// Sentence key to identifier; the identifiers differ from each other, no key is -9999.
    virtual QHash<int, QString> initSentenceIdentifiers();
    /// Not used by this class.
    virtual QHash<int, QString> initTalkerIdentifiers();
    /// Sentence key to the format of a received sentence. A key without one can't be parsed.
    virtual QHash<int, QString> initSentenceFormatsParse();
    /// Sentence key to the format of a built sentence. A key without one can't be built.
    virtual QHash<int, QString> initSentenceFormatsBuild();
    /// Field name to its delegate; has every name in the formats to parse.
    virtual QHash<QString, ParserDelegate> initParserDelegates();
    /// Field name to its delegate; has every name in the formats to build.
    virtual QHash<QString, BuilderDelegate> initBuilderDelegates();
    /// Stores the key of the sentence that was recognised. Does nothing in this class.
    virtual void setSentenceId(Session *session, int sentenceId);

    QHash<int, QString> m_sentenceIds; ///< loaded by init(), as the four tables below
    QHash<int, QString> m_formatsParse; ///< see initSentenceFormatsParse()
    QHash<int, QString> m_formatsBuild; ///< see initSentenceFormatsBuild()
    QChar m_startFlag = QLatin1Char('$'); ///< begins every built sentence
    QChar m_startFlagAlt = QLatin1Char('!'); ///< begins a received sentence as well
    QString m_lineEnd = QStringLiteral("\r\n"); ///< ends every sentence
    int m_maxLength = 74; ///< of a received sentence, in characters, all counted
    QChar m_checksumDelimiter = QLatin1Char('*'); ///< between the fields and the checksum
    QChar m_fieldSeparator = QLatin1Char(','); ///< before each field
    QChar m_formatSeparator = QLatin1Char(','); ///< between the names of a format
    int m_reservedId = -9999; ///< no sentence's key; not used by this class
    int m_undefinedId = -9999; ///< stands for an identifier that is not in the table
    bool m_initialized = false; ///< whether init() was called
    QHash<QString, ParserDelegate> m_parserDelegates; ///< see initParserDelegates()
    QHash<QString, BuilderDelegate> m_builderDelegates; ///< see initBuilderDelegates()
    /// Set by a derived parser that plays the board: it parses by the formats to build, and builds by those to parse.
    bool m_reversed = false;
};

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
    m_initialized = true;
    return true;
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

    QString rest = sentence;
    QString body;
    QString checksum;
    splitSentence(rest, body, checksum);
    if (checksum.isEmpty())
        return parseTrimmed(session, rest);

    bool ok = false;
    const int expected = checksum.toInt(&ok, 16); // passes over the line end, which is still there
    if (!ok)
        throw Exception(QStringLiteral("Checksum misspelled"));
    if ((expected & 0xff) != calculateCrc(body, 0))
        throw Exception(QStringLiteral("CRC calculation failed"));
    return parseTrimmed(session, body);
}

template <typename Session>
bool ParserAbstract<Session>::buildSentence(const Session *session, int sentenceId, QString &out)
{
    const QHash<int, QString> &formats = m_reversed ? m_formatsParse : m_formatsBuild;
    const auto format = formats.constFind(sentenceId);
    if (format == formats.constEnd())
        throw Exception(QStringLiteral("No formatter found"));
    const auto identifier = m_sentenceIds.constFind(sentenceId);
    if (identifier == m_sentenceIds.constEnd())
        throw Exception(QStringLiteral("Sentence ID not found"));
    const QString fields = buildParameters(session, *format);

    out = *identifier;
    if (!fields.isEmpty())
        out += m_fieldSeparator + fields;
    out += m_checksumDelimiter;
    const auto crc = static_cast<qint8>(calculateCrc(out, out.size() - 1));
    out += QStringLiteral("%1").arg(static_cast<qlonglong>(crc), 2, 16, QLatin1Char('0'));
    out += m_lineEnd;
    out.prepend(m_startFlag);
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
    QStringList params = body.split(m_fieldSeparator);
    const QString sentenceId = params.takeFirst(); // splitting gives one part at least
    if (sentenceId.size() < 3)
        throw Exception(QStringLiteral("Wrong sentence description length"));
    return parseListed(session, sentenceId, params);
}

template <typename Session>
bool ParserAbstract<Session>::parseListed(Session *session, const QString &sentenceId, const QStringList &params)
{
    const int key = m_sentenceIds.key(sentenceId, m_undefinedId);
    if (key == m_undefinedId)
        throw Exception(QStringLiteral("Undefined sentence ID: %1").arg(sentenceId));
    const QHash<int, QString> &formats = m_reversed ? m_formatsBuild : m_formatsParse;
    const auto format = formats.constFind(key);
    if (format == formats.constEnd())
        throw Exception(QStringLiteral("Format not found for sentence ID"));
    setSentenceId(session, key);
    return parseParameters(session, params, *format);
}

template <typename Session>
bool ParserAbstract<Session>::parseParameters(Session *session, const QStringList &params, const QString &format)
{
    const QStringList names = format.split(m_formatSeparator);
    if (names.size() < params.size())
        throw Exception(QStringLiteral("Specified parameters list and formatting string incompatible"));
    for (int i = 0; i < params.size(); ++i) {
        if (names[i].isEmpty())
            continue;
        const ParserDelegate delegate = m_parserDelegates.value(names[i]);
        if (!delegate)
            throw Exception(QStringLiteral("Unknown format token in sentence formatter"));
        delegate(session, params[i], names[i]);
    }
    return true;
}

template <typename Session>
QString ParserAbstract<Session>::buildParameters(const Session *session, const QString &format)
{
    const QStringList names = format.split(m_formatSeparator);
    QString fields;
    for (int i = 0; i < names.size(); ++i) {
        if (names[i].isEmpty())
            continue;
        const BuilderDelegate delegate = m_builderDelegates.value(names[i]);
        if (!delegate)
            throw Exception(QStringLiteral("Unknown format token in sentence formatter: %1").arg(names[i]));
        fields += delegate(session, names[i]);
        if (i + 1 < names.size())
            fields += m_fieldSeparator;
    }
    return fields;
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

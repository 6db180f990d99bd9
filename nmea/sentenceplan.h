#pragma once

#include <QChar>
#include <QHash>
#include <QString>
#include <QStringList>
#include <QStringView>
#include <QVector>

#include <algorithm>
#include <vector>

namespace Nmea {

/**
 * The tables of a ParserAbstract in a form that is fast to use: formats are split, delegates are found, identifiers are
 * sorted. Applications don't use this class.
 */
template <typename Session>
class SentencePlan
{
public:
    /// Parses a field. Equal to ParserAbstract::ParserDelegate, which this header can't use, because parserabstract.h
    /// includes this header.
    using ParserDelegate = bool (*)(Session *session, const QString &value, const QString &name);
    /// Builds a field. Equal to ParserAbstract::BuilderDelegate, which this header can't use, because parserabstract.h
    /// includes this header.
    using BuilderDelegate = QString (*)(const Session *session, const QString &name);

    /// One field name in a format, with its delegates.
    struct Field
    {
        QString name; ///< name of the field; if empty, the field is skipped
        ParserDelegate parse; ///< delegate that parses the field; null if there is none
        BuilderDelegate build; ///< delegate that builds the field; null if there is none
    };
    using Fields = QVector<Field>; ///< the fields in the order of the format

    /// Prepares the tables again if a table of the parser has changed.
    void update(const QHash<int, QString> &sentenceIds, const QHash<int, QString> &formatsParse,
                const QHash<int, QString> &formatsBuild, const QHash<QString, ParserDelegate> &parserDelegates,
                const QHash<QString, BuilderDelegate> &builderDelegates, QChar formatSeparator)
    {
        if (m_formatSeparator == formatSeparator && m_sentenceIds.isSharedWith(sentenceIds)
            && m_formatsParse.isSharedWith(formatsParse) && m_formatsBuild.isSharedWith(formatsBuild)
            && m_parserDelegates.isSharedWith(parserDelegates) && m_builderDelegates.isSharedWith(builderDelegates))
            return;
        m_sentenceIds = sentenceIds;
        m_formatsParse = formatsParse;
        m_formatsBuild = formatsBuild;
        m_parserDelegates = parserDelegates;
        m_builderDelegates = builderDelegates;
        m_formatSeparator = formatSeparator;
        m_fieldsParse = fieldsOfAll(formatsParse);
        m_fieldsBuild = fieldsOfAll(formatsBuild);
        m_identifiers.clear();
        for (auto it = sentenceIds.constBegin(); it != sentenceIds.constEnd(); ++it) {
            // upper_bound() finds the place after equal texts. So if two keys have the same identifier, key() finds the
            // key that is first in `sentenceIds`.
            const auto place = std::upper_bound(m_identifiers.begin(), m_identifiers.end(), it.value(),
                                                [](const QString &text, const Identifier &b) { return text < b.text; });
            m_identifiers.insert(place, {it.value(), it.key()});
        }
    }

    /// Returns the key of the sentence with this identifier. If there is none, returns `otherwise`.
    int key(QStringView identifier, int otherwise) const
    {
        const auto known = std::lower_bound(m_identifiers.begin(), m_identifiers.end(), identifier,
                                            [](const Identifier &a, QStringView text) { return a.text < text; });
        return known != m_identifiers.end() && known->text == identifier ? known->key : otherwise;
    }

    /// Returns the table from sentence key to the fields of a received sentence.
    const QHash<int, Fields> &fieldsParse() const { return m_fieldsParse; }
    /// Returns the table from sentence key to the fields of a built sentence.
    const QHash<int, Fields> &fieldsBuild() const { return m_fieldsBuild; }

    /// Returns the fields that `format` names.
    Fields fieldsOf(const QString &format) const
    {
        const QStringList names = format.split(m_formatSeparator);
        Fields fields;
        fields.reserve(names.size());
        for (const QString &name : names) {
            const auto parse = m_parserDelegates.constFind(name);
            const auto build = m_builderDelegates.constFind(name);
            const bool isParsed = parse != m_parserDelegates.constEnd();
            const bool isBuilt = build != m_builderDelegates.constEnd();
            // If a table contains the name, the field shares the text of the table. This saves memory.
            fields.append({isParsed      ? parse.key()
                               : isBuilt ? build.key()
                                         : name,
                           isParsed ? *parse : nullptr, isBuilt ? *build : nullptr});
        }
        return fields;
    }

private:
    struct Identifier
    {
        QString text;
        int key;
    };

    QHash<int, Fields> fieldsOfAll(const QHash<int, QString> &formats) const
    {
        QHash<int, Fields> fields;
        for (auto it = formats.constBegin(); it != formats.constEnd(); ++it) {
            if (!fields.contains(it.key())) // if a key has two formats, the newest is used, which is first in the table
                fields.insert(it.key(), fieldsOf(it.value()));
        }
        return fields;
    }

    QHash<int, QString> m_sentenceIds;
    QHash<int, QString> m_formatsParse;
    QHash<int, QString> m_formatsBuild;
    QHash<QString, ParserDelegate> m_parserDelegates;
    QHash<QString, BuilderDelegate> m_builderDelegates;
    QChar m_formatSeparator;
    QHash<int, Fields> m_fieldsParse;
    QHash<int, Fields> m_fieldsBuild;
    std::vector<Identifier> m_identifiers; // sorted by text
};

} // namespace Nmea

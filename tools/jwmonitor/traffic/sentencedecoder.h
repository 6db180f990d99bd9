#pragma once

#include "trafficrecord.h"

#include <QHash>
#include <QString>
#include <QStringList>
#include <QStringView>
#include <QVector>

namespace JwMonitor {

enum class ChecksumState { Missing, Good, Bad };

/// The parts into which SentenceDecoder splits a payload.
struct Sentence
{
    struct Field
    {
        QString name; ///< the parser's name, for example "hwversion"; if it has none, the position: "1", "2", ...
        QString value;
    };

    QString identifier;
    QVector<Field> fields;
    ChecksumState checksum = ChecksumState::Missing;
};

/// Splits payloads into fields, and gives the fields the names that the library's parser uses. Decoding never fails. If
/// a payload is no sentence, the result has no fields.
class SentenceDecoder
{
public:
    SentenceDecoder();

    Sentence decode(const QString &payload, Direction direction) const;
    /// Returns the error that the library's parser finds in a received payload. Empty if there is no error.
    QString fault(const QString &payload) const;

    /// Returns the name that decode() gives to the field at `index`, which counts from 0.
    QString fieldName(const QString &identifier, Direction direction, QStringList::size_type index) const;

    /// Returns only the identifier. Faster than decode().
    static QStringView identifier(const QString &payload);
    static ChecksumState checksum(const QString &payload);
    /// Returns only the field at `index`, which counts from 0. Null if the sentence has fewer fields.
    static QStringView field(const QString &payload, int index);

private:
    QHash<QString, QStringList> m_receivedNames;
    QHash<QString, QStringList> m_sentNames;
};

} // namespace JwMonitor

#pragma once

#include "trafficrecord.h"

#include <QHash>
#include <QString>
#include <QStringList>
#include <QStringView>
#include <QVector>

namespace JwMonitor {

enum class ChecksumState { Missing, Good, Bad };

/// The parts of a payload.
struct Sentence
{
    struct Field
    {
        QString name; ///< "hwversion"; "1", "2", ... if the parser does not know the sentence
        QString value;
    };

    QString identifier;
    QVector<Field> fields;
    ChecksumState checksum = ChecksumState::Missing;
};

/// Takes payloads apart and names their fields as the library's parser does. Never fails: a text that is no sentence
/// has no fields.
class SentenceDecoder
{
public:
    SentenceDecoder();

    Sentence decode(const QString &payload, Direction direction) const;
    /// The error of the library's parser for a received payload; empty if there is none.
    QString fault(const QString &payload) const;

    /// The name of a field; `index` counts from 0.
    QString fieldName(const QString &identifier, Direction direction, int index) const;

    /// Only the identifier: cheaper than decode().
    static QStringView identifier(const QString &payload);
    static ChecksumState checksum(const QString &payload);
    /// Only the field at `index`, from 0; null if the sentence has fewer fields.
    static QStringView field(const QString &payload, int index);

private:
    QHash<QString, QStringList> m_receivedNames;
    QHash<QString, QStringList> m_sentNames;
};

} // namespace JwMonitor

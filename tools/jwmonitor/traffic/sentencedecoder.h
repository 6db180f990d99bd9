#pragma once

#include "trafficrecord.h"

#include <QHash>
#include <QString>
#include <QStringList>
#include <QStringView>
#include <QVector>

namespace JwMonitor {

enum class ChecksumState { Missing, Good, Bad };

/// A payload, taken apart.
struct Sentence
{
    struct Field
    {
        QString name; ///< "hwversion"; "1", "2", ... where no parser knows the sentence
        QString value;
    };

    QString identifier;
    QVector<Field> fields;
    ChecksumState checksum = ChecksumState::Missing;
};

/// Takes payloads apart, with the names that the library's parser has for their fields. Never fails: what is no
/// sentence has no fields.
class SentenceDecoder
{
public:
    SentenceDecoder();

    Sentence decode(const QString &payload, Direction direction) const;
    /// What the library's parser finds wrong with a received payload; empty when it takes it.
    QString fault(const QString &payload) const;

    /// The name of field `index`, from 0.
    QString fieldName(const QString &identifier, Direction direction, int index) const;

    /// The identifier alone, which is cheap.
    static QStringView identifier(const QString &payload);
    static ChecksumState checksum(const QString &payload);
    /// Field `index`, from 0, alone; null when there are not so many.
    static QStringView field(const QString &payload, int index);

private:
    QHash<QString, QStringList> m_receivedNames;
    QHash<QString, QStringList> m_sentNames;
};

} // namespace JwMonitor

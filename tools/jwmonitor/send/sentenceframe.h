#pragma once

#include <QCoreApplication>
#include <QString>

namespace JwMonitor {

/// Makes whole sentences of what a person types: adds the start flag "$", the checksum and the line end where they are
/// missing.
class SentenceFrame
{
    Q_DECLARE_TR_FUNCTIONS(SentenceFrame)

public:
    static constexpr int maxLength = 74; ///< the boards take no longer sentence, all characters counted

    explicit SentenceFrame(const QString &line);

    /// As it will go out, also where it has a fault.
    QString sentence() const { return m_sentence; }
    /// What is wrong with the line and what to do about it; empty when it makes a sentence.
    QString fault() const { return m_fault; }

private:
    QString findFault(const QString &body, const QString &typedChecksum, const QString &checksum) const;

    QString m_sentence;
    QString m_fault;
};

} // namespace JwMonitor

#pragma once

#include <QCoreApplication>
#include <QString>

namespace JwTools {

/// Makes a whole sentence of what a person types: adds the start flag "$", the checksum and the line end if they are
/// missing. The characters are Latin-1, as the library sends them.
class SentenceFrame
{
    Q_DECLARE_TR_FUNCTIONS(JwTools::SentenceFrame)

public:
    static constexpr int maxLength = 74; ///< the boards take no longer sentence, all characters counted

    explicit SentenceFrame(const QString &line);

    /// As it goes out; for a look at it also if the line has a fault.
    QString sentence() const { return m_sentence; }
    /// What is wrong with the line and what to do about it; empty if it makes a sentence.
    QString fault() const { return m_fault; }

private:
    QString findFault(const QString &body, const QString &typedChecksum, const QString &checksum) const;

    QString m_sentence;
    QString m_fault;
};

} // namespace JwTools

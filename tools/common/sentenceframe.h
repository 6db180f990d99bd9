#pragma once

#include <QCoreApplication>
#include <QString>

namespace JwTools {

/// Makes a whole sentence from a line that a person typed. Adds the start flag "$", the checksum and the line end if
/// they are missing. Only Latin-1 characters are allowed, because the library can't send others.
class SentenceFrame
{
    Q_DECLARE_TR_FUNCTIONS(JwTools::SentenceFrame)

public:
    static constexpr int maxLength = 74; ///< boards accept at most 74 characters, start flag and line end included

    explicit SentenceFrame(const QString &line);

    /// Returns the sentence to send. If fault() is not empty, only show the sentence; don't send it.
    QString sentence() const { return m_sentence; }
    /// Returns what is wrong with the line and how to correct it. Empty if the line makes a sentence.
    QString fault() const { return m_fault; }

private:
    QString findFault(const QString &body, const QString &typedChecksum, const QString &checksum) const;

    QString m_sentence;
    QString m_fault;
};

} // namespace JwTools

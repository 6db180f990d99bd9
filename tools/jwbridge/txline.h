#pragma once

#include <QByteArray>
#include <QString>

namespace JwBridge {

/// Checks a message that a client of the broker sent for a board, and makes a whole sentence from it. The client may be
/// hostile. So only one printable sentence of at most 74 characters is accepted.
class TxLine
{
public:
    explicit TxLine(const QByteArray &message);

    /// The sentence to write. Empty if fault() is not empty.
    QString sentence() const { return m_sentence; }
    /// Returns why the message is refused. Empty if the message is good.
    QString fault() const { return m_fault; }

private:
    QString m_sentence;
    QString m_fault;
};

} // namespace JwBridge

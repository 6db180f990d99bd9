#pragma once

#include <QByteArray>
#include <QString>

namespace JwFleet {

/// The names of the topics of one machine, see docs/man/jwbridge.1. All topics begin with PREFIX/HOST/.
class Topics
{
public:
    /// `prefix` and `host` must have no fault, see prefixFault() and hostFault().
    Topics(const QString &prefix, const QString &host);

    QByteArray online() const { return m_base + "online"; }
    QByteArray ports() const { return m_base + "ports"; }
    QByteArray lost() const { return m_base + "lost"; }
    /// The topics of a board; `part` is escaped(id).
    QByteArray state(const QByteArray &part) const { return board(part, "state"); }
    QByteArray rx(const QByteArray &part) const { return board(part, "rx"); }
    QByteArray tx(const QByteArray &part) const { return board(part, "tx"); }
    QByteArray txResult(const QByteArray &part) const { return board(part, "tx/result"); }
    /// The filter that fits the tx topic of every board.
    QByteArray everyTx() const { return board("+", "tx"); }
    /// Returns the `part` of a tx topic, or an empty text if `topic` is no tx topic of this machine.
    QByteArray partOfTx(const QByteArray &topic) const { return part(topic, "/tx"); }
    /// Like partOfTx(), for a state topic.
    QByteArray partOfState(const QByteArray &topic) const { return part(topic, "/state"); }
    /// Returns whether `topic` is below the prefix.
    bool isOurs(const QByteArray &topic) const { return topic.startsWith(m_prefix + '/'); }

    /// Returns `id` as one level of a topic. Letters, digits and "-", ".", "_", "~", ":" stay. Every other byte of the
    /// UTF-8 text becomes "%" and two hexadecimal digits. So the result has none of the characters "/", "+", "#".
    static QByteArray escaped(const QString &id);
    static QString unescaped(const QByteArray &part);
    /// Returns what is wrong with a prefix or with the name of a host, and what is allowed. Empty if nothing is wrong.
    static QString prefixFault(const QString &prefix);
    static QString hostFault(const QString &host);

private:
    QByteArray board(const QByteArray &part, const char *leaf) const;
    QByteArray part(const QByteArray &topic, const QByteArray &leaf) const;

    QByteArray m_prefix;
    QByteArray m_base;
};

} // namespace JwFleet

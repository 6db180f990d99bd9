#include "topics.h"

#include <QStringList>
#include <QUrl>

#include <algorithm>

namespace JwFleet {

namespace {

constexpr int maxName = 200; // characters; MQTT allows 65535 bytes for a whole topic

// Returns whether `level` can be one level of a topic. Brokers keep topics that begin with "$" for themselves.
bool isLevel(const QString &level)
{
    const auto isBad = [](QChar c) {
        return c == QLatin1Char('+') || c == QLatin1Char('#') || c == QLatin1Char('/') || !c.isPrint() || c.isSpace();
    };
    return !level.isEmpty() && std::none_of(level.begin(), level.end(), isBad);
}

} // namespace

Topics::Topics(const QString &prefix, const QString &host)
    : m_prefix(prefix.toUtf8())
    , m_base(m_prefix + '/' + host.toUtf8() + '/')
{
}

QByteArray Topics::board(const QByteArray &part, const char *leaf) const
{
    return m_base + "boards/" + part + '/' + leaf;
}

QByteArray Topics::part(const QByteArray &topic, const QByteArray &leaf) const
{
    const QByteArray before = m_base + "boards/";
    const auto size = topic.size() - before.size() - leaf.size();
    if (size <= 0 || !topic.startsWith(before) || !topic.endsWith(leaf))
        return QByteArray();
    const QByteArray part = topic.mid(before.size(), size);
    return part.contains('/') ? QByteArray() : part;
}

QByteArray Topics::escaped(const QString &id)
{
    return QUrl::toPercentEncoding(id, ":");
}

QString Topics::unescaped(const QByteArray &part)
{
    return QUrl::fromPercentEncoding(part);
}

QString Topics::prefixFault(const QString &prefix)
{
    const QStringList levels = prefix.split(QLatin1Char('/'));
    if (prefix.size() <= maxName && !prefix.startsWith(QLatin1Char('$'))
        && std::all_of(levels.begin(), levels.end(), isLevel))
        return QString();
    return QStringLiteral("is not allowed: give at most %1 printable characters without blanks, \"+\" and \"#\", not "
                          "beginning with \"$\"; a \"/\" must stand between two names")
        .arg(maxName);
}

QString Topics::hostFault(const QString &host)
{
    if (host.size() <= maxName && isLevel(host))
        return QString();
    return QStringLiteral("is not allowed: give 1 to %1 printable characters without blanks, \"+\", \"#\" and \"/\"")
        .arg(maxName);
}

} // namespace JwFleet

#include "output.h"

#include <common/printable.h>

#include <QJsonObject>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <sys/ioctl.h>
#include <unistd.h>

namespace JwProbe {

namespace {

// Returns whether a character could disturb a terminal although Qt's JSON writer does not escape it: the control
// characters from 0x7f to 0x9f, and characters that set the direction of text.
bool isDelicate(uint code)
{
    return (code >= 0x7f && code <= 0x9f) || code == 0x61c || code == 0x200e || code == 0x200f
        || (code >= 0x202a && code <= 0x202e) || (code >= 0x2066 && code <= 0x2069);
}

} // namespace

bool print(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    const auto size = static_cast<std::size_t>(bytes.size());
    if (std::fwrite(bytes.constData(), 1, size, stdout) == size && std::fflush(stdout) == 0)
        return true;
    complainOfOutput(QString::fromLocal8Bit(std::strerror(errno)));
    return false;
}

void complainOfOutput(const QString &reason)
{
    static bool isDone = false;
    if (!isDone)
        complain(QStringLiteral("can't write to standard output: %1").arg(reason));
    isDone = true;
}

QString jsonText(const QJsonObject &object, QJsonDocument::JsonFormat format)
{
    QString text;
    const QString raw = QString::fromUtf8(QJsonDocument(object).toJson(format)).trimmed();
    for (const QChar c : raw) { // delicate characters may be escaped: in JSON they occur only within strings
        if (isDelicate(c.unicode()))
            text += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
        else
            text += c;
    }
    return text + QLatin1Char('\n');
}

void complain(const QString &text)
{
    std::fprintf(stderr, "jwprobe: %s\n", text.toUtf8().constData());
}

int terminalWidth(int descriptor)
{
    if (::isatty(descriptor) == 0)
        return 0;
    winsize size = {};
    return ::ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

QString orDash(const QString &text)
{
    return text.isEmpty() ? QStringLiteral("-") : JwTools::printable(text);
}

} // namespace JwProbe

#include "output.h"

#include <common/printable.h>
#include <jwprobe/app/options.h>

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

// Returns zeros if the terminal does not report its size.
winsize sizeOf(int descriptor)
{
    winsize size = {};
    return ::ioctl(descriptor, TIOCGWINSZ, &size) == 0 ? size : winsize{};
}

int sizeOr(int reported, int usual)
{
    return reported > 0 ? reported : usual;
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

QString clockText(const QDateTime &time)
{
    return time.toLocalTime().toString(QStringLiteral("HH:mm:ss.zzz"));
}

QString sinceText(const QDateTime &time)
{
    const QDateTime local = time.toLocalTime();
    const bool isToday = local.date() == QDate::currentDate();
    return local.toString(isToday ? QStringLiteral("HH:mm:ss") : QStringLiteral("yyyy-MM-dd"));
}

QString isoText(const QDateTime &time)
{
    const QDateTime local = time.toLocalTime();
    return local.toOffsetFromUtc(local.offsetFromUtc()).toString(Qt::ISODateWithMs);
}

QString payloadLine(const QDateTime &time, const QString &port, bool received, const QString &text)
{
    return QStringLiteral("%1  %2  %3  %4\n")
        .arg(clockText(time), port, received ? QStringLiteral("<-") : QStringLiteral("->"), JwTools::printable(text));
}

QString directionName(bool received)
{
    return received ? QStringLiteral("received") : QStringLiteral("sent");
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
    return ::isatty(descriptor) == 0 ? 0 : sizeOr(sizeOf(descriptor).ws_col, 80);
}

int terminalHeight(int descriptor)
{
    return ::isatty(descriptor) == 0 ? 0 : sizeOr(sizeOf(descriptor).ws_row, 24);
}

bool isLiveTerminal(int descriptor, const Options &options)
{
    const bool showsLog = options.logLevel || options.traffic || options.rawTraffic;
    return ::isatty(descriptor) != 0 && qgetenv("TERM") != "dumb" && !(showsLog && ::isatty(STDERR_FILENO) != 0);
}

QString orDash(const QString &text)
{
    return text.isEmpty() ? QStringLiteral("-") : JwTools::printable(text);
}

} // namespace JwProbe

#include "livetext.h"

#include <algorithm>
#include <utility>

namespace JwProbe {

namespace {

int linesOfTerminal(const QString &line, int width)
{
    return std::max(1, (static_cast<int>(line.size()) + width - 1) / width);
}

} // namespace

QString LiveText::redrawn(const QStringList &lines, int width, int height)
{
    QStringList shown = lines;
    const int room = std::max(2, height - 1); // the cursor stands below the last line
    if (shown.size() > room) {
        const auto hidden = shown.size() - room + 1;
        shown = shown.mid(0, room - 1);
        shown.append(QStringLiteral("(%1 more lines)").arg(hidden));
    }
    for (QString &line : shown)
        line.truncate(width);
    if (shown == m_drawn)
        return QString();

    // The terminal may be narrower now than when the lines in m_drawn were drawn. Then such a line takes several lines
    // of the terminal.
    int drawn = 0;
    for (const QString &line : std::as_const(m_drawn))
        drawn += linesOfTerminal(line, width);
    m_drawn = shown;
    const QString up = drawn > 0 ? QStringLiteral("\033[%1A").arg(drawn) : QString();
    return QLatin1Char('\r') + up + QLatin1String("\033[J") + shown.join(QLatin1Char('\n')) + QLatin1Char('\n');
}

} // namespace JwProbe

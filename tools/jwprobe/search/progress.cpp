#include "progress.h"

#include "finder.h"
#include <common/boardtype.h>
#include <jwprobe/app/options.h>
#include <jwprobe/output/output.h>

#include <cstdio>

#include <unistd.h>

namespace JwProbe {

namespace {

constexpr int interval = 100; // ms between two updates of the line

} // namespace

Progress::Progress(const Finder &finder, const Options &options)
    : m_finder(finder)
    , m_options(options)
{
    m_timer.setInterval(interval);
    QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [this] { write(); });
}

void Progress::show()
{
    if (!isLiveTerminal(STDERR_FILENO, m_options))
        return;
    write();
    m_timer.start();
}

void Progress::hide()
{
    if (!m_timer.isActive())
        return;
    m_timer.stop();
    std::fputs("\r\033[K", stderr);
}

void Progress::write()
{
    const QString line = QStringLiteral("Looking for %1 on %2: found %3 of %4, %5 s")
                             .arg(JwTools::boardNames(m_options.types, QStringLiteral("and")),
                                  m_finder.portCount() == 1 ? QStringLiteral("1 port")
                                                            : QStringLiteral("%1 ports").arg(m_finder.portCount()))
                             .arg(m_finder.foundCount())
                             .arg(m_options.types.size())
                             .arg(m_finder.milliseconds() / 1000, 0, 'f', 1);
    // The line is cut, because a line that is wider than the terminal would go on below, and hide() could not erase it.
    std::fprintf(stderr, "\r\033[K%s", line.left(terminalWidth(STDERR_FILENO) - 1).toUtf8().constData());
    std::fflush(stderr);
}

} // namespace JwProbe

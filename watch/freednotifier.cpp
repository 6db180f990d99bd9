#include "freednotifier.h"

#ifdef Q_OS_LINUX
#include <QFile>
#include <QSet>

#include <sys/inotify.h>
#include <unistd.h>
#endif

namespace JwDevice {

#ifdef Q_OS_LINUX

FreedNotifier::FreedNotifier()
    : m_descriptor(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
{
    if (m_descriptor < 0)
        return;
    m_notifier = std::make_unique<QSocketNotifier>(m_descriptor, QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &FreedNotifier::onActivated);
}

FreedNotifier::~FreedNotifier()
{
    m_notifier.reset(); // before its descriptor is closed
    if (m_descriptor >= 0)
        ::close(m_descriptor);
}

void FreedNotifier::add(const QString &location)
{
    const int watch = ::inotify_add_watch(m_descriptor, QFile::encodeName(location), IN_CLOSE | IN_ATTRIB);
    if (watch >= 0)
        m_watches.insert(location, watch);
}

void FreedNotifier::remove(const QString &location)
{
    const int watch = m_watches.take(location);
    // 0 means that the location is not watched, because the kernel's numbers begin with 1. Two locations may be links
    // to one file, and then share one watch.
    if (watch > 0 && m_watches.key(watch).isEmpty())
        ::inotify_rm_watch(m_descriptor, watch);
}

void FreedNotifier::onActivated()
{
    QSet<int> watches;
    alignas(inotify_event) char buffer[4096];
    for (ssize_t size = ::read(m_descriptor, buffer, sizeof buffer); size > 0;
         size = ::read(m_descriptor, buffer, sizeof buffer)) {
        // Only a watched folder adds names to its events. So here, all events have the same size.
        for (const auto *event = reinterpret_cast<inotify_event *>(buffer);
             reinterpret_cast<const char *>(event) < buffer + size; ++event) {
            if (event->mask & (IN_CLOSE | IN_ATTRIB))
                watches.insert(event->wd);
        }
    }
    const QHash<QString, int> watched = m_watches;
    for (auto it = watched.cbegin(); it != watched.cend(); ++it) {
        if (watches.contains(*it))
            Q_EMIT freed(it.key());
    }
}

#else

FreedNotifier::FreedNotifier() = default;
FreedNotifier::~FreedNotifier() = default;
void FreedNotifier::add(const QString &)
{
}
void FreedNotifier::remove(const QString &)
{
}

#endif

} // namespace JwDevice

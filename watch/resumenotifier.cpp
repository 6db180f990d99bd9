#include "resumenotifier.h"

#ifdef Q_OS_LINUX
#include <cerrno>
#include <limits>
#include <sys/timerfd.h>
#include <unistd.h>
#endif

namespace JwDevice {

ResumeNotifier::~ResumeNotifier()
{
    m_notifier.reset(); // before its descriptor is closed
#ifdef Q_OS_LINUX
    if (m_descriptor >= 0)
        ::close(m_descriptor);
#endif
}

#ifdef Q_OS_LINUX

ResumeNotifier::ResumeNotifier()
    : m_descriptor(::timerfd_create(CLOCK_REALTIME, TFD_CLOEXEC | TFD_NONBLOCK))
{
    if (m_descriptor < 0 || !arm())
        return;
    m_notifier = std::make_unique<QSocketNotifier>(m_descriptor, QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &ResumeNotifier::onActivated);
}

bool ResumeNotifier::arm()
{
    // This timer never ends. But the kernel cancels it when the clock jumps, and the clock jumps at a resume.
    itimerspec never{};
    never.it_value.tv_sec = std::numeric_limits<decltype(never.it_value.tv_sec)>::max();
    // ECANCELED means that the clock has jumped since the last read. The timer is armed nevertheless.
    return ::timerfd_settime(m_descriptor, TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &never, nullptr) == 0
        || errno == ECANCELED;
}

void ResumeNotifier::onActivated()
{
    quint64 expirations = 0;
    const bool isCancelled = ::read(m_descriptor, &expirations, sizeof expirations) < 0 && errno == ECANCELED;
    if (!arm())
        m_notifier->setEnabled(false);
    if (isCancelled)
        Q_EMIT resumed();
}

#else

ResumeNotifier::ResumeNotifier() = default;

#endif

} // namespace JwDevice

#include "signalwatch.h"

#include <QSocketNotifier>

#include <csignal>

#include <sys/signalfd.h>
#include <unistd.h>

namespace JwProbe {

SignalWatch::SignalWatch(QObject *parent)
    : QObject(parent)
{
    sigset_t signalSet;
    sigemptyset(&signalSet);
    sigaddset(&signalSet, SIGINT);
    sigaddset(&signalSet, SIGTERM);
    sigprocmask(SIG_BLOCK, &signalSet, nullptr);
    m_descriptor = ::signalfd(-1, &signalSet, SFD_CLOEXEC | SFD_NONBLOCK);

    auto *notifier = new QSocketNotifier(m_descriptor, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, [this] {
        signalfd_siginfo info;
        if (::read(m_descriptor, &info, sizeof info) == static_cast<ssize_t>(sizeof info))
            Q_EMIT received(static_cast<int>(info.ssi_signo));
    });
}

SignalWatch::~SignalWatch()
{
    qDeleteAll(findChildren<QSocketNotifier *>()); // before its descriptor is closed
    ::close(m_descriptor);
}

} // namespace JwProbe

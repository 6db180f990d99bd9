#include "outputwatch.h"

#include "output.h"

#include <QSocketNotifier>

#include <csignal>

#include <sys/epoll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace JwProbe {

namespace {

bool isPipeOrSocket(int descriptor)
{
    struct stat status = {};
    return ::fstat(descriptor, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode));
}

} // namespace

OutputWatch::OutputWatch(QObject *parent)
    : QObject(parent)
    , m_epoll(isPipeOrSocket(STDOUT_FILENO) ? ::epoll_create1(EPOLL_CLOEXEC) : -1)
{
    // With no events, epoll reports only an error and a hangup. QSocketNotifier alone would also report bytes to read.
    // A socket may have such bytes, and always reports them if its reading side is closed, as for systemd's journal.
    epoll_event event = {};
    if (m_epoll < 0 || ::epoll_ctl(m_epoll, EPOLL_CTL_ADD, STDOUT_FILENO, &event) != 0)
        return;
    m_notifier = new QSocketNotifier(m_epoll, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] {
        m_notifier->setEnabled(false);
        std::raise(SIGPIPE); // the signal that a failed write sends
        complainOfOutput(QStringLiteral("nobody reads it any more"));
        Q_EMIT lost();
    });
}

OutputWatch::~OutputWatch()
{
    delete m_notifier; // before its descriptor is closed
    if (m_epoll >= 0)
        ::close(m_epoll);
}

} // namespace JwProbe

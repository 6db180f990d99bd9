#include "signalwatch.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>

#include <sys/eventfd.h>
#include <unistd.h>

namespace JwProbe {

namespace {

constexpr uint patience = 1; // seconds after the first signal; the event loop must react in this time
constexpr int signalStatus = 128; // this plus the signal's number is the exit status, as in shells

int wakeUp = -1;
volatile std::sig_atomic_t fixedStatus = -1;
volatile std::sig_atomic_t exitStatus = -1; // -1 until the first signal

// Handles a Unix signal. A signal can interrupt any function, so this one calls only functions that POSIX allows in a
// signal handler.
void onSignal(int number)
{
    if (number == SIGALRM)
        ::_exit(exitStatus);
    if (exitStatus >= 0)
        return;
    exitStatus = fixedStatus >= 0 ? fixedStatus : signalStatus + number;
    ::alarm(patience);
    const int error = errno;
    if (::eventfd_write(wakeUp, 1) != 0)
        ::_exit(exitStatus);
    errno = error;
}

void setHandler(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART; // so that a write continues after the signal has interrupted it
    sigset_t signalSet;
    sigemptyset(&signalSet);
    for (const int number : {SIGINT, SIGTERM, SIGALRM}) {
        ::sigaction(number, &action, nullptr);
        sigaddset(&signalSet, number);
    }
    ::sigprocmask(SIG_UNBLOCK, &signalSet, nullptr);
}

} // namespace

SignalWatch::SignalWatch(QObject *parent)
    : QObject(parent)
{
    wakeUp = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    auto *notifier = new QSocketNotifier(wakeUp, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, [this, notifier] {
        notifier->setEnabled(false);
        Q_EMIT received(exitStatus);
    });
    setHandler(&onSignal);
}

SignalWatch::~SignalWatch()
{
    ::alarm(0);
    setHandler(SIG_DFL);
    qDeleteAll(findChildren<QSocketNotifier *>()); // before close(), because a notifier needs an open descriptor
    ::close(wakeUp);
}

void SignalWatch::setExitStatus(int status)
{
    fixedStatus = status;
}

} // namespace JwProbe

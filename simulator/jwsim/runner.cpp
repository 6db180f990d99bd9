#include "runner.h"

#include <QSocketNotifier>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

namespace JwSimulator {

namespace {

constexpr int patience = 5000; // milliseconds that the program gets to end after a signal; then SIGKILL ends it
constexpr int notFound = 127;
constexpr int notStarted = 126;

} // namespace

Runner::Runner()
{
    sigset_t mask;
    ::sigemptyset(&mask);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGCHLD})
        ::sigaddset(&mask, signal);
    ::pthread_sigmask(SIG_BLOCK, &mask, &m_formerMask);
    // This process may have inherited SIGCHLD as ignored. Then no signal would report the end of the program, so set
    // the default action.
    m_formerChildAction = ::signal(SIGCHLD, SIG_DFL);
    m_signals = ::signalfd(-1, &mask, SFD_CLOEXEC | SFD_NONBLOCK);
    m_patience.setSingleShot(true);
    QObject::connect(&m_patience, &QTimer::timeout, [this] { ::kill(m_child, SIGKILL); });
}

Runner::~Runner()
{
    m_notifier.reset();
    if (m_signals >= 0)
        ::close(m_signals);
}

int Runner::run(char **command)
{
    m_notifier = std::make_unique<QSocketNotifier>(m_signals, QSocketNotifier::Read);
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated, [this] { readSignals(); });
    if (start(command))
        m_loop.exec();
    return m_status;
}

bool Runner::start(char **command)
{
    int failure[2];
    if (::pipe2(failure, O_CLOEXEC) != 0 || (m_child = ::fork()) < 0) {
        std::fprintf(stderr, "jwsim: cannot start a process: %s\n", std::strerror(errno));
        m_status = notStarted;
        return false;
    }
    if (m_child == 0) {
        ::signal(SIGCHLD, m_formerChildAction);
        ::sigprocmask(SIG_SETMASK, &m_formerMask, nullptr);
        ::execvp(command[0], command);
        const int error = errno;
        const ssize_t written = ::write(failure[1], &error, sizeof error);
        ::_exit(written == sizeof error ? notStarted : notFound);
    }
    ::close(failure[1]);
    // When the program starts, the system closes the pipe. So if the read returns no bytes, the program has started.
    int error = 0;
    ssize_t count = 0;
    do {
        count = ::read(failure[0], &error, sizeof error);
    } while (count < 0 && errno == EINTR);
    ::close(failure[0]);
    m_started = count != sizeof error;
    if (m_started)
        return true;
    ::waitpid(m_child, nullptr, 0);
    m_status = error == ENOENT || error == ENOTDIR ? notFound : notStarted;
    std::fprintf(stderr, "jwsim: cannot run %s: %s; give a program in PATH or a path\n", command[0],
                 std::strerror(error));
    return false;
}

void Runner::readSignals()
{
    signalfd_siginfo info;
    // When the program has ended, reap() disables the notifier. From then on, jwsim passes on no signal, because
    // another process may get the program's id.
    while (m_notifier->isEnabled() && ::read(m_signals, &info, sizeof info) == sizeof info) {
        if (info.ssi_signo == SIGCHLD)
            reap();
        else
            passOn(static_cast<int>(info.ssi_signo), info.ssi_code == SI_KERNEL);
    }
}

void Runner::passOn(int signal, bool fromTerminal)
{
    // A terminal sends its signals (for example after Ctrl-C) to jwsim and to the program. So jwsim passes on only
    // signals from other senders, because some programs end at once if they receive a signal twice.
    if (!fromTerminal)
        ::kill(m_child, signal);
    // The program may use Ctrl-C and Ctrl-\ for other things, so these signals start no time limit. If the terminal
    // hangs up, the program has to end.
    if ((!fromTerminal || signal == SIGHUP) && !m_patience.isActive())
        m_patience.start(patience);
}

void Runner::reap()
{
    int status = 0;
    if (::waitpid(m_child, &status, WNOHANG) != m_child)
        return;
    m_patience.stop();
    m_notifier->setEnabled(false);
    m_status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    m_loop.quit();
}

} // namespace JwSimulator

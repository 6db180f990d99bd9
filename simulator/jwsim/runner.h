#pragma once

#include <QtCore/QEventLoop>
#include <QtCore/QTimer>

#include <memory>
#include <signal.h>
#include <sys/types.h>

class QSocketNotifier;

namespace JwSimulator {

/**
 * Runs one program as a shell would, with this process's terminal, and passes signals on to it.
 *
 * From construction on, this process takes SIGINT, SIGTERM, SIGHUP and SIGQUIT from a descriptor. Construct it before
 * anything that starts a thread: another thread that had not blocked them would end the process.
 */
class Runner
{
public:
    Runner();
    /** The signals stay blocked: what comes after must not be cut short. */
    ~Runner();
    Runner(const Runner &) = delete;
    Runner &operator=(const Runner &) = delete;

    /** Runs it to its end, in the event loop. The result is the exit status to give to our own caller. */
    int run(char **command);
    /** Whether run() could start the program. */
    bool hasStarted() const { return m_started; }

private:
    bool start(char **command);
    void readSignals();
    void passOn(int signal, bool fromTerminal);
    void reap();

    sigset_t m_formerMask;
    sighandler_t m_formerChildAction;
    int m_signals = -1;
    std::unique_ptr<QSocketNotifier> m_notifier;
    QTimer m_patience;
    QEventLoop m_loop;
    pid_t m_child = -1;
    int m_status = 0;
    bool m_started = false;
};

} // namespace JwSimulator

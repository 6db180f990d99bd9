#pragma once

#include <QEventLoop>
#include <QTimer>

#include <memory>
#include <signal.h>
#include <sys/types.h>

class QSocketNotifier;

namespace JwSimulator {

/**
 * Runs one program in this process's terminal, as a shell does, and passes signals on to the program.
 *
 * The constructor blocks SIGINT, SIGTERM, SIGHUP and SIGQUIT; this process then reads them from a descriptor. Construct
 * the Runner before anything that starts a thread: in a thread that had not blocked them, they would end the process.
 */
class Runner
{
public:
    Runner();
    /// Leaves the signals blocked, so that none of them interrupts the work that follows.
    ~Runner();
    Runner(const Runner &) = delete;
    Runner &operator=(const Runner &) = delete;

    /// Runs the program to its end, in the event loop. Returns the exit status for our own caller.
    int run(char **command);
    /// Whether run() could start the program.
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

#pragma once

#include <QEventLoop>
#include <QTimer>

#include <memory>
#include <signal.h>
#include <sys/types.h>

class QSocketNotifier;

namespace JwSimulator {

/**
 * Runs one program in the terminal of this process, like a shell, and passes signals on to the program.
 *
 * The constructor blocks SIGINT, SIGTERM, SIGHUP and SIGQUIT, and run() reads these signals from a descriptor.
 * Construct the Runner before anything that starts a thread. A thread that was started before does not block the
 * signals, so a signal in that thread would end the process.
 */
class Runner
{
public:
    Runner();
    /// Leaves the signals blocked, so that no signal interrupts the work after run().
    ~Runner();
    Runner(const Runner &) = delete;
    Runner &operator=(const Runner &) = delete;

    /// Runs the program to its end, in the event loop. Returns the exit status with which this process should end.
    int run(char **command);
    /// Returns whether run() could start the program.
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

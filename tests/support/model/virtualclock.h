#pragma once

#include <QAbstractEventDispatcher>
#include <QList>

#include <atomic>
#include <functional>

class QEventLoop;

/// An event dispatcher on which time costs nothing: timers run by a clock of its own, which moves only when no event is
/// posted and no descriptor is ready. Descriptors are real.
///
/// Everything has a fixed order: posted events, then one descriptor at a time (those that can be written to first, then
/// in the order in which they were registered), then one timer at a time (the earliest; of siblings that are due at the
/// same moment the one created first). A poll() of either end of a pty waits for the kernel to move what is under way
/// on it, so nothing that was sent before is still to come once no descriptor is ready.
///
/// It must be the dispatcher of the application before that is made (QCoreApplication::setEventDispatcher()), and knows
/// of no other thread.
class VirtualClock : public QAbstractEventDispatcher
{
    Q_OBJECT

public:
    /// Runs a new event loop until so many ms have passed and nothing is left to do. May be called from within events.
    /// False when it had to give up, since descriptors stayed ready for ever.
    bool run(int milliseconds);
    /// The events that come from outside the process.
    struct Outside
    {
        std::function<qint64()> nextDue; ///< by now(); -1 for never
        std::function<void()> happen;
    };
    /// It happens when nothing else is left to do, and before a timer that is due at the same moment.
    void setOutside(const Outside &outside) { m_outside = outside; }
    /// Milliseconds that passed since the start.
    qint64 now() const { return m_now; }

    bool processEvents(QEventLoop::ProcessEventsFlags flags) override;
    bool hasPendingEvents() override;
    void registerSocketNotifier(QSocketNotifier *notifier) override;
    void unregisterSocketNotifier(QSocketNotifier *notifier) override;
    using QAbstractEventDispatcher::registerTimer;
    void registerTimer(int id, int interval, Qt::TimerType type, QObject *object) override;
    bool unregisterTimer(int id) override;
    bool unregisterTimers(QObject *object) override;
    QList<TimerInfo> registeredTimers(QObject *object) const override;
    int remainingTime(int id) override;
    void wakeUp() override;
    void interrupt() override;
    void flush() override { }

private:
    struct Timer
    {
        int id;
        int interval;
        Qt::TimerType type;
        QObject *object;
        qint64 due;
    };
    struct End
    {
        qint64 time;
        QEventLoop *loop;
        int served; // descriptors, since the time moved
        bool gaveUp;
    };

    bool serveDescriptor(int timeout);
    bool serveOutside();
    bool serveTimer();
    bool isWithinRun(qint64 due) const;

    QList<QSocketNotifier *> m_notifiers; // in the order of registration
    QList<Timer> m_timers; // likewise
    Outside m_outside;
    qint64 m_now = 0;
    End m_end = {0, nullptr, 0, false}; // of the innermost run()
    std::atomic<bool> m_posted = {false};
    bool m_interrupted = false;
};

#pragma once

#include <QAbstractEventDispatcher>
#include <QList>

#include <atomic>
#include <functional>
#include <type_traits>

class QEventLoop;

/// An event dispatcher with the same functions for Qt 5 and Qt 6. Qt 6 removed two of them, and changed a type.
class EventDispatcher : public QAbstractEventDispatcher
{
public:
    using Interval = std::conditional_t<QT_VERSION_MAJOR == 5, int, qint64>; ///< of a timer, in ms
    virtual bool hasPendingEvents() = 0;
    virtual void flush() = 0;
};

/// An event dispatcher with a virtual clock, so that tests don't wait for timers. When no event is posted and no
/// descriptor is ready, the clock jumps to the time of the next timer or outside event (see setOutside()). Only the
/// time is virtual: the descriptors are real.
///
/// Events have a fixed order:
/// - posted events
/// - one descriptor at a time: writable descriptors first, otherwise in the order of registration
/// - one timer at a time: the timer that is due first; if timers of one parent are due together, in order of creation
///
/// A poll() on a pseudo terminal waits until the kernel has moved all bytes to the other end. So when no descriptor is
/// ready, all sent bytes have arrived.
///
/// Call QCoreApplication::setEventDispatcher() with the clock before the application is created. Use one thread only.
class VirtualClock : public EventDispatcher
{
    Q_OBJECT

public:
    /// Runs a new event loop until this virtual time has passed and no event is left. May be called while an event is
    /// handled. Returns false if a descriptor stays ready for ever, because then the clock never moves.
    bool run(int milliseconds);
    /// The events from outside the process, for example bytes that a board sends.
    struct Outside
    {
        std::function<qint64()> nextDue; ///< returns the time of the next event on this clock, or -1 for no event
        std::function<void()> happen;
    };
    /// Sets the outside events. An outside event happens when no other event is left. If a timer is due at the same
    /// time, the outside event happens first.
    void setOutside(const Outside &outside) { m_outside = outside; }
    /// Returns the virtual time in milliseconds since the start.
    qint64 now() const { return m_now; }

    bool processEvents(QEventLoop::ProcessEventsFlags flags) override;
    bool hasPendingEvents() override;
    void registerSocketNotifier(QSocketNotifier *notifier) override;
    void unregisterSocketNotifier(QSocketNotifier *notifier) override;
    using QAbstractEventDispatcher::registerTimer;
    void registerTimer(int id, Interval interval, Qt::TimerType type, QObject *object) override;
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
        int served; // number of descriptor events since the clock last moved
        bool gaveUp;
    };

    bool serveDescriptor(int timeout);
    bool serveOutside();
    bool serveTimer();
    bool isWithinRun(qint64 due) const;

    QList<QSocketNotifier *> m_notifiers; // in the order of registration
    QList<Timer> m_timers; // in the order of registration
    Outside m_outside;
    qint64 m_now = 0;
    End m_end = {0, nullptr, 0, false}; // end of the innermost run()
    std::atomic<bool> m_posted = {false};
    bool m_interrupted = false;
};

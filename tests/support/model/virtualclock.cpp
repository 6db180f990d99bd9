#include "virtualclock.h"

#include <QCoreApplication>
#include <QEvent>
#include <QSocketNotifier>

#include <algorithm>
#include <poll.h>
#include <tuple>
#include <utility>
#include <vector>

namespace {

const int mostServedAtOnce = 10000;

short awaited(const QSocketNotifier *notifier)
{
    switch (notifier->type()) {
    case QSocketNotifier::Read:
        return POLLIN;
    case QSocketNotifier::Write:
        return POLLOUT;
    default:
        return POLLPRI;
    }
}

auto siblingPosition(QObject *object)
{
    return object->parent() ? object->parent()->children().indexOf(object) : QObjectList::size_type(0);
}

} // namespace

bool VirtualClock::run(int milliseconds)
{
    QEventLoop loop;
    const End outer = m_end;
    m_end = {m_now + milliseconds, &loop, 0, false};
    loop.exec();
    const bool cameToRest = !m_end.gaveUp;
    m_end = outer;
    return cameToRest;
}

bool VirtualClock::processEvents(QEventLoop::ProcessEventsFlags flags)
{
    m_interrupted = false;
    Q_EMIT awake();
    m_posted = false;
    QCoreApplication::sendPostedEvents();
    if (m_interrupted || m_posted)
        return true;
    const bool descriptors = !(flags & QEventLoop::ExcludeSocketNotifiers);
    if (descriptors && serveDescriptor(0)) {
        if (m_end.loop && ++m_end.served > mostServedAtOnce) {
            m_end.gaveUp = true;
            m_end.loop->quit();
        }
        return true;
    }
    if (!(flags & QEventLoop::WaitForMoreEvents))
        return false;
    Q_EMIT aboutToBlock();
    if (serveOutside() || serveTimer())
        return true;
    if (m_end.loop) {
        m_now = std::max(m_now, m_end.time);
        m_end.loop->quit();
        return false;
    }
    return descriptors && serveDescriptor(-1);
}

bool VirtualClock::hasPendingEvents()
{
    return m_posted;
}

bool VirtualClock::serveDescriptor(int timeout)
{
    std::vector<pollfd> polled;
    for (const QSocketNotifier *notifier : std::as_const(m_notifiers))
        polled.push_back({static_cast<int>(notifier->socket()), awaited(notifier), 0});
    if (::poll(polled.data(), polled.size(), timeout) <= 0)
        return false;
    for (const bool writable : {true, false}) {
        for (size_t i = 0; i < polled.size(); ++i) {
            QSocketNotifier *const notifier = m_notifiers[static_cast<int>(i)];
            if (polled[i].revents == 0 || (notifier->type() == QSocketNotifier::Write) != writable)
                continue;
            QEvent event(QEvent::SockAct);
            QCoreApplication::sendEvent(notifier, &event);
            return true;
        }
    }
    return false;
}

bool VirtualClock::isWithinRun(qint64 due) const
{
    return !m_end.loop || due <= std::max(m_now, m_end.time);
}

bool VirtualClock::serveOutside()
{
    const qint64 due = m_outside.nextDue ? m_outside.nextDue() : -1;
    const auto isEarlier = [due](const Timer &timer) { return timer.due < due; };
    if (due < 0 || !isWithinRun(due) || std::any_of(m_timers.cbegin(), m_timers.cend(), isEarlier))
        return false;
    m_now = std::max(m_now, due);
    m_outside.happen();
    return true;
}

bool VirtualClock::serveTimer()
{
    const auto order = [](const Timer &timer) { return std::make_tuple(timer.due, siblingPosition(timer.object)); };
    const auto next = std::min_element(m_timers.begin(), m_timers.end(),
                                       [order](const Timer &a, const Timer &b) { return order(a) < order(b); });
    if (next == m_timers.end() || !isWithinRun(next->due))
        return false;
    m_now = std::max(m_now, next->due);
    m_end.served = 0;
    next->due = m_now + next->interval;
    QTimerEvent event(next->id);
    QCoreApplication::sendEvent(next->object, &event);
    return true;
}

void VirtualClock::registerSocketNotifier(QSocketNotifier *notifier)
{
    m_notifiers.append(notifier);
}

void VirtualClock::unregisterSocketNotifier(QSocketNotifier *notifier)
{
    m_notifiers.removeOne(notifier);
}

void VirtualClock::registerTimer(int id, Interval interval, Qt::TimerType type, QObject *object)
{
    m_timers.append({id, static_cast<int>(interval), type, object, m_now + interval});
}

bool VirtualClock::unregisterTimer(int id)
{
    const auto gone = std::remove_if(m_timers.begin(), m_timers.end(), [id](const Timer &t) { return t.id == id; });
    const bool found = gone != m_timers.end();
    m_timers.erase(gone, m_timers.end());
    return found;
}

bool VirtualClock::unregisterTimers(QObject *object)
{
    const auto gone =
        std::remove_if(m_timers.begin(), m_timers.end(), [object](const Timer &t) { return t.object == object; });
    const bool found = gone != m_timers.end();
    m_timers.erase(gone, m_timers.end());
    return found;
}

QList<QAbstractEventDispatcher::TimerInfo> VirtualClock::registeredTimers(QObject *object) const
{
    QList<TimerInfo> found;
    for (const Timer &timer : m_timers) {
        if (timer.object == object)
            found.append(TimerInfo(timer.id, timer.interval, timer.type));
    }
    return found;
}

int VirtualClock::remainingTime(int id)
{
    for (const Timer &timer : std::as_const(m_timers)) {
        if (timer.id == id)
            return static_cast<int>(std::max<qint64>(0, timer.due - m_now));
    }
    return -1;
}

void VirtualClock::wakeUp()
{
    m_posted = true;
}

void VirtualClock::interrupt()
{
    m_interrupted = true;
}

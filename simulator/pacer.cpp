#include <simulator/pacer.h>

namespace JwSimulator {

Pacer::Pacer(int speed, QObject *parent)
    : QObject(parent)
    , m_speed(speed)
{
    m_timer.setTimerType(Qt::PreciseTimer);
    m_timer.setInterval(1);
    connect(&m_timer, &QTimer::timeout, this, [this] {
        ++m_ticks;
        release();
    });
}

void Pacer::push(const QByteArray &bytes)
{
    if (m_speed == 0) {
        Q_EMIT released(bytes);
        return;
    }
    m_waiting += bytes;
    if (!m_timer.isActive() && !m_waiting.isEmpty()) {
        m_ticks = 0;
        m_released = 0;
        m_timer.start();
    }
}

void Pacer::clear()
{
    m_waiting.clear();
    m_timer.stop();
}

void Pacer::release()
{
    const qint64 due = (2 * m_ticks + 1) * m_speed / 20000;
    const QByteArray bytes = m_waiting.left(static_cast<int>(due - m_released));
    if (bytes.isEmpty())
        return;
    m_released += bytes.size();
    m_waiting.remove(0, bytes.size());
    if (m_waiting.isEmpty())
        m_timer.stop();
    Q_EMIT released(bytes);
}

} // namespace JwSimulator

#include "pacer.h"

namespace JwSimulator {

namespace {

constexpr int bridgeSpeed = 115200; // baud
constexpr int packetSize = 64; // largest number of bytes in a packet of full-speed USB (12 Mbit/s)
constexpr int packetsPerFrame = 19; // largest number of packets in 1 ms of full-speed USB

} // namespace

Pacer::Pacer(BoardConfig::Usb usb, int speed, QObject *parent)
    : QObject(parent)
    , m_usb(usb)
    , m_speed(usb == BoardConfig::Usb::Bridge && speed == 0 ? bridgeSpeed : speed)
{
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, [this] {
        ++m_ticks;
        if (m_timer.interval() != interval())
            m_timer.setInterval(interval());
        const QByteArray bytes = m_waiting.left(static_cast<int>(due()));
        if (bytes.isEmpty())
            return;
        m_released += bytes.size();
        m_waiting.remove(0, bytes.size());
        Q_EMIT released(bytes);
        if (m_waiting.isEmpty()) // not empty if bytes are left, or if a slot of released() pushed bytes
            m_timer.stop();
    });
}

void Pacer::push(const QByteArray &bytes)
{
    if (m_usb == BoardConfig::Usb::None && m_speed == 0) {
        Q_EMIT released(bytes);
        return;
    }
    m_waiting += bytes;
    if (!m_timer.isActive() && !m_waiting.isEmpty()) {
        if (m_usb != BoardConfig::Usb::Cdc)
            m_ticks = 0;
        m_released = 0;
        m_timer.start(interval());
    }
}

void Pacer::clear()
{
    m_waiting.clear();
    m_timer.stop();
}

// Returns the milliseconds to the next tick of the timer.
int Pacer::interval() const
{
    return m_usb == BoardConfig::Usb::Cdc && m_ticks % packetsPerFrame != 0 ? 0 : 1;
}

// Returns the number of bytes that arrive at this tick.
qint64 Pacer::due() const
{
    switch (m_usb) {
    case BoardConfig::Usb::Cdc:
        return packetSize;
    case BoardConfig::Usb::Bridge:
        return m_ticks * m_speed / 10000 - m_released;
    case BoardConfig::Usb::None:
        return (2 * m_ticks + 1) * m_speed / 20000 - m_released;
    }
    Q_UNREACHABLE();
}

} // namespace JwSimulator

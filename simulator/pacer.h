#pragma once

#include <simulator/boardconfig.h>

#include <QByteArray>
#include <QObject>
#include <QTimer>

namespace JwSimulator {

/**
 * One direction of the serial line between board and host. push() takes the bytes that one end sends. released() is
 * emitted whenever the other end receives bytes, with the bytes that arrive together.
 *
 * The pacer reads no clock. It counts the ticks of a QTimer: one tick in a millisecond, or with Usb::Cdc one tick for
 * each packet. So a slow machine delays the pieces but does not change them:
 * - Usb::None without a speed releases everything inside push().
 * - Usb::None with a speed releases each byte in the millisecond that is nearest to the end of the byte. A byte takes
 *   ten bit times.
 * - Usb::Bridge releases, every millisecond, the bytes that ended on the serial line in that millisecond.
 * - Usb::Cdc releases one packet of up to 64 bytes in each turn of the event loop, so that a host can see each packet.
 *   After 19 packets, the most that full-speed USB carries in a millisecond, it waits for the next millisecond.
 */
class Pacer : public QObject
{
    Q_OBJECT

public:
    /// The arguments have the same meaning as BoardConfig::usb and BoardConfig::speed.
    Pacer(BoardConfig::Usb usb, int speed, QObject *parent = nullptr);

    void push(const QByteArray &bytes);
    /// Returns the number of bytes that are still on the line.
    auto waiting() const { return m_waiting.size(); }
    /// Drops the bytes that are still on the line.
    void clear();

Q_SIGNALS:
    void released(const QByteArray &bytes);

private:
    int interval() const;
    qint64 due() const;

    const BoardConfig::Usb m_usb;
    const int m_speed;
    QTimer m_timer;
    QByteArray m_waiting;
    qint64 m_ticks = 0; // number of ticks since the line became busy; with Usb::Cdc, since the Pacer was made
    qint64 m_released = 0; // number of bytes released since the line became busy
};

} // namespace JwSimulator

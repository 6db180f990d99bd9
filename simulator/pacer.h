#pragma once

#include <simulator/boardconfig.h>

#include <QByteArray>
#include <QObject>
#include <QTimer>

namespace JwSimulator {

/**
 * One direction of the line between board and host. The pacer takes the bytes that one end sends. It releases them in
 * the pieces, and at the times, in which the other end would receive them.
 *
 * The pacer measures time only by its QTimer, in milliseconds since the line became busy:
 * - A plain line without a speed releases everything inside push().
 * - A plain line with a speed releases each byte in the millisecond that is nearest to the end of the byte. A byte
 *   takes ten bit times.
 * - A bridge releases, every millisecond, the whole bytes that the UART carried in that millisecond.
 * - CDC releases one packet of up to 64 bytes in each turn of the event loop, so that a host can see each packet. When
 *   the packets fill one full-speed frame, CDC waits for the next millisecond.
 */
class Pacer : public QObject
{
    Q_OBJECT

public:
    /// `speed` is in baud. BoardConfig::usb and BoardConfig::speed describe the arguments.
    Pacer(BoardConfig::Usb usb, int speed, QObject *parent = nullptr);

    void push(const QByteArray &bytes);
    /// Returns the number of bytes that are still on the line.
    int waiting() const { return m_waiting.size(); }
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
    qint64 m_ticks = 0; // number of ticks of the timer since the line became busy; with CDC, since the start
    qint64 m_released = 0; // number of bytes released since the line became busy
};

} // namespace JwSimulator

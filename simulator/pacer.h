#pragma once

#include <simulator/boardconfig.h>

#include <QtCore/QByteArray>
#include <QtCore/QObject>
#include <QtCore/QTimer>

namespace JwSimulator {

/**
 * One direction of a board's line: takes bytes and gives them out in the pieces and at the times at which they arrive.
 *
 * It measures time by its QTimer alone, in milliseconds since the line became busy:
 * - a plain line without a speed gives everything out inside push();
 * - a plain line gives each byte out in the millisecond that is nearest to the byte's end, ten bit times after the one
 *   before;
 * - a bridge gives out each millisecond what the UART brought in it, whole bytes only;
 * - CDC gives out one packet of up to 64 bytes in each turn of the event loop, so that a host can see each, and waits
 *   for the next millisecond before as many as a frame of full speed holds.
 */
class Pacer : public QObject
{
    Q_OBJECT

public:
    /** @p speed in baud; as BoardConfig has both. */
    Pacer(BoardConfig::Usb usb, int speed, QObject *parent = nullptr);

    void push(const QByteArray &bytes);
    /** Bytes that are still on the line. */
    int waiting() const { return m_waiting.size(); }
    /** Forgets what is still on the line. */
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
    qint64 m_ticks = 0; // of the timer since the line became busy; with CDC, all
    qint64 m_released = 0; // bytes given out since then
};

} // namespace JwSimulator

#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QObject>
#include <QtCore/QTimer>

namespace JwSimulator {

/**
 * One direction of a serial line: takes bytes and gives them out at the line's speed, ten bit times apart.
 *
 * It measures time by its QTimer alone, once a millisecond, and gives each byte out in the millisecond that is nearest
 * to the byte's end on a real line.
 */
class Pacer : public QObject
{
    Q_OBJECT

public:
    /** @p speed in baud; 0 gives everything out inside push(). */
    explicit Pacer(int speed, QObject *parent = nullptr);

    void push(const QByteArray &bytes);
    /** Bytes that are still on the line. */
    int waiting() const { return m_waiting.size(); }
    /** Forgets what is still on the line. */
    void clear();

Q_SIGNALS:
    void released(const QByteArray &bytes);

private:
    void release();

    const int m_speed;
    QTimer m_timer;
    QByteArray m_waiting;
    qint64 m_ticks = 0; // milliseconds since the line became busy
    qint64 m_released = 0; // bytes given out since then
};

} // namespace JwSimulator

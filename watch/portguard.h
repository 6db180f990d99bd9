#pragma once

#include <QObject>
#include <QVector>

class QSerialPort;

namespace JwDevice {

class Communicator;

/**
 * Deletes a port when that is safe. A QSerialPort must not be deleted while it emits a signal, and a receiver of a
 * signal may run an event loop, in which the board is lost. QObject::deleteLater() alone would delete the port in that
 * loop.
 */
class PortGuard : public QObject
{
    Q_OBJECT

public:
    /// Becomes a child of `port`, and `communicator` too. Binds `communicator` to `port` again, because this object
    /// must see each signal of the port before and after `communicator` does.
    PortGuard(QSerialPort *port, Communicator *communicator);

    /// When dispose() deletes a port that is not handling a signal.
    enum When {
        Now, ///< at once, if no event loop runs that could do it later
        Later, ///< from the event loop
    };
    /// Closes the port at once. Deletes the port and its children as soon as no signal of the port is being handled.
    void dispose(When when);

private:
    void mark(); // notes that a signal of the port is handled in the event loop of this level
    void begin();
    void end();
    void deleteWhenSafe();

    QSerialPort *const m_port;
    int m_depth = 0; // number of signals of the port that the Communicator handles now
    QVector<int> m_levels; // event loops, by level, in which signals of the port may still be handled; ascending
};

} // namespace JwDevice

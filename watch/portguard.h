#pragma once

#include <QObject>

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
    /// Becomes a child of `port`, and `communicator` too. Unbinds `communicator`, which must be bound later, because this
    /// object must see each signal of the port before `communicator` does. May be called in a signal of the port.
    PortGuard(QSerialPort *port, Communicator *communicator);

    /// Binds `communicator` to the port again. Bytes that arrived in the meantime are not lost.
    void bind(Communicator *communicator);

    /// When dispose() deletes a port that is not handling a signal.
    enum When {
        Now, ///< at once, if no event loop runs that could do it later
        Later, ///< from the event loop
    };
    /// Closes the port at once. Deletes the port and its children as soon as no signal of the port is being handled.
    void dispose(When when);

private:
    void onSignal();
    void deleteWhenSafe();

    QSerialPort *const m_port;
    int m_signals = 0; // signals of the port that may still be handled
    int m_signalsOutside = 0; // those of them that came while no event loop ran, but processEvents()
    bool m_isDisposed = false;
};

} // namespace JwDevice

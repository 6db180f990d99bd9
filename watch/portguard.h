#pragma once

#include <QObject>

class QSerialPort;

namespace JwDevice {

class Communicator;

/**
 * Deletes a port when that is safe. A QSerialPort must not be deleted while it emits a signal. But a receiver of such a
 * signal may run an event loop, and the board may be lost in that loop. Then QObject::deleteLater() alone would delete
 * the port in that loop, while the port is still emitting the signal.
 */
class PortGuard : public QObject
{
    Q_OBJECT

public:
    /// Makes this object and `communicator` children of `port`. Unbinds `communicator` from `port`, because this object
    /// must receive each signal of the port before `communicator` does. Call bind() later. This constructor may be
    /// called in a slot of a signal of the port.
    PortGuard(QSerialPort *port, Communicator *communicator);

    /// Binds `communicator` to the port again. Bytes that arrived in the meantime are not lost.
    void bind(Communicator *communicator);

    /// When dispose() deletes the port, if no receiver is handling a signal of the port.
    enum When {
        Now, ///< at once, if no event loop runs that could do it later
        Later, ///< from the event loop
    };
    /// Closes the port at once. Deletes the port and its children as soon as no receiver is handling a signal of the
    /// port.
    void dispose(When when);

private:
    void onSignal();
    void deleteWhenSafe();

    QSerialPort *const m_port;
    int m_signals = 0; // number of signals of the port that receivers may still be handling
    int m_signalsOutside = 0; // how many of m_signals came from processEvents(), while no event loop ran
    bool m_isDisposed = false;
};

} // namespace JwDevice

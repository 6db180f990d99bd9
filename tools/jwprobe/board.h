#pragma once

#include "portidentity.h"
#include "reply.h"

#include <device/type.h>

#include <QObject>

class QSerialPort;

namespace JwDevice {
class Communicator;
}

namespace JwProbe {

/// A board that was found, with its open connection. It owns the Communicator and the port behind it.
class Board : public QObject
{
    Q_OBJECT

public:
    /// Takes over `comm` as it comes from the search. `reply` is what the board was recognised by, `milliseconds` the
    /// time that it took.
    Board(JwDevice::Type type, JwDevice::Communicator *comm, const PortIdentity &port, const Reply &reply,
          double milliseconds);
    /// Not to be called from within a signal of the board.
    ~Board() override;

    JwDevice::Type type() const { return m_type; }
    const PortIdentity &port() const { return m_port; }
    const Reply &reply() const { return m_reply; }
    double milliseconds() const { return m_milliseconds; }
    /// False once the port failed: the cable was pulled. Then there is nothing more to do with it.
    bool isConnected() const;

    JwDevice::Communicator *communicator() const { return m_comm; }

Q_SIGNALS:
    /// The port failed, and was closed.
    void lost();

private:
    const JwDevice::Type m_type;
    JwDevice::Communicator *const m_comm;
    QSerialPort *const m_serialPort;
    const PortIdentity m_port;
    const Reply m_reply;
    const double m_milliseconds;
};

} // namespace JwProbe

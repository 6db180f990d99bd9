#pragma once

#include "portidentity.h"

#include <device/portreport.h>
#include <device/type.h>

#include <QObject>
#include <QString>

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
    /// Takes over `comm` as it comes from the search. `report` is that of its port at this moment, `milliseconds` the
    /// time that it took.
    Board(JwDevice::Communicator *comm, const PortIdentity &port, const JwDevice::PortReport &report,
          double milliseconds);
    /// Not to be called from within a signal of the board.
    ~Board() override;

    JwDevice::Type type() const { return m_report.type; }
    const PortIdentity &port() const { return m_port; }
    const JwDevice::PortReport &report() const { return m_report; }
    const QString &hardwareVersion() const { return m_hardwareVersion; } ///< empty when it didn't tell
    double milliseconds() const { return m_milliseconds; }
    /// False once the port failed: the cable was pulled. Then there is nothing more to do with it.
    bool isConnected() const;

    JwDevice::Communicator *communicator() const { return m_comm; }

Q_SIGNALS:
    /// The port failed, and was closed.
    void lost();

private:
    JwDevice::Communicator *const m_comm;
    QSerialPort *const m_serialPort;
    const PortIdentity m_port;
    const JwDevice::PortReport m_report;
    const QString m_hardwareVersion;
    const double m_milliseconds;
};

} // namespace JwProbe

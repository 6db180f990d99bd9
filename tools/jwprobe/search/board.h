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

/// A found board with its open connection. Owns the Communicator and its port.
class Board : public QObject
{
    Q_OBJECT

public:
    /// Takes over `comm` as the Initializer hands it over. `report` is the report of its port at that moment,
    /// `milliseconds` the time since the search started.
    Board(JwDevice::Communicator *comm, const PortIdentity &port, const JwDevice::PortReport &report,
          double milliseconds);
    /// Don't delete a board within its own signal.
    ~Board() override;

    JwDevice::Type type() const { return m_report.type; }
    const PortIdentity &port() const { return m_port; }
    const JwDevice::PortReport &report() const { return m_report; }
    const QString &hardwareVersion() const { return m_hardwareVersion; } ///< empty if the board did not send it
    double milliseconds() const { return m_milliseconds; }
    /// False after the port was lost. Nothing can be sent or received then.
    bool isConnected() const;
    /// Why the board is not connected: "cable pulled" if the system no longer has the port, else the port's error.
    QString lossText() const;

    void send(const QString &sentence);
    /// Takes the oldest received payload. Returns false if there is none.
    bool receive(QString &payload);
    const QSerialPort *serialPort() const { return m_serialPort; }

Q_SIGNALS:
    /// A payload was received.
    void readyRead();
    /// The port was lost and is closed.
    void lost();

private:
    void close(bool isDeviceGone);
    bool isGone() const;
    void useCommunicator(JwDevice::Communicator *comm);

    JwDevice::Communicator *m_comm = nullptr;
    int m_sent = 0; // payloads written by m_comm
    QSerialPort *const m_serialPort;
    const PortIdentity m_port;
    const JwDevice::PortReport m_report;
    const QString m_hardwareVersion;
    const double m_milliseconds;
    QString m_errorText;
};

} // namespace JwProbe

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

/// A board that was found, with its open port. Owns the Communicator and the port.
class Board : public QObject
{
    Q_OBJECT

public:
    /// Takes ownership of `comm` and of its port, which the Initializer has just handed over. `report` is the report
    /// about this port. `milliseconds` is the time from the start of the search to now.
    Board(JwDevice::Communicator *comm, const PortIdentity &port, const JwDevice::PortReport &report,
          double milliseconds);
    /// Deletes the Communicator and the port. Don't delete a board inside a slot of readyRead() or lost(), because the
    /// Communicator or the port may still be emitting the signal that caused it.
    ~Board() override;

    JwDevice::Type type() const { return m_report.type; }
    const PortIdentity &port() const { return m_port; }
    const JwDevice::PortReport &report() const { return m_report; }
    const QString &hardwareVersion() const { return m_hardwareVersion; } ///< empty if the board did not send it
    double milliseconds() const { return m_milliseconds; }
    /// Returns true until the port is lost. After that, nothing can be sent or received.
    bool isConnected() const;
    /// Returns why the board is not connected: "cable pulled" if the device is gone, else the error of the port.
    QString lossText() const;

    void send(const QString &sentence);
    /// Moves the oldest received payload to `payload`. Returns false if there is no payload.
    bool receive(QString &payload);
    const QSerialPort *serialPort() const { return m_serialPort; }

Q_SIGNALS:
    /// Emitted when a payload was received.
    void readyRead();
    /// Emitted when the port was lost. The port is then closed.
    void lost();

private:
    void close(bool isDeviceGone);
    bool isGone() const;
    void useCommunicator(JwDevice::Communicator *comm);

    JwDevice::Communicator *m_comm = nullptr;
    int m_sent = 0; // number of payloads that m_comm has written
    QSerialPort *const m_serialPort;
    const PortIdentity m_port;
    const JwDevice::PortReport m_report;
    const QString m_hardwareVersion;
    const double m_milliseconds;
    bool m_isDeviceGone = false;
    QString m_errorText;
};

} // namespace JwProbe

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
    /// False once the port failed. Then there is nothing more to do with it.
    bool isConnected() const;
    /// Why it is not connected: "cable pulled" when the system has the port no longer, else what failed.
    QString lossText() const;

    void send(const QString &sentence);
    /// Takes the oldest payload that came; false without one.
    bool receive(QString &payload);
    const QSerialPort *serialPort() const { return m_serialPort; }

Q_SIGNALS:
    /// There is a payload.
    void readyRead();
    /// The port failed, and was closed.
    void lost();

private:
    void close(bool isDeviceGone);
    bool isGone() const;
    void useCommunicator(JwDevice::Communicator *comm);

    JwDevice::Communicator *m_comm = nullptr;
    int m_sent = 0; // by m_comm
    QSerialPort *const m_serialPort;
    const PortIdentity m_port;
    const JwDevice::PortReport m_report;
    const QString m_hardwareVersion;
    const double m_milliseconds;
    QString m_errorText;
};

} // namespace JwProbe

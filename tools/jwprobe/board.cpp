#include "board.h"

#include "reply.h"

#include <device/communicator.h>

#include <QSerialPort>

namespace JwProbe {

Board::Board(JwDevice::Communicator *comm, const PortIdentity &port, const JwDevice::PortReport &report,
             double milliseconds)
    : m_comm(comm)
    , m_serialPort(qobject_cast<QSerialPort *>(comm->device()))
    , m_port(port)
    , m_report(report)
    , m_hardwareVersion(readReply(report.reply).hardwareVersion)
    , m_milliseconds(milliseconds)
{
    // A port whose cable was pulled reports errors at every turn of the event loop for as long as it is open.
    connect(m_serialPort, &QSerialPort::errorOccurred, this, [this](QSerialPort::SerialPortError error) {
        if (error == QSerialPort::NoError || !m_serialPort->isOpen())
            return;
        m_serialPort->close();
        Q_EMIT lost();
    });
}

Board::~Board()
{
    m_serialPort->disconnect(this);
    delete m_comm;
    delete m_serialPort;
}

bool Board::isConnected() const
{
    return m_serialPort->isOpen();
}

} // namespace JwProbe

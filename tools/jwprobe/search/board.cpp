#include "board.h"

#include "reply.h"

#include <device/communicator.h>
#include <device/porterrors.h>

#include <QSerialPort>
#include <QSerialPortInfo>
#include <QTimer>

namespace JwProbe {

namespace {

constexpr int mostSent = 10000; // written payloads after which the Communicator is replaced
constexpr int removalTime = 500; // ms; when a cable is pulled, the system removes the port within this time

} // namespace

Board::Board(JwDevice::Communicator *comm, const PortIdentity &port, const JwDevice::PortReport &report,
             double milliseconds)
    : m_serialPort(qobject_cast<QSerialPort *>(comm->device()))
    , m_port(port)
    , m_report(report)
    , m_hardwareVersion(readReply(report.reply).hardwareVersion)
    , m_milliseconds(milliseconds)
{
    connect(new JwDevice::PortErrors(m_serialPort), &JwDevice::PortErrors::portLost, this, &Board::close);
    useCommunicator(comm);
}

Board::~Board()
{
    delete m_comm;
    m_serialPort->disconnect(this);
    JwDevice::closeAtOnce(m_serialPort);
    delete m_serialPort;
}

bool Board::isConnected() const
{
    return m_serialPort->isOpen();
}

QString Board::lossText() const
{
    return isGone() ? QStringLiteral("cable pulled") : QStringLiteral("port failed: %1").arg(m_errorText);
}

void Board::send(const QString &sentence)
{
    m_comm->writePayload(sentence);
    if (++m_sent < mostSent)
        return;
    delete m_comm; // replaced by a new one, because a Communicator keeps memory when the lengths of payloads differ
    auto *comm = new JwDevice::Communicator;
    comm->setIODevice(m_serialPort);
    useCommunicator(comm);
}

bool Board::receive(QString &payload)
{
    return m_comm->readPayload(payload);
}

void Board::useCommunicator(JwDevice::Communicator *comm)
{
    m_comm = comm;
    m_sent = 0;
    connect(m_comm, QOverload<>::of(&JwDevice::Communicator::readyRead), this, &Board::readyRead);
}

void Board::close(bool isDeviceGone)
{
    m_isDeviceGone = isDeviceGone;
    m_errorText = m_serialPort->errorString();
    JwDevice::closeAtOnce(m_serialPort);
    if (isDeviceGone)
        Q_EMIT lost();
    else // if the cable was pulled, the system removes the port soon; before that, lossText() would be wrong
        QTimer::singleShot(removalTime, this, &Board::lost);
}

bool Board::isGone() const
{
    // On a busy machine, many errors may come before the system removes the port. So ask the system again.
    return m_isDeviceGone || (m_port.isKnown && QSerialPortInfo(m_port.name).isNull());
}

} // namespace JwProbe

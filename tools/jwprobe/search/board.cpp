#include "board.h"

#include "reply.h"

#include <device/communicator.h>
#include <device/wholelines.h>

#include <QFile>
#include <QSerialPort>
#include <QTimer>

namespace JwProbe {

namespace {

constexpr int mostErrors = 10000; // within a second; a port that is gone reports hundreds in each millisecond
constexpr int mostSent = 10000; // payloads of one Communicator
constexpr int removalTime = 500; // ms within which the system takes away a port that was pulled

} // namespace

Board::Board(JwDevice::Communicator *comm, const PortIdentity &port, const JwDevice::PortReport &report,
             double milliseconds)
    : m_serialPort(qobject_cast<QSerialPort *>(comm->device()))
    , m_port(port)
    , m_report(report)
    , m_hardwareVersion(readReply(report.reply).hardwareVersion)
    , m_milliseconds(milliseconds)
{
    connect(m_serialPort, &QSerialPort::errorOccurred, this, &Board::judge);
    useCommunicator(comm);
}

Board::~Board()
{
    delete m_comm;
    closePort();
    delete m_serialPort;
}

// A board that does not read would hold up the system's close() for what it was sent.
void Board::closePort()
{
    m_serialPort->disconnect(this);
    if (m_serialPort->isOpen())
        m_serialPort->clear(QSerialPort::Output);
    m_serialPort->close();
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
    delete m_comm; // it keeps an entry for each payload that it sent
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

// One error may pass, such as that of a program that took the bytes away. A port that is gone, or broken, reports
// errors at every turn of the event loop for as long as it is open.
void Board::judge(QSerialPort::SerialPortError error)
{
    if (error == QSerialPort::NoError || !m_serialPort->isOpen())
        return;
    m_errorText = m_serialPort->errorString();
    if (!m_errorClock.isValid() || m_errorClock.hasExpired(1000)) {
        m_errorClock.start();
        m_errors = 0;
    }
    ++m_errors;
    if (isGone()) {
        closePort();
        Q_EMIT lost();
    } else if (m_errors > mostErrors) {
        closePort();
        QTimer::singleShot(removalTime, this, &Board::lost);
    } else {
        // At some errors QSerialPort stops reading until it is asked for more than it holds.
        const auto *const lines = qobject_cast<JwDevice::WholeLinesBase *>(m_serialPort);
        m_serialPort->peek((lines ? lines->bytesReceived() : m_serialPort->bytesAvailable()) + 1);
    }
}

bool Board::isGone() const
{
    return !QFile::exists(m_port.location);
}

} // namespace JwProbe

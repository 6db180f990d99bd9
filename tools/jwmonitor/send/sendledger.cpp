#include "sendledger.h"

#include <jwmonitor/history/clock.h>
#include <jwmonitor/traffic/trafficmodel.h>

#include <QIODevice>

#include <utility>

namespace JwMonitor {

SendLedger::SendLedger(const BoardLink &link, TrafficModel *model, QObject *parent)
    : LineSender(parent)
    , m_link(link)
    , m_model(model)
{
    if (m_link.communicator && m_link.communicator->device())
        connect(m_link.communicator->device(), &QIODevice::bytesWritten, this, &SendLedger::settle);
}

SendLedger::~SendLedger() = default;

// Returns whether the Communicator of the board exists and its port is open.
bool SendLedger::isOpen() const
{
    return m_link.communicator && m_link.communicator->device() && m_link.communicator->device()->isWritable();
}

uint SendLedger::send(const QString &sentence, QString *error)
{
    const qint64 timeUs = microsecondsSinceEpoch();
    const uint id = isOpen() ? m_link.communicator->writePayload(sentence) : 0;
    if (id == 0) {
        *error = tr("the board on %1 is gone. Plug it in, or choose another one").arg(m_link.port);
        return 0;
    }
    m_model->append({timeUs, m_link.port, Direction::Sent, sentence, id, Transfer::None, m_link.id});
    m_waiting.enqueue({id, sentence.size()});
    return id;
}

// Marks the payloads that the system has taken from the port. The port sends the payloads in order, so the bytes that
// still wait in the port belong to the newest payloads. A payload is taken if all payloads after it together have at
// least as many bytes as the port still holds.
void SendLedger::settle()
{
    if (!m_link.communicator || !m_link.communicator->device())
        return;
    qint64 behind = 0; // in the while loop: bytes of all payloads that follow the first one in m_waiting
    for (const auto &[id, length] : std::as_const(m_waiting))
        behind += length;
    while (!m_waiting.isEmpty()) {
        behind -= m_waiting.head().second;
        if (behind < m_link.communicator->device()->bytesToWrite())
            return;
        m_model->markTaken(m_link.port, m_waiting.dequeue().first);
    }
}

} // namespace JwMonitor

#include "boardtraffic.h"

#include "trafficmodel.h"
#include <jwmonitor/history/clock.h>

namespace JwMonitor {

BoardTraffic::BoardTraffic(const BoardLink &link, TrafficModel *model, QObject *parent)
    : QObject(parent)
    , m_link(link)
    , m_model(model)
{
    JwDevice::Communicator *communicator = link.communicator;
    if (!communicator)
        return;
    connect(communicator, QOverload<uint>::of(&JwDevice::Communicator::readyRead), this, [this](uint id) {
        QString payload;
        if (m_link.communicator->readPayload(payload, id))
            receive(payload, id);
    });
    connect(communicator, &JwDevice::Communicator::transferred, this,
            [this](uint id) { m_model->markTransferred(m_link.port, id); });
    for (QString payload; communicator->readPayload(payload);) // no signal follows for payloads that arrived earlier
        receive(payload, 0);
}

BoardTraffic::~BoardTraffic() = default;

void BoardTraffic::receive(const QString &payload, uint id)
{
    m_model->append(
        {microsecondsSinceEpoch(), m_link.port, Direction::Received, payload, id, Transfer::None, m_link.id});
}

} // namespace JwMonitor

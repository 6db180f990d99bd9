#pragma once

#include "boardlink.h"

#include <QObject>

namespace JwMonitor {

class TrafficModel;

/// Adds the received payloads of a board to the model, and marks sent payloads as transferred. No other object may read
/// from the Communicator, because a payload can be read only once. After the Communicator is deleted, nothing more is
/// added.
class BoardTraffic : public QObject
{
    Q_OBJECT

public:
    BoardTraffic(const BoardLink &link, TrafficModel *model, QObject *parent = nullptr);
    ~BoardTraffic() override;

private:
    void receive(const QString &payload, uint id);

    const BoardLink m_link;
    TrafficModel *const m_model;
};

} // namespace JwMonitor

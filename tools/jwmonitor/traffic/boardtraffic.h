#pragma once

#include "boardlink.h"

#include <QObject>

namespace JwMonitor {

class TrafficModel;

/// Adds the payloads of a board to the model, and marks sent payloads as transferred. It must be the only reader of the
/// Communicator. It stops when the Communicator is deleted.
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

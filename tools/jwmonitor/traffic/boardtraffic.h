#pragma once

#include "boardlink.h"

#include <QObject>

namespace JwMonitor {

class TrafficModel;

/// Brings into the model what a board sends, and how far what was sent to it came. Ends by itself when the Communicator
/// does. Before it there must be nobody else who reads the Communicator's payloads.
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

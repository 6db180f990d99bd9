#pragma once

#include <jwmonitor/traffic/boardlink.h>

#include <QObject>
#include <QPair>
#include <QQueue>

namespace JwMonitor {

class TrafficModel;

/// Sends payloads to one board. Marks each payload in the model as taken when the system has taken all its bytes from
/// the port.
class SendLedger : public QObject
{
    Q_OBJECT

public:
    SendLedger(const BoardLink &link, TrafficModel *model, QObject *parent = nullptr);
    ~SendLedger() override;

    /// Returns whether the Communicator of the board exists and its port is open.
    bool isOpen() const;
    /// Sends a whole sentence. The port must be open. Returns the id of the payload, or 0 if the write failed.
    uint send(const QString &sentence);

private:
    void settle();

    const BoardLink m_link;
    TrafficModel *const m_model;
    QQueue<QPair<uint, int>> m_waiting; // id and length of each payload that is not yet taken, oldest first
};

} // namespace JwMonitor

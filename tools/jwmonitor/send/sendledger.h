#pragma once

#include "linesender.h"
#include <jwmonitor/traffic/boardlink.h>

#include <QPair>
#include <QQueue>

namespace JwMonitor {

class TrafficModel;

/// Sends payloads to a board of this machine. Marks each payload in the model as taken when the system has taken all
/// its bytes from the port.
class SendLedger : public LineSender
{
    Q_OBJECT

public:
    SendLedger(const BoardLink &link, TrafficModel *model, QObject *parent = nullptr);
    ~SendLedger() override;

    uint send(const QString &sentence, QString *error) override;

private:
    bool isOpen() const;
    void settle();

    const BoardLink m_link;
    TrafficModel *const m_model;
    QQueue<QPair<uint, int>> m_waiting; // id and length of each payload that is not yet taken, oldest first
};

} // namespace JwMonitor

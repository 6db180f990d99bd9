#pragma once

#include "boards.h"
#include "database.h"
#include "options.h"
#include "outbox.h"
#include "portsreport.h"
#include "sender.h"
#include "spool.h"
#include "statebook.h"
#include <fleet/broker.h>
#include <fleet/topics.h>

#include <QObject>
#include <QSet>
#include <QString>

#include <memory>

namespace JwBridge {

/// Connects the parts: boards, spool, broker. Says on standard error what a person should know.
class Bridge : public QObject
{
    Q_OBJECT

public:
    explicit Bridge(const Options &options);
    /// Stores the payloads. Says how many are lost if that fails.
    ~Bridge() override;

    /// Opens the spool and starts everything. Returns false if the spool can't be used.
    bool start();

private:
    void connectParts();
    void onFailed(const QString &reason);
    void setLosses();
    void onLoss();

    const Options m_options;
    const JwFleet::Topics m_topics;
    Database m_database;
    Spool m_spool;
    JwFleet::Broker m_broker;
    StateBook m_states; // before the outbox, so that a reader knows a board before its payloads come
    Outbox m_outbox;
    Boards m_boards;
    PortsReport m_ports;
    std::unique_ptr<Sender> m_sender; // null if read-only
    bool m_isLossSaid = false; // since the newest connect
    QSet<QByteArray> m_refused; // topics of messages that the broker refused since the newest connect
    QString m_failure; // why the newest attempt failed; empty while connected
};

} // namespace JwBridge

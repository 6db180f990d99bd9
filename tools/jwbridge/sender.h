#pragma once

#include <fleet/broker.h>
#include <fleet/topics.h>

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QString>

namespace JwBridge {

class Boards;

/// Writes the sentences that arrive on the tx topics to the boards, and publishes the results.
class Sender : public QObject
{
    Q_OBJECT

public:
    /// A board accepts at most `rate` sentences a second.
    Sender(JwFleet::Broker &broker, const Boards &boards, const JwFleet::Topics &topics, int rate,
           QObject *parent = nullptr);

private:
    /// Sentences that a board may get at once. The number grows with the time, up to the rate.
    struct Allowance
    {
        double sentences;
        qint64 time; // ms
    };

    void onReceived(const JwFleet::Message &message);
    QString write(const QByteArray &part, const QByteArray &line, uint *id);
    bool isTooFast(const QByteArray &part);

    JwFleet::Broker &m_broker;
    const Boards &m_boards;
    const JwFleet::Topics m_topics;
    const int m_rate;
    uint m_written = 0; // id of the newest payload that was written
    QHash<QByteArray, Allowance> m_allowances; // by board
    QElapsedTimer m_clock;
};

} // namespace JwBridge

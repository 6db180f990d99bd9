#pragma once

#include "trafficcolumns.h"
#include <jwmonitor/history/historymodel.h>

#include <deque>

namespace JwMonitor {

/// The model of all payloads, oldest first. A payload is decoded only when a view shows it.
///
/// The model updates the progress of the newest 1000 sent payloads only. When a lost board is found again, it has a new
/// Communicator, whose ids start at 1 again. So several payloads can have the same id. markTaken() and
/// markTransferred() change the newest payload with the id.
class TrafficModel : public HistoryModel<TrafficRecord>
{
    Q_OBJECT

public:
    explicit TrafficModel(QObject *parent = nullptr);
    ~TrafficModel() override;

    void append(const TrafficRecord &record);
    /// Marks the payload `id` for `port` as taken, which means that the system has all its bytes.
    void markTaken(const QString &port, uint id);
    /// Marks the payload `id` for `port` as transferred. Call this when the Communicator of `port` reports it.
    void markTransferred(const QString &port, uint id);
    /// Marks the payload `id` for a board of another machine as written, or as failed.
    void markResult(const QString &board, uint id, bool isWritten);
    /// Marks the waiting payloads for `port` as lost. They are never sent, because the board was lost or closed.
    void markLost(const QString &port);

    const SentenceDecoder &decoder() const { return m_decoder; }

    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    void mark(const QString &port, uint id, Transfer transfer);
    void setTransfer(qint64 number, TrafficRecord *record, Transfer transfer);
    QString payloadToolTip(const TrafficRecord &record) const;

    const SentenceDecoder m_decoder;
    std::deque<qint64> m_sent; // numbers of the newest 1000 sent payloads, see HistoryModel::append()
};

} // namespace JwMonitor

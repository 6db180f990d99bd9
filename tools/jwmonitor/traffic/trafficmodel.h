#pragma once

#include "trafficcolumns.h"
#include <jwmonitor/history/historymodel.h>

#include <deque>

namespace JwMonitor {

/// All payloads, oldest first. A payload is decoded only when it is shown.
///
/// The model updates the progress of the newest 1000 sent payloads. If several payloads have the same id, the id means
/// the newest one, because the ids of a board that comes back start at 1 again.
class TrafficModel : public HistoryModel<TrafficRecord>
{
    Q_OBJECT

public:
    explicit TrafficModel(QObject *parent = nullptr);
    ~TrafficModel() override;

    void append(const TrafficRecord &record);
    /// The system took all bytes of the payload `id` for `port`.
    void markTaken(const QString &port, uint id);
    /// The Communicator of `port` reported the payload `id` as transferred.
    void markTransferred(const QString &port, uint id);
    /// The board on `port` was lost or let go: its waiting payloads are never sent.
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
    std::deque<qint64> m_sent; // numbers of the newest sent payloads
};

} // namespace JwMonitor

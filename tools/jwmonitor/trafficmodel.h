#pragma once

#include "historymodel.h"
#include "sentencedecoder.h"
#include "trafficrecord.h"

#include <QHash>
#include <QPair>

namespace JwMonitor {

/// How far a sent payload came, as far as one can tell.
enum class Transfer { None, Waiting, Taken, Transferred };

/// All payloads, oldest first. A payload is taken apart only when somebody looks at it.
class TrafficModel : public HistoryModel<TrafficRecord>
{
    Q_OBJECT

public:
    enum Column { Time, Port, Way, Id, Identifier, Fields, Checksum, Progress, Raw, ColumnCount };

    explicit TrafficModel(QObject *parent = nullptr);
    ~TrafficModel() override;

    /// The system took the bytes of the payload `id` that was sent to `port`.
    void markTaken(const QString &port, uint id);
    /// The Communicator of `port` reported the payload `id` as transferred.
    void markTransferred(const QString &port, uint id);

    const SentenceDecoder &decoder() const { return m_decoder; }

    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    void mark(const QString &port, uint id, Transfer transfer);
    Transfer transfer(const TrafficRecord &record) const;
    QVariant display(const TrafficRecord &record, int column) const;
    QVariant toolTip(const TrafficRecord &record, int column) const;

    SentenceDecoder m_decoder;
    QHash<QPair<QString, uint>, QPair<qint64, Transfer>> m_transfers;
};

} // namespace JwMonitor

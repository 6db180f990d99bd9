#include "trafficmodel.h"

#include <common/printable.h>
#include <jwmonitor/look/theme.h>
#include <jwmonitor/look/tooltip.h>

#include <QGuiApplication>

namespace JwMonitor {

namespace {

constexpr size_t maxWatchedSent = 1000;

} // namespace

TrafficModel::TrafficModel(QObject *parent)
    : HistoryModel<TrafficRecord>(parent)
{
}

TrafficModel::~TrafficModel() = default;

void TrafficModel::append(const TrafficRecord &record)
{
    TrafficRecord added = record;
    added.transfer = record.direction == Direction::Sent ? Transfer::Waiting : Transfer::None;
    const qint64 number = HistoryModel<TrafficRecord>::append(added);
    if (record.direction == Direction::Received)
        return;
    m_sent.push_back(number);
    if (m_sent.size() > maxWatchedSent)
        m_sent.pop_front();
}

void TrafficModel::markTaken(const QString &port, uint id)
{
    mark(port, id, Transfer::Taken);
}

void TrafficModel::markTransferred(const QString &port, uint id)
{
    mark(port, id, Transfer::Transferred);
}

void TrafficModel::markResult(const QString &board, uint id, bool isWritten)
{
    mark(board, id, isWritten ? Transfer::Written : Transfer::Failed);
}

void TrafficModel::markLost(const QString &port)
{
    for (const qint64 number : m_sent) {
        TrafficRecord *record = find(number);
        if (record && record->port == port && record->transfer == Transfer::Waiting)
            setTransfer(number, record, Transfer::Lost);
    }
}

int TrafficModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(trafficColumns().size());
}

QVariant TrafficModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return QVariant();
    const TrafficColumn &column = trafficColumns().at(index.column());
    const TrafficColumn::Cell cell{record(index.row()), m_decoder};
    switch (role) {
    case Qt::DisplayRole:
        return column.text(cell);
    case Qt::ToolTipRole:
        return column.toolTip ? column.toolTip(cell) : payloadToolTip(cell.record);
    case Qt::ForegroundRole:
        if (const auto colour = column.colour ? column.colour(cell) : std::nullopt)
            return Theme::colour(QGuiApplication::palette(), *colour);
        return QVariant();
    default:
        return QVariant();
    }
}

QVariant TrafficModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QVariant();
    return trafficColumns().value(section).title;
}

void TrafficModel::mark(const QString &port, uint id, Transfer transfer)
{
    for (auto number = m_sent.rbegin(); number != m_sent.rend(); ++number) {
        TrafficRecord *record = find(*number);
        if (!record)
            return;
        if (record->id != id || record->port != port)
            continue;
        if (record->transfer < transfer)
            setTransfer(*number, record, transfer);
        return;
    }
}

void TrafficModel::setTransfer(qint64 number, TrafficRecord *record, Transfer transfer)
{
    record->transfer = transfer;
    const int row = rowOf(number);
    if (row < rowCount())
        Q_EMIT dataChanged(index(row, TrafficColumn::Progress), index(row, TrafficColumn::Progress));
}

QString TrafficModel::payloadToolTip(const TrafficRecord &record) const
{
    const QString fault = record.direction == Direction::Received ? m_decoder.fault(record.payload) : QString();
    const QString raw = JwTools::printable(record.payload);
    return toolTipText(fault.isEmpty() ? raw : tr("%1\nThe library's parser says: %2").arg(raw, fault));
}

} // namespace JwMonitor

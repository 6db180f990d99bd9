#include "trafficmodel.h"

#include <jwmonitor/look/theme.h>
#include <jwmonitor/look/tooltip.h>
#include "traffictext.h"

#include <common/printable.h>

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
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant TrafficModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return QVariant();
    const TrafficRecord &shown = record(index.row());
    switch (role) {
    case Qt::DisplayRole:
        return display(shown, index.column());
    case Qt::ToolTipRole:
        return toolTip(shown, index.column());
    case Qt::ForegroundRole:
        return foreground(shown, index.column());
    default:
        return QVariant();
    }
}

QVariant TrafficModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QVariant();
    switch (section) {
    case Time:
        return tr("Time");
    case Port:
        return tr("Port");
    case Way:
        return tr("Direction");
    case Id:
        return tr("Id");
    case Identifier:
        return tr("Identifier");
    case Fields:
        return tr("Fields");
    case Checksum:
        return tr("Checksum");
    case Progress:
        return tr("Progress");
    case Raw:
        return tr("Payload");
    default:
        return QVariant();
    }
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
        Q_EMIT dataChanged(index(row, Progress), index(row, Progress));
}

QVariant TrafficModel::display(const TrafficRecord &record, int column) const
{
    switch (column) {
    case Time:
        return TrafficText::clock(record.timeUs);
    case Port:
        return record.port;
    case Way:
        return TrafficText::direction(record.direction);
    case Id:
        return record.id == 0 ? QVariant() : QVariant(record.id);
    case Identifier:
        return JwTools::printable(SentenceDecoder::identifier(record.payload).toString());
    case Fields:
        return TrafficText::fields(m_decoder.decode(record.payload, record.direction));
    case Checksum:
        return TrafficText::checksum(m_decoder.decode(record.payload, record.direction).checksum);
    case Progress:
        return TrafficText::transfer(record.transfer);
    case Raw:
        return JwTools::printable(record.payload);
    default:
        return QVariant();
    }
}

QVariant TrafficModel::toolTip(const TrafficRecord &record, int column) const
{
    if (column == Time)
        return TrafficText::moment(record.timeUs);
    if (column == Progress) {
        switch (record.transfer) {
        case Transfer::Waiting:
            return tr("It waits in the port for the system to take it.");
        case Transfer::Taken:
            return tr("The system took it. The Communicator did not report it as transferred: it charges each report "
                      "of the port to the first payloads anew, and may never come to this one.");
        case Transfer::Transferred:
            return tr("The Communicator reported it as transferred.");
        case Transfer::Lost:
            return tr("It still waited in the port when the board went, or was let go. Send it again when the board is "
                      "back.");
        case Transfer::None:
            return QVariant();
        }
    }
    const QString fault = record.direction == Direction::Received ? m_decoder.fault(record.payload) : QString();
    const QString raw = JwTools::printable(record.payload);
    return toolTipText(fault.isEmpty() ? raw : tr("%1\nThe library's parser says: %2").arg(raw, fault));
}

QVariant TrafficModel::foreground(const TrafficRecord &record, int column) const
{
    const QPalette palette = QGuiApplication::palette();
    switch (column) {
    case Way:
        return Theme::colour(palette, record.direction == Direction::Received ? Theme::Reply : Theme::Query);
    case Checksum:
        switch (m_decoder.decode(record.payload, record.direction).checksum) {
        case ChecksumState::Good:
            return Theme::colour(palette, Theme::Good);
        case ChecksumState::Bad:
            return Theme::colour(palette, Theme::Problem);
        case ChecksumState::Missing:
            return Theme::colour(palette, Theme::Quiet);
        }
        return QVariant();
    case Progress:
        if (record.transfer == Transfer::Lost)
            return Theme::colour(palette, Theme::Problem);
        return Theme::colour(palette, record.transfer == Transfer::Waiting ? Theme::Waiting : Theme::Good);
    default:
        return QVariant();
    }
}

} // namespace JwMonitor

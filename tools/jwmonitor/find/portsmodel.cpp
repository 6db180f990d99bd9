#include "portsmodel.h"

#include "portverdict.h"
#include <common/boardtype.h>
#include <jwmonitor/look/theme.h>
#include <jwmonitor/look/tooltip.h>

#include <QSet>

namespace JwMonitor {

namespace {

QString identity(const SystemPort &port)
{
    QStringList parts{port.manufacturer, port.product, port.serialNumber};
    parts.removeAll(QString());
    return parts.join(QStringLiteral(", "));
}

QString stateText(const PortEntry &entry)
{
    if (entry.remote)
        return entry.remote->text;
    switch (entry.stay) {
    case PortEntry::Found:
        return PortsModel::tr("found");
    case PortEntry::Lost:
        return PortsModel::tr("lost");
    case PortEntry::Back:
        return PortsModel::tr("back");
    case PortEntry::NoBoard:
        break;
    }
    return entry.report ? verdictText(*entry.report, entry.isOver) : PortsModel::tr("not asked");
}

Theme::Role stateRole(const PortEntry &entry)
{
    if (entry.remote)
        return entry.remote->role;
    if (entry.stay != PortEntry::NoBoard)
        return entry.stay == PortEntry::Lost ? Theme::Problem : Theme::Good;
    if (!entry.report)
        return Theme::Quiet;
    switch (entry.report->verdict) {
    case JwDevice::PortReport::NotOpened:
        return entry.report->error == QSerialPort::NoError ? Theme::Quiet : Theme::Problem;
    case JwDevice::PortReport::Awaiting:
        return entry.isOver ? Theme::Quiet : Theme::Waiting;
    case JwDevice::PortReport::Silenced:
        return Theme::Waiting;
    case JwDevice::PortReport::TimedOut:
        return Theme::Quiet;
    case JwDevice::PortReport::Lost:
        return Theme::Problem;
    case JwDevice::PortReport::Duplicate:
    case JwDevice::PortReport::HandedOver:
        return Theme::Good;
    }
    return Theme::Quiet;
}

bool isSame(const PortEntry &a, const PortEntry &b)
{
    const bool sameReport = a.report && b.report
        ? a.report->verdict == b.report->verdict && verdictText(*a.report, a.isOver) == verdictText(*b.report, b.isOver)
        : !a.report && !b.report;
    return a.port == b.port && a.isPresent == b.isPresent && a.stay == b.stay && a.type == b.type && sameReport
        && a.remote == b.remote && qFuzzyCompare(a.milliseconds + 2, b.milliseconds + 2);
}

} // namespace

PortsModel::PortsModel(QObject *parent)
    : QAbstractTableModel(parent)
{
}

PortsModel::~PortsModel() = default;

void PortsModel::setEntries(const QVector<PortEntry> &entries)
{
    QSet<QString> keys;
    for (const PortEntry &entry : entries)
        keys.insert(entry.key);
    for (int row = rowCount() - 1; row >= 0; --row) {
        if (keys.contains(m_entries.at(row).key))
            continue;
        beginRemoveRows({}, row, row);
        m_entries.removeAt(row);
        endRemoveRows();
    }
    for (int row = 0; row < entries.size(); ++row) {
        const PortEntry &entry = entries.at(row);
        const int from = rowOf(entry.key, row);
        if (from < 0) {
            beginInsertRows({}, row, row);
            m_entries.insert(row, entry);
            endInsertRows();
            continue;
        }
        if (from > row) {
            beginMoveRows({}, from, from, {}, row);
            m_entries.move(from, row);
            endMoveRows();
        }
        if (!isSame(m_entries.at(row), entry)) {
            m_entries[row] = entry;
            Q_EMIT dataChanged(index(row, 0), index(row, ColumnCount - 1));
        }
    }
}

int PortsModel::rowOf(const QString &key, int first) const
{
    for (int row = first; row < m_entries.size(); ++row) {
        if (m_entries.at(row).key == key)
            return row;
    }
    return -1;
}

void PortsModel::setPalette(const QPalette &palette)
{
    m_palette = palette;
    if (!m_entries.isEmpty())
        Q_EMIT dataChanged(index(0, 0), index(rowCount() - 1, ColumnCount - 1), {Qt::ForegroundRole});
}

int PortsModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_entries.size());
}

int PortsModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant PortsModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return QVariant();
    const PortEntry &entry = m_entries.at(index.row());
    if (role == Qt::ForegroundRole) {
        if (index.column() == State)
            return Theme::colour(m_palette, stateRole(entry));
        return entry.isPresent ? QVariant() : Theme::colour(m_palette, Theme::Quiet);
    }
    if (role == Qt::TextAlignmentRole && index.column() == Time)
        return QVariant(Qt::AlignRight | Qt::AlignVCenter);
    if (role != Qt::DisplayRole && (role != Qt::ToolTipRole || (index.column() != State && index.column() != Identity)))
        return QVariant();
    if (role == Qt::ToolTipRole)
        return toolTipText(data(index).toString());

    switch (index.column()) {
    case Port:
        return entry.port.name;
    case UsbId:
        return entry.port.usbId;
    case Identity:
        return identity(entry.port);
    case State:
        return stateText(entry);
    case Type:
        return JwTools::boardName(entry.type);
    case Time:
        return entry.milliseconds < 0 ? QString() : QString::number(entry.milliseconds, 'f', 1);
    default:
        return QVariant();
    }
}

QVariant PortsModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation == Qt::Horizontal && role == Qt::TextAlignmentRole)
        return QVariant((section == Time ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignVCenter);
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QVariant();
    switch (section) {
    case Port:
        return tr("Port");
    case UsbId:
        return tr("USB id");
    case Identity:
        return tr("USB identity");
    case State:
        return tr("State");
    case Type:
        return tr("Type");
    case Time:
        return tr("ms");
    default:
        return QVariant();
    }
}

} // namespace JwMonitor

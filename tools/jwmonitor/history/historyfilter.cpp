#include "historyfilter.h"

#include <algorithm>

namespace JwMonitor {

HistoryFilter::HistoryFilter(QAbstractItemModel *source, QObject *parent)
    : QAbstractTableModel(parent)
    , m_source(source)
    , m_scan(source)
{
    connect(&m_scan, &HistoryScan::reached, this, &HistoryFilter::add);
    connect(&m_scan, &HistoryScan::dropping, this, &HistoryFilter::drop);
    connect(source, &QAbstractItemModel::dataChanged, this, &HistoryFilter::passOnChange);
    m_scan.restart();
}

HistoryFilter::~HistoryFilter() = default;

void HistoryFilter::setTest(const Test &test)
{
    m_test = test;
    beginResetModel();
    m_numbers.clear();
    endResetModel();
    m_scan.restart();
}

void HistoryFilter::setPaused(bool paused)
{
    m_scan.setPaused(paused);
}

int HistoryFilter::sourceRow(int row) const
{
    return static_cast<int>(m_numbers[static_cast<size_t>(row)] - m_scan.firstNumber());
}

int HistoryFilter::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_numbers.size());
}

int HistoryFilter::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_source->columnCount();
}

QVariant HistoryFilter::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return QVariant();
    return m_source->data(m_source->index(sourceRow(index.row()), index.column()), role);
}

QVariant HistoryFilter::headerData(int section, Qt::Orientation orientation, int role) const
{
    return m_source->headerData(section, orientation, role);
}

void HistoryFilter::add(int first, int last)
{
    std::deque<qint64> passed;
    for (int row = first; row <= last; ++row) {
        if (!m_test || m_test(row))
            passed.push_back(m_scan.firstNumber() + row);
    }
    if (passed.empty())
        return;
    beginInsertRows({}, rowCount(), rowCount() + static_cast<int>(passed.size()) - 1);
    m_numbers.insert(m_numbers.end(), passed.begin(), passed.end());
    endInsertRows();
}

void HistoryFilter::drop(qint64 firstNumber)
{
    const auto end = std::lower_bound(m_numbers.begin(), m_numbers.end(), firstNumber);
    if (end == m_numbers.begin())
        return;
    beginRemoveRows({}, 0, static_cast<int>(end - m_numbers.begin()) - 1);
    m_numbers.erase(m_numbers.begin(), end);
    endRemoveRows();
}

void HistoryFilter::passOnChange(const QModelIndex &topLeft, const QModelIndex &bottomRight)
{
    const auto lowest = [this](qint64 number) {
        const auto found = std::lower_bound(m_numbers.begin(), m_numbers.end(), number);
        return static_cast<int>(found - m_numbers.begin());
    };
    const int first = lowest(m_scan.firstNumber() + topLeft.row());
    const int last = lowest(m_scan.firstNumber() + bottomRight.row() + 1) - 1;
    if (first <= last)
        Q_EMIT dataChanged(index(first, topLeft.column()), index(last, bottomRight.column()));
}

} // namespace JwMonitor

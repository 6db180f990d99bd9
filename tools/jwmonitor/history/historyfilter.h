#pragma once

#include "historyscan.h"

#include <QAbstractTableModel>

#include <deque>
#include <functional>

namespace JwMonitor {

/// A model that contains only those rows of a source model that pass a test. Unlike QSortFilterProxyModel, the filter
/// tests only some rows in each turn of the event loop, so that the window can still react to the user. The filter can
/// also be paused.
class HistoryFilter : public QAbstractTableModel
{
    Q_OBJECT

public:
    using Test = std::function<bool(int sourceRow)>;

    explicit HistoryFilter(QAbstractItemModel *source, QObject *parent = nullptr);
    ~HistoryFilter() override;

    /// Sets the test and tests all rows again, in several turns of the event loop if there are many. An empty test lets
    /// all rows pass.
    void setTest(const Test &test);
    /// While paused, the filter adds no rows. It still removes rows that the source drops.
    void setPaused(bool paused);
    bool isPaused() const { return m_scan.isPaused(); }

    int sourceRow(int row) const;

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    void add(int first, int last);
    void drop(qint64 firstNumber);
    void passOnChange(const QModelIndex &topLeft, const QModelIndex &bottomRight);

    QAbstractItemModel *const m_source;
    HistoryScan m_scan;
    Test m_test;
    std::deque<qint64> m_numbers; // numbers, as in HistoryScan, of the rows that passed the test
};

} // namespace JwMonitor

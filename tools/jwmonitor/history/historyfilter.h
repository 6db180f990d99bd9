#pragma once

#include "historyscan.h"

#include <QAbstractTableModel>

#include <deque>
#include <functional>

namespace JwMonitor {

/// Shows the rows of a history that pass a test. Unlike Qt's proxy models, it goes through a large history in parts,
/// and it can be paused.
class HistoryFilter : public QAbstractTableModel
{
    Q_OBJECT

public:
    using Test = std::function<bool(int sourceRow)>;

    explicit HistoryFilter(QAbstractItemModel *source, QObject *parent = nullptr);
    ~HistoryFilter() override;

    /// An empty test lets all rows pass. The rows appear part by part.
    void setTest(const Test &test);
    /// While paused, no row is added. Rows that the source drops still go.
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
    std::deque<qint64> m_numbers; // of the rows that passed
};

} // namespace JwMonitor

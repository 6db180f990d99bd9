#pragma once

#include <QAbstractTableModel>
#include <QTimer>
#include <QVector>

#include <algorithm>
#include <deque>

namespace JwMonitor {

/// The base of models that append records and keep only the newest ones. New records become rows in batches, so views
/// update at most once in batchMs, however many records come.
template <typename Record>
class HistoryModel : public QAbstractTableModel
{
public:
    static constexpr int maxRows = 100000;
    static constexpr int batchMs = 30;

    explicit HistoryModel(QObject *parent = nullptr)
        : QAbstractTableModel(parent)
    {
        m_timer.setSingleShot(true);
        connect(&m_timer, &QTimer::timeout, this, [this] { flush(); });
    }

    /// Returns the number of the record. The first record has number 0; a number never changes.
    qint64 append(const Record &record)
    {
        m_pending.append(record);
        const qint64 number = m_firstNumber + rowCount() + m_pending.size() - 1;
        if (m_pending.size() >= maxRows) // the event loop did not run
            flush();
        else if (!m_timer.isActive())
            m_timer.start(batchMs);
        return number;
    }

    /// Makes rows of all records appended since the last batch.
    void flush()
    {
        m_timer.stop();
        if (m_pending.isEmpty())
            return;
        QVector<Record> batch;
        batch.swap(m_pending);
        dropOldest(rowCount() + batch.size() - maxRows);
        beginInsertRows({}, rowCount(), rowCount() + batch.size() - 1);
        std::move(batch.begin(), batch.end(), std::back_inserter(m_records));
        endInsertRows();
    }

    void clear()
    {
        flush();
        dropOldest(rowCount());
    }

    /// The record of a row.
    const Record &record(int row) const { return m_records[static_cast<size_t>(row)]; }

    int rowCount(const QModelIndex &parent = {}) const override
    {
        return parent.isValid() ? 0 : static_cast<int>(m_records.size());
    }

protected:
    /// The row of a number. Below 0: the row was dropped. rowCount() or more: the record is no row yet.
    int rowOf(qint64 number) const { return static_cast<int>(number - m_firstNumber); }
    /// The record with this number, even if it is no row yet; null if it was dropped.
    Record *find(qint64 number)
    {
        const qint64 row = number - m_firstNumber;
        if (row < 0)
            return nullptr;
        if (row < rowCount())
            return &m_records[static_cast<size_t>(row)];
        return &m_pending[static_cast<int>(row - rowCount())];
    }

private:
    void dropOldest(int count)
    {
        count = std::min(count, rowCount());
        if (count <= 0)
            return;
        beginRemoveRows({}, 0, count - 1);
        m_records.erase(m_records.begin(), m_records.begin() + count);
        m_firstNumber += count;
        endRemoveRows();
    }

    std::deque<Record> m_records;
    QVector<Record> m_pending;
    QTimer m_timer;
    qint64 m_firstNumber = 0; // of row 0
};

} // namespace JwMonitor

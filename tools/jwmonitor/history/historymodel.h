#pragma once

#include <QAbstractTableModel>
#include <QTimer>
#include <QVector>

#include <algorithm>
#include <deque>

namespace JwMonitor {

/// The base of models that append records and keep only the newest maxRows records. New records wait and become rows
/// together, at most once in batchMs milliseconds. So a view does not update for each record.
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

    /// Appends a record and returns its number. The first record gets number 0. The number of a record never changes.
    qint64 append(const Record &record)
    {
        m_pending.append(record);
        const qint64 number = m_firstNumber + rowCount() + m_pending.size() - 1;
        if (m_pending.size() >= maxRows) // the event loop did not run for long, so the timer could not call flush()
            flush();
        else if (!m_timer.isActive())
            m_timer.start(batchMs);
        return number;
    }

    /// Turns all records appended since the last batch into rows.
    void flush()
    {
        m_timer.stop();
        if (m_pending.isEmpty())
            return;
        QVector<Record> batch;
        batch.swap(m_pending);
        const auto added = static_cast<int>(batch.size());
        dropOldest(rowCount() + added - maxRows);
        beginInsertRows({}, rowCount(), rowCount() + added - 1);
        std::move(batch.begin(), batch.end(), std::back_inserter(m_records));
        endInsertRows();
    }

    void clear()
    {
        flush();
        dropOldest(rowCount());
    }

    /// Returns the record of row `row`.
    const Record &record(int row) const { return m_records[static_cast<size_t>(row)]; }

    int rowCount(const QModelIndex &parent = {}) const override
    {
        return parent.isValid() ? 0 : static_cast<int>(m_records.size());
    }

protected:
    /// Returns the row of the record `number`. The result is negative if the record was dropped. The result is
    /// rowCount() or more if the record waits for the next batch.
    int rowOf(qint64 number) const { return static_cast<int>(number - m_firstNumber); }
    /// Returns the record `number`, even if the record still waits for the next batch. Null if the record was dropped.
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
    qint64 m_firstNumber = 0; // number of the record in row 0
};

} // namespace JwMonitor

#pragma once

#include <QObject>
#include <QTimer>

class QAbstractItemModel;

namespace JwMonitor {

/// Visits each row of a history once, including rows that are added later. Each turn of the event loop visits only some
/// rows, so that the window can still react to the user.
///
/// Each row has a number that stays the same when older rows are dropped. The first row ever added has number 0.
class HistoryScan : public QObject
{
    Q_OBJECT

public:
    explicit HistoryScan(const QAbstractItemModel *model, QObject *parent = nullptr);
    ~HistoryScan() override;

    /// Visits all rows again, from the oldest row on.
    void restart();
    /// While paused, the scan does not visit new rows. It visits these rows after the pause.
    void setPaused(bool paused);
    bool isPaused() const { return m_paused; }

    /// Returns the number of the row that is now the oldest.
    qint64 firstNumber() const { return m_firstNumber; }

Q_SIGNALS:
    /// Emitted when the scan visits the rows `first` to `last` of the model.
    void reached(int first, int last);
    /// Emitted before the model drops all rows with a number below `firstNumber`.
    void dropping(qint64 firstNumber);

private:
    void goOn();
    qint64 rowsLeft() const;
    bool reachSome();

    const QAbstractItemModel *const m_model;
    QTimer m_turn;
    qint64 m_firstNumber;
    qint64 m_next; // number of the next row to visit
    qint64 m_end; // number of the first row that the scan may not visit; the largest qint64 if not paused
    bool m_paused;
};

} // namespace JwMonitor

#pragma once

#include <QObject>
#include <QTimer>

class QAbstractItemModel;

namespace JwMonitor {

/// Goes once through all rows of a model that grows at its end and shrinks at its front, a part in each turn of the
/// event loop so that the window goes on, and then through each new row.
///
/// Rows have numbers that stay: the first one ever has 0.
class HistoryScan : public QObject
{
    Q_OBJECT

public:
    explicit HistoryScan(const QAbstractItemModel *model, QObject *parent = nullptr);
    ~HistoryScan() override;

    /// From the oldest row on, again.
    void restart();
    /// While paused, rows that come are left for later.
    void setPaused(bool paused);
    bool isPaused() const { return m_paused; }

    /// The number of row 0.
    qint64 firstNumber() const { return m_firstNumber; }

Q_SIGNALS:
    /// The rows `first` to `last` of the model are the next ones.
    void reached(int first, int last);
    /// The rows before `firstNumber` are about to go.
    void dropping(qint64 firstNumber);

private:
    void goOn();
    bool reachSome();

    const QAbstractItemModel *const m_model;
    QTimer m_turn;
    qint64 m_firstNumber;
    qint64 m_next; // number of the first row that was not reached
    qint64 m_end; // number of the first row that is not to be reached while paused
    bool m_paused;
};

} // namespace JwMonitor

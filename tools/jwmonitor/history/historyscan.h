#pragma once

#include <QObject>
#include <QTimer>

class QAbstractItemModel;

namespace JwMonitor {

/// Visits all rows of a history once, then each new row. It visits some rows in each turn of the event loop, so that
/// the window stays quick.
///
/// A row has a number that never changes. The first row has number 0.
class HistoryScan : public QObject
{
    Q_OBJECT

public:
    explicit HistoryScan(const QAbstractItemModel *model, QObject *parent = nullptr);
    ~HistoryScan() override;

    /// Starts again at the oldest row.
    void restart();
    /// While paused, new rows are not visited. They are visited later.
    void setPaused(bool paused);
    bool isPaused() const { return m_paused; }

    /// The number of row 0.
    qint64 firstNumber() const { return m_firstNumber; }

Q_SIGNALS:
    /// Visits the rows `first` to `last` of the model.
    void reached(int first, int last);
    /// The model will drop the rows with a number below `firstNumber`.
    void dropping(qint64 firstNumber);

private:
    void goOn();
    bool reachSome();

    const QAbstractItemModel *const m_model;
    QTimer m_turn;
    qint64 m_firstNumber;
    qint64 m_next; // number of the first row not visited yet
    qint64 m_end; // number of the first row not to visit while paused
    bool m_paused;
};

} // namespace JwMonitor

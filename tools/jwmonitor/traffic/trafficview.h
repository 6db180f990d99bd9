#pragma once

#include <QString>
#include <QWidget>

class QAction;
class QComboBox;
class QKeySequence;
class QLabel;
class QLineEdit;
class QToolBar;

namespace JwMonitor {

class HistoryFilter;
class HistoryScan;
class HistoryTable;
class TrafficModel;

/// The payloads as a table that follows the newest one, filtered, in the raw if wanted, and saved. Its keys are its
/// actions, for a widget around it to have them too.
class TrafficView : public QWidget
{
    Q_OBJECT

public:
    explicit TrafficView(TrafficModel *model, QWidget *parent = nullptr);
    ~TrafficView() override;

    /// Saves the rows that are shown: as CSV when the name ends with ".csv", else as text. Goes on in the background;
    /// one of the two signals tells the end.
    void saveTo(const QString &fileName);

Q_SIGNALS:
    void saved(const QString &fileName);
    void saveFailed(const QString &message);

private:
    void createFilters();
    QToolBar *createTools();
    QAction *addKeys(const QKeySequence &keys);
    void createTable();
    void applyFilter();
    void clearFilter();
    void addPorts(int first, int last);
    void askAndSave();
    void showRaw(bool raw);
    void updateStatus();

    TrafficModel *const m_model;
    HistoryFilter *const m_filter;
    HistoryScan *const m_portScan;
    HistoryTable *const m_table;
    QComboBox *const m_port;
    QComboBox *const m_direction;
    QLineEdit *const m_identifier;
    QLineEdit *const m_text;
    QLabel *const m_status;
    QLabel *const m_message;
};

} // namespace JwMonitor

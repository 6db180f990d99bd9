#pragma once

#include "boardnames.h"

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

/// Shows the table of payloads, with filters and buttons, for example for raw payloads, pausing and saving. All actions
/// with keyboard shortcuts are in actions(). If a parent widget adds them too, the shortcuts work in the whole parent.
class TrafficView : public QWidget
{
    Q_OBJECT

public:
    explicit TrafficView(TrafficModel *model, QWidget *parent = nullptr);
    ~TrafficView() override;

    /// Starts to save the rows shown: as CSV if the name ends with ".csv", else as text. Emits saved() or saveFailed()
    /// at the end.
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
    void showColumns();
    void updateStatus();

    TrafficModel *const m_model;
    HistoryFilter *const m_filter;
    HistoryScan *const m_portScan;
    BoardNames m_names;
    QString m_widest; // the longest name of a port or board
    bool m_isRaw = false;
    HistoryTable *const m_table;
    QComboBox *const m_port;
    QComboBox *const m_direction;
    QLineEdit *const m_identifier;
    QLineEdit *const m_text;
    QLabel *const m_status;
    QLabel *const m_message;
};

} // namespace JwMonitor

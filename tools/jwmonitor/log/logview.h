#pragma once

#include <QWidget>

class QComboBox;
class QLineEdit;

namespace JwMonitor {

class HistoryFilter;
class HistoryScan;
class HistoryTable;
class LogModel;

/// Shows the log as a table with filters for level, category and text. The user can also choose which levels the
/// library logs.
class LogView : public QWidget
{
    Q_OBJECT

public:
    explicit LogView(LogModel *model, QWidget *parent = nullptr);
    ~LogView() override;

private:
    void createControls();
    void createLayout();
    void applyFilter();
    void addCategories(int first, int last);
    void setLoggerLevel();

    LogModel *const m_model;
    HistoryFilter *const m_filter;
    HistoryScan *const m_categoryScan;
    HistoryTable *const m_table;
    QComboBox *const m_loggerLevel;
    QComboBox *const m_level;
    QComboBox *const m_category;
    QLineEdit *const m_text;
};

} // namespace JwMonitor

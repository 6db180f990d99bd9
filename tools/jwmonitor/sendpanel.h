#pragma once

#include "boardlink.h"

#include <QHash>
#include <QStringList>
#include <QWidget>

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTableView;

namespace JwMonitor {

class HistoryFilter;
class SendLedger;
class TrafficModel;

/// A line to a board, shown as it will go out, and what was sent so far with what became of it. What it sends is added
/// to the model.
class SendPanel : public QWidget
{
    Q_OBJECT

public:
    explicit SendPanel(TrafficModel *model, QWidget *parent = nullptr);
    ~SendPanel() override;

    void addBoard(const BoardLink &link);
    /// Also when the board is gone already. Unknown ports are ignored.
    void removeBoard(const QString &port);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void createTable(TrafficModel *model);
    void updatePreview();
    void send();
    void recall(int step);
    QString obstacle(QString *sentence) const;

    TrafficModel *const m_model;
    QComboBox *const m_board;
    QLineEdit *const m_line;
    QPushButton *const m_button;
    QLabel *const m_preview;
    QTableView *const m_table;
    HistoryFilter *const m_sent;
    QHash<QString, BoardLink> m_links;
    QHash<QString, SendLedger *> m_ledgers;
    QStringList m_history;
    int m_recalled; // in m_history; its size: the line is not from there
    QString m_draft; // what was typed before the first Up
};

} // namespace JwMonitor

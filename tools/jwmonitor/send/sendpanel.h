#pragma once

#include <jwmonitor/traffic/boardlink.h>

#include <QHash>
#include <QWidget>

class QComboBox;
class QLabel;

namespace JwMonitor {

class HistoryFilter;
class HistoryTable;
class RecallLine;
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

    /// A board on the same port takes the place of the one before.
    void addBoard(const BoardLink &link);
    /// Also when the board is gone already. Unknown ports are ignored.
    void removeBoard(const QString &port);

protected:
    void changeEvent(QEvent *event) override;

private:
    void createLayout();
    void showSentOnly();
    void removeLedger(const QString &port);
    void updatePreview();
    void send();
    void showMessage(const QString &text, bool isFault);

    TrafficModel *const m_model;
    QComboBox *const m_board;
    RecallLine *const m_line;
    QLabel *const m_preview;
    QLabel *const m_message;
    HistoryFilter *const m_sent;
    HistoryTable *const m_table;
    QHash<QString, SendLedger *> m_ledgers; // by port
    bool m_messageIsFault;
};

} // namespace JwMonitor

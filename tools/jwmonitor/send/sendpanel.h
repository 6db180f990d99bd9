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

/// Sends lines to a board. Shows the sentence that each line becomes, and a table of all sent payloads with their
/// progress. Adds each sent payload to the model.
class SendPanel : public QWidget
{
    Q_OBJECT

public:
    explicit SendPanel(TrafficModel *model, QWidget *parent = nullptr);
    ~SendPanel() override;

    /// Adds a board to which the user can send. Replaces an earlier board on the same port.
    void addBoard(const BoardLink &link);
    /// Removes the board on `port`. Its Communicator may already be deleted. Ignores unknown ports.
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
    QHash<QString, SendLedger *> m_ledgers; // key: name of the port on which the board is
    bool m_messageIsFault;
};

} // namespace JwMonitor

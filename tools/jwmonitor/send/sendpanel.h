#pragma once

#include <jwmonitor/traffic/boardlink.h>

#include <QHash>
#include <QWidget>

class QComboBox;
class QLabel;

namespace JwMonitor {

class HistoryFilter;
class HistoryTable;
class LineSender;
class RecallLine;
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
    /// Adds a board with this name and type, or replaces the board with this name. The panel then owns `sender`.
    void addBoard(const QString &name, const QString &type, LineSender *sender);
    /// Removes the board with this name: its port, or the name that was given to addBoard(). Its Communicator may
    /// already be deleted. Ignores unknown names.
    void removeBoard(const QString &name);
    /// Shows that a payload that this panel sent did not reach its board.
    void showFailure(const QString &name, uint id, const QString &error);

protected:
    void changeEvent(QEvent *event) override;

private:
    void createLayout();
    void showSentOnly();
    void removeSender(const QString &name);
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
    QHash<QString, LineSender *> m_senders; // by name of the board
    QString m_widest; // the longest name of a board
    bool m_messageIsFault;
};

} // namespace JwMonitor

#pragma once

#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QString>

namespace JwProbe {

class Board;
class Input;

/// Shows the payloads of the boards on standard output, and sends the lines of standard input to the boards.
class Monitor : public QObject
{
    Q_OBJECT

public:
    /// The boards must outlive the monitor. If `json` is true, each line of the output is one JSON object.
    Monitor(const QList<Board *> &boards, bool json);

    /// Shows the payloads that arrived since the boards were found, then returns. The event loop handles later payloads
    /// and lines.
    void start();

Q_SIGNALS:
    /// Emitted from the event loop when the last board was lost.
    void allLost();
    /// Emitted when nobody reads standard output any more.
    void outputLost();

private:
    void introduce() const;
    void show(const QString &text);
    void showEvent(const QString &event, const Board *board, QJsonObject object);
    void paceInput();
    void receive(Board *board);
    void lose(Board *board);
    void send(const QString &line);
    QList<Board *> addressed(QString &line, QString *error) const;
    void showPayload(const Board *board, bool received, const QString &payload);

    QList<Board *> m_boards; // the boards that are still connected
    const bool m_json;
    Input *const m_input;
};

} // namespace JwProbe

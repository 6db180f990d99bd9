#pragma once

#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QString>

namespace JwProbe {

class Board;
class Input;

/// Shows what boards send on standard output, and sends them what is typed on standard input.
class Monitor : public QObject
{
    Q_OBJECT

public:
    /// The boards must outlive it. `json` for one JSON object a line.
    Monitor(const QList<Board *> &boards, bool json);

    /// Begins with what the boards sent since they were found. What is seen comes from the event loop from then on.
    void start();

Q_SIGNALS:
    /// No board is left; comes from the event loop.
    void allLost();
    /// Nobody reads standard output any more.
    void outputLost();

private:
    void introduce() const;
    void watchOutput();
    void show(const QString &text);
    void showEvent(const QString &event, const Board *board, QJsonObject object);
    void paceInput();
    void receive(Board *board);
    void lose(Board *board);
    void send(const QString &line);
    QList<Board *> addressed(QString &line, QString *error) const;
    void showPayload(const Board *board, bool received, const QString &payload);

    QList<Board *> m_boards; // those still connected
    const bool m_json;
    Input *const m_input;
};

} // namespace JwProbe

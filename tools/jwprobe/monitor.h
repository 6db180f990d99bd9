#pragma once

#include <QList>
#include <QObject>
#include <QString>

namespace JwProbe {

class Board;

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

private:
    void introduce() const;
    void receive(Board *board);
    void lose(Board *board);
    void send(const QString &line);
    QList<Board *> addressed(QString &line, QString *error) const;
    void showPayload(const Board *board, bool received, const QString &payload) const;

    QList<Board *> m_boards; // those still connected
    const bool m_json;
};

} // namespace JwProbe

#pragma once

#include "linesender.h"

namespace JwMonitor {

class RemoteBoards;
class TrafficModel;

/// Sends payloads to a board of another machine.
class RemoteSender : public LineSender
{
    Q_OBJECT

public:
    /// `boards` and `model` must outlive this object.
    RemoteSender(RemoteBoards *boards, const QString &board, TrafficModel *model, QObject *parent = nullptr);
    ~RemoteSender() override;

    uint send(const QString &sentence, QString *error) override;

private:
    RemoteBoards *const m_boards;
    const QString m_board;
    TrafficModel *const m_model;
};

} // namespace JwMonitor

#include "remotesender.h"

#include <jwmonitor/fleet/remoteboards.h>
#include <jwmonitor/history/clock.h>
#include <jwmonitor/traffic/trafficmodel.h>

namespace JwMonitor {

RemoteSender::RemoteSender(RemoteBoards *boards, const QString &board, TrafficModel *model, QObject *parent)
    : LineSender(parent)
    , m_boards(boards)
    , m_board(board)
    , m_model(model)
{
}

RemoteSender::~RemoteSender() = default;

uint RemoteSender::send(const QString &sentence, QString *error)
{
    const qint64 timeUs = microsecondsSinceEpoch();
    const uint number = m_boards->send(m_board, sentence);
    if (number > 0)
        m_model->append({timeUs, m_board, Direction::Sent, sentence, number});
    else
        *error = tr("there is no connection to the broker");
    return number;
}

} // namespace JwMonitor

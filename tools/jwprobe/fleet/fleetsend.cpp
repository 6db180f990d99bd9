#include "fleetsend.h"

#include "addressing.h"
#include <common/printable.h>
#include <jwprobe/output/output.h>
#include <jwprobe/search/portidentity.h>
#include <jwprobe/search/searchresult.h>

#include <QJsonObject>

#include <utility>

using JwFleet::FleetWatch;

namespace JwProbe {

FleetSend::FleetSend(const Options &options)
    : m_options(options)
    , m_watch(options.fleet.broker, options.fleet.prefix, FleetWatch::WithoutPayloads)
{
    m_deadline.setSingleShot(true);
    connect(&m_deadline, &QTimer::timeout, this, &FleetSend::onDeadline);
    connect(&m_watch, &FleetWatch::failed, this, [this](const QString &reason) { m_failure = reason; });
    connect(&m_watch, &FleetWatch::connected, this, [this] { m_failure.clear(); });
    // Not earlier, because boards of several machines may have the same id.
    connect(&m_watch, &FleetWatch::settled, this, &FleetSend::send);
    connect(&m_watch, &FleetWatch::sendFinished, this,
            [this](int, qint64 id, const QString &error) { finish(id, error); });
}

void FleetSend::start()
{
    m_deadline.start(m_options.deadline);
    m_watch.start();
}

void FleetSend::send()
{
    if (std::exchange(m_isSent, true))
        return;
    QString error;
    const auto board = boardNamed(m_options.fleet.sendTo, m_watch.boards(), &error);
    if (!board) {
        finish(0, error);
        return;
    }
    m_board = *board;
    if (m_watch.send(board->host, board->id, m_options.fleet.line) == 0)
        finish(0, QStringLiteral("the connection to the broker was lost"));
}

void FleetSend::onDeadline()
{
    const QString broker = m_options.fleet.broker.address.text();
    if (m_isSent)
        finish(0,
               QStringLiteral("no result came within %1 ms. Perhaps the board got the line").arg(m_options.deadline));
    else if (m_failure.isEmpty())
        finish(0, QStringLiteral("%1 did not answer within %2 ms").arg(broker).arg(m_options.deadline));
    else
        finish(0, QStringLiteral("no connection to %1: %2").arg(broker, m_failure));
}

void FleetSend::finish(qint64 id, const QString &error)
{
    m_deadline.stop();
    bool isPrinted = true;
    if (m_options.json) {
        const QJsonObject result{{QStringLiteral("event"), QStringLiteral("result")},
                                 {QStringLiteral("time"), isoText(QDateTime::currentDateTime())},
                                 {QStringLiteral("machine"), orNull(m_board.host)},
                                 {QStringLiteral("id"), m_board.id.isEmpty() ? m_options.fleet.sendTo : m_board.id},
                                 {QStringLiteral("payloadId"), id > 0 ? QJsonValue(id) : QJsonValue()},
                                 {QStringLiteral("error"), orNull(error)}};
        isPrinted = print(jsonText(result, QJsonDocument::Compact));
    } else if (error.isEmpty()) {
        isPrinted = print(QStringLiteral("written to %1 as payload %2\n").arg(orDash(fullName(m_board))).arg(id));
    } else {
        complain(QStringLiteral("not sent: %1").arg(JwTools::printable(error)));
    }
    const int status = error.isEmpty() && isPrinted ? AllFound : SomeMissing;
    QMetaObject::invokeMethod(
        this, [this, status] { Q_EMIT ended(status); }, Qt::QueuedConnection);
}

} // namespace JwProbe

#include "fleettable.h"

#include <common/printable.h>
#include <jwprobe/output/output.h>
#include <jwprobe/output/table.h>

#include <algorithm>

namespace JwProbe {

FleetTable::FleetTable(const QString &broker)
    : m_broker(broker)
{
}

void FleetTable::add(const FleetEvent &event)
{
    const QPair<QString, QString> key{event.board.host, event.board.id};
    switch (event.kind) {
    case FleetEvent::Online:
        m_machines.insert(event.board.host, QStringLiteral("online"));
        return;
    case FleetEvent::Offline:
        m_machines.insert(event.board.host, QStringLiteral("offline"));
        return;
    case FleetEvent::Forgotten:
        m_rows.remove(key);
        return;
    case FleetEvent::Payload:
    case FleetEvent::Refused:
        return;
    case FleetEvent::Found:
    case FleetEvent::Lost:
    case FleetEvent::Back:
        break;
    }
    Row &row = m_rows[key];
    if (row.board.isThere() && event.kind == FleetEvent::Lost)
        ++row.losses;
    row.board = event.board;
    // A bridge that is offline has not noted since when.
    const bool isNoted = event.board.state != QLatin1String("offline") && event.board.state != QLatin1String("noNews");
    row.since = isNoted ? event.board.since : event.time;
}

void FleetTable::setRefusals(const QString &host, const QList<JwFleet::RemotePort> &ports)
{
    if (ports.isEmpty())
        m_refusals.remove(host);
    else
        m_refusals.insert(host, ports);
}

QString FleetTable::redrawn(int width, int height)
{
    return m_text.redrawn(lines(width, height), width, height);
}

QStringList FleetTable::lines(int width, int height) const
{
    return (title() + QLatin1String("\n\n") + boardText(width, height) + refusalText(width))
        .chopped(1)
        .split(QLatin1Char('\n'));
}

QString FleetTable::title() const
{
    if (!m_failure.isEmpty())
        return QStringLiteral("No connection to %1: %2. Trying again; Ctrl-C ends").arg(m_broker, m_failure);
    const auto there = std::count_if(m_rows.begin(), m_rows.end(), [](const Row &row) { return row.board.isThere(); });
    const auto online = std::count(m_machines.begin(), m_machines.end(), QStringLiteral("online"));
    return QStringLiteral("%1: %2 of %3 machines online, %4 of %5 boards there; Ctrl-C ends")
        .arg(m_broker)
        .arg(online)
        .arg(m_machines.size())
        .arg(there)
        .arg(m_rows.size());
}

// Makes only the rows that fit, because a fleet may have many thousands.
QString FleetTable::boardText(int width, int height) const
{
    if (m_rows.isEmpty() && m_machines.isEmpty())
        return QStringLiteral("No machine is known yet.\n");
    Table table({QStringLiteral("MACHINE"), QStringLiteral("TYPE"), QStringLiteral("PORT"), QStringLiteral("ID"),
                 QStringLiteral("HARDWARE"), QStringLiteral("STATE"), QStringLiteral("SINCE"), QStringLiteral("LOST")});
    int rows = 0;
    for (auto it = m_machines.begin(); it != m_machines.end(); ++it) {
        auto row = m_rows.lowerBound({it.key(), {}});
        const QString dash = QStringLiteral("-");
        if ((row == m_rows.end() || row.key().first != it.key()) && ++rows < height)
            table.addRow({orDash(it.key()), dash, dash, dash, dash, *it});
        for (; row != m_rows.end() && row.key().first == it.key(); ++row) {
            const JwFleet::RemoteBoard &board = row->board;
            if (++rows < height) {
                table.addRow({orDash(board.host), orDash(board.type), orDash(board.portName), orDash(board.id),
                              orDash(board.hardwareVersion), stateText(board), sinceText(row->since),
                              QString::number(row->losses)});
            }
        }
    }
    // LiveText counts the lines that it leaves out, so each missing row is an empty line.
    return table.toText(width) + QString(std::max(0, rows - height + 1), QLatin1Char('\n'));
}

QString FleetTable::refusalText(int width) const
{
    QString text;
    for (auto it = m_refusals.begin(); it != m_refusals.end(); ++it) {
        for (const JwFleet::RemotePort &port : *it) {
            const QString name = JwTools::printable(it.key() + QLatin1Char('/') + port.portName);
            text += QStringLiteral("  %1  %2\n")
                        .arg(name, wrapped(JwTools::printable(port.summary), name.size() + 4, width));
        }
    }
    return text.isEmpty() ? text : QStringLiteral("\nPorts without a board:\n") + text;
}

} // namespace JwProbe

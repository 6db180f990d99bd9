#include "fleetboards.h"

#include <common/boardtype.h>
#include <common/printable.h>
#include <jwmonitor/history/clock.h>

#include <algorithm>

using JwFleet::FleetWatch;
using JwFleet::Machine;
using JwFleet::RemoteBoard;

namespace JwMonitor {

namespace {

constexpr int changeInterval = 100; // ms; one change shows all news, because a large fleet has many

QString nameOf(const RemoteBoard &board)
{
    return JwTools::printable(JwFleet::fullName(board));
}

PortEntry machineRow(const Machine &machine)
{
    PortEntry entry;
    entry.key = machine.host;
    entry.port.name = JwTools::printable(machine.host);
    entry.isPresent = machine.state == Machine::Online;
    switch (machine.state) {
    case Machine::Online:
        entry.remote = {FleetBoards::tr("online"), Theme::Good};
        break;
    case Machine::Offline:
        entry.remote = {FleetBoards::tr("offline: its bridge has no connection to the broker"), Theme::Problem};
        break;
    case Machine::NoNews:
        entry.remote = {FleetBoards::tr("no news since the connection to the broker was lost"), Theme::Waiting};
        break;
    }
    return entry;
}

PortEntry boardRow(const RemoteBoard &board)
{
    PortEntry entry;
    entry.key = JwFleet::fullName(board);
    entry.port.name = nameOf(board);
    entry.port.serialNumber = JwTools::printable(board.serialNumber);
    entry.type = JwTools::boardType(board.type).value_or(JwDevice::Unknown);
    entry.isPresent = board.isThere();
    if (!board.isThere()) {
        entry.remote = {FleetBoards::tr("lost: %1").arg(JwFleet::stateText(board)), Theme::Problem};
        return entry;
    }
    QString text = FleetBoards::tr("found on %1").arg(JwTools::printable(board.portName));
    if (!board.hardwareVersion.isEmpty())
        text = FleetBoards::tr("%1, hardware %2").arg(text, JwTools::printable(board.hardwareVersion));
    entry.remote = {text, Theme::Good};
    return entry;
}

PortEntry refusedRow(const QString &host, const JwFleet::RemotePort &port)
{
    PortEntry entry;
    entry.key = host + QStringLiteral("//") + port.portName; // no board's key, because no id begins with "/"
    entry.port.name = JwTools::printable(host + QLatin1Char('/') + port.portName);
    entry.isPresent = true;
    entry.remote = {JwTools::printable(port.summary), Theme::Problem};
    return entry;
}

} // namespace

FleetBoards::FleetBoards(const JwFleet::BrokerSettings &broker, const QString &prefix, QObject *parent)
    : RemoteBoards(parent)
    , m_broker(broker.address.text())
    , m_watch(broker, prefix, FleetWatch::WithPayloads)
{
    m_failure = tr("the broker has not yet answered");
    m_changeTimer.setSingleShot(true);
    m_changeTimer.setInterval(changeInterval);
    connect(&m_changeTimer, &QTimer::timeout, this, &FleetBoards::changed);
    connect(&m_watch, &FleetWatch::connected, this, [this] {
        m_refusal.clear();
        setFailure(QString());
    });
    connect(&m_watch, &FleetWatch::failed, this, &FleetBoards::setFailure);
    connect(&m_watch, &FleetWatch::subscriptionRefused, this, [this](const QByteArray &filter, const QString &reason) {
        m_refusal = tr("the broker does not let this user read %1: %2").arg(QString::fromUtf8(filter), reason);
        changeSoon();
    });
    connect(&m_watch, &FleetWatch::machineChanged, this, &FleetBoards::changeSoon);
    connect(&m_watch, &FleetWatch::portsChanged, this, &FleetBoards::changeSoon);
    connect(&m_watch, &FleetWatch::boardFound, this, &FleetBoards::onFound);
    connect(&m_watch, &FleetWatch::boardBack, this, &FleetBoards::onFound);
    connect(&m_watch, &FleetWatch::boardLost, this, &FleetBoards::changeSoon);
    connect(&m_watch, &FleetWatch::boardForgotten, this, [this](const RemoteBoard &board) {
        m_addresses.remove(nameOf(board));
        changeSoon();
        Q_EMIT boardForgotten(nameOf(board));
    });
    connect(
        &m_watch, &FleetWatch::payloadReceived, this,
        [this](const RemoteBoard &board, qint64 time, qint64, const QString &text) { onPayload(board, time, text); });
    connect(&m_watch, &FleetWatch::sendFinished, this, [this](int number, qint64, const QString &error) {
        const auto sent = static_cast<uint>(number);
        Q_EMIT sendFinished(m_sent.take(sent), sent, JwTools::printable(error));
    });
}

FleetBoards::~FleetBoards() = default;

QVector<PortEntry> FleetBoards::ports() const
{
    QVector<PortEntry> rows;
    const QList<RemoteBoard> boards =
        m_watch.boards(); // in the order of the machines; the machine of each board is known
    auto board = boards.begin();
    const QList<Machine> machines = m_watch.machines();
    for (const Machine &machine : machines) {
        rows.append(machineRow(machine));
        for (; board != boards.end() && board->host == machine.host; ++board)
            rows.append(boardRow(*board));
        if (machine.state != Machine::Online)
            continue; // the ports may have changed
        const QList<JwFleet::RemotePort> ports = m_watch.ports(machine.host);
        for (const JwFleet::RemotePort &port : ports) {
            if (port.isRefused())
                rows.append(refusedRow(machine.host, port));
        }
    }
    return rows;
}

QString FleetBoards::summary() const
{
    if (!m_failure.isEmpty())
        return tr("No connection to %1: %2").arg(m_broker, m_failure);
    if (!m_refusal.isEmpty())
        return tr("%1: %2").arg(m_broker, m_refusal);
    const QList<Machine> machines = m_watch.machines();
    const QList<RemoteBoard> boards = m_watch.boards();
    const auto online = std::count_if(machines.begin(), machines.end(),
                                      [](const Machine &machine) { return machine.state == Machine::Online; });
    const auto there =
        std::count_if(boards.begin(), boards.end(), [](const RemoteBoard &board) { return board.isThere(); });
    return tr("%1: %2 of %3 machines online, %4 of %5 boards there")
        .arg(m_broker)
        .arg(online)
        .arg(machines.size())
        .arg(there)
        .arg(boards.size());
}

uint FleetBoards::send(const QString &board, const QString &sentence)
{
    const auto address = m_addresses.constFind(board);
    const bool isKnown = address != m_addresses.constEnd();
    const auto number = isKnown ? static_cast<uint>(m_watch.send(address->host, address->id, sentence)) : 0;
    if (number > 0)
        m_sent.insert(number, board);
    return number;
}

void FleetBoards::onFound(const RemoteBoard &board)
{
    m_addresses.insert(nameOf(board), {board.host, board.id});
    changeSoon();
    Q_EMIT boardFound(nameOf(board), JwTools::printable(board.type));
}

void FleetBoards::onPayload(const RemoteBoard &board, qint64 time, const QString &text)
{
    Q_EMIT payloadReceived({time > 0 ? time : microsecondsSinceEpoch(), nameOf(board), Direction::Received,
                            text + QStringLiteral("\r\n"), 0});
}

void FleetBoards::setFailure(const QString &reason)
{
    m_failure = reason;
    changeSoon();
}

void FleetBoards::changeSoon()
{
    if (!m_changeTimer.isActive())
        m_changeTimer.start();
}

} // namespace JwMonitor

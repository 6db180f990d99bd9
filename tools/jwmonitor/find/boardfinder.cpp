#include "boardfinder.h"

#include <common/portname.h>
#include <jwmonitor/history/clock.h>

#include <device/boardrules.h>
#include <device/initializer.h>
#include <device/porterrors.h>

#include <QSerialPort>

#include <algorithm>
#include <utility>

namespace JwMonitor {

namespace {

constexpr int spareTime = 1500; // ms that a search may last beyond its rounds, because ports open slowly
constexpr int refreshInterval =
    100; // ms between two readings of the port reports; after a port event they are read at once
constexpr int settleTime =
    200; // ms from a new port or a lost board to the next search; ports that appear together get one search

bool isSettled(const JwDevice::PortReport &report)
{
    if (report.verdict == JwDevice::PortReport::NotOpened)
        return report.error != QSerialPort::NoError;
    return report.verdict != JwDevice::PortReport::Awaiting;
}

/// Returns a copy of `entry` without the results of earlier searches.
PortEntry forgotten(const PortEntry &entry)
{
    PortEntry left;
    left.port = entry.port;
    return left;
}

/// Returns whether a board was lost on this port, and a later search tried the port but did not find the board again.
bool isTaken(const PortEntry &entry)
{
    return entry.stay == PortEntry::Lost && entry.report && !entry.report->location.isEmpty()
        && entry.report->verdict != JwDevice::PortReport::Lost
        && entry.report->error != QSerialPort::DeviceNotFoundError; // this error means that the port disappeared
}

} // namespace

BoardFinder::BoardFinder(QObject *parent)
    : QObject(parent)
{
    m_deadline.setSingleShot(true);
    connect(&m_deadline, &QTimer::timeout, this, &BoardFinder::endSearch);
    m_againTimer.setSingleShot(true);
    m_againTimer.setInterval(settleTime);
    connect(&m_againTimer, &QTimer::timeout, this, &BoardFinder::search);
    m_refreshTimer.setSingleShot(true);
    connect(&m_refreshTimer, &QTimer::timeout, this, &BoardFinder::refresh);
    connect(&m_watcher, &PortWatcher::portsChanged, this, &BoardFinder::onPortsChanged);
    m_watcher.start();
}

BoardFinder::~BoardFinder()
{
    blockSignals(true); // because stop() emits signals, and their receivers may be half destroyed
    stop();
}

void BoardFinder::start(const JwTools::SearchSettings &settings)
{
    stop();
    m_settings = settings;
    m_entries.clear();
    m_boards.clear();
    for (const JwDevice::Type type : settings.types)
        m_boards.insert(type, BoardState());
    m_isStarted = true;
    search();
}

void BoardFinder::stop()
{
    m_isStarted = false;
    m_isDue = false;
    m_againTimer.stop();
    endSearch();
    const auto held = std::exchange(m_held, {});
    for (auto board = held.begin(); board != held.end(); ++board) {
        letGo(board.value());
        m_entries[board.key()] = forgotten(m_entries.value(board.key()));
        Q_EMIT boardLost(board.key());
    }
    for (PortEntry &entry : m_entries) {
        if (entry.stay == PortEntry::Lost)
            entry = forgotten(entry);
    }
    for (BoardState &board : m_boards)
        board = BoardState();
    Q_EMIT changed();
}

QVector<PortEntry> BoardFinder::ports() const
{
    QMap<QString, PortEntry> entries = m_entries;
    for (const SystemPort &port : m_systemPorts.value_or(QVector<SystemPort>())) {
        PortEntry &entry = entries[port.name];
        entry.port = port;
        entry.isPresent = true;
    }
    QVector<PortEntry> result;
    for (const PortEntry &entry : qAsConst(entries)) {
        if (entry.isPresent || entry.stay != PortEntry::NoBoard || entry.report)
            result.append(entry);
    }
    std::sort(result.begin(), result.end(),
              [](const PortEntry &a, const PortEntry &b) { return JwTools::isPortBefore(a.port.name, b.port.name); });
    return result;
}

void BoardFinder::search()
{
    const QList<JwDevice::Type> types = missingTypes();
    if (!m_isStarted || types.isEmpty())
        return;
    m_isDue = m_initializer || m_leaving > 0;
    if (m_isDue)
        return;
    for (const JwDevice::Type type : types) {
        BoardState &board = m_boards[type];
        if (board.stage != BoardState::Lost)
            board.stage = BoardState::Looking;
    }
    for (PortEntry &entry : m_entries) {
        if (entry.stay == PortEntry::NoBoard)
            entry = forgotten(entry);
    }

    auto *initializer = new JwDevice::Initializer(this);
    m_initializer = initializer;
    initializer->setMaxRetries(static_cast<uint>(m_settings.retries));
    connect(initializer, &JwDevice::Initializer::deviceInitialized, this,
            [this, initializer](JwDevice::Type type, JwDevice::Communicator *communicator) {
                const Board board = adopt(communicator);
                if (m_initializer == initializer)
                    onBoardFound(type, board);
                else // the search has ended, so the board is not used
                    letGo(board);
            });
    initializer->setPortObserver([this, initializer](const JwDevice::PortEvent &event) {
        const bool isOurs = event.kind == JwDevice::PortEvent::NotOpened && m_held.contains(event.portName);
        if (m_initializer != initializer || isOurs)
            return;
        Q_EMIT portEvent(event);
        refreshSoon();
    });
    // deviceNotFound() may be emitted inside probe(), and several times: once for each missing type. So the search ends
    // later, from the event loop.
    connect(initializer, &JwDevice::Initializer::deviceNotFound, this, [this] { endSearchSoon(); });
    m_clock.start();
    m_deadline.start(limit(types));
    Q_EMIT searchStarted(microsecondsSinceEpoch());
    Q_EMIT changed();
    initializer->probe(types, m_settings.delay, m_settings.ports);
    refreshSoon();
}

void BoardFinder::endSearch()
{
    if (!m_initializer)
        return;
    refresh();
    for (PortEntry &entry : m_entries) {
        entry.isOver = true;
        if (isTaken(entry)) {
            entry.stay = PortEntry::NoBoard;
            entry.type = entry.report->type;
        }
    }
    m_deadline.stop();
    m_refreshTimer.stop();
    ++m_leaving;
    connect(m_initializer, &QObject::destroyed, this, [this] {
        --m_leaving;
        if (m_isDue)
            search();
    });
    std::exchange(m_initializer, nullptr)->deleteLater(); // not delete: this may run in a signal of the Initializer
    for (BoardState &board : m_boards) {
        if (board.stage == BoardState::Looking)
            board.stage = BoardState::Missing;
    }
    Q_EMIT searchEnded();
    Q_EMIT changed();
}

void BoardFinder::endSearchSoon()
{
    QMetaObject::invokeMethod(
        this,
        [this, initializer = m_initializer] {
            if (m_initializer == initializer)
                endSearch();
        },
        Qt::QueuedConnection);
}

void BoardFinder::refreshSoon()
{
    if (m_initializer)
        m_refreshTimer.start(0);
}

void BoardFinder::refresh()
{
    if (!m_initializer)
        return;
    const QList<JwDevice::PortReport> reports = m_initializer->portReports();
    QList<JwDevice::PortReport> ours;
    for (const JwDevice::PortReport &report : reports) {
        if (m_held.contains(report.portName) && report.verdict != JwDevice::PortReport::HandedOver)
            continue; // not opened by the search, because a board in m_held has the port open
        ours.append(report);
        PortEntry &entry = m_entries[report.portName];
        entry.port.name = report.portName;
        if (!isSettled(report))
            entry.milliseconds = -1;
        else if (entry.milliseconds < 0)
            entry.milliseconds = static_cast<double>(m_clock.nsecsElapsed()) / 1e6;
        if (report.type != JwDevice::Unknown)
            entry.type = report.type;
        entry.report = report;
        entry.isOver = false;
    }
    Q_EMIT reported(ours);
    Q_EMIT changed();
    m_refreshTimer.start(refreshInterval);
}

BoardFinder::Board BoardFinder::adopt(JwDevice::Communicator *communicator)
{
    auto *port = static_cast<QSerialPort *>(communicator->device());
    port->setParent(this);
    communicator->setParent(port);
    return {communicator, port};
}

void BoardFinder::onBoardFound(JwDevice::Type type, const Board &held)
{
    QSerialPort *const port = held.port;
    const QString name = port->portName();
    m_held.insert(name, held);
    connect(new JwDevice::PortErrors(port), &JwDevice::PortErrors::portLost, this, [this, name, port] {
        if (m_held.value(name).port == port)
            lose(name);
    });

    PortEntry &entry = m_entries[name];
    entry.port.name = name;
    entry.stay = entry.stay == PortEntry::Lost && entry.type == type ? PortEntry::Back : PortEntry::Found;
    entry.type = type;
    entry.milliseconds = static_cast<double>(m_clock.nsecsElapsed()) / 1e6;
    BoardState &board = m_boards[type];
    board = {board.stage == BoardState::Lost ? BoardState::Back : BoardState::Found, name};
    Q_EMIT boardFound({name, type, held.communicator}, microsecondsSinceEpoch());
    refreshSoon();
    if (missingTypes().isEmpty())
        endSearchSoon();
}

void BoardFinder::onPortsChanged(const QVector<SystemPort> &ports)
{
    // The first list of ports starts no search, because the first search has already tried these ports.
    const bool came = m_systemPorts
        && std::any_of(ports.begin(), ports.end(), [this](const SystemPort &port) { return isWorthASearch(port); });
    for (const SystemPort &port : m_systemPorts.value_or(QVector<SystemPort>())) {
        const auto entry = m_entries.find(port.name);
        if (entry != m_entries.end() && entry->stay == PortEntry::NoBoard && !m_initializer && !ports.contains(port))
            *entry = forgotten(*entry); // if the port appears again, another board may be on it
    }
    const QList<JwDevice::Type> missing = missingTypes();
    for (const SystemPort &port : ports) {
        const auto entry = m_entries.find(port.name);
        if (entry == m_entries.end())
            continue;
        const bool isNew = m_systemPorts && !m_systemPorts->contains(port);
        if (isNew && entry->stay == PortEntry::Lost && !missing.contains(entry->type))
            *entry = forgotten(*entry); // a board of this type was found elsewhere, so no search will update this entry
        entry->port = port;
    }
    m_systemPorts = ports;
    if (came && m_isStarted)
        m_againTimer.start();
    Q_EMIT changed();
}

bool BoardFinder::isWorthASearch(const SystemPort &port) const
{
    // The newest search may have tried the port before m_watcher reported the port. Then no new search is needed.
    const std::optional<JwDevice::PortReport> report = m_entries.value(port.name).report;
    const bool isTried = report && !report->location.isEmpty() && report->verdict != JwDevice::PortReport::Lost;
    return !m_systemPorts->contains(port) && !isTried
        && (m_settings.ports.isEmpty() || m_settings.ports.contains(port.name));
}

void BoardFinder::lose(const QString &portName)
{
    letGo(m_held.take(portName));
    PortEntry &entry = m_entries[portName];
    entry.stay = PortEntry::Lost;
    entry.milliseconds = -1;
    entry.report.reset();
    m_boards[entry.type] = {BoardState::Lost, portName};
    // The port may disappear and appear again between two looks of m_watcher, which then sees no change. So the port is
    // removed from m_systemPorts here. If the system lists it at the next look, it counts as new and a search starts.
    if (m_systemPorts) {
        const auto isIt = [&portName](const SystemPort &port) { return port.name == portName; };
        m_systemPorts->erase(std::remove_if(m_systemPorts->begin(), m_systemPorts->end(), isIt), m_systemPorts->end());
    }
    m_watcher.lookAgain();
    Q_EMIT boardLost(portName);
    Q_EMIT changed();
    m_againTimer.start(); // a board of the same type may be on another port
}

void BoardFinder::letGo(const Board &board)
{
    disconnect(board.port, nullptr, this, nullptr);
    board.communicator->setIODevice(nullptr);
    JwDevice::closeAtOnce(board.port); // without this, an open port whose device is gone reports errors without end
    board.port->deleteLater(); // not delete, because this code may run inside a signal of the port
}

QList<JwDevice::Type> BoardFinder::missingTypes() const
{
    QList<JwDevice::Type> types = m_settings.types;
    for (auto board = m_held.begin(); board != m_held.end(); ++board)
        types.removeAll(m_entries.value(board.key()).type);
    return types;
}

int BoardFinder::limit(const QList<JwDevice::Type> &types) const
{
    const int delay = types.contains(JwDevice::BoardC) ? m_settings.delay : 0; // the library delays only BoardC
    return delay + (m_settings.retries + 1) * JwDevice::replyTime + spareTime;
}

} // namespace JwMonitor

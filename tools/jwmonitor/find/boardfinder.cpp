#include "boardfinder.h"

#include "portverdict.h"
#include <common/portname.h>

#include <QSerialPortInfo>

#include <algorithm>
#include <utility>

using JwDevice::PortReport;

namespace JwMonitor {

namespace {

constexpr int refreshInterval = 20; // ms from a change to the refresh of the rows; one refresh shows all changes

SystemPort systemPort(const QSerialPortInfo &info)
{
    QString id;
    if (info.hasVendorIdentifier())
        id = QStringLiteral("%1:%2")
                 .arg(info.vendorIdentifier(), 4, 16, QLatin1Char('0'))
                 .arg(info.productIdentifier(), 4, 16, QLatin1Char('0'));
    return {info.portName(), id, info.manufacturer(), info.description(), info.serialNumber()};
}

/// Returns a copy of `entry` without board and result.
PortEntry forgotten(const PortEntry &entry)
{
    PortEntry left;
    left.key = entry.key;
    left.port = entry.port;
    left.isPresent = entry.isPresent;
    return left;
}

} // namespace

BoardFinder::BoardFinder(QObject *parent)
    : PortRows(parent)
{
    m_refreshTimer.setSingleShot(true);
    m_refreshTimer.setInterval(refreshInterval);
    connect(&m_refreshTimer, &QTimer::timeout, this, &BoardFinder::refresh);
    connect(&m_watch, &JwDevice::BoardWatch::boardFound, this,
            [this](const JwDevice::Board &board) { onFound(board, PortEntry::Found); });
    connect(&m_watch, &JwDevice::BoardWatch::boardBack, this,
            [this](const JwDevice::Board &board) { onFound(board, PortEntry::Back); });
    connect(&m_watch, &JwDevice::BoardWatch::boardLost, this, &BoardFinder::onLost);
    connect(&m_watch, &JwDevice::BoardWatch::portsChanged, this, &BoardFinder::refreshSoon);
    m_watch.setPortObserver([this](const JwDevice::PortEvent &event) {
        m_eventTimes.insert(event.portName, static_cast<double>(event.nanoseconds) / 1e6);
        Q_EMIT portEvent(event);
        refreshSoon();
    });
    startWatch({});
}

BoardFinder::~BoardFinder()
{
    m_watch.setPortObserver({});
    m_watch.disconnect(this);
}

void BoardFinder::start(const JwTools::SearchSettings &settings)
{
    closeBoards();
    for (PortEntry &entry : m_entries)
        entry = forgotten(entry);
    m_eventTimes.clear();
    m_settings = settings;
    m_isStarted = true;
    m_isSearching = true;
    const QStringList names = settings.ports;
    if (names.isEmpty())
        m_watch.setCandidateRule({});
    else
        m_watch.setCandidateRule([names](const QSerialPortInfo &port) { return names.contains(port.portName()); });
    m_watch.setMaxRetries(static_cast<uint>(settings.retries));
    m_watch.setDelay(settings.delay);
    Q_EMIT started();
    startWatch(settings.types);
}

void BoardFinder::stop()
{
    closeBoards();
    startWatch({}); // without types, it opens no port
}

void BoardFinder::closeBoards()
{
    if (m_isStarted)
        refresh(); // while the watch still has the results
    m_watch.stop();
    for (const QString &key : std::exchange(m_lost, {}))
        m_entries[key] = forgotten(m_entries.value(key));
    for (PortEntry &entry : m_entries)
        entry.isOver = true;
    m_isSearching = false;
    if (std::exchange(m_isStarted, false))
        Q_EMIT stopped();
}

void BoardFinder::startWatch(const QList<JwDevice::Type> &types)
{
    m_watch.setTypes(types);
    m_watch.start();
    Q_EMIT changed();
    // The watch has no ports until the next turn of the event loop. So a refresh that is due now must wait.
    m_refreshTimer.start();
}

QVector<PortEntry> BoardFinder::ports() const
{
    QVector<PortEntry> entries;
    for (const PortEntry &entry : m_entries)
        entries.append(entry);
    std::stable_sort(entries.begin(), entries.end(), [](const PortEntry &a, const PortEntry &b) {
        return JwTools::isPortBefore(a.port.name, b.port.name);
    });
    return entries;
}

void BoardFinder::onFound(const JwDevice::Board &board, PortEntry::Stay stay)
{
    m_lost.removeAll(board.id);
    PortEntry &entry = m_entries[board.id];
    entry.key = board.id;
    entry.port.name = board.portName;
    entry.isPresent = true;
    entry.stay = stay;
    entry.type = board.type;
    refreshSoon();
    Q_EMIT boardFound({board.portName, board.type, board.communicator, board.id});
}

void BoardFinder::onLost(const JwDevice::Board &board)
{
    PortEntry &entry = m_entries[board.id];
    entry = forgotten(entry);
    if (board.loss != JwDevice::Board::Stopped) {
        entry.stay = PortEntry::Lost;
        entry.isPulled = board.loss == JwDevice::Board::CablePulled;
        entry.type = board.type;
        m_lost.append(board.id);
    }
    // A faulty device may have a new serial number, and so a new row, each time it is plugged in.
    if (m_lost.size() > mostLost) {
        const QString oldest = m_lost.takeFirst();
        m_entries[oldest] = forgotten(m_entries.value(oldest));
    }
    refreshSoon();
    Q_EMIT boardLost(board.portName);
}

void BoardFinder::refreshSoon()
{
    if (!m_refreshTimer.isActive())
        m_refreshTimer.start();
}

void BoardFinder::refresh()
{
    QHash<QString, PortReport> reports; // by port name
    if (m_isStarted) {
        const QList<PortReport> list = m_watch.portReports();
        for (const PortReport &report : list)
            reports.insert(report.portName, report);
    }
    QMap<QString, PortEntry> entries;
    m_isSearching = false;
    const QList<QSerialPortInfo> ports = m_watch.systemPorts();
    for (const QSerialPortInfo &info : ports) {
        const QString id = m_watch.boardId(info.portName());
        const QString key = id.isEmpty() ? info.portName() : id;
        PortEntry entry = m_entries.value(key);
        entry.key = key;
        entry.port = systemPort(info);
        entry.isPresent = true;
        const auto report = reports.constFind(info.portName());
        if (report != reports.constEnd())
            readResult(entry, *report);
        entries.insert(key, entry);
    }
    for (PortEntry entry : std::as_const(m_entries)) {
        if (entries.contains(entry.key) || entry.stay == PortEntry::NoBoard)
            continue;
        entry.isPresent = false;
        entries.insert(entry.key, entry);
    }
    if (m_isStarted)
        addMissingPorts(entries);
    m_entries = entries;
    Q_EMIT changed();
}

void BoardFinder::readResult(PortEntry &entry, const PortReport &report)
{
    entry.report = report;
    entry.milliseconds = isSettled(report) ? m_eventTimes.value(report.portName, -1) : -1;
    m_isSearching |= !isSettled(report);
    // The lost board was plugged in again, but no longer answers like a board.
    const bool isOther = report.verdict == PortReport::TimedOut || report.verdict == PortReport::Silenced;
    if (entry.stay == PortEntry::Lost && entry.isPulled && isOther) {
        entry.stay = PortEntry::NoBoard;
        entry.type = JwDevice::Unknown;
        m_lost.removeAll(entry.key);
    }
}

/// Adds a row for each port that the user named but that the system does not have.
void BoardFinder::addMissingPorts(QMap<QString, PortEntry> &entries) const
{
    for (const QString &name : m_settings.ports) {
        const bool isShown = std::any_of(entries.cbegin(), entries.cend(),
                                         [&name](const PortEntry &entry) { return entry.port.name == name; });
        if (isShown)
            continue;
        PortEntry entry;
        entry.key = name;
        entry.port.name = name;
        entry.report.emplace();
        entry.report->portName = name;
        entry.report->error = QSerialPort::DeviceNotFoundError;
        entries.insert(name, entry);
    }
}

} // namespace JwMonitor

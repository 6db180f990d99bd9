#include "watchmodel.h"

#include <simulator/boardkind.h>

#include <algorithm>
#include <tuple>
#include <utility>
#include <vector>

using JwDevice::Board;
using JwDevice::BoardWatch;
using JwDevice::PortReport;
using JwDevice::Type;

namespace {

constexpr int replyTime = 400;
constexpr int shortestPause = 500; // before the next probe of a port that lost its board or can't be opened
constexpr int longestPause = 8000; // before the next attempt to open a port
constexpr int freedPause = 20; // at most, before the attempt to open a port that another program closed

/// Whether boards of the two types answer the same query.
bool haveSameQuery(Type a, Type b)
{
    return (a == JwDevice::BoardC) == (b == JwDevice::BoardC);
}

QString serialId(const UsbPort &port)
{
    return port.serial.isEmpty() ? QString() : port.serial + QStringLiteral(":1.%1").arg(port.interface);
}

} // namespace

void WatchModel::fail(const QString &text)
{
    if (m_fault.isEmpty())
        m_fault = QStringLiteral("at %1 ms: %2").arg(m_around.now()).arg(text);
}

WatchModel::Entry *WatchModel::find(const QString &name)
{
    const auto it = m_entries.find(name);
    return it == m_entries.end() ? nullptr : &it->second;
}

WatchModel::Entry *WatchModel::findId(const QString &id)
{
    for (auto &[name, entry] : m_entries) {
        if (entry.id == id)
            return &entry;
    }
    return nullptr;
}

WatchModel::Owed *WatchModel::findOwed(const QString &id)
{
    const auto it = std::find_if(m_owed.begin(), m_owed.end(), [&id](const Owed &owed) { return owed.id == id; });
    return it == m_owed.end() ? nullptr : &*it;
}

/// The watch must report the board as lost. If this function is called several times, any of the reasons is allowed.
void WatchModel::owe(const Entry &entry, Board::Loss loss, int depth)
{
    Owed *owed = findOwed(entry.id);
    if (!owed) {
        m_owed.append({entry.id, entry.port.usb, entry.basis, {}, depth});
        owed = &m_owed.last();
    } else if (loss == Board::CablePulled)
        owed->depth = depth;
    owed->losses.append(loss);
}

bool WatchModel::isOwed(const QString &name) const
{
    return std::any_of(m_owed.begin(), m_owed.end(), [&name](const Owed &owed) { return owed.port.name == name; });
}

// The system

void WatchModel::plugged(const UsbPort &port, bool canOpen)
{
    m_system[port.name] = {port, ++m_plugs, 0, canOpen};
    m_plugged.append(port.name);
    for (Owed &owed : m_owed) {
        // The watch knows the pulled port only by its name, and this name is there again.
        if (owed.port.name == port.name && owed.losses.contains(Board::Stopped))
            owed.losses.append(Board::PortFailed);
    }
}

void WatchModel::pulled(const QString &name)
{
    m_system.erase(name);
    for (Owed &owed : m_owed) {
        // A receiver runs an event loop in stop(), and in this loop the cable of a board is pulled that stop() has not
        // yet reported.
        if (owed.port.name == name && owed.losses.contains(Board::Stopped))
            owed.losses.append(Board::CablePulled);
    }
}

void WatchModel::changed(const QString &name)
{
    ++m_system.at(name).changes;
}

void WatchModel::setCanOpen(const QString &name, bool canOpen)
{
    m_system.at(name).canOpen = canOpen;
}

void WatchModel::loopBegins()
{
    if (!m_isStarted)
        return;
    advance();
    std::vector<QString> gone;
    for (const auto &[name, entry] : m_entries) {
        const auto now = m_system.find(name);
        if (now == m_system.end() || now->second.plug != entry.port.plug)
            gone.push_back(name);
    }
    for (const QString &name : gone)
        remove(name);
    std::vector<SystemPort> ports;
    for (const auto &[name, port] : m_system) {
        if (port.usb.isCandidate)
            ports.push_back(port);
    }
    // Sort the ports by their place, because the system lists them in this order.
    std::sort(ports.begin(), ports.end(), [](const SystemPort &a, const SystemPort &b) {
        return std::make_tuple(a.usb.place(), a.usb.name) < std::make_tuple(b.usb.place(), b.usb.name);
    });
    bool isNew = false;
    for (const SystemPort &port : ports) {
        Entry *const known = find(port.usb.name);
        if (!known) {
            add(port);
            isNew = true;
            continue;
        }
        if (known->phase == Wanted && known->port.changes != port.changes) {
            hurry(*known, 0);
        }
        known->port = port;
    }
    // UntilPluggedAgain ends when the port has disappeared and appeared again. If a lent board is not there when the
    // watch starts, it has disappeared already, so the lending is forgotten.
    for (const QString &id : m_lent.keys()) {
        if (m_lent[id].lending == BoardWatch::UntilPluggedAgain && !findId(id))
            m_lent.remove(id);
    }
    leaveSiblings();
    if (isNew)
        freeSiblings();
}

void WatchModel::remove(const QString &name)
{
    const Entry entry = m_entries.at(name);
    m_entries.erase(name);
    m_changing.append(entry.id);
    if (entry.phase == Ready)
        owe(entry, Board::CablePulled, INT_MAX);
    if (m_lent.contains(entry.id) && m_lent[entry.id].lending == BoardWatch::UntilPluggedAgain)
        m_lent.remove(entry.id);
    freeSiblings();
}

void WatchModel::add(const SystemPort &port)
{
    Entry entry;
    entry.port = port;
    giveId(entry);
    if (!exclusion(port.usb).isEmpty())
        entry.phase = Excluded;
    else if (m_lent.contains(entry.id))
        entry.phase = Lent;
    else
        entry.openFrom = entry.openUntil = m_around.now() + delay();
    m_entries[port.usb.name] = entry;
}

void WatchModel::giveId(Entry &entry)
{
    const UsbPort &usb = entry.port.usb;
    const QString serial = serialId(usb);
    entry.id = usb.place();
    entry.basis = Board::Place;
    if (serial.isEmpty())
        return;
    for (auto &[name, other] : m_entries) {
        if (serialId(other.port.usb) != serial)
            continue;
        if (!m_owners.contains(serial))
            m_owners.insert(serial, other.port.usb.place());
        other.isShared = true;
    }
    entry.isShared = m_owners.contains(serial);
    if (m_owners.value(serial, usb.place()) == usb.place()) {
        entry.id = serial;
        entry.basis = Board::SerialNumber;
    }
}

QString WatchModel::exclusion(const UsbPort &port) const
{
    if (port.isIgnored)
        return QStringLiteral("JWDEVICE_IGNORE");
    for (const int number : m_settings.excludedNames) {
        if (port.name == WatchPorts::name(number))
            return port.name;
    }
    for (const QString &entry : m_settings.excluded) {
        if (!entry.isEmpty() && (entry == port.serial || entry == port.usbId()))
            return entry;
    }
    return QString();
}

// Probes

/// Returns whether the port must stay closed, because another port of its device has a board, or had a board that is
/// now lent or released.
bool WatchModel::hasBoardBeside(const Entry &entry)
{
    const UsbPort &usb = entry.port.usb;
    for (const auto &[name, other] : m_entries) {
        if ((other.phase == Ready || other.phase == Lent || other.phase == Released)
            && other.port.usb.device == usb.device && name != usb.name)
            return true;
    }
    // A lent device may be plugged in again without the lent port, or before the lent port appears.
    for (auto loan = m_lent.cbegin(); loan != m_lent.cend(); ++loan) {
        const bool isSameDevice = usb.serial == loan->port.serial
            && (usb.device == loan->port.device
                || (entry.basis == Board::SerialNumber && loan->basis == Board::SerialNumber));
        if (isSameDevice && !findId(loan.key()))
            return true;
    }
    return false;
}

void WatchModel::want(Entry &entry, qint64 from, qint64 until)
{
    entry.phase = hasBoardBeside(entry) ? Sibling : Wanted;
    if (entry.phase == Sibling)
        entry.verdict = PortReport::NotOpened;
    entry.openFrom = from;
    entry.openUntil = until;
}

/// The watch must probe the port again. At the latest, it opens the port after the shortest pause and the delay.
void WatchModel::wantSoon(Entry &entry)
{
    want(entry, m_around.now(), m_around.now() + shortestPause + delay());
}

/// Something other than the end of a pause, for example lookAgain(), makes the watch try again. The watch may try at
/// once, and must try within `pause` ms and the delay. After that, the pauses begin with the shortest pause again.
void WatchModel::hurry(Entry &entry, int pause)
{
    entry.failures = 0;
    want(entry, std::min(entry.openFrom, m_around.now()), std::min(entry.openUntil, m_around.now() + pause + delay()));
}

void WatchModel::freed(const QString &name)
{
    Entry *const entry = find(name);
    // If the delay before the next attempt already runs, the watch no longer waits for the port.
    if (entry && entry->phase == Wanted && m_around.now() + delay() < entry->openUntil)
        hurry(*entry, freedPause);
}

void WatchModel::opened(const QString &name)
{
    advance();
    Entry *const entry = find(name);
    // A port that was pulled and plugged in again may be opened twice: before and after the watch sees these events.
    const bool isAgain = entry && entry->phase == Probing && m_plugged.contains(name);
    if (!entry || (entry->phase != Wanted && !isAgain)) {
        fail(QStringLiteral("%1 must not be opened").arg(name));
        return;
    }
    const qint64 now = m_around.now();
    if (now < entry->openFrom || now > entry->openUntil)
        fail(QStringLiteral("%1 is opened, but not from %2 to %3 ms")
                 .arg(name)
                 .arg(entry->openFrom)
                 .arg(entry->openUntil));
    entry->phase = Probing;
    entry->failures = 0;
    entry->openedAt = now;
    entry->asked.clear();
    entry->isSilenced = false;
    entry->answer = JwDevice::Unknown;
    entry->verdict = PortReport::Awaiting;
}

void WatchModel::notOpened(const QString &name)
{
    advance();
    Entry *const entry = find(name);
    if (!entry || entry->phase != Wanted) {
        if (m_system.count(name)) // else the port has just gone, and the watch has not seen the event yet
            fail(QStringLiteral("%1 must not be tried").arg(name));
        return;
    }
    const qint64 now = m_around.now();
    if (now < entry->openFrom || now > entry->openUntil)
        fail(QStringLiteral("%1 is tried, but not from %2 to %3 ms")
                 .arg(name)
                 .arg(entry->openFrom)
                 .arg(entry->openUntil));
    if (m_system.at(name).canOpen && !isOwed(name))
        fail(QStringLiteral("%1 can be opened").arg(name));
    entry->verdict = PortReport::NotOpened;
    const qint64 next = now + std::min(shortestPause << entry->failures, longestPause) + delay();
    entry->failures = std::min(entry->failures + 1, 10);
    want(*entry, next, next);
}

/// Returns the time at which a probe without a wanted answer ends. The doc comments don't say how long the watch waits
/// for a board that answered something else, so the model expects what the watch does: it waits one reply time longer
/// than for a silent board.
qint64 WatchModel::endOfProbe(const Entry &entry) const
{
    return entry.openedAt + (m_settings.maxRetries + (entry.isSilenced ? 2 : 1)) * replyTime;
}

void WatchModel::endProbe(Entry &entry)
{
    entry.verdict = entry.isSilenced ? PortReport::Silenced : PortReport::TimedOut;
    if (entry.hadBoard)
        wantSoon(entry);
    else
        entry.phase = Rejected;
}

void WatchModel::advance()
{
    for (auto &[name, entry] : m_entries) {
        if (entry.phase == Probing && entry.answer == JwDevice::Unknown && m_around.now() >= endOfProbe(entry))
            endProbe(entry);
    }
}

// The serial lines

void WatchModel::asked(const QString &name, Type type)
{
    Entry *const entry = find(name);
    const qint64 now = m_around.now();
    if (!entry || (entry->phase != Probing && entry->phase != Ready))
        return; // the query was still on the line when the watch closed the port
    QVector<qint64> &times = entry->asked[haveSameQuery(type, JwDevice::BoardC)];
    if (entry->phase == Ready) {
        if (times.contains(now))
            return; // the watch sent this query before it found the board
        const bool isDue =
            m_settings.checkInterval > 0 && now == entry->heardAt + m_settings.checkInterval && entry->checkedAt < 0;
        if (isDue)
            entry->checkedAt = entry->checkBegan = now;
        if ((entry->checkBegan != now && !isVague(*entry)) || !haveSameQuery(type, entry->type))
            fail(QStringLiteral("the board on %1 is asked").arg(name));
    } else if (times.contains(now) && m_plugged.contains(name)) {
        return; // the watch may have opened the port twice, see opened()
    } else if ((now - entry->openedAt) % replyTime != 0 || times.contains(now) || entry->isSilenced) {
        fail(QStringLiteral("%1 is asked").arg(name));
    }
    times.append(now);
}

void WatchModel::answered(const QString &name, Type type)
{
    Entry *const entry = find(name);
    if (!entry)
        return;
    if (entry->phase == Probing) {
        if (isWanted(type))
            entry->answer = type;
        else
            entry->isSilenced = true;
        if (!isWanted(type))
            entry->verdict = PortReport::Silenced;
    }
    babbled(name);
}

void WatchModel::babbled(const QString &name)
{
    Entry *const entry = find(name);
    if (entry && entry->phase == Ready) {
        entry->heardAt = m_around.now();
        entry->checkedAt = -1;
        entry->isVague = !m_reading.value(entry->id).isEmpty();
    }
}

void WatchModel::readBegins(const QString &id)
{
    const Entry *const entry = findId(id);
    if (entry && entry->phase == Ready)
        babbled(entry->port.usb.name);
    m_reading[id].append(m_around.now());
}

void WatchModel::readEnds(const QString &id)
{
    const qint64 begin = m_reading[id].takeLast();
    Entry *const entry = findId(id);
    if (entry && entry->phase == Ready && begin != m_around.now())
        entry->isVague = true;
}

/// Whether the watch may have missed the newest bytes of the board.
bool WatchModel::isVague(const Entry &entry) const
{
    return entry.isVague || !m_reading.value(entry.id).isEmpty();
}

// The application

void WatchModel::start(const WatchSchedule::Settings &settings)
{
    if (m_isStarted)
        return;
    m_isStarted = true;
    m_settings = settings;
    m_lost.clear();
    m_owners.clear();
}

void WatchModel::stop(int depth)
{
    m_isStarted = false;
    for (Owed &owed : m_owed) {
        owed.losses.append(Board::Stopped);
        owed.depth = std::min(owed.depth, depth);
    }
    for (const auto &[name, entry] : m_entries) {
        if (entry.phase == Ready)
            owe(entry, Board::Stopped, depth);
    }
    m_entries.clear();
}

void WatchModel::watchDeleted()
{
    m_isStarted = false;
    m_entries.clear();
    m_owed.clear();
    m_present.clear();
    m_lent.clear();
}

int WatchModel::lend(const QString &id, BoardWatch::Lending lending, int depth)
{
    Entry *const entry = findId(id);
    if (entry && entry->phase == Ready) {
        owe(*entry, Board::Lent, depth);
        entry->phase = Lent;
        entry->verdict = PortReport::NotOpened;
        m_lent[id] = {lending, entry->port.usb, entry->basis};
        return 1;
    }
    if (Owed *const owed = findOwed(id)) {
        owed->losses.append(Board::Lent);
        return -1;
    }
    return 0;
}

void WatchModel::lent(const QString &id, BoardWatch::Lending lending)
{
    // The board was already lost, for example pulled, but the watch had not seen that yet when it lent the board.
    const Owed *const owed = findOwed(id);
    if (lending == BoardWatch::UntilTakenBack && owed)
        m_lent[id] = {lending, owed->port, owed->basis};
    if (Entry *const entry = findId(id))
        entry->phase = m_lent.contains(id) ? Lent : entry->phase;
    leaveSiblings();
}

int WatchModel::takeBack(const QString &id)
{
    const bool isLent = m_lent.remove(id) > 0;
    Entry *const entry = findId(id);
    const bool isClosed = entry && (entry->phase == Lent || entry->phase == Released);
    if (isClosed) {
        want(*entry, m_around.now(), m_around.now() + delay());
    }
    freeSiblings();
    return isLent || isClosed ? 1 : m_changing.contains(id) ? -1 : 0;
}

void WatchModel::communicatorDeleted(const QString &id, int depth)
{
    const Entry *const entry = findId(id);
    if (entry && entry->phase == Ready)
        owe(*entry, Board::Released, depth);
    else if (Owed *const owed = findOwed(id))
        owed->losses.append(Board::Released);
}

void WatchModel::lookAgain()
{
    advance();
    for (auto &[name, entry] : m_entries) {
        if (entry.phase != Rejected && entry.phase != Wanted)
            continue;
        if (entry.phase == Rejected)
            want(entry, m_around.now(), m_around.now() + delay());
        else
            hurry(entry, 0);
    }
}

void WatchModel::checkBoards()
{
    for (auto &[name, entry] : m_entries) {
        if (entry.phase == Ready && entry.checkedAt < 0)
            entry.checkedAt = entry.checkBegan = m_around.now();
    }
}

// The signals of the watch

void WatchModel::found(const Board &board, bool isBack)
{
    advance();
    Entry *const entry = find(board.portName);
    if (!entry || entry->phase != Probing || entry->answer != board.type) {
        fail(QStringLiteral("no wanted board is on %1").arg(board.portName));
        return;
    }
    const UsbPort &usb = entry->port.usb;
    const auto &kind = JwSimulator::boardKinds[board.type - 1];
    if (board.id != entry->id || board.idBasis != entry->basis)
        fail(QStringLiteral("the board on %1 has the id %2, not %3").arg(usb.name, board.id, entry->id));
    if (board.sharesSerialNumber != entry->isShared)
        fail(QStringLiteral("%1 has the wrong sharesSerialNumber").arg(board.id));
    if (board.loss != Board::NotLost || board.location != QStringLiteral("/dev/") + usb.name
        || board.place != usb.place() || board.serialNumber != usb.serial || !board.since.isValid()
        || board.hardwareVersion != QLatin1String(kind.hwversion) || !board.communicator)
        fail(QStringLiteral("%1 has a wrong member").arg(board.id));
    if (!m_around.isOpen(usb.name))
        fail(QStringLiteral("the port of %1 is closed").arg(board.id));
    if (m_present.contains(board.id))
        fail(QStringLiteral("%1 is there already").arg(board.id));
    if (isBack != (m_lost.value(board.id) == board.type))
        fail(QStringLiteral("%1 is %2").arg(board.id, isBack ? QStringLiteral("new") : QStringLiteral("back")));
    m_present.insert(board.id, board.type);
    m_lost.remove(board.id);
    entry->phase = Ready;
    entry->hadBoard = true;
    entry->type = board.type;
    entry->answer = JwDevice::Unknown;
    entry->heardAt = m_around.now();
    entry->checkedAt = -1;
    entry->isVague = false;
    entry->verdict = PortReport::HandedOver;
    leaveSiblings();
}

void WatchModel::lost(const Board &board)
{
    advance();
    const Type type = m_present.take(board.id);
    if (type == JwDevice::Unknown) {
        fail(QStringLiteral("%1 is lost, but was not there").arg(board.id));
        return;
    }
    const Owed *const owed = findOwed(board.id);
    // A receiver may call start() before stop() has reported all boards. After start(), every board is found, not back.
    const bool isStopped = owed && owed->losses.contains(Board::Stopped);
    if (!isStopped)
        m_lost[board.id] = type;
    if (board.type != type || (board.communicator == nullptr) != (board.loss == Board::Released))
        fail(QStringLiteral("the lost board %1 has a wrong member").arg(board.id));
    if (m_around.isOpen(board.portName))
        fail(QStringLiteral("the port of the lost board %1 is open").arg(board.id));
    Entry *const entry = findId(board.id);
    if (owed && (owed->losses.contains(board.loss) || (isStopped && board.loss == Board::NoAnswer))) {
        m_owed.erase(m_owed.begin() + (owed - m_owed.data()));
        if (board.loss == Board::Released && entry && entry->phase == Ready) {
            entry->phase = Released;
            entry->verdict = PortReport::NotOpened;
        }
        if (isStopped)
            freed(board.portName);
        return;
    }
    const qint64 askedAt = m_around.now() - replyTime;
    const bool wasSilent = entry && entry->phase == Ready
        && (entry->checkedAt == askedAt
            || (isVague(*entry) && entry->heardAt <= askedAt
                && entry->asked.value(haveSameQuery(entry->type, JwDevice::BoardC)).contains(askedAt)));
    if (!wasSilent || board.loss != Board::NoAnswer) {
        fail(QStringLiteral("%1 is lost: %2").arg(board.id, lossName(board.loss)));
        return;
    }
    if (owed)
        m_owed.erase(m_owed.begin() + (owed - m_owed.data()));
    entry->verdict = PortReport::TimedOut;
    wantSoon(*entry);
    freeSiblings();
}

void WatchModel::leaveSiblings()
{
    for (auto &[name, entry] : m_entries) {
        if ((entry.phase != Wanted && entry.phase != Probing) || !hasBoardBeside(entry))
            continue;
        entry.phase = Sibling;
        entry.verdict = PortReport::NotOpened;
    }
}

void WatchModel::freeSiblings()
{
    for (auto &[name, entry] : m_entries) {
        if (entry.phase == Sibling && !hasBoardBeside(entry))
            wantSoon(entry);
    }
}

// The event loop

void WatchModel::idle(int depth, const QList<Board> &boards, const QList<PortReport> &reports)
{
    advance();
    m_changing.clear();
    m_plugged.clear();
    for (const Owed &owed : std::as_const(m_owed)) {
        if (owed.depth >= depth)
            fail(QStringLiteral("%1 is not reported as lost").arg(owed.id));
    }
    for (const auto &[name, entry] : m_entries)
        checkEntry(entry);
    QStringList present;
    QStringList seen;
    for (const auto &[name, entry] : m_entries) {
        if (entry.phase == Ready)
            present << QStringLiteral("%1 %2 on %3%4")
                           .arg(entry.id)
                           .arg(int(entry.type))
                           .arg(name, entry.isShared ? QStringLiteral(" shared") : QString());
    }
    for (const Board &board : boards)
        seen << QStringLiteral("%1 %2 on %3%4")
                    .arg(board.id)
                    .arg(int(board.type))
                    .arg(board.portName, board.sharesSerialNumber ? QStringLiteral(" shared") : QString());
    if (present != seen)
        fail(QStringLiteral("boards() is \"%1\", not \"%2\"")
                 .arg(seen.join(QLatin1String(", ")), present.join(QLatin1String(", "))));
    for (const auto &[name, port] : m_system) {
        const Entry *const entry = find(name);
        const bool isOpen = entry && (entry->phase == Probing || entry->phase == Ready);
        if (m_around.isOpen(name) != isOpen && !isOwed(name))
            fail(QStringLiteral("%1 is %2").arg(name, isOpen ? QStringLiteral("closed") : QStringLiteral("open")));
    }
    if (reports.size() != static_cast<int>(m_entries.size()))
        fail(QStringLiteral("%1 reports for %2 ports").arg(reports.size()).arg(m_entries.size()));
    for (const PortReport &report : reports) {
        if (const Entry *const entry = find(report.portName))
            checkReport(*entry, report);
        else
            fail(QStringLiteral("a report for %1").arg(report.portName));
    }
}

void WatchModel::checkEntry(const Entry &entry)
{
    const QString &name = entry.port.usb.name;
    const qint64 now = m_around.now();
    switch (entry.phase) {
    case Wanted:
        if (now >= entry.openUntil)
            fail(QStringLiteral("%1 was not opened").arg(name));
        break;
    case Probing:
        if (entry.answer != JwDevice::Unknown)
            fail(QStringLiteral("the board on %1 is not reported").arg(name));
        checkQueries(entry);
        break;
    case Ready: {
        if (isVague(entry))
            break;
        const bool isCheckDue =
            m_settings.checkInterval > 0 && entry.checkedAt < 0 && now >= entry.heardAt + m_settings.checkInterval;
        if (isCheckDue
            || (entry.checkedAt >= 0
                && !entry.asked.value(haveSameQuery(entry.type, JwDevice::BoardC)).contains(entry.checkedAt)))
            fail(QStringLiteral("the board on %1 is not asked").arg(name));
        if (entry.checkedAt >= 0 && now >= entry.checkedAt + replyTime)
            fail(QStringLiteral("the board on %1 did not answer, but is not lost").arg(name));
        break;
    }
    default:
        break;
    }
}

/// Checks that the port that is probed was asked once in each reply time, with each query of the wanted types.
void WatchModel::checkQueries(const Entry &entry)
{
    if (entry.isSilenced)
        return;
    const int rounds = static_cast<int>((m_around.now() - entry.openedAt) / replyTime) + 1;
    for (const bool isC : {false, true}) {
        const bool isAsked = std::any_of(m_settings.types.begin(), m_settings.types.end(),
                                         [isC](Type type) { return (type == JwDevice::BoardC) == isC; });
        if (entry.asked.value(isC).size() != (isAsked ? rounds : 0))
            fail(QStringLiteral("%1 was asked %2 times").arg(entry.port.usb.name).arg(entry.asked.value(isC).size()));
    }
}

void WatchModel::checkReport(const Entry &entry, const PortReport &report)
{
    const bool isLeft =
        entry.phase == Excluded || entry.phase == Lent || entry.phase == Released || entry.phase == Sibling;
    if (isLeft && (report.errorText.isEmpty() || report.error != QSerialPort::NoError))
        fail(QStringLiteral("the report on %1 does not say why the port is not opened").arg(report.portName));
    const bool hasType = report.verdict == PortReport::HandedOver || report.verdict == PortReport::Duplicate;
    if ((report.type != JwDevice::Unknown) != hasType)
        fail(QStringLiteral("the report on %1 has the wrong type").arg(report.portName));
    // While the next probe waits for its delay, it has not opened the port. The report then says NotOpened, although
    // `entry.verdict` is still the verdict of the probe before.
    const bool isDelayed = entry.phase == Wanted && delay() > 0 && report.verdict == PortReport::NotOpened;
    if (entry.verdict >= 0 && report.verdict != entry.verdict && !isDelayed)
        fail(QStringLiteral("the verdict on %1 is %2, not %3")
                 .arg(report.portName, verdictName(report.verdict),
                      verdictName(static_cast<PortReport::Verdict>(entry.verdict))));
}

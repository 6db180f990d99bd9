#include "boardwatch.h"

#include "boardids.h"
#include "freednotifier.h"
#include "portsource.h"
#include "resumenotifier.h"
#include "watchedport.h"

#include <device/boardrules.h>
#include <nmea/exception.h>
#include <nmea/parserinit.h>

#include <QPointer>
#include <QTimer>

#include <algorithm>
#include <deque>
#include <map>
#include <utility>

namespace JwDevice {

namespace {

// ms before a port that lost its board is probed again, and between the first two attempts to open a port
constexpr int shortestPause = 500;
constexpr int longestPause = 8000; // ms between two attempts to open a port
// ms to wait after another program closed a port, because QSerialPort removes its lock file only after that
constexpr int freedPause = 20;

QString hardwareVersion(const QString &reply)
{
    Nmea::ParserInit parser;
    parser.init();
    SessionInit session;
    try {
        parser.parse(&session, reply + QLatin1String("\r\n"));
    } catch (const Nmea::Exception &) {
        return QString();
    }
    return session.fields.value(QStringLiteral("hwversion")).toString();
}

// Returns a lambda. If it returned a pointer to isCandidate(), the library would export the type information of that
// pointer.
std::function<bool(const QSerialPortInfo &port)> defaultRule()
{
    return [](const QSerialPortInfo &port) { return isCandidate(port); };
}

const QString lentText = QStringLiteral("lent to another program");

QString usbId(const QSerialPortInfo &info)
{
    return QStringLiteral("%1:%2")
        .arg(info.vendorIdentifier(), 4, 16, QLatin1Char('0'))
        .arg(info.productIdentifier(), 4, 16, QLatin1Char('0'));
}

} // namespace

class BoardWatch::Private
{
public:
    /// What the watch does with a port.
    enum State {
        Excluded, // not opened, because of setNeverOpened() or JWDEVICE_IGNORE
        OtherPort, // closed, because a board is on another port of the same USB device
        Due, // to be probed in one of the next turns of the event loop
        Probing,
        Ready, // a board is on the port
        Rejected, // no wanted board answered
        Waiting, // to be probed again when Entry::timer ends
        Lent, // closed by lend()
        Released, // the application deleted the board's Communicator
    };
    struct Entry
    {
        BoardId id;
        State state = Due;
        bool wasProbed = false;
        QString reason; // Excluded, OtherPort, Lent, Released: why the watch leaves the port closed
        Board board; // the newest board on this port; its id is empty if there was none
        std::unique_ptr<WatchedPort> port;
        std::unique_ptr<QTimer> timer; // runs only in the state Waiting
        int pause = shortestPause; // ms to wait if the port can't be opened
    };

    /// A lent board. `lent` contains it by the id that lend() got. On its other ports, the board has other ids.
    struct Loan
    {
        Lending lending;
        SystemPort port; // where the board was when it was lent
        Board::IdBasis basis;
    };

    explicit Private(BoardWatch *watch)
        : q(watch)
    {
    }

    void update();
    bool isAnyNewDue() const;
    bool listPorts();
    bool removeOne();
    bool addNew();
    bool probeOne();
    void add(const SystemPort &port);
    static bool areSiblings(const Entry &entry, const Entry &other);
    QString boardBeside(const Entry &entry) const;
    void leaveOtherPorts();
    void askOtherPorts();
    void leave(Entry &entry, State state, const QString &reason);
    void setState(Entry &entry, State state);
    void wait(Entry &entry, int pause);
    void waitUntilFree(Entry &entry);
    void onFreed(const QString &location);
    void probeAgain(Entry &entry);
    void onBoardAnswered(const QString &name);
    void onProbeEnded(const QString &name);
    void onBoardLost(const QString &name, Board::Loss loss);
    void lose(const Entry &entry, Board::Loss loss);
    void reportStopped(const WatchedPort *port, Board::Loss loss);
    void report(const Entry &entry, Board::Loss loss);
    QString exclusionOf(const SystemPort &port) const;
    void later(void (Private::*step)(), bool &isQueued);
    void tellChange();
    std::map<QString, Entry>::iterator find(const QString &id);
    bool hasId(const QString &id) const;

    BoardWatch *const q;
    WatchSettings settings{boardTypes(), 3, 0, 0, {}}; // used from the next start() on
    WatchSettings active; // of the running watch
    std::function<bool(const QSerialPortInfo &port)> rule = defaultRule();
    std::function<bool(const QSerialPortInfo &port)> activeRule;
    QStringList neverOpened;
    QStringList activeNeverOpened;
    int pollInterval = 1000;

    std::unique_ptr<PortSource> source; // null while the watch is stopped
    std::unique_ptr<ResumeNotifier> resume;
    std::unique_ptr<FreedNotifier> freed;
    QVector<SystemPort> system; // the candidates in the newest list of the ports
    QVector<SystemPort> otherPorts; // the other ports in this list
    std::map<QString, Entry> entries; // by port name
    std::deque<Entry> stopped; // boards that stop() closed and has not yet reported as lost
    BoardIds ids;
    QHash<QString, Loan> lent; // by id
    bool isStale = false; // whether `system` must be listed again
    quint64 lists = 0; // number of calls of listPorts() and stop(); shows a listPorts() that it is out of date
    bool isUpdateQueued = false;
    bool isChangeQueued = false;
};

void BoardWatch::Private::later(void (Private::*step)(), bool &isQueued)
{
    if (std::exchange(isQueued, true))
        return;
    QMetaObject::invokeMethod(
        q,
        [this, step, &isQueued] {
            isQueued = false;
            (this->*step)();
        },
        Qt::QueuedConnection);
}

void BoardWatch::Private::tellChange()
{
    Q_EMIT q->portsChanged();
}

// Each call does only one step, so that a receiver of a signal may do anything, and so that the application's events
// are handled between the steps. The next step follows from the event loop.
void BoardWatch::Private::update()
{
    if (!source)
        return;
    const QPointer<BoardWatch> self(q);
    // Listing the ports takes long if there are many. So if many ports appear one after the other, the new ports of the
    // last list are probed first.
    if (isStale && !isAnyNewDue() && !listPorts())
        return;
    if (isStale) // before the step, because a receiver of a signal may run an event loop
        later(&Private::update, isUpdateQueued);
    const bool isMore = removeOne() || addNew() || probeOne();
    if (self && isMore)
        later(&Private::update, isUpdateQueued);
}

// Returns false if the candidate rule made the new list useless. For example, the rule deleted or stopped the watch, or
// ran an event loop in which the ports were listed again.
bool BoardWatch::Private::listPorts()
{
    isStale = false;
    const QPointer<BoardWatch> self(q);
    const quint64 number = ++lists;
    const auto accepts = activeRule; // a copy, because the rule may stop the watch and start it with another rule
    QVector<SystemPort> candidates;
    QVector<SystemPort> others;
    const QVector<SystemPort> ports = source->list();
    for (const SystemPort &port : ports) {
        const bool isAccepted = accepts(port.info);
        if (!self || number != lists)
            return false;
        (isAccepted ? candidates : others).append(port);
    }
    const auto isSame = [](const SystemPort &a, const SystemPort &b) {
        return a.info.portName() == b.info.portName() && a.plug == b.plug;
    };
    if (!std::equal(others.cbegin(), others.cend(), otherPorts.cbegin(), otherPorts.cend(), isSame))
        later(&Private::tellChange, isChangeQueued);
    system = candidates;
    otherPorts = others;
    return true;
}

bool BoardWatch::Private::isAnyNewDue() const
{
    const auto isDue = [](const auto &known) { return known.second.state == Due && !known.second.wasProbed; };
    return !active.types.isEmpty() && std::any_of(entries.cbegin(), entries.cend(), isDue);
}

// Removes one port that is gone. Also removes a port that was gone and is there again; addNew() then adds it as new.
bool BoardWatch::Private::removeOne()
{
    for (auto it = entries.begin(); it != entries.end(); ++it) {
        const SystemPort &known = it->second.port->system();
        const auto now = std::find_if(system.cbegin(), system.cend(), [&](const SystemPort &port) {
            return port.info.portName() == it->first && port.plug == known.plug;
        });
        if (now != system.cend())
            continue;
        Entry gone = std::move(it->second);
        entries.erase(it);
        const auto loan = lent.constFind(gone.id.text);
        if (loan != lent.cend() && loan->lending == UntilPluggedAgain)
            lent.erase(loan);
        askOtherPorts();
        later(&Private::tellChange, isChangeQueued);
        freed->remove(gone.port->system().info.systemLocation());
        gone.port->disconnect(q);
        // Before lose(), because a receiver of boardLost() may run an event loop.
        later(&Private::update, isUpdateQueued);
        if (gone.state == Ready) {
            gone.port->close();
            lose(gone, Board::CablePulled);
        }
        return true;
    }
    return false;
}

bool BoardWatch::Private::addNew()
{
    bool any = false;
    for (const SystemPort &port : std::as_const(system)) {
        const auto known = entries.find(port.info.portName());
        if (known == entries.end()) {
            add(port);
            any = true;
        } else if (known->second.port->system().change != port.change) {
            known->second.port->setSystem(port);
            known->second.pause = shortestPause;
            if (known->second.state == Waiting) // perhaps the port can be opened with its new permissions
                probeAgain(known->second);
            any = true;
        }
    }
    // If a lent board is not there after stop() and start(), it was pulled in the meantime. So UntilPluggedAgain is
    // over.
    for (auto it = lent.begin(); it != lent.end();)
        it = it->lending == UntilPluggedAgain && !hasId(it.key()) ? lent.erase(it) : std::next(it);
    if (any)
        askOtherPorts();
    return any;
}

void BoardWatch::Private::add(const SystemPort &port)
{
    const QString name = port.info.portName();
    QVector<SystemPort> others;
    for (const auto &known : entries)
        others.append(known.second.port->system());
    Entry entry;
    entry.id = ids.idOf(port, others);
    if (entry.id.isShared) {
        for (auto &known : entries) {
            if (BoardIds::serialId(known.second.port->system()) == BoardIds::serialId(port))
                known.second.board.sharesSerialNumber = known.second.id.isShared = true;
        }
    }
    entry.reason = exclusionOf(port);
    if (!entry.reason.isEmpty()) {
        entry.state = Excluded;
    } else if (lent.contains(entry.id.text)) {
        entry.state = Lent;
        entry.reason = lentText;
    }
    entry.port = std::make_unique<WatchedPort>(port, active, nullptr);
    QObject::connect(entry.port.get(), &WatchedPort::reportChanged, q,
                     [this] { later(&Private::tellChange, isChangeQueued); });
    QObject::connect(entry.port.get(), &WatchedPort::boardAnswered, q, [this, name] { onBoardAnswered(name); });
    QObject::connect(entry.port.get(), &WatchedPort::probeEnded, q, [this, name] { onProbeEnded(name); });
    QObject::connect(entry.port.get(), &WatchedPort::boardLost, q,
                     [this, name](Board::Loss loss) { onBoardLost(name, loss); });
    entry.timer = std::make_unique<QTimer>();
    entry.timer->setSingleShot(true);
    QObject::connect(entry.timer.get(), &QTimer::timeout, q, [this, name] {
        setState(entries.at(name), Due);
        later(&Private::update, isUpdateQueued);
    });
    entries.emplace(name, std::move(entry));
    later(&Private::tellChange, isChangeQueued);
}

QString BoardWatch::Private::exclusionOf(const SystemPort &port) const
{
    if (port.isIgnored)
        return QStringLiteral("not opened, because the udev property JWDEVICE_IGNORE is set");
    const QSerialPortInfo &info = port.info;
    for (const QString &entry : activeNeverOpened) {
        const bool isIt = entry == info.portName() || entry == info.systemLocation()
            || (!entry.isEmpty() && entry == info.serialNumber())
            || entry.compare(usbId(info), Qt::CaseInsensitive) == 0;
        if (isIt)
            return QStringLiteral("not opened, because the application excludes \"%1\"").arg(entry);
    }
    return QString();
}

bool BoardWatch::Private::probeOne()
{
    if (active.types.isEmpty())
        return false;
    leaveOtherPorts();
    for (auto &[name, entry] : entries) {
        if (entry.state != Due)
            continue;
        later(&Private::tellChange, isChangeQueued);
        setState(entry, Probing);
        entry.wasProbed = true;
        entry.port->probe();
        return true;
    }
    return false;
}

bool BoardWatch::Private::areSiblings(const Entry &entry, const Entry &other)
{
    const QString device = entry.port->system().device();
    return &entry != &other && !device.isEmpty() && device == other.port->system().device();
}

// Returns why the port of `entry` must stay closed: another port of the same USB device has a board, perhaps a lent or
// released board. Empty if no other port has a board.
QString BoardWatch::Private::boardBeside(const Entry &entry) const
{
    for (const auto &[otherName, other] : entries) {
        if ((other.state == Ready || other.state == Lent || other.state == Released) && areSiblings(entry, other))
            return QStringLiteral("not opened, because %1 of the same device is a board").arg(otherName);
    }
    // When a lent device is plugged in again, its ports appear one by one, and not always the lent port first.
    const SystemPort &port = entry.port->system();
    for (auto loan = lent.cbegin(); loan != lent.cend(); ++loan) {
        const bool isSamePlace = !port.device().isEmpty() && port.device() == loan->port.device();
        const bool isBySerial = loan->basis == Board::SerialNumber && entry.id.basis == Board::SerialNumber;
        if ((isSamePlace || isBySerial) && port.info.serialNumber() == loan->port.info.serialNumber()
            && !hasId(loan.key()))
            return QStringLiteral("not opened, because another port of the same device is lent");
    }
    return QString();
}

// Closes the ports that must not be asked, because a board is on another port of the same USB device.
void BoardWatch::Private::leaveOtherPorts()
{
    for (auto &[name, entry] : entries) {
        if (entry.state != Due && entry.state != Probing && entry.state != Waiting)
            continue;
        if (const QString reason = boardBeside(entry); !reason.isEmpty())
            leave(entry, OtherPort, reason);
    }
}

// Probes the ports that leaveOtherPorts() closed, if their device no longer has a board. Waits before that, because the
// kernel removes the ports of a pulled device one by one.
void BoardWatch::Private::askOtherPorts()
{
    for (auto &[name, entry] : entries) {
        if (entry.state != OtherPort)
            continue;
        entry.reason = boardBeside(entry);
        if (entry.reason.isEmpty())
            wait(entry, shortestPause);
        later(&Private::tellChange, isChangeQueued);
    }
}

void BoardWatch::Private::leave(Entry &entry, State state, const QString &reason)
{
    entry.port->close();
    setState(entry, state);
    entry.reason = reason;
    later(&Private::tellChange, isChangeQueued);
}

void BoardWatch::Private::setState(Entry &entry, State state)
{
    entry.state = state;
    entry.reason.clear();
    entry.timer->stop();
    freed->remove(entry.port->system().info.systemLocation());
}

void BoardWatch::Private::wait(Entry &entry, int pause)
{
    setState(entry, Waiting);
    entry.timer->start(pause);
}

// Waits until the port can be opened. The system does not report everything that makes this possible, so the watch also
// tries again after a pause. The pause grows, because a program may use the port for days.
void BoardWatch::Private::waitUntilFree(Entry &entry)
{
    wait(entry, entry.pause);
    entry.pause = qMin(2 * entry.pause, longestPause);
    freed->add(entry.port->system().info.systemLocation());
}

void BoardWatch::Private::onFreed(const QString &location)
{
    for (auto &[name, entry] : entries) {
        if (entry.port->system().info.systemLocation() != location)
            continue;
        entry.pause = shortestPause;
        if (entry.timer->remainingTime() > freedPause)
            entry.timer->start(freedPause);
    }
}

void BoardWatch::Private::probeAgain(Entry &entry)
{
    entry.pause = shortestPause;
    setState(entry, Due);
    later(&Private::update, isUpdateQueued);
}

void BoardWatch::Private::onBoardAnswered(const QString &name)
{
    Entry &entry = entries.at(name);
    setState(entry, Ready);
    entry.pause = shortestPause;
    leaveOtherPorts();

    const PortReport report = entry.port->report();
    Board &board = entry.board;
    board.id = entry.id.text;
    board.idBasis = entry.id.basis;
    board.sharesSerialNumber = entry.id.isShared;
    board.type = report.type;
    board.communicator = entry.port->communicator();
    board.portName = name;
    board.location = report.location;
    board.place = entry.port->system().place;
    board.manufacturer = report.manufacturer;
    board.product = report.product;
    board.serialNumber = report.serialNumber;
    board.hardwareVersion = hardwareVersion(report.reply);
    board.since = QDateTime::currentDateTimeUtc();
    board.loss = Board::NotLost;
    later(&Private::tellChange, isChangeQueued);
    const Board copy = board;
    if (ids.takeLost(copy.id, copy.type))
        Q_EMIT q->boardBack(copy);
    else
        Q_EMIT q->boardFound(copy);
}

void BoardWatch::Private::onProbeEnded(const QString &name)
{
    Entry &entry = entries.at(name);
    const PortReport::Verdict verdict = entry.port->report().verdict;
    if (verdict == PortReport::NotOpened) {
        waitUntilFree(entry);
    } else {
        entry.pause = shortestPause;
        // A port that had a board is probed until the board answers again. Other silent ports are left alone.
        if (verdict == PortReport::Lost || !entry.board.id.isEmpty())
            wait(entry, shortestPause);
        else
            setState(entry, Rejected);
    }
    later(&Private::tellChange, isChangeQueued);
}

void BoardWatch::Private::onBoardLost(const QString &name, Board::Loss loss)
{
    Entry &entry = entries.at(name);
    if (loss == Board::Released)
        leave(entry, Released, QStringLiteral("given up, because the application deleted the Communicator"));
    else
        wait(entry, shortestPause);
    askOtherPorts();
    later(&Private::tellChange, isChangeQueued);
    lose(entry, loss);
}

void BoardWatch::Private::lose(const Entry &entry, Board::Loss loss)
{
    ids.onLost(entry.board.id, entry.board.type);
    report(entry, loss);
}

// Reports a board that stop() closes. Does not note it as lost, because the next start() must report each board by
// boardFound(), and a receiver of boardLost() may call start() before stop() has reported all boards.
void BoardWatch::Private::reportStopped(const WatchedPort *port, Board::Loss loss)
{
    const auto it =
        std::find_if(stopped.begin(), stopped.end(), [port](const Entry &entry) { return entry.port.get() == port; });
    const Entry entry = std::move(*it);
    stopped.erase(it);
    report(entry, loss);
}

void BoardWatch::Private::report(const Entry &entry, Board::Loss loss)
{
    Board lost = entry.board;
    lost.loss = loss;
    if (loss == Board::Released)
        lost.communicator = nullptr;
    Q_EMIT q->boardLost(lost);
}

std::map<QString, BoardWatch::Private::Entry>::iterator BoardWatch::Private::find(const QString &id)
{
    return std::find_if(entries.begin(), entries.end(),
                        [&id](const auto &known) { return known.second.id.text == id; });
}

bool BoardWatch::Private::hasId(const QString &id) const
{
    return std::any_of(entries.begin(), entries.end(), [&id](const auto &known) { return known.second.id.text == id; });
}

BoardWatch::BoardWatch(QObject *parent)
    : QObject(parent)
    , m_private(std::make_unique<Private>(this))
{
    qRegisterMetaType<JwDevice::Board>();
}

BoardWatch::~BoardWatch() = default;

void BoardWatch::setTypes(const QList<Type> &types)
{
    m_private->settings.types = types;
}

QList<Type> BoardWatch::types() const
{
    return m_private->settings.types;
}

void BoardWatch::setCandidateRule(std::function<bool(const QSerialPortInfo &port)> rule)
{
    m_private->rule = rule ? std::move(rule) : defaultRule();
}

void BoardWatch::setNeverOpened(const QStringList &ports)
{
    m_private->neverOpened = ports;
}

QStringList BoardWatch::neverOpened() const
{
    return m_private->neverOpened;
}

void BoardWatch::setMaxRetries(uint maxRetries)
{
    m_private->settings.maxRetries = maxRetries;
}

uint BoardWatch::maxRetries() const
{
    return m_private->settings.maxRetries;
}

void BoardWatch::setDelay(int delay)
{
    m_private->settings.delay = delay;
}

int BoardWatch::delay() const
{
    return m_private->settings.delay;
}

void BoardWatch::setCheckInterval(int interval)
{
    m_private->settings.checkInterval = interval;
}

int BoardWatch::checkInterval() const
{
    return m_private->settings.checkInterval;
}

void BoardWatch::setPollInterval(int interval)
{
    m_private->pollInterval = qMax(interval, 1);
}

int BoardWatch::pollInterval() const
{
    return m_private->pollInterval;
}

void BoardWatch::setPortObserver(std::function<void(const PortEvent &event)> observer)
{
    m_private->active.observer = m_private->settings.observer = std::move(observer);
}

void BoardWatch::start()
{
    Private *const d = m_private.get();
    if (d->source)
        return;
    d->active = d->settings;
    d->activeRule = d->rule;
    d->activeNeverOpened = d->neverOpened;
    d->ids.clear();
    // The source listens for events before the first list is made, so that no port is missed in between.
    d->source = makePortSource(d->pollInterval);
    d->isStale = true;
    connect(d->source.get(), &PortSource::changed, this, [d] {
        d->isStale = true;
        d->later(&Private::update, d->isUpdateQueued);
    });
    d->freed = std::make_unique<FreedNotifier>();
    connect(d->freed.get(), &FreedNotifier::freed, this, [d](const QString &location) { d->onFreed(location); });
    d->resume = std::make_unique<ResumeNotifier>();
    connect(d->resume.get(), &ResumeNotifier::resumed, this, &BoardWatch::checkBoards);
    d->later(&Private::update, d->isUpdateQueued);
}

void BoardWatch::stop()
{
    Private *const d = m_private.get();
    if (!d->source)
        return;
    ++d->lists;
    d->source.reset();
    d->freed.reset();
    d->resume.reset();
    d->system.clear();
    d->otherPorts.clear();
    d->later(&Private::tellChange, d->isChangeQueued);
    // The ports without a board are closed here, before the first boardLost(), because a receiver of boardLost() may
    // run an event loop.
    for (auto &[name, entry] : std::exchange(d->entries, {})) {
        entry.port->disconnect(this);
        if (entry.state != Private::Ready)
            continue;
        // A receiver of another board's boardLost() may delete the Communicator, or run an event loop in which the
        // cable is pulled. Then this board is reported at that moment.
        connect(entry.port.get(), &WatchedPort::boardLost, this,
                [d, port = entry.port.get()](Board::Loss loss) { d->reportStopped(port, loss); });
        d->stopped.push_back(std::move(entry));
    }
    const QPointer<BoardWatch> self(this);
    while (self && !d->stopped.empty()) {
        WatchedPort *const port = d->stopped.front().port.get();
        port->disconnect(this);
        port->close();
        d->reportStopped(port, Board::Stopped);
    }
}

bool BoardWatch::isStarted() const
{
    return m_private->source != nullptr;
}

QList<Board> BoardWatch::boards() const
{
    QList<Board> boards;
    for (const auto &[name, entry] : m_private->entries) {
        if (entry.state == Private::Ready)
            boards.append(entry.board);
    }
    return boards;
}

QList<QSerialPortInfo> BoardWatch::systemPorts() const
{
    QList<QSerialPortInfo> ports;
    for (const SystemPort &port : std::as_const(m_private->system)) {
        if (m_private->entries.count(port.info.portName()) > 0) // otherwise update() has not yet added the port
            ports.append(port.info);
    }
    for (const SystemPort &port : std::as_const(m_private->otherPorts))
        ports.append(port.info);
    return ports;
}

QString BoardWatch::boardId(const QString &portName) const
{
    const auto it = m_private->entries.find(portName);
    return it == m_private->entries.end() ? QString() : it->second.id.text;
}

QList<PortReport> BoardWatch::portReports() const
{
    QList<PortReport> reports;
    for (const SystemPort &port : std::as_const(m_private->system)) {
        const auto it = m_private->entries.find(port.info.portName());
        if (it == m_private->entries.end())
            continue;
        const Private::Entry &entry = it->second;
        reports.append(entry.reason.isEmpty() ? entry.port->report() : entry.port->reportOfClosed(entry.reason));
    }
    return reports;
}

bool BoardWatch::lend(const QString &id, Lending lending)
{
    const auto it = m_private->find(id);
    if (it == m_private->entries.end() || it->second.state != Private::Ready)
        return false;
    m_private->lent.insert(id, {lending, it->second.port->system(), it->second.id.basis});
    m_private->leave(it->second, Private::Lent, lentText);
    m_private->lose(it->second, Board::Lent);
    return true;
}

bool BoardWatch::takeBack(const QString &id)
{
    const bool isLent = m_private->lent.remove(id) > 0;
    const auto it = m_private->find(id);
    const bool isClosed =
        it != m_private->entries.end() && (it->second.state == Private::Lent || it->second.state == Private::Released);
    if (isClosed) {
        m_private->probeAgain(it->second);
        m_private->later(&Private::tellChange, m_private->isChangeQueued);
    }
    m_private->askOtherPorts();
    return isLent || isClosed;
}

void BoardWatch::lookAgain()
{
    m_private->isStale = true;
    m_private->later(&Private::update, m_private->isUpdateQueued);
    for (auto &[name, entry] : m_private->entries) {
        entry.pause = shortestPause;
        if (entry.state == Private::Rejected || entry.state == Private::Waiting)
            m_private->probeAgain(entry);
    }
}

void BoardWatch::checkBoards()
{
    for (const auto &[name, entry] : m_private->entries) {
        if (entry.state == Private::Ready)
            entry.port->check();
    }
}

} // namespace JwDevice

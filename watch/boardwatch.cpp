#include "boardwatch.h"

#include "boardids.h"
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

namespace JwDevice {

namespace {

constexpr int retryInterval =
    500; // ms between two attempts at ports that could not be opened, or that lost their board

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
        Excluded, // not opened; `exclusion` says why
        OtherPort, // closed, because a board is on another port of the same USB device
        Due, // to be probed in one of the next turns of the event loop
        Probing,
        Ready, // a board is on the port
        Rejected, // no wanted board answered
        Waiting, // to be probed again when retryTimer ends
        Lent, // closed by lend()
        Released, // the application deleted the board's Communicator
    };
    struct Entry
    {
        BoardId id;
        State state = Due;
        QString exclusion;
        Board board; // the newest board on this port; its id is empty if there was none
        std::unique_ptr<WatchedPort> port;
    };

    explicit Private(BoardWatch *watch)
        : q(watch)
    {
        retryTimer.setSingleShot(true);
        QObject::connect(&retryTimer, &QTimer::timeout, watch, [this] { probeAgain(Waiting); });
    }

    void update();
    void listPorts();
    bool removeOne();
    bool addNew();
    bool probeOne();
    void add(const SystemPort &port);
    static bool areSiblings(const Entry &entry, const Entry &other);
    static void leaveTo(const QString &board, Entry &entry);
    void setState(Entry &entry, State state);
    void probeAgain(State state);
    void onBoardAnswered(const QString &name);
    void onProbeEnded(const QString &name);
    void onBoardLost(const QString &name, Board::Loss loss);
    void lose(const Entry &entry, Board::Loss loss);
    QString exclusionOf(const SystemPort &port) const;
    void later(void (Private::*step)(), bool &isQueued);
    void tellChange();
    std::map<QString, Entry>::iterator find(const QString &id);

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
    QTimer retryTimer;
    QVector<SystemPort> system; // the candidates in the newest list of the ports
    QVector<SystemPort> otherPorts; // the other ports in this list
    std::map<QString, Entry> entries; // by port name
    std::deque<Entry> stopped; // boards that stop() closed and has not yet reported as lost
    BoardIds ids;
    QHash<QString, Lending> lent; // by id
    bool isStale = false; // whether `system` must be listed again
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
    if (std::exchange(isStale, false))
        listPorts();
    const QPointer<BoardWatch> self(q);
    const bool isMore = removeOne() || addNew() || probeOne();
    if (self && isMore)
        later(&Private::update, isUpdateQueued);
}

void BoardWatch::Private::listPorts()
{
    system.clear();
    const QVector<SystemPort> knownOthers = std::exchange(otherPorts, {});
    const QVector<SystemPort> ports = source->list();
    for (const SystemPort &port : ports)
        (activeRule(port.info) ? system : otherPorts).append(port);
    const auto isSame = [](const SystemPort &a, const SystemPort &b) {
        return a.info.portName() == b.info.portName() && a.plug == b.plug;
    };
    if (!std::equal(otherPorts.cbegin(), otherPorts.cend(), knownOthers.cbegin(), knownOthers.cend(), isSame))
        later(&Private::tellChange, isChangeQueued);
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
        if (lent.value(gone.id.text, UntilTakenBack) == UntilPluggedAgain)
            lent.remove(gone.id.text);
        later(&Private::tellChange, isChangeQueued);
        gone.port->disconnect(q);
        // Before lose(), because a receiver of boardLost() may run an event loop.
        later(&Private::update, isUpdateQueued);
        if (gone.state == Ready)
            lose(gone, Board::CablePulled);
        return true;
    }
    return false;
}

bool BoardWatch::Private::addNew()
{
    bool any = false;
    for (const SystemPort &port : qAsConst(system)) {
        const auto known = entries.find(port.info.portName());
        if (known == entries.end()) {
            add(port);
            any = true;
        } else if (known->second.port->system().change != port.change) {
            known->second.port->setSystem(port);
            if (known->second.state == Waiting) // perhaps the port can be opened with its new permissions
                setState(known->second, Due);
            any = true;
        }
    }
    // If a lent board is not there after stop() and start(), it was pulled in the meantime. So UntilPluggedAgain is
    // over.
    for (auto it = lent.begin(); it != lent.end();)
        it = *it == UntilPluggedAgain && find(it.key()) == entries.end() ? lent.erase(it) : std::next(it);
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
    entry.exclusion = exclusionOf(port);
    if (!entry.exclusion.isEmpty())
        entry.state = Excluded;
    else if (lent.contains(entry.id.text))
        entry.state = Lent;
    entry.port = std::make_unique<WatchedPort>(port, active, nullptr);
    QObject::connect(entry.port.get(), &WatchedPort::reportChanged, q,
                     [this] { later(&Private::tellChange, isChangeQueued); });
    QObject::connect(entry.port.get(), &WatchedPort::boardAnswered, q, [this, name] { onBoardAnswered(name); });
    QObject::connect(entry.port.get(), &WatchedPort::probeEnded, q, [this, name] { onProbeEnded(name); });
    QObject::connect(entry.port.get(), &WatchedPort::boardLost, q,
                     [this, name](Board::Loss loss) { onBoardLost(name, loss); });
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
    for (auto &[name, entry] : entries) {
        if (entry.state != Due)
            continue;
        later(&Private::tellChange, isChangeQueued);
        for (const auto &[otherName, other] : entries) {
            if ((other.state == Ready || other.state == Lent) && areSiblings(entry, other))
                leaveTo(otherName, entry);
        }
        if (entry.state != Due)
            continue;
        setState(entry, Probing);
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

// Closes the port of `entry`, because the board is on another port of the same USB device, named `board`.
void BoardWatch::Private::leaveTo(const QString &board, Entry &entry)
{
    entry.port->close();
    entry.state = OtherPort;
    entry.exclusion = QStringLiteral("not opened, because %1 of the same device is a board").arg(board);
}

void BoardWatch::Private::setState(Entry &entry, State state)
{
    entry.state = state;
    if (state == Waiting && !retryTimer.isActive())
        retryTimer.start(retryInterval);
}

void BoardWatch::Private::probeAgain(State state)
{
    for (auto &[name, entry] : entries) {
        if (entry.state == state)
            entry.state = Due;
    }
    later(&Private::update, isUpdateQueued);
}

void BoardWatch::Private::onBoardAnswered(const QString &name)
{
    Entry &entry = entries.at(name);
    entry.state = Ready;
    const SystemPort &port = entry.port->system();
    for (auto &[otherName, other] : entries) {
        if (areSiblings(entry, other) && (other.state == Due || other.state == Probing || other.state == Waiting))
            leaveTo(name, other);
    }

    const PortReport report = entry.port->report();
    Board &board = entry.board;
    board.id = entry.id.text;
    board.idBasis = entry.id.basis;
    board.sharesSerialNumber = entry.id.isShared;
    board.type = report.type;
    board.communicator = entry.port->communicator();
    board.portName = name;
    board.location = report.location;
    board.place = port.place;
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
    // A port that could not be opened is tried again. A port that had a board is probed until the board answers again.
    // Other silent ports are left alone.
    const bool isRetried = verdict == PortReport::NotOpened || verdict == PortReport::Lost || !entry.board.id.isEmpty();
    setState(entry, isRetried ? Waiting : Rejected);
    later(&Private::tellChange, isChangeQueued);
}

void BoardWatch::Private::onBoardLost(const QString &name, Board::Loss loss)
{
    Entry &entry = entries.at(name);
    setState(entry, loss == Board::Released ? Released : Waiting);
    for (auto &[otherName, other] : entries) {
        if (other.state == OtherPort && areSiblings(entry, other))
            setState(other, Waiting);
    }
    later(&Private::tellChange, isChangeQueued);
    lose(entry, loss);
}

void BoardWatch::Private::lose(const Entry &entry, Board::Loss loss)
{
    // After stop(), the next start() must report each board by boardFound(). A receiver of boardLost() may call start()
    // before stop() has reported all boards. So the boards that stop() reports are not noted as lost.
    if (loss != Board::Stopped)
        ids.onLost(entry.board.id, entry.board.type);
    Board lost = entry.board;
    lost.loss = loss;
    if (loss == Board::Released)
        lost.communicator = nullptr;
    entry.port->close();
    Q_EMIT q->boardLost(lost);
}

std::map<QString, BoardWatch::Private::Entry>::iterator BoardWatch::Private::find(const QString &id)
{
    return std::find_if(entries.begin(), entries.end(),
                        [&id](const auto &known) { return known.second.id.text == id; });
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
    d->resume = std::make_unique<ResumeNotifier>();
    connect(d->resume.get(), &ResumeNotifier::resumed, this, &BoardWatch::checkBoards);
    d->later(&Private::update, d->isUpdateQueued);
}

void BoardWatch::stop()
{
    Private *const d = m_private.get();
    if (!d->source)
        return;
    d->source.reset();
    d->resume.reset();
    d->retryTimer.stop();
    d->system.clear();
    d->otherPorts.clear();
    d->later(&Private::tellChange, d->isChangeQueued);
    // The ports without a board are closed here, before the first boardLost(), because a receiver of boardLost() may
    // run an event loop.
    for (auto &[name, entry] : std::exchange(d->entries, {})) {
        entry.port->disconnect(this);
        if (entry.state == Private::Ready)
            d->stopped.push_back(std::move(entry));
    }
    const QPointer<BoardWatch> self(this);
    while (self && !d->stopped.empty()) {
        const Private::Entry entry = std::move(d->stopped.front());
        d->stopped.pop_front();
        d->lose(entry, Board::Stopped);
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
    for (const SystemPort &port : qAsConst(m_private->system)) {
        if (m_private->entries.count(port.info.portName()) > 0) // otherwise update() has not yet added the port
            ports.append(port.info);
    }
    for (const SystemPort &port : qAsConst(m_private->otherPorts))
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
    for (const SystemPort &port : qAsConst(m_private->system)) {
        const auto it = m_private->entries.find(port.info.portName());
        if (it == m_private->entries.end())
            continue;
        PortReport report = it->second.port->report();
        const Private::State state = it->second.state;
        if (state == Private::Excluded || state == Private::OtherPort || state == Private::Lent) {
            report.error = QSerialPort::NoError;
            report.errorText =
                state == Private::Lent ? QStringLiteral("lent to another program") : it->second.exclusion;
        }
        reports.append(report);
    }
    return reports;
}

bool BoardWatch::lend(const QString &id, Lending lending)
{
    const auto it = m_private->find(id);
    if (it == m_private->entries.end() || it->second.state != Private::Ready)
        return false;
    m_private->lent.insert(id, lending);
    it->second.state = Private::Lent;
    m_private->later(&Private::tellChange, m_private->isChangeQueued);
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
        it->second.state = Private::Due;
        m_private->later(&Private::update, m_private->isUpdateQueued);
        m_private->later(&Private::tellChange, m_private->isChangeQueued);
    }
    return isLent || isClosed;
}

void BoardWatch::lookAgain()
{
    m_private->probeAgain(Private::Rejected);
    m_private->probeAgain(Private::Waiting);
}

void BoardWatch::checkBoards()
{
    for (const auto &[name, entry] : m_private->entries) {
        if (entry.state == Private::Ready)
            entry.port->check();
    }
}

} // namespace JwDevice

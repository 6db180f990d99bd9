#include "initializer.h"

#include <device/boardrules.h>
#include <device/lockfile.h>
#include <device/porterrors.h>
#include <device/sessioninit.h>
#include <device/wholelines.h>
#include <logger/logger.h>
#include <nmea/exception.h>
#include <nmea/parserinit.h>

#include <QElapsedTimer>
#include <QPointer>
#include <QSerialPort>
#include <QSignalMapper>
#include <QTimer>

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

namespace JwDevice {

namespace {

QString portName(const Communicator *comm)
{
    const auto *port = qobject_cast<const QSerialPort *>(comm->device());
    return port ? port->portName() : QString();
}

/// Returns the report of a port that is not tried yet. `name` is needed because `info` has no name if the system
/// doesn't know the port.
std::shared_ptr<PortReport> reportOn(const QSerialPortInfo &info, const QString &name)
{
    auto report = std::make_shared<PortReport>();
    report->portName = name;
    report->location = info.systemLocation();
    report->manufacturer = info.manufacturer();
    report->product = info.description();
    report->serialNumber = info.serialNumber();
    return report;
}

/// Opens the port, or sets the error in the report and returns false.
bool openPort(QSerialPort *port, PortReport &report)
{
    report.errorText = lockTrap(port->portName());
    if (!report.errorText.isEmpty()) {
        report.error = QSerialPort::PermissionError; // QSerialPort reports the same for another program's lock file
        return false;
    }
    if (port->open(QIODevice::ReadWrite))
        return true;
    report.error = port->error();
    report.errorText = port->errorString();
    return false;
}

/// Returns the parsers that no Initializer uses. They exist until the process ends, because a parser is never deleted.
std::vector<Nmea::ParserInit *> &idleParsers()
{
    static auto *const parsers = new std::vector<Nmea::ParserInit *>; // never deleted, so it is there until the end
    return *parsers;
}

Nmea::ParserInit *takeParser()
{
    auto &parsers = idleParsers();
    if (parsers.empty()) {
        auto *parser = new Nmea::ParserInit;
        parser->init();
        return parser;
    }
    Nmea::ParserInit *const parser = parsers.back();
    parsers.pop_back();
    return parser;
}

/// Returns `payload` without its line end. A carriage return alone may be part of the text, so it is not removed.
QString withoutLineEnd(const QString &payload)
{
    return payload.left(payload.lastIndexOf(QLatin1String("\r\n")));
}

} // namespace

struct Initializer::Private
{
    ~Private()
    {
        for (QObject *object : trash)
            object->deleteLater();
    }
    void tell(PortEvent event) const
    {
        if (!observer)
            return;
        event.nanoseconds = clock.nsecsElapsed();
        const auto running = observer; // a copy, because the observer may set another one
        running(event);
    }

    /// Objects that were still emitting a signal when the Initializer was deleted. They must exist until the outermost
    /// slot of the Initializer returns. deleteLater() alone would delete them too early if a receiver runs an event
    /// loop.
    std::vector<QObject *> trash;
    std::function<void(const PortEvent &event)> observer;
    QElapsedTimer clock; // time since probe()
};

Initializer::Initializer(QObject *parent)
    : QObject(parent)
    , m_readMapper(new QSignalMapper(this))
    , m_timeoutMapper(new QSignalMapper(this))
    , m_parser(takeParser())
    , m_probeTimer(new QTimer(this))
    , m_retries(0)
    , m_maxRetries(3)
    , m_decided(false)
    , m_private(std::make_shared<Private>())
{
    connect(m_readMapper, &QSignalMapper::mappedObject, this, &Initializer::boardReadyRead);
    connect(m_timeoutMapper, &QSignalMapper::mappedObject, this, &Initializer::readTimeout);
    m_probeTimer->setSingleShot(true);
    m_probeTimer->setTimerType(Qt::PreciseTimer); // because a coarse timer may fire early
    connect(m_probeTimer, SIGNAL(timeout()), this, SLOT(probeStage2()));
}

Initializer::~Initializer()
{
    // If a receiver of deviceNotFound() deletes this object, a mapper, a timer and perhaps a port are still emitting a
    // signal. So these objects must not be deleted now.
    const auto dispose = [this, inSlot = m_private.use_count() > 1](QObject *object) {
        if (inSlot) {
            object->setParent(nullptr);
            m_private->trash.push_back(object);
        } else {
            delete object;
        }
    };

    const auto commTimers = m_commTimers;
    disconnect(m_probeTimer, nullptr, nullptr, nullptr);
    disconnect(m_readMapper, nullptr, nullptr, nullptr);
    disconnect(m_timeoutMapper, nullptr, nullptr, nullptr);
    dispose(m_probeTimer);
    dispose(m_readMapper);
    dispose(m_timeoutMapper);
    for (auto it = commTimers.constBegin(); it != commTimers.constEnd(); ++it) {
        Communicator *const comm = it.key();
        dispose(it.value());
        if (m_commTypes.value(comm) != Unknown)
            continue; // `comm` belongs to the application, which may have deleted `comm`
        if (auto *port = static_cast<QSerialPort *>(comm->device())) {
            comm->setIODevice(nullptr);
            closeAtOnce(port);
            dispose(port);
        }
        delete comm; // not deleteLater(), because a `comm` that is just reading would read on from the shared buffer
    }
    m_commTypes.clear();
    m_commTimers.clear();
    m_types.clear();
    LOGGER_RECORD(Logger::Trace, nullptr).write("*** Initializer deleted ***");
    // A parser is never deleted. The next Initializer takes this one, so many searches need no more memory than one.
    idleParsers().push_back(m_parser);
}

bool Initializer::probe(const QList<Type> &types, int delay, const QList<QString> &portNames)
{
    m_types = types;
    if (m_types.isEmpty()) {
        LOGGER_RECORD(Logger::Error, nullptr).write("No device types specified");
        return false;
    }
    if (portNames.isEmpty()) {
        const QList<QSerialPortInfo> available = QSerialPortInfo::availablePorts();
        m_ports.clear();
        m_reports.clear();
        std::copy_if(available.begin(), available.end(), std::back_inserter(m_ports), isCandidate);
        for (const QSerialPortInfo &info : std::as_const(m_ports))
            m_reports.append(reportOn(info, info.portName()));
    } else { // the ports of earlier calls are not removed
        for (const QString &name : portNames) {
            m_ports.append(QSerialPortInfo(name));
            m_reports.append(reportOn(m_ports.last(), name));
        }
    }
    start(delay);
    return true;
}

bool Initializer::probePort(const QList<Type> &types, const QSerialPortInfo &port, int delay)
{
    m_types = types;
    if (m_types.isEmpty()) {
        LOGGER_RECORD(Logger::Error, nullptr).write("No device types specified");
        return false;
    }
    m_ports.append(port);
    m_reports.append(reportOn(port, port.portName()));
    start(delay);
    return true;
}

void Initializer::start(int delay)
{
    m_private->clock.start();
    if (m_types.contains(BoardC) && delay > 0)
        m_probeTimer->start(delay);
    else
        probeStage2();
}

uint Initializer::setMaxRetries(uint maxRetries)
{
    return std::exchange(m_maxRetries, maxRetries);
}

void Initializer::probeStage2()
{
    const QList<QSerialPortInfo> ports = m_ports;
    for (int i = 0; i < ports.size(); ++i) {
        const QSerialPortInfo &info = ports[i];
        const auto report = reportOn(info, m_reports[i]->portName);
        m_reports[i] = report;
        auto *port = new WholeLines<QSerialPort>;
        port->setPort(info);
        if (!openPort(port, *report)) {
            LOGGER_RECORD(Logger::Trace, nullptr).write()
                << "Serial port not accessible: " << info.portName() << " - " << static_cast<int>(report->error);
            tell(PortEvent::NotOpened, *report, report->errorText);
            if (const auto held = reportOnHeld(report->portName))
                m_reports[i] = held; // the port is busy, because this Initializer has it open since an earlier probe()
            delete port;
            continue;
        }
        LOGGER_RECORD(Logger::Trace, nullptr).write() << "Serial port opened for probing: " << info.portName();
        port->setBaudRate(QSerialPort::Baud115200, QSerialPort::AllDirections);

        Communicator *const comm = createCommunicator(port);
        closeWhenLost(port, report);
        // The application may have deleted a Communicator that was handed over to it. These tables still contain the
        // entries of that Communicator, and `comm` may now have the same address. So old entries are removed.
        m_commTypes.remove(comm);
        delete m_commTimers.take(comm);
        m_commTimers[comm] = createTimeoutTimer(comm);
        m_commReports[comm] = report;
        report->verdict = PortReport::Awaiting;
        tell(PortEvent::Opened, *report);
        report->queries = writeQueries(comm);
        // Without the flush, the query would be sent only when all later ports are open, although the reply time of
        // this port already runs. If the device is gone, the flush fails, and the slot in closeWhenLost() closes the
        // port.
        port->flush();
        connect(comm, SIGNAL(readyRead()), m_readMapper, SLOT(map()));
        m_readMapper->setMapping(comm, comm);
    }

    if (!m_commTimers.isEmpty())
        return;
    const QPointer<Initializer> self(this);
    const QList<Type> types = m_types;
    for (const Type type : types) {
        Q_EMIT deviceNotFound(type);
        if (!self)
            return;
    }
}

void Initializer::setPortObserver(std::function<void(const PortEvent &event)> observer)
{
    m_private->observer = std::move(observer);
}

void Initializer::tell(PortEvent::Kind kind, const PortReport &report, const QString &text, const QString &reason,
                       Type type) const
{
    m_private->tell({kind, report.portName, 0, m_retries, text, reason, type});
}

Communicator *Initializer::createCommunicator(QSerialPort *port)
{
    auto *comm = new Communicator(nullptr);
    comm->setIODevice(port);
    return comm;
}

QTimer *Initializer::createTimeoutTimer(Communicator *comm)
{
    auto *timer = new QTimer(this);
    connect(timer, SIGNAL(timeout()), m_timeoutMapper, SLOT(map()));
    m_timeoutMapper->setMapping(timer, comm);
    timer->setSingleShot(true);
    timer->setTimerType(Qt::PreciseTimer);
    timer->start(replyTime);
    return timer;
}

void Initializer::closeWhenLost(QSerialPort *port, const std::shared_ptr<PortReport> &report)
{
    connect(new PortErrors(port), &PortErrors::portLost, this, [this, port, report](bool isDeviceGone) {
        report->verdict = PortReport::Lost;
        // QSerialPort reports ResourceError also if the device is there, and any error if the device is gone.
        const bool isResourceError = port->error() == QSerialPort::ResourceError;
        report->error = isResourceError ? QSerialPort::UnknownError : port->error();
        report->errorText = port->errorString();
        if (isDeviceGone) {
            report->error = QSerialPort::ResourceError;
            report->errorText = QStringLiteral("No such device");
        }
        closeAtOnce(port);
        tell(PortEvent::Lost, *report, report->errorText);
    });
}

Communicator *Initializer::isCommunicator(QObject *object) const
{
    auto *comm = static_cast<Communicator *>(object);
    return m_commTimers.contains(comm) ? comm : nullptr;
}

std::shared_ptr<PortReport> Initializer::reportOnHeld(const QString &portName) const
{
    const auto isHeld = [&portName](const std::shared_ptr<PortReport> &report) {
        return report->portName == portName && report->verdict != PortReport::HandedOver
            && report->verdict != PortReport::Lost;
    };
    const auto it = std::find_if(m_commReports.begin(), m_commReports.end(), isHeld);
    return it == m_commReports.end() ? nullptr : *it;
}

QList<PortReport> Initializer::portReports() const
{
    QList<PortReport> reports;
    for (const auto &report : m_reports)
        reports.append(*report);
    return reports;
}

void Initializer::queryBoardVersion(Communicator *comm)
{
    writeQueries(comm);
}

int Initializer::writeQueries(Communicator *comm)
{
    int written = 0;
    const QList<SentenceKey> queries = queriesFor(m_types);
    for (const SentenceKey query : queries) {
        SessionInit session = queryRecord(query);
        written += sendProtocol(comm, &session);
    }
    return written;
}

bool Initializer::sendProtocol(Communicator *comm, SessionInit *session)
{
    QString sentence;
    try {
        m_parser->build(session, sentence);
    } catch (const Nmea::Exception &exception) {
        LOGGER_RECORD(Logger::Error, nullptr).write() << "Build failed: " << exception.message();
        return false;
    }
    comm->writePayload(sentence);
    const auto report = m_commReports.value(comm);
    if (report && report->verdict != PortReport::HandedOver)
        tell(PortEvent::Asked, *report, withoutLineEnd(sentence));
    return true;
}

void Initializer::boardReadyRead(QObject *object)
{
    Communicator *const comm = isCommunicator(object);
    if (!comm)
        return;
    LOGGER_RECORD(Logger::Trace, nullptr).write() << "Read succes on port: " << portName(comm);

    const QPointer<Initializer> self(this);
    const QPointer<Communicator> alive(comm); // because a receiver of deviceInitialized() may delete `comm`
    const auto keeper = m_private;
    const auto report = m_commReports.value(comm);
    const auto settle = [&report](PortReport::Verdict verdict) {
        if (report->verdict != PortReport::Lost) // a lost port stays lost, even if its reply is read only now
            report->verdict = verdict;
    };
    bool found = false;
    QString payload;
    // This order is on purpose: if one more payload waits after the board's answer, it is read and dropped, because
    // readPayload() comes before the test of `found`. See docs/behaviours-to-know.md.
    while (alive && comm->readPayload(payload, 0) && !found) {
        SessionInit session;
        session.clear();
        ++report->payloads;
        try {
            m_parser->parse(&session, payload);
        } catch (const Nmea::Exception &exception) {
            report->unreadable = withoutLineEnd(payload);
            LOGGER_RECORD(Logger::Error, nullptr).write() << "Parse failed: " << exception.message();
            tell(PortEvent::Unreadable, *report, report->unreadable, exception.message());
            continue;
        }
        // An answer stops the reply timer. If the answer is of no wanted type, the probe waits for this port without
        // limit, because the next answer may be of a wanted type.
        m_commTimers.value(comm)->stop();
        report->reply = withoutLineEnd(payload);
        const Type type = typeOf(session);
        tell(PortEvent::Answered, *report, report->reply, QString(), type);
        if (type == Unknown || !m_types.contains(type)) {
            settle(PortReport::Silenced);
            continue;
        }

        disconnect(comm, nullptr, nullptr, nullptr);
        const bool duplicate = m_commTypes.key(type) != nullptr;
        report->type = type;
        if (duplicate) {
            settle(PortReport::Duplicate);
        } else {
            report->verdict = PortReport::HandedOver;
            delete comm->device()->findChild<PortErrors *>(); // the application handles errors from now on
            tell(PortEvent::HandedOver, *report, QString(), QString(), type);
        }
        setCommStatus(comm, duplicate ? Unknown : type);
        if (!self)
            return;
        found = true;
    }
}

void Initializer::readTimeout(QObject *object)
{
    Communicator *const comm = isCommunicator(object);
    if (!comm)
        return;
    LOGGER_RECORD(Logger::Trace, nullptr).write() << "Read timeout for: " << portName(comm);
    const auto report = m_commReports.value(comm);
    if (report->verdict == PortReport::Awaiting)
        report->verdict = PortReport::TimedOut;
    tell(PortEvent::TimedOut, *report);

    const auto keeper = m_private;
    setCommStatus(comm, Unknown);
}

void Initializer::setCommStatus(Communicator *comm, Type type)
{
    m_commTypes[comm] = type;
    if (type != Unknown) {
        const QPointer<Initializer> self(this);
        Q_EMIT deviceInitialized(type, comm);
        if (!self)
            return;
    }
    decide();
}

void Initializer::decide()
{
    // The probe waits for each port that is Awaiting, or Silenced by an answer in time. This port has an entry in
    // m_commTimers but none in m_commTypes.
    // m_decided may be true here, because a receiver of deviceInitialized() may run an event loop in which the probe
    // ended.
    if (m_decided || m_commTypes.size() != m_commTimers.size())
        return;
    const auto isMissing = [this](Type type) { return m_commTypes.key(type) == nullptr; };
    const QList<Type> types = m_types;
    if (m_retries < m_maxRetries && std::any_of(types.begin(), types.end(), isMissing)) {
        ++m_retries;
        retryProbe();
        return;
    }

    m_decided = true;
    const QPointer<Initializer> self(this);
    for (const Type type : types) {
        if (!isMissing(type))
            continue;
        Q_EMIT deviceNotFound(type);
        if (!self)
            return;
    }
    disconnect(m_readMapper, nullptr, nullptr, nullptr);
    disconnect(m_timeoutMapper, nullptr, nullptr, nullptr);
    LOGGER_RECORD(Logger::Debug, nullptr).write("Disconnect from signals");
}

void Initializer::retryProbe()
{
    LOGGER_RECORD(Logger::Warning, nullptr).write("Retry probing");
    bool asked = false;
    const auto commTimers = m_commTimers;
    for (auto it = commTimers.constBegin(); it != commTimers.constEnd(); ++it) {
        Communicator *const comm = it.key();
        if (m_commTypes.value(comm) != Unknown)
            continue;
        m_commTypes.remove(comm);
        it.value()->start(replyTime);
        const auto report = m_commReports.value(comm);
        // A Silenced port gets here only if it answered after its time-out. This round asks the port again.
        if (report->verdict == PortReport::TimedOut || report->verdict == PortReport::Silenced)
            report->verdict = PortReport::Awaiting;
        if (comm->device()->isOpen()) // a lost port is closed, so it is not asked and times out again
            report->queries += writeQueries(comm);
        asked = true;
    }
    if (asked)
        return;

    // Every port is handed over, so no port can answer in this round. The event loop calls decide() again, which starts
    // the next round or ends the probe.
    m_decided = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_decided = false;
            decide();
        },
        Qt::QueuedConnection);
}

} // namespace JwDevice

// Included here so that abidw, the tool with which scripts/abi describes the binary interface, sees the whole class in
// one translation unit.
#include "moc_initializer.cpp"

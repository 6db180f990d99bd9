#include "discoverysubject.h"

#include "support/initializer/initializerstate.h"
#include "support/device/receivebuffer.h"

#include <QSignalMapper>

#include <algorithm>
#include <climits>
#include <utility>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <unistd.h>

using JwDevice::Communicator;
using JwDevice::Initializer;
using JwDevice::Type;
using JwSimulator::Board;
using JwSimulator::BoardConfig;

namespace {

constexpr int longestLine = 4096; // the kernel keeps at most so many unread bytes for a port

QString nameOf(PortState state)
{
    switch (state) {
    case PortState::AwaitingReply:
        return QStringLiteral("awaiting reply");
    case PortState::TimedOut:
        return QStringLiteral("timed out");
    case PortState::Silenced:
        return QStringLiteral("silenced");
    case PortState::HandedOver:
        return QStringLiteral("handed over");
    case PortState::Duplicate:
        return QStringLiteral("duplicate");
    default:
        return QStringLiteral("not probed");
    }
}

} // namespace

DiscoveryPorts::DiscoveryPorts()
{
    std::fill(std::begin(m_descriptors), std::end(m_descriptors), -1);
    for (int port = 0; port < DiscoverySchedule::Absent; ++port) {
        BoardConfig config;
        config.kind = BoardConfig::Kind::Silent;
        config.port = portName(port);
        if (port >= DiscoverySchedule::mostPorts) {
            config.open = port == DiscoverySchedule::Busy ? BoardConfig::Open::Busy : BoardConfig::Open::Denied;
            config.manufacturer = QStringLiteral("STMicroelectronics");
            config.vendor = 0x1234;
        }
        QString error;
        if (!m_testbed.add(config, &error))
            qFatal("%s", qPrintable(error));
    }
    m_boards = m_testbed.boards();
    renew(0);
}

DiscoveryPorts::~DiscoveryPorts()
{
    renew(0);
}

void DiscoveryPorts::renew(int ports)
{
    for (int port = 0; port < DiscoverySchedule::mostPorts; ++port) {
        if (port >= ports) {
            pull(port);
            continue;
        }
        plug(port);
        char bytes[longestLine];
        while (::read(m_descriptors[port], bytes, sizeof bytes) > 0) { }
    }
}

void DiscoveryPorts::pull(int port)
{
    board(port)->pull();
    if (m_descriptors[port] >= 0)
        ::close(m_descriptors[port]);
    m_descriptors[port] = -1;
}

void DiscoveryPorts::plug(int port)
{
    if (m_descriptors[port] >= 0)
        return;
    board(port)->plug();
    const QString path = QStringLiteral("/dev/") + portName(port);
    m_descriptors[port] = ::open(qPrintable(path), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
}

void DiscoveryPorts::send(int port, const QByteArray &bytes)
{
    if (m_descriptors[port] < 0 || bytes.isEmpty())
        return;
    // The QSerialPort must get these bytes in one read, because the model also delivers them in one read. The kernel
    // moves the bytes in its own thread, and poll() waits only for the first byte. So wait here until the number of
    // unread bytes shows that all bytes have arrived.
    const auto expected = unread(port) + bytes.size();
    board(port)->send(bytes);
    pollfd descriptor = {m_descriptors[port], POLLIN, 0};
    ::poll(&descriptor, 1, 0);
    while (unread(port) < expected)
        ::sched_yield();
}

int DiscoveryPorts::unread(int port) const
{
    int count = 0;
    return ::ioctl(m_descriptors[port], FIONREAD, &count) == 0 ? count : INT_MAX;
}

DiscoverySubject::DiscoverySubject(const DiscoverySchedule &schedule, DiscoveryPorts &ports, VirtualClock &clock)
    : DiscoveryPlay(schedule)
    , m_ports(ports)
    , m_clock(clock)
    , m_initializer(new Initializer)
{
    ports.renew(schedule.ports);
    clock.run(0);
    drainReceiveBuffer();
    m_sink = std::make_shared<RecordForwarder>([this](const LogRecord &record) { onRecord(record); });
    loggerInstance()->addSink(m_sink);
    loggerInstance()->setLevel(Logger::Trace);
    QObject::connect(m_initializer, &Initializer::deviceInitialized, &m_context,
                     [this](Type type, Communicator *comm) { onDeviceInitialized(type, comm); });
    QObject::connect(m_initializer, &Initializer::deviceNotFound, &m_context,
                     [this](Type type) { deviceNotFound(type); });
    for (int port = 0; port < schedule.ports; ++port) {
        Board *const board = ports.board(port);
        QObject::connect(board, &Board::received, &m_context,
                         [this, port](const QByteArray &bytes) { m_received[port] += bytes; });
        QObject::connect(board, &Board::sentenceReceived, &m_context, [this, port] { answer(port); });
    }
    clock.setOutside({[this] { return nextPieceDue(); }, [this] { sendPieces(); }});
}

DiscoverySubject::~DiscoverySubject()
{
    m_clock.setOutside({});
    loggerInstance()->removeSink(m_sink);
    loggerInstance()->setLevel(Logger::Warning);
    delete m_initializer;
    for (HandOver &handOver : m_handOvers) {
        delete handOver.comm;
        delete handOver.port;
    }
}

void DiscoverySubject::onRecord(const LogRecord &record)
{
    findProbed();
    noteLog(record.level, record.category.constData(), record.file.constData(), record.text);
    // Umockdev (the library behind the simulated ports) has a short list of open ports. A failed open() adds an entry
    // for the descriptor -1 to this list, and close(-1) removes the entry. Otherwise the list would become full.
    if (record.text.startsWith(QLatin1String("Serial port not accessible")))
        ::close(-1);
    if (!record.text.startsWith(QLatin1String("->")))
        return;
    // A port's reply timer must start before its query is written. So at each query, write the number of running reply
    // timers into the trace. Closed ports are not counted, because a retry round may start their timers before or after
    // this query.
    int timers = 0;
    for (const Probed &probed : std::as_const(m_probed)) {
        if (isListed(probed) && probed.timer->isActive() && probed.guard && probed.port && probed.port->isOpen())
            ++timers;
    }
    note(QStringLiteral("reply timers: %1").arg(timers));
}

bool DiscoverySubject::isListening(int port) const
{
    return std::any_of(m_probed.cbegin(), m_probed.cend(), [port](const Probed &probed) {
        return probed.name == portName(port) && probed.port && probed.port->isOpen() && probed.guard
            && probed.guard->device() == probed.port;
    });
}

bool DiscoverySubject::isListed(const Probed &probed) const
{
    return m_initializer && probed.timer && replyTimers(*m_initializer).value(probed.comm) == probed.timer;
}

/// Finds the Communicators that the Initializer made since the last call of this function, and adds them to m_probed.
void DiscoverySubject::findProbed()
{
    if (!m_initializer)
        return;
    const auto timers = replyTimers(*m_initializer);
    for (auto entry = timers.cbegin(); entry != timers.cend(); ++entry) {
        int replaced = -1;
        bool known = false;
        for (int i = 0; i < m_probed.size(); ++i) {
            if (m_probed[i].comm != entry.key())
                continue;
            replaced = i;
            known = m_probed[i].timer == entry.value();
        }
        if (known)
            continue;
        auto *const port = qobject_cast<QSerialPort *>(entry.key()->device());
        m_probed.append({entry.key(), entry.value(), port->portName(), port, entry.key()});
        m_reused.append(replaced);
    }
}

void DiscoverySubject::onDeviceInitialized(Type type, Communicator *comm)
{
    findProbed();
    auto *const port = qobject_cast<QSerialPort *>(comm->device());
    if (isRouted(comm))
        note(QStringLiteral("the Communicator is connected"));
    if ((port->*memberOf(IsSignalConnected()))(QMetaMethod::fromSignal(&QSerialPort::errorOccurred)))
        note(QStringLiteral("the port is connected"));
    QObject::connect(port, &QSerialPort::errorOccurred, port, [port] { port->close(); });
    m_handOvers.push_back({comm, port, nullptr});
    // The Initializer emits deviceInitialized inside a signal of its first QSignalMapper, and Qt uses this mapper again
    // after that signal. So the application must not have deleted the mapper. The check is here because ASan would not
    // report Qt's access to a deleted mapper: Qt is built without ASan.
    const QPointer<QSignalMapper> sender(m_initializer->findChild<QSignalMapper *>());
    deviceInitialized(type, port->portName());
    if (!sender)
        note(QStringLiteral("the sender was deleted within its signal"));
}

bool DiscoverySubject::probe(const QList<Type> &types, int delay, const QVector<int> &ports)
{
    QStringList names;
    for (const int port : ports)
        names << portName(port);
    const bool started = m_initializer->probe(types, delay, names);
    findProbed();
    return started;
}

void DiscoverySubject::send(int port, const QByteArray &bytes)
{
    m_ports.send(port, bytes);
}

void DiscoverySubject::pull(int port)
{
    m_ports.pull(port);
}

void DiscoverySubject::plug(int port)
{
    m_ports.plug(port);
}

void DiscoverySubject::hold(int port, bool held)
{
    for (const Probed &probed : std::as_const(m_probed)) {
        if (probed.name == portName(port) && probed.guard && probed.port && probed.port->isOpen()
            && stateOf(*m_initializer, probed.guard) != PortState::HandedOver) {
            probed.guard->blockSignals(held);
        }
    }
}

uint DiscoverySubject::setMaxRetries(uint retries)
{
    return m_initializer->setMaxRetries(retries);
}

void DiscoverySubject::deleteInitializer()
{
    delete m_initializer;
}

bool DiscoverySubject::wait(int milliseconds)
{
    const bool cameToRest = m_clock.run(milliseconds);
    findProbed();
    return cameToRest;
}

QStringList DiscoverySubject::states() const
{
    QStringList texts;
    for (const Probed &probed : m_probed) {
        if (isListed(probed))
            texts << QStringLiteral("%1 %2").arg(probed.name, nameOf(stateOf(*m_initializer, probed.comm)));
    }
    return texts;
}

QByteArray DiscoverySubject::takeReceived(int port)
{
    QByteArray taken;
    taken.swap(m_received[port]);
    return taken;
}

bool DiscoverySubject::readPayload(int handOver, QString &payload)
{
    return at(handOver).comm->readPayload(payload);
}

void DiscoverySubject::write(int handOver)
{
    at(handOver).comm->writePayload(QLatin1String(writtenByApplication));
}

void DiscoverySubject::deleteNow(int handOver)
{
    delete at(handOver).comm;
    at(handOver).port->deleteLater();
}

void DiscoverySubject::deleteLater(int handOver)
{
    at(handOver).comm->deleteLater();
    at(handOver).port->deleteLater();
}

void DiscoverySubject::unbind(int handOver)
{
    at(handOver).comm->setIODevice(nullptr);
}

void DiscoverySubject::rebind(int handOver)
{
    auto buffer = std::make_unique<QBuffer>();
    buffer->setData(otherDevice);
    buffer->open(QIODevice::ReadOnly);
    at(handOver).comm->setIODevice(buffer.get());
    at(handOver).otherDevice = std::move(buffer);
}

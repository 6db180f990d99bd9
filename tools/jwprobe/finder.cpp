#include "finder.h"

#include "board.h"
#include "options.h"
#include "portlist.h"
#include "probelog.h"
#include "reply.h"

#include <device/communicator.h>
#include <device/initializer.h>
#include <logger/logger.h>

#include <QSerialPort>
#include <QSerialPortInfo>

#include <algorithm>

namespace JwProbe {

Finder::Finder(const Options &options, QObject *parent)
    : QObject(parent)
    , m_options(options)
    , m_log(std::make_shared<ProbeLog>())
    , m_initializer(std::make_unique<JwDevice::Initializer>())
    , m_open(options.types)
{
    loggerInstance()->addSink(m_log);
    m_initializer->setMaxRetries(options.retries);
    connect(m_initializer.get(), &JwDevice::Initializer::deviceInitialized, this, &Finder::takeBoard);
    connect(m_initializer.get(), &JwDevice::Initializer::deviceNotFound, this, &Finder::takeMissing);
    m_deadline.setSingleShot(true);
    connect(&m_deadline, &QTimer::timeout, this, [this] {
        m_deadlineReached = true;
        finish();
    });
}

Finder::~Finder()
{
    loggerInstance()->removeSink(m_log);
    qDeleteAll(m_boards);
}

void Finder::start()
{
    m_ports = candidatePorts(m_options.ports);
    m_deadline.start(m_options.deadline);
    m_clock.start();
    m_initializer->probe(m_options.types, m_options.delay, m_options.ports);
}

double Finder::milliseconds() const
{
    return static_cast<double>(m_clock.nsecsElapsed()) / 1e6;
}

void Finder::takeBoard(JwDevice::Type type, JwDevice::Communicator *comm)
{
    const double time = milliseconds();
    const QString name = qobject_cast<QSerialPort *>(comm->device())->portName();
    const QStringList payloads = m_log->port(name).payloads;
    const Reply reply = payloads.isEmpty() ? Reply() : readReply(payloads.last());
    m_boards.append(new Board(type, comm, port(name), reply, time));
    m_open.removeAll(type);
    finishWhenDone();
}

void Finder::takeMissing(JwDevice::Type type)
{
    m_open.removeAll(type);
    finishWhenDone();
}

void Finder::finishWhenDone()
{
    // We are in a signal of the Initializer, and perhaps within start().
    if (m_open.isEmpty())
        QMetaObject::invokeMethod(this, &Finder::finish, Qt::QueuedConnection);
}

void Finder::finish()
{
    if (m_isFinished) // the deadline came first
        return;
    m_isFinished = true;
    m_duration = milliseconds();
    m_deadline.stop();
    m_initializer->disconnect(this);
    Q_EMIT finished();
}

SearchResult Finder::result() const
{
    SearchResult result;
    result.wanted = m_options.types;
    result.boards = m_boards;
    result.deadlineReached = m_deadlineReached;
    result.milliseconds = m_duration;
    QList<JwDevice::Type> found;
    for (const JwDevice::Type type : m_options.types)
        (result.board(type) ? found : result.missing).append(type);
    for (const PortIdentity &port : m_ports) {
        const auto isHere = [&port](const Board *board) { return board->port().name == port.name; };
        if (std::none_of(m_boards.begin(), m_boards.end(), isHere))
            result.others.append(diagnose(port, m_log->port(port.name), found));
    }
    return result;
}

PortIdentity Finder::port(const QString &name) const
{
    const auto hasName = [&name](const PortIdentity &port) { return port.name == name; };
    const auto found = std::find_if(m_ports.begin(), m_ports.end(), hasName);
    return found != m_ports.end() ? *found : PortIdentity::of(QSerialPortInfo(name)); // plugged in a moment ago
}

void Finder::closeOthers()
{
    m_initializer.reset();
}

} // namespace JwProbe

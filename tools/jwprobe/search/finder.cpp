#include "finder.h"

#include "board.h"
#include "portlist.h"
#include <jwprobe/app/options.h>
#include <jwprobe/doctor/access.h>

#include <device/communicator.h>
#include <device/initializer.h>
#include <device/portreport.h>
#include <watch/portid.h>

#include <QSerialPort>
#include <QSerialPortInfo>

#include <algorithm>
#include <utility>

using JwDevice::PortReport;

namespace JwProbe {

namespace {

PortReport reportOn(const QString &portName, const QList<PortReport> &reports)
{
    const auto isOnPort = [&portName](const PortReport &report) { return report.portName == portName; };
    const auto found = std::find_if(reports.begin(), reports.end(), isOnPort);
    // There is no report if the cable was pulled just before the search.
    return found != reports.end() ? *found : PortReport();
}

// Makes the diagnosis of a port that the search leaves alone.
Diagnosis refuse(const PortIdentity &port, const Obstacle &obstacle)
{
    PortReport report;
    report.portName = port.name;
    report.errorText = obstacle.summary;
    return {port, report, obstacleState(obstacle.kind), obstacle.summary, obstacle.advice};
}

// Returns the identity of a port that was plugged in after the search had listed the ports.
PortIdentity latePort(const QString &name)
{
    const QSerialPortInfo info(name);
    return PortIdentity::of(info, JwDevice::boardIds({info}).first());
}

} // namespace

Finder::Finder(const Options &options, QObject *parent)
    : QObject(parent)
    , m_options(options)
    , m_initializer(std::make_unique<JwDevice::Initializer>())
    , m_open(options.types)
{
    m_initializer->setMaxRetries(static_cast<uint>(options.retries));
    connect(m_initializer.get(), &JwDevice::Initializer::deviceInitialized, this, &Finder::onBoardFound);
    connect(m_initializer.get(), &JwDevice::Initializer::deviceNotFound, this, &Finder::onBoardMissing);
    m_deadline.setSingleShot(true);
    connect(&m_deadline, &QTimer::timeout, this, [this] {
        m_deadlineReached = true;
        finish();
    });
}

Finder::~Finder()
{
    qDeleteAll(m_boards);
}

void Finder::start()
{
    QStringList names;
    const QList<PortIdentity> candidates = candidatePorts(m_options.portChoice());
    for (const PortIdentity &port : candidates) {
        const auto obstacle = m_options.portChoice().leavesAlone(port) ? findIgnore(port) : std::nullopt;
        if (obstacle) {
            m_refused.append(refuse(port, *obstacle));
        } else {
            m_ports.append(port);
            names.append(port.name);
        }
    }
    m_deadline.start(m_options.deadline);
    m_clock.start();
    if (m_refused.isEmpty() && m_options.id.isEmpty()) {
        m_initializer->probe(m_options.types, m_options.delay, m_options.ports);
    } else if (!names.isEmpty()) {
        m_initializer->probe(m_options.types, m_options.delay, names);
    } else {
        m_open.clear();
        finishWhenDone();
    }
}

double Finder::milliseconds() const
{
    return static_cast<double>(m_clock.nsecsElapsed()) / 1e6;
}

void Finder::onBoardFound(JwDevice::Type type, JwDevice::Communicator *comm)
{
    const double time = milliseconds();
    const QString name = qobject_cast<QSerialPort *>(comm->device())->portName();
    m_boards.append(new Board(comm, port(name), reportOn(name, m_initializer->portReports()), time));
    m_open.removeAll(type);
    finishWhenDone();
}

void Finder::onBoardMissing(JwDevice::Type type)
{
    m_open.removeAll(type);
    finishWhenDone();
}

void Finder::finishWhenDone()
{
    // Finishes later, because this code may run inside a signal of the Initializer or inside start().
    if (m_open.isEmpty())
        QMetaObject::invokeMethod(this, &Finder::finish, Qt::QueuedConnection);
}

void Finder::finish()
{
    if (m_isFinished) // called a second time, for example because the deadline ended the search first
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
    result.choice = m_options.portChoice();
    result.boards = m_boards;
    result.wanted = m_options.types;
    if (m_options.anyType && !m_boards.isEmpty()) {
        const auto isMissing = [&result](JwDevice::Type type) { return !result.board(type); };
        result.wanted.erase(std::remove_if(result.wanted.begin(), result.wanted.end(), isMissing), result.wanted.end());
    }
    result.deadlineReached = m_deadlineReached;
    result.milliseconds = m_duration;
    result.others = m_refused;
    for (const JwDevice::Type type : std::as_const(result.wanted)) {
        if (!result.board(type))
            result.missing.append(type);
    }
    const QList<PortReport> reports = m_initializer->portReports();
    for (const PortIdentity &port : m_ports) {
        const PortReport report = reportOn(port.name, reports);
        if (report.verdict != PortReport::HandedOver)
            result.others.append(diagnose(port, report));
    }
    return result;
}

PortIdentity Finder::port(const QString &name) const
{
    const auto hasName = [&name](const PortIdentity &port) { return port.name == name; };
    const auto found = std::find_if(m_ports.begin(), m_ports.end(), hasName);
    // start() lists the ports just before the Initializer does. A port that appears in between is not in m_ports.
    return found != m_ports.end() ? *found : latePort(name);
}

void Finder::closeOthers()
{
    m_initializer.reset();
}

} // namespace JwProbe

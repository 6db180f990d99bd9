#include "watch.h"

#include "livetable.h"
#include <common/boardtype.h>
#include <jwprobe/app/signalwatch.h>
#include <jwprobe/doctor/holder.h>
#include <jwprobe/output/output.h>
#include <jwprobe/output/outputwatch.h>
#include <jwprobe/search/searchresult.h>

#include <device/boardrules.h>
#include <device/communicator.h>
#include <watch/portid.h>

#include <QCoreApplication>
#include <QSerialPortInfo>

#include <algorithm>

#include <unistd.h>

namespace JwProbe {

namespace {

constexpr int drawInterval = 100; // ms between drawings; boards that talk all the time would keep the terminal busy

QString title(const Options &options)
{
    return QStringLiteral("Watching for %1%2; Ctrl-C ends")
        .arg(JwTools::boardNames(options.types, QStringLiteral("and")),
             options.portChoice().isEmpty()
                 ? QString()
                 : QStringLiteral(" on the ports named by %1").arg(options.portChoice().options()));
}

} // namespace

Watch::Watch(const Options &options)
    : m_options(options)
{
    if (!m_options.json && isLiveTerminal(STDOUT_FILENO, m_options))
        m_table = std::make_unique<LiveTable>(title(m_options));
    m_drawTimer.setSingleShot(true);
    m_drawTimer.setInterval(drawInterval);
    connect(&m_drawTimer, &QTimer::timeout, this, &Watch::draw);
    m_deadline.setSingleShot(true);
    m_deadline.setTimerType(Qt::PreciseTimer);
    connect(&m_deadline, &QTimer::timeout, this, [this] { Q_EMIT ended(exitStatus()); });
    connect(new OutputWatch(this), &OutputWatch::lost, this, [this] { Q_EMIT ended(SomeMissing); });

    m_watch.setTypes(m_options.types);
    m_watch.setMaxRetries(static_cast<uint>(m_options.retries));
    m_watch.setDelay(m_options.delay);
    m_watch.setCandidateRule([this](const QSerialPortInfo &port) { return isWanted(port); });
    connect(&m_watch, &JwDevice::BoardWatch::boardFound, this,
            [this](const JwDevice::Board &board) { onBoardThere(WatchEvent::Found, board); });
    connect(&m_watch, &JwDevice::BoardWatch::boardBack, this,
            [this](const JwDevice::Board &board) { onBoardThere(WatchEvent::Back, board); });
    connect(&m_watch, &JwDevice::BoardWatch::boardLost, this, &Watch::onBoardLost);
    connect(&m_watch, &JwDevice::BoardWatch::portsChanged, this,
            [this] { show(m_refusals.update(m_watch.portReports())); });
}

Watch::~Watch()
{
    if (m_drawTimer.isActive())
        draw();
}

void Watch::start()
{
    if (!m_options.id.isEmpty() && candidatePorts(m_options.portChoice()).isEmpty()) {
        const QStringList lines = noCandidateAdvice(m_options.portChoice());
        complain(lines.join(QLatin1Char(' ')) + QLatin1String(" Waiting for the board."));
    }
    m_clock.start();
    if (m_options.deadline > 0)
        m_deadline.start(m_options.deadline);
    if (m_table)
        drawSoon();
    m_watch.start();
}

bool Watch::isWanted(const QSerialPortInfo &port)
{
    const PortChoice choice = m_options.portChoice();
    if (choice.isEmpty() ? !JwDevice::isCandidate(port) : !choice.contains(port))
        return false;
    m_hadCandidate = true;
    const PortIdentity identity = PortIdentity::of(port, JwDevice::boardIds({port}).first());
    const std::optional<Obstacle> trap = findTrap(identity);
    if (!trap)
        return true;
    if (const std::optional<Refusal> refusal = m_refusals.add(identity, *trap))
        show(QList<Refusal>{*refusal});
    return false;
}

void Watch::onBoardThere(WatchEvent::Kind kind, const JwDevice::Board &board)
{
    m_foundTypes.insert(board.type);
    show({kind, board, {}, {}});
    connect(board.communicator, QOverload<>::of(&JwDevice::Communicator::readyRead), this,
            [this, board] { receive(board); });
}

void Watch::onBoardLost(const JwDevice::Board &board)
{
    const QList<JwDevice::PortReport> reports = m_watch.portReports();
    for (const JwDevice::PortReport &report : reports) {
        if (report.portName == board.portName)
            m_refusals.skip(report);
    }
    show({WatchEvent::Lost, board, {}, {}});
}

void Watch::receive(const JwDevice::Board &board)
{
    QString payload;
    while (board.communicator->readPayload(payload))
        show({WatchEvent::Payload, board, payload.trimmed(), {}});
}

void Watch::show(const QList<Refusal> &refusals)
{
    if (m_table) {
        m_table->setRefusals(m_refusals.all());
        drawSoon();
        return;
    }
    for (const Refusal &refusal : refusals) {
        WatchEvent event{WatchEvent::Refused, {}, refusal.summary, refusal.reason};
        event.board.id = refusal.port.id;
        event.board.portName = refusal.port.name;
        event.board.location = refusal.port.location;
        event.board.serialNumber = refusal.port.serialNumber;
        show(event);
    }
}

void Watch::show(WatchEvent event)
{
    event.milliseconds = static_cast<double>(m_clock.nsecsElapsed()) / 1e6;
    if (m_table) {
        m_table->add(event);
        drawSoon();
    } else if (!print(m_options.json ? jsonText(eventJson(event), QJsonDocument::Compact) : eventLine(event))) {
        Q_EMIT ended(SomeMissing);
    }
}

void Watch::drawSoon()
{
    if (!m_drawTimer.isActive())
        m_drawTimer.start();
}

void Watch::draw()
{
    if (!print(m_table->redrawn(terminalWidth(STDOUT_FILENO), terminalHeight(STDOUT_FILENO))))
        Q_EMIT ended(SomeMissing);
}

int Watch::exitStatus() const
{
    const auto wasFound = [this](JwDevice::Type type) { return m_foundTypes.contains(type); };
    const QList<JwDevice::Type> &types = m_options.types;
    const bool isAll = m_options.anyType ? std::any_of(types.begin(), types.end(), wasFound)
                                         : std::all_of(types.begin(), types.end(), wasFound);
    if (isAll)
        return AllFound;
    return m_hadCandidate ? SomeMissing : NoCandidate;
}

int runWatch(const Options &options)
{
    SignalWatch signalWatch;
    SignalWatch::setExitStatus(AllFound); // success, because users end a watch by a signal
    Watch watch(options);
    QObject::connect(&signalWatch, &SignalWatch::received, &QCoreApplication::exit);
    QObject::connect(&watch, &Watch::ended, &QCoreApplication::exit);
    watch.start();
    return QCoreApplication::exec();
}

} // namespace JwProbe

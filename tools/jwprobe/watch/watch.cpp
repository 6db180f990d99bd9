#include "watch.h"

#include <common/boardtype.h>
#include <jwprobe/app/signalwatch.h>
#include <jwprobe/output/output.h>
#include <jwprobe/output/outputwatch.h>
#include <jwprobe/search/searchresult.h>

#include <device/boardrules.h>
#include <device/communicator.h>

#include <QCoreApplication>
#include <QSerialPortInfo>

#include <algorithm>

#include <unistd.h>

namespace JwProbe {

namespace {

QString title(const Options &options)
{
    return QStringLiteral("Watching for %1%2; Ctrl-C ends")
        .arg(JwTools::boardNames(options.types, QStringLiteral("and")),
             options.portChoice().isEmpty()
                 ? QString()
                 : QStringLiteral(" on the ports named by %1").arg(options.portChoice().options()));
}

std::unique_ptr<LiveTable> makeLiveTable(const Options &options)
{
    if (options.json || !isLiveTerminal(STDOUT_FILENO, options))
        return nullptr;
    return std::make_unique<LiveTable>(title(options));
}

} // namespace

Watch::Watch(const Options &options)
    : m_options(options)
    , m_output(makeLiveTable(options), options.json, [this] { Q_EMIT ended(SomeMissing); })
{
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

void Watch::start()
{
    if (!m_options.id.isEmpty() && candidatePorts(m_options.portChoice()).isEmpty()) {
        const QStringList lines = noCandidateAdvice(m_options.portChoice());
        complain(lines.join(QLatin1Char(' ')) + QLatin1String(" Waiting for the board."));
    }
    m_output.start();
    if (m_options.deadline > 0)
        m_deadline.start(m_options.deadline);
    m_watch.start();
}

bool Watch::isWanted(const QSerialPortInfo &port)
{
    const PortChoice choice = m_options.portChoice();
    if (choice.isEmpty() ? !JwDevice::isCandidate(port) : !choice.contains(port))
        return false;
    m_hadCandidate = true;
    return true;
}

void Watch::onBoardThere(WatchEvent::Kind kind, const JwDevice::Board &board)
{
    m_foundTypes.insert(board.type);
    m_output.show({kind, board, {}, {}});
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
    m_output.show({WatchEvent::Lost, board, {}, {}});
}

void Watch::receive(const JwDevice::Board &board)
{
    QString payload;
    while (board.communicator->readPayload(payload))
        m_output.show({WatchEvent::Payload, board, payload.trimmed(), {}});
}

void Watch::show(const QList<Refusal> &refusals)
{
    if (LiveTable *table = m_output.table()) {
        table->setRefusals(m_refusals.all());
        m_output.drawSoon();
        return;
    }
    for (const Refusal &refusal : refusals) {
        WatchEvent event{WatchEvent::Refused, {}, refusal.summary, refusal.reason};
        event.board.id = refusal.port.id;
        event.board.portName = refusal.port.name;
        event.board.location = refusal.port.location;
        event.board.serialNumber = refusal.port.serialNumber;
        m_output.show(event);
    }
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

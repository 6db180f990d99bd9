#include "fleetview.h"

#include "addressing.h"
#include "fleetsend.h"
#include <common/printable.h>
#include <common/sentenceframe.h>
#include <jwprobe/app/signalwatch.h>
#include <jwprobe/monitor/input.h>
#include <jwprobe/output/outputwatch.h>
#include <jwprobe/search/searchresult.h>

#include <QCoreApplication>

#include <csignal>

#include <unistd.h>

using JwFleet::FleetWatch;
using JwFleet::RemoteBoard;

namespace JwProbe {

namespace {

std::unique_ptr<FleetTable> makeFleetTable(const Options &options)
{
    if (options.json || options.fleet.withPayloads || !isLiveTerminal(STDOUT_FILENO, options))
        return nullptr;
    return std::make_unique<FleetTable>(options.fleet.broker.address.text());
}

} // namespace

FleetView::FleetView(const Options &options)
    : m_options(options)
    , m_output(makeFleetTable(options), options.json, [this] { Q_EMIT ended(SomeMissing); })
    , m_watch(options.fleet.broker, options.fleet.prefix,
              options.fleet.withPayloads ? FleetWatch::WithPayloads : FleetWatch::WithoutPayloads)
{
    m_deadline.setSingleShot(true);
    m_deadline.setTimerType(Qt::PreciseTimer);
    connect(&m_deadline, &QTimer::timeout, this, [this] { Q_EMIT ended(m_wasFound ? AllFound : SomeMissing); });
    connect(new OutputWatch(this), &OutputWatch::lost, this, [this] { Q_EMIT ended(SomeMissing); });
    connectWatch();
}

void FleetView::connectWatch()
{
    connect(&m_watch, &FleetWatch::connected, this, [this] { onFailed(QString()); });
    connect(&m_watch, &FleetWatch::failed, this, &FleetView::onFailed);
    connect(&m_watch, &FleetWatch::subscriptionRefused, this, [](const QByteArray &filter, const QString &reason) {
        complain(
            QStringLiteral("the broker does not let this user read %1: %2").arg(QString::fromUtf8(filter), reason));
    });
    connect(&m_watch, &FleetWatch::machineChanged, this, &FleetView::onMachine);
    connect(&m_watch, &FleetWatch::boardFound, this,
            [this](const RemoteBoard &board) { onBoard(FleetEvent::Found, board); });
    connect(&m_watch, &FleetWatch::boardLost, this,
            [this](const RemoteBoard &board) { onBoard(FleetEvent::Lost, board); });
    connect(&m_watch, &FleetWatch::boardBack, this,
            [this](const RemoteBoard &board) { onBoard(FleetEvent::Back, board); });
    connect(&m_watch, &FleetWatch::boardForgotten, this,
            [this](const RemoteBoard &board) { onBoard(FleetEvent::Forgotten, board); });
    connect(&m_watch, &FleetWatch::payloadReceived, this, &FleetView::onPayload);
    connect(&m_watch, &FleetWatch::portsChanged, this, &FleetView::onPorts);
    connect(&m_watch, &FleetWatch::sendFinished, this,
            [this](int number, qint64, const QString &error) { onSent(number, error); });
}

void FleetView::start()
{
    m_output.start();
    if (m_options.deadline > 0)
        m_deadline.start(m_options.deadline);
    if (m_options.fleet.withPayloads) {
        if (::isatty(STDERR_FILENO) != 0)
            complain(QStringLiteral("type \"ID: PJWVER\" to send a sentence to a board; Ctrl-C ends"));
        m_input = new Input(STDIN_FILENO, this);
        m_input->setPaused(true); // until the boards are known
        connect(&m_watch, &FleetWatch::settled, this, [this] { m_input->setPaused(!m_sent.isEmpty()); });
        connect(m_input, &Input::line, this, &FleetView::send);
        connect(m_input, &Input::tooLong, this, [](int bytes) {
            complain(QStringLiteral("not sent: %1 characters came without a line end").arg(bytes));
        });
    }
    m_watch.start();
}

void FleetView::onFailed(const QString &reason)
{
    if (reason == m_failure)
        return;
    m_failure = reason;
    if (FleetTable *table = m_output.table()) {
        table->setFailure(reason);
        m_output.drawSoon();
    } else if (!reason.isEmpty()) {
        complain(
            QStringLiteral("no connection to %1: %2. Trying again").arg(m_options.fleet.broker.address.text(), reason));
    }
}

void FleetView::onMachine(const JwFleet::Machine &machine)
{
    FleetEvent event{machine.state == JwFleet::Machine::Online ? FleetEvent::Online : FleetEvent::Offline, {}, {}, {}};
    event.board.host = machine.host;
    event.reason = machine.state == JwFleet::Machine::NoNews ? QStringLiteral("noNews") : QStringLiteral("bridgeAway");
    m_output.show(event);
}

void FleetView::onBoard(FleetEvent::Kind kind, const RemoteBoard &board)
{
    if (!isWanted(board, m_options))
        return;
    m_wasFound = m_wasFound || board.isThere();
    m_output.show({kind, board, {}, {}});
}

void FleetView::onPayload(const RemoteBoard &board, qint64 time, qint64 seq, const QString &text)
{
    if (!isWanted(board, m_options))
        return;
    FleetEvent event{FleetEvent::Payload, board, text, {}};
    event.seq = seq;
    event.time = QDateTime::fromMSecsSinceEpoch(time / 1000);
    m_output.show(event);
}

// Shows the ports on which no board was found. Shows a reason again only if it is new.
void FleetView::onPorts(const QString &host)
{
    QMap<QString, QString> reasons;
    QList<JwFleet::RemotePort> refused;
    const QList<JwFleet::RemotePort> ports = m_watch.ports(host);
    for (const JwFleet::RemotePort &port : ports) {
        if (!port.isRefused() || !m_options.id.isEmpty())
            continue;
        refused.append(port);
        reasons.insert(port.portName, port.state + port.summary);
        if (m_refusals.value(host).value(port.portName) == reasons.value(port.portName))
            continue;
        FleetEvent event{FleetEvent::Refused, {}, port.summary, port.state};
        event.board.host = host;
        event.board.portName = port.portName;
        m_output.show(event);
    }
    m_refusals.insert(host, reasons);
    if (FleetTable *table = m_output.table()) {
        table->setRefusals(host, refused);
        m_output.drawSoon();
    }
}

// Sends a typed line such as "SIM1:1.0: PJWVER". A sentence has no ":" before its first ",", so the last such ":" ends
// the name of the board.
void FleetView::send(const QString &line)
{
    if (line.trimmed().isEmpty())
        return;
    const auto colon = line.section(QLatin1Char(','), 0, 0).lastIndexOf(QLatin1Char(':'));
    const JwTools::SentenceFrame frame(line.mid(colon + 1).trimmed());
    QString error = frame.fault();
    if (colon < 0)
        error = QStringLiteral("begin the line with the id of a board, for example \"SIM1:1.0: PJWVER\"");
    if (error.isEmpty()) {
        const auto board = boardNamed(line.left(colon).trimmed(), m_watch.boards(), &error);
        const int number = board ? m_watch.send(board->host, board->id, frame.sentence()) : 0;
        if (number > 0) {
            FleetEvent event{FleetEvent::Payload, *board, frame.sentence().trimmed(), {}};
            event.isReceived = false;
            m_sent.insert(number, event);
        } else if (error.isEmpty()) {
            error = QStringLiteral("there is no connection to the broker");
        }
    }
    if (!error.isEmpty())
        complain(QStringLiteral("not sent: %1").arg(error));
    m_input->setPaused(!m_sent.isEmpty());
}

void FleetView::onSent(int number, const QString &error)
{
    const FleetEvent event = m_sent.take(number);
    m_input->setPaused(!m_sent.isEmpty());
    if (error.isEmpty())
        m_output.show(event);
    else
        complain(QStringLiteral("not sent: %1").arg(JwTools::printable(error)));
}

int runFleet(const Options &options)
{
    std::signal(SIGPIPE, SIG_IGN); // libmosquitto and OpenSSL write to sockets that the broker may have closed
    SignalWatch signalWatch;
    QObject::connect(&signalWatch, &SignalWatch::received, &QCoreApplication::exit);
    if (!options.fleet.line.isEmpty()) {
        FleetSend send(options);
        QObject::connect(&send, &FleetSend::ended, &QCoreApplication::exit);
        send.start();
        return QCoreApplication::exec();
    }
    SignalWatch::setExitStatus(AllFound); // success, because users end the view by a signal
    FleetView view(options);
    QObject::connect(&view, &FleetView::ended, &QCoreApplication::exit);
    view.start();
    return QCoreApplication::exec();
}

} // namespace JwProbe

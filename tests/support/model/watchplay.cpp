#include "watchplay.h"

#include <device/communicator.h>
#include <simulator/boardkind.h>
#include <simulator/wire.h>

#include <QScopedValueRollback>

#include <algorithm>
#include <utility>
#include <unistd.h>

using JwDevice::Board;
using JwDevice::BoardWatch;
using JwDevice::Communicator;
using JwDevice::PortEvent;
using JwDevice::PortReport;
using JwDevice::Type;
using ScheduledBoard = WatchSchedule::Board;

namespace {

const char sentenceOfNoType[] = "PJWVER,7300099,1,4,0";
const char unreadable[] = "$GPXXX,1*00\r\n";

Type typeOf(const ScheduledBoard &board)
{
    return board.kind <= ScheduledBoard::BoardC ? static_cast<Type>(board.kind + 1) : JwDevice::Unknown;
}

QByteArray replyOf(const ScheduledBoard &board)
{
    if (board.kind > ScheduledBoard::BoardC)
        return JwSimulator::frameSentence(sentenceOfNoType);
    const JwSimulator::BoardKind &kind = JwSimulator::boardKinds[board.kind];
    return JwSimulator::frameSentence(QByteArray(kind.reply).replace("%1", kind.hwversion));
}

} // namespace

WatchPlay::WatchPlay(const WatchSchedule &schedule, WatchPorts &ports, VirtualClock &clock)
    : m_schedule(schedule)
    , m_ports(ports)
    , m_clock(clock)
    , m_begin(clock.now())
    , m_model({[this] { return m_clock.now() - m_begin; }, [this](const QString &name) { return isOpenByWatch(name); }})
    , m_lines(static_cast<size_t>(schedule.boards.size()))
{
    m_clock.setOutside({[this] { return m_answers.empty() ? -1 : m_answers.front().due; }, [this] { sendAnswer(); }});
    configure();
    makeWatch();
}

WatchPlay::~WatchPlay()
{
    m_clock.setOutside({});
    m_watch.reset();
    for (int board = 0; board < m_schedule.boards.size(); ++board)
        pull(board);
    m_clock.run(100); // runs the deletions that deleteLater() asked for
}

void WatchPlay::note(const QString &text)
{
    m_trace.append(QStringLiteral("%1%2 ms %3")
                       .arg(QString(2 * m_depth, QLatin1Char(' ')))
                       .arg(m_clock.now() - m_begin)
                       .arg(text));
    static const bool isShown = qEnvironmentVariableIsSet("JWDEVICE_MODEL_TRACE");
    if (isShown)
        qInfo("%s", qPrintable(m_trace.last()));
}

QString WatchPlay::run()
{
    performSteps(m_schedule.steps.size());
    return m_cameToRest ? m_model.fault() : QStringLiteral("the event loop does not come to rest");
}

void WatchPlay::performSteps(qsizetype most)
{
    while (most-- > 0) {
        if (m_nextStep >= m_schedule.steps.size() || !m_model.fault().isEmpty())
            return;
        const Step &step = m_schedule.steps[m_nextStep++];
        perform(step);
        if (!step.withNext || most == 0 || m_nextStep == m_schedule.steps.size())
            settle(step.action == Step::Wait ? step.number : 0);
    }
}

void WatchPlay::settle(int milliseconds)
{
    ++m_depth;
    const QScopedValueRollback<bool> isInLoop(m_isCalling, false);
    m_model.loopBegins();
    for (Line &line : m_lines)
        line.isNew = false;
    m_cameToRest = m_clock.run(0) && m_cameToRest;
    // Time may pass only now: run(0) has handled everything that was due without a wait.
    m_cameToRest = (milliseconds == 0 || m_clock.run(milliseconds)) && m_cameToRest;
    for (const Line &line : m_lines) {
        if (!line.usb.name.isEmpty() && !isOpenByWatch(line.usb.name))
            m_ports.dropUnread(line.usb.name);
    }
    if (m_watch && picture() != m_picture)
        m_model.broke(QStringLiteral("portsChanged() was not emitted after %1, now %2").arg(m_picture, picture()));
    if (m_watch)
        m_model.idle(m_depth, m_watch->boards(), m_watch->portReports());
    else
        m_model.idle(m_depth, {}, {});
    --m_depth;
}

void WatchPlay::perform(const Step &step)
{
    note(QStringLiteral("step %1").arg(m_nextStep));
    switch (step.action) {
    case Step::Wait:
        break;
    case Step::Plug:
    case Step::PlugLate:
        plug(step);
        break;
    case Step::Configure:
        ++m_configurations;
        configure();
        break;
    default:
        act(step.action, step.board, line(step.board).id);
    }
}

void WatchPlay::act(Step::Action action, int board, const QString &id)
{
    const QScopedValueRollback<bool> isCalling(m_isCalling, true);
    Line &line = this->line(board);
    const QString name = line.usb.name;
    const bool isPlugged = !name.isEmpty();
    switch (action) {
    case Step::Pull: {
        const int device = line.usb.device;
        for (int other = 0; isPlugged && other < m_schedule.boards.size(); ++other) {
            if (this->line(other).usb.device == device)
                pull(other);
        }
        return;
    }
    case Step::PullPort:
        pull(board);
        return;
    case Step::Permit:
        if (!isPlugged || line.hasPermission)
            return;
        line.hasPermission = true;
        m_ports.permit(name);
        setCanOpen(board);
        m_model.changed(name);
        m_ports.change(name);
        return;
    case Step::Change:
        if (!isPlugged)
            return;
        m_model.changed(name);
        m_ports.change(name);
        return;
    case Step::Occupy:
        if (!isPlugged || !line.hasPermission || m_ports.isOpen(name))
            return;
        line.otherProgram = std::make_unique<QSerialPort>(name);
        line.otherProgram->open(QIODevice::WriteOnly);
        setCanOpen(board);
        return;
    case Step::Vacate:
        if (!line.otherProgram)
            return;
        line.otherProgram.reset();
        setCanOpen(board);
        m_model.freed(name);
        return;
    case Step::Mute:
    case Step::Unmute:
        line.isMuted = action == Step::Mute;
        return;
    case Step::Say:
        send(board, false);
        return;
    case Step::DeleteWatch:
        m_model.watchDeleted();
        m_watch.reset();
        return;
    case Step::Start:
        if (!m_watch)
            makeWatch();
        m_model.start(m_settings);
        m_watch->start();
        return;
    default:
        break;
    }
    if (!m_watch)
        return;
    Communicator *const found = communicator(id);
    switch (action) {
    case Step::Stop:
        if (m_watch->isStarted())
            m_model.stop(m_depth);
        m_watch->stop();
        break;
    case Step::Lend:
    case Step::LendUntilPlugged: {
        const auto lending = action == Step::Lend ? BoardWatch::UntilTakenBack : BoardWatch::UntilPluggedAgain;
        const int expected = m_model.lend(id, lending, m_depth);
        const bool result = m_watch->lend(id, lending);
        note(QStringLiteral("lend(%1) returns %2").arg(id).arg(result));
        if (expected < 0 && result)
            m_model.lent(id, lending);
        else if (expected >= 0 && expected != result)
            m_model.broke(QStringLiteral("lend(%1) returns %2").arg(id).arg(result));
        break;
    }
    case Step::TakeBack: {
        const int expected = m_model.takeBack(id);
        const bool result = m_watch->takeBack(id);
        note(QStringLiteral("takeBack(%1) returns %2").arg(id).arg(result));
        if (expected >= 0 && expected != result)
            m_model.broke(QStringLiteral("takeBack(%1) returns %2").arg(id).arg(result));
        break;
    }
    case Step::LookAgain:
        m_model.lookAgain();
        m_watch->lookAgain();
        break;
    case Step::CheckBoards:
        m_model.checkBoards();
        m_watch->checkBoards();
        break;
    case Step::Delete:
    case Step::DeleteLater:
    case Step::DeletePort:
        if (!found)
            break;
        m_model.communicatorDeleted(id, m_depth);
        if (action == Step::Delete)
            delete found;
        else if (action == Step::DeleteLater)
            found->deleteLater();
        else
            found->device()->deleteLater();
        break;
    default:
        break;
    }
}

Communicator *WatchPlay::communicator(const QString &id) const
{
    const QList<Board> boards = m_watch->boards();
    for (const Board &board : boards) {
        if (board.id == id)
            return board.communicator;
    }
    return nullptr;
}

// The watch

void WatchPlay::makeWatch()
{
    m_watch = std::make_unique<BoardWatch>();
    configure();
    m_picture = picture();
    connect(m_watch.get(), &BoardWatch::portsChanged, this, [this] { m_picture = picture(); });
    connect(m_watch.get(), &BoardWatch::boardFound, this, [this](const Board &board) { onSignal("found", board); });
    connect(m_watch.get(), &BoardWatch::boardBack, this, [this](const Board &board) { onSignal("back", board); });
    connect(m_watch.get(), &BoardWatch::boardLost, this, [this](const Board &board) { onSignal("lost", board); });
}

/// Returns a text of the boards and reports, as a window would show them. Each change of it needs a portsChanged().
QString WatchPlay::picture() const
{
    QStringList texts;
    const QList<Board> boards = m_watch->boards();
    for (const Board &board : boards)
        texts << board.id + (board.sharesSerialNumber ? QStringLiteral(" shared") : QString());
    const QList<PortReport> reports = m_watch->portReports();
    for (const PortReport &report : reports)
        texts << QStringLiteral("%1 %2 %3").arg(report.portName, verdictName(report.verdict), report.errorText);
    return texts.join(QLatin1String(", "));
}

void WatchPlay::configure()
{
    m_settings = m_schedule.settings.value(m_configurations);
    if (!m_watch)
        return;
    m_watch->setTypes(m_settings.types);
    m_watch->setMaxRetries(static_cast<uint>(m_settings.maxRetries));
    m_watch->setDelay(m_settings.delay);
    m_watch->setCheckInterval(m_settings.checkInterval);
    QStringList excluded = m_settings.excluded;
    for (const int name : std::as_const(m_settings.excludedNames))
        excluded << (name % 2 == 0 ? WatchPorts::name(name) : QStringLiteral("/dev/") + WatchPorts::name(name));
    m_watch->setNeverOpened(excluded);
    m_watch->setPortObserver([this](const PortEvent &event) { onEvent(event); });
}

void WatchPlay::onEvent(const PortEvent &event)
{
    if (event.kind == PortEvent::Opened) {
        note(QStringLiteral("%1 opened").arg(event.portName));
        m_model.opened(event.portName);
    } else if (event.kind == PortEvent::NotOpened) {
        note(QStringLiteral("%1 not opened: %2").arg(event.portName, event.text));
        // The preload library can track only few ports. A failed open() uses one of its entries; this call frees it.
        ::close(-1);
        m_model.notOpened(event.portName);
    }
}

void WatchPlay::onSignal(const char *name, const Board &board)
{
    note(QStringLiteral("%1 %2 on %3, %4").arg(QLatin1String(name), board.id, board.portName, lossName(board.loss)));
    if (board.loss == Board::NotLost)
        m_model.found(board, qstrcmp(name, "back") == 0);
    else
        m_model.lost(board);
    for (Line &line : m_lines) {
        if (line.usb.name == board.portName)
            line.id = board.id;
    }
    if (board.loss == Board::NotLost) {
        connect(board.communicator, qOverload<>(&Communicator::readyRead), this,
                [this, id = board.id, port = board.portName] { onPayload(id, port); });
    }
    react(m_schedule.reactions.value(m_signals++), board.id, board.portName);
}

void WatchPlay::onPayload(const QString &id, const QString &name)
{
    note(QStringLiteral("a payload of %1").arg(id));
    m_model.readBegins(id);
    react(m_schedule.readReactions.value(m_payloads++), id, name);
    m_model.readEnds(id);
}

void WatchPlay::react(const WatchSchedule::Reaction &reaction, const QString &id, const QString &name)
{
    if (!m_model.fault().isEmpty())
        return;
    int board = reaction.board;
    for (int i = 0; reaction.onSameBoard && i < m_schedule.boards.size(); ++i) {
        if (line(i).usb.name == name)
            board = i;
    }
    if (reaction.action != Step::Wait) {
        note(QStringLiteral("reacts"));
        act(reaction.action, board, reaction.onSameBoard ? id : line(board).id);
    }
    performSteps(reaction.nestedSteps);
    // If the event loop emitted the signal, it continues after this slot. For the model, that is like a new start of
    // the loop. But for example, stop() emits boardLost() itself, and the application may do more before the loop runs.
    if (!m_isCalling)
        m_model.loopBegins();
}

// The boards

void WatchPlay::plug(const Step &step)
{
    Line &line = this->line(step.board);
    const ScheduledBoard &scheduled = m_schedule.boards[step.board];
    UsbPort usb;
    usb.name = WatchPorts::name(step.name);
    usb.device = step.number;
    usb.interface = scheduled.interface;
    usb.serial = scheduled.serial;
    usb.isCandidate = scheduled.isCandidate;
    usb.isIgnored = scheduled.isIgnored;
    const bool isTaken = std::any_of(m_lines.begin(), m_lines.end(), [&usb](const Line &other) {
        return other.usb.name == usb.name || (!other.usb.name.isEmpty() && other.usb.place() == usb.place());
    });
    if (isTaken || !line.usb.name.isEmpty())
        return;
    line.usb = usb;
    line.isNew = true;
    line.ignores = scheduled.ignores;
    line.hasPermission = step.action == Step::Plug;
    m_ports.plug(usb, line.hasPermission);
    m_model.plugged(usb, line.hasPermission);
    line.readable = std::make_unique<QSocketNotifier>(m_ports.descriptor(usb.name), QSocketNotifier::Read);
    connect(line.readable.get(), &QSocketNotifier::activated, this, [this, board = step.board] { onReadable(board); });
}

void WatchPlay::pull(int board)
{
    Line &line = this->line(board);
    if (line.usb.name.isEmpty())
        return;
    line.readable.reset();
    line.otherProgram.reset();
    m_model.pulled(line.usb.name);
    m_ports.pull(line.usb.name);
    line.usb = UsbPort();
    line.usb.device = -1;
    line.received.clear();
    const auto isOfBoard = [board](const Answer &answer) { return answer.board == board; };
    m_answers.erase(std::remove_if(m_answers.begin(), m_answers.end(), isOfBoard), m_answers.end());
}

void WatchPlay::setCanOpen(int board)
{
    const Line &line = this->line(board);
    if (!line.usb.name.isEmpty())
        m_model.setCanOpen(line.usb.name, line.hasPermission && !line.otherProgram);
}

bool WatchPlay::isOpenByWatch(const QString &name) const
{
    const bool isOther = std::any_of(m_lines.begin(), m_lines.end(),
                                     [&name](const Line &line) { return line.usb.name == name && line.otherProgram; });
    return !isOther && m_ports.isOpen(name);
}

void WatchPlay::onReadable(int board)
{
    Line &line = this->line(board);
    char bytes[1000];
    const ssize_t count = ::read(m_ports.descriptor(line.usb.name), bytes, sizeof bytes);
    if (count <= 0)
        return;
    line.received.append(bytes, static_cast<int>(count));
    const ScheduledBoard &scheduled = m_schedule.boards[board];
    for (auto end = line.received.indexOf('\n'); end >= 0; end = line.received.indexOf('\n')) {
        const QByteArray body = JwSimulator::sentenceBody(line.received.left(end + 1));
        line.received.remove(0, end + 1);
        const bool isC = body == JwSimulator::boardKinds[ScheduledBoard::BoardC].query;
        note(QStringLiteral("%1 is asked %2").arg(line.usb.name, QString::fromLatin1(body)));
        m_model.asked(line.usb.name, isC ? JwDevice::BoardC : JwDevice::BoardA);
        const bool isOwn =
            isC == (scheduled.kind == ScheduledBoard::BoardC) && scheduled.kind != ScheduledBoard::Silent;
        if (!isOwn || line.isMuted || line.ignores-- > 0)
            continue;
        const Answer answer = {m_clock.now() + scheduled.delay, board, line.usb.name};
        const auto isLater = [&answer](const Answer &other) { return other.due > answer.due; };
        m_answers.insert(std::find_if(m_answers.begin(), m_answers.end(), isLater), answer);
    }
}

/// Sends one answer only, so that the watch handles it before the next answer comes.
void WatchPlay::sendAnswer()
{
    const Answer answer = m_answers.front();
    m_answers.pop_front();
    send(answer.board, true);
}

/// Sends the board's answer (isAsked), or a sentence that nobody asked for. Sends nothing while the watch does not have
/// the port open, because a real system then drops the bytes.
void WatchPlay::send(int board, bool isAsked)
{
    const QString &name = line(board).usb.name;
    // A new port is not open yet. isOpenByWatch() can be wrong about it, because the watch may still have a pulled port
    // of the same name open.
    if (name.isEmpty() || line(board).isNew || !isOpenByWatch(name))
        return;
    const ScheduledBoard &scheduled = m_schedule.boards[board];
    if (isAsked && scheduled.kind == ScheduledBoard::Babble) {
        note(QStringLiteral("%1 babbles").arg(name));
        m_model.babbled(name);
        m_ports.send(name, unreadable);
    } else {
        note(QStringLiteral("%1 %2").arg(name, isAsked ? QStringLiteral("answers") : QStringLiteral("says something")));
        m_model.answered(name, isAsked ? typeOf(scheduled) : JwDevice::Unknown);
        m_ports.send(name, isAsked ? replyOf(scheduled) : JwSimulator::frameSentence(sentenceOfNoType));
    }
}

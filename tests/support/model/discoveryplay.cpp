#include "discoveryplay.h"

#include <QDebug>

#include <algorithm>
#include <utility>

using Step = DiscoverySchedule::Step;
using OnInitialized = DiscoverySchedule::OnInitialized;
using OnNotFound = DiscoverySchedule::OnNotFound;

namespace {

constexpr int mostSent = 4000; // largest number of bytes that one board may send in a schedule

QString nameOf(JwDevice::Type type)
{
    static const char *const names[] = {"Unknown", "BoardA", "BoardB", "BoardC"};
    return QLatin1String(names[type]);
}

} // namespace

const QStringList &DiscoveryPlay::run()
{
    performSteps(m_schedule.steps.size());
    note(QStringLiteral("step: the end"));
    if (hasInitializer())
        deleteInitializer();
    settle();
    for (int handOver = 0; handOver < m_handOvers; ++handOver)
        readAll(handOver);
    return m_trace;
}

void DiscoveryPlay::performSteps(qsizetype most)
{
    for (; most > 0 && m_nextStep < m_schedule.steps.size(); --most) {
        note(QStringLiteral("step %1").arg(m_nextStep));
        perform(m_schedule.steps[m_nextStep++]);
    }
}

void DiscoveryPlay::perform(const Step &step)
{
    const bool hasPort = step.port < m_schedule.ports;
    switch (step.action) {
    case Step::Probe:
        if (hasInitializer() && m_depth == 0)
            note(QStringLiteral("probe returns %1").arg(probe(step.types, step.number, step.ports)));
        break;
    case Step::Wait:
        settle(step.number);
        return;
    case Step::Send:
    case Step::SendWithNext:
        if (hasPort && countSent(step.port, step.bytes))
            send(step.port, step.bytes);
        if (step.action == Step::SendWithNext)
            return;
        break;
    case Step::Pull:
        settle();
        m_pieces[step.port].clear();
        if (hasPort)
            pull(step.port);
        break;
    case Step::PullWithNext:
        m_pieces[step.port].clear();
        if (hasPort)
            pull(step.port);
        return;
    case Step::Plug:
        if (hasPort)
            plug(step.port);
        break;
    case Step::Hold:
    case Step::Release:
        if (hasPort && hasInitializer())
            hold(step.port, step.action == Step::Hold);
        break;
    case Step::SetMaxRetries:
        if (hasInitializer()) {
            m_maxRetries = static_cast<uint>(step.number);
            note(QStringLiteral("setMaxRetries returns %1").arg(setMaxRetries(m_maxRetries)));
        }
        break;
    case Step::Destroy:
        if (hasInitializer() && m_depth == 0)
            deleteInitializer();
        break;
    }
    settle();
}

void DiscoveryPlay::settle(int milliseconds)
{
    if (!wait(milliseconds))
        note(QStringLiteral("does not come to rest"));
    for (const QString &state : states())
        note(state);
    for (int port = 0; port < m_schedule.ports; ++port) {
        const QByteArray received = takeReceived(port);
        if (!received.isEmpty())
            note(QStringLiteral("board %1 received %2")
                     .arg(port)
                     .arg(QString::fromLatin1(received.toPercentEncoding("$,*"))));
    }
    if (m_depth == 0)
        checkPromises();
}

void DiscoveryPlay::nest(int steps)
{
    if (steps == 0)
        return;
    ++m_depth;
    note(QStringLiteral("nested"));
    performSteps(steps);
    note(QStringLiteral("end of nested"));
    --m_depth;
}

void DiscoveryPlay::noteLog(int level, const char *category, const char *file, const QString &text)
{
    for (int port = 0; port < m_schedule.ports; ++port) {
        if (text == QStringLiteral("Serial port opened for probing:  \"%1\"").arg(portName(port)))
            ++m_opened[port];
    }
    note(QStringLiteral("%1 [%2] %3 %4")
             .arg(QString::number(level), QLatin1String(category), QLatin1String(file), text));
}

void DiscoveryPlay::deviceInitialized(JwDevice::Type type, const QString &port)
{
    const int handOver = m_handOvers++;
    note(QStringLiteral("deviceInitialized %1 %2").arg(nameOf(type), port));
    const OnInitialized reaction = m_schedule.onInitialized.value(handOver);
    switch (reaction.action) {
    case OnInitialized::Read:
        readAll(handOver);
        break;
    case OnInitialized::Write:
        write(handOver);
        break;
    case OnInitialized::Delete:
        deleteNow(handOver);
        break;
    case OnInitialized::DeleteLater:
        deleteLater(handOver);
        break;
    case OnInitialized::Unbind:
        unbind(handOver);
        break;
    case OnInitialized::Rebind:
        rebind(handOver);
        break;
    case OnInitialized::DeleteInitializerLater:
        deleteInitializerLater();
        break;
    default:
        break;
    }
    nest(reaction.nestedSteps);
    note(QStringLiteral("receiver returns"));
}

void DiscoveryPlay::deviceNotFound(JwDevice::Type type)
{
    note(QStringLiteral("deviceNotFound %1").arg(nameOf(type)));
    const OnNotFound reaction = m_schedule.onNotFound.value(m_notFound++);
    nest(reaction.nestedSteps);
    if (hasInitializer() && reaction.action == OnNotFound::RaiseMaxRetries)
        setMaxRetries(++m_maxRetries);
    else if (hasInitializer() && reaction.action == OnNotFound::DeleteInitializer)
        deleteInitializer();
    note(QStringLiteral("receiver returns"));
}

void DiscoveryPlay::answer(int port)
{
    const DiscoverySchedule::Answer answer = m_schedule.answers.value(port).value(m_answered[port]++);
    const QByteArray bytes = bytesOf(answer);
    if (answer.isEmpty() || !countSent(port, bytes))
        return;
    std::deque<Piece> &pieces = m_pieces[port];
    const bool first = pieces.empty();
    qint64 due = first ? now() : pieces.back().due;
    for (const DiscoverySchedule::Piece &piece : answer) {
        due = std::max(due, now()) + piece.after;
        pieces.push_back({piece.bytes, due, QByteArray()});
    }
    if (m_schedule.sendsWholeSentences(port))
        pieces.back().ends = bytes;
    if (first && pieces.front().due <= now())
        sendNext(port);
}

qint64 DiscoveryPlay::nextPieceDue() const
{
    qint64 due = -1;
    for (const std::deque<Piece> &pieces : m_pieces) {
        if (!pieces.empty() && (due < 0 || pieces.front().due < due))
            due = pieces.front().due;
    }
    return due;
}

void DiscoveryPlay::sendPieces()
{
    DiscoverySchedule::Turn turn;
    if (!m_schedule.turns.isEmpty())
        turn = m_schedule.turns[m_turns++ % m_schedule.turns.size()];
    for (int i = 0; i < turn.pieces; ++i) {
        QVector<int> ports;
        for (int port = 0; port < m_schedule.ports; ++port) {
            if (!m_pieces[port].empty() && m_pieces[port].front().due <= now())
                ports.append(port);
        }
        if (ports.isEmpty())
            return;
        sendNext(ports[(turn.first + i) % ports.size()]);
    }
}

void DiscoveryPlay::sendNext(int port)
{
    const Piece piece = m_pieces[port].front();
    m_pieces[port].pop_front();
    if (m_begun[port] < 0)
        m_begun[port] = m_opened[port];
    send(port, piece.bytes);
    if (piece.ends.isEmpty())
        return;
    // Expect the sentence only if the port is still open and was not opened again after the sentence began. A port that
    // was opened again receives only the rest of the sentence.
    if (isListening(port) && m_begun[port] == m_opened[port])
        m_promises.push_back({port, piece.ends, m_trace.size()});
    m_begun[port] = -1;
}

/// Checks that the sentences in m_promises arrived. Call it when no event is left, because only then every listening
/// Communicator has read all bytes.
void DiscoveryPlay::checkPromises()
{
    const std::vector<Promise> promises = std::move(m_promises);
    m_promises.clear();
    for (const Promise &promise : promises) {
        if (!isListening(promise.port))
            continue;
        QString payload;
        QDebug(&payload).nospace() << QString::fromLatin1(promise.sentence).trimmed();
        payload.prepend(QLatin1String("[Communication] communicator.cpp  <-  "));
        // Find the sentence in the trace. Another port may receive the same sentence, so also check that the next entry
        // of the trace names this port. If the port is handed over, the next entry names no port.
        const auto isOfThePort = [&](QStringList::size_type at) {
            const QString read = m_trace.value(at + 1);
            return m_trace[at].endsWith(payload)
                && (!read.contains(QLatin1String("Read succes on port"))
                    || read.endsWith(QStringLiteral("\"%1\"").arg(portName(promise.port))));
        };
        auto at = promise.from;
        while (at < m_trace.size() && !isOfThePort(at))
            ++at;
        if (at == m_trace.size())
            m_spoilt.append(QStringLiteral("port %1: %2").arg(QString::number(promise.port), payload));
    }
}

/// Adds the size of `bytes` to the number of bytes that the board has sent. Returns false if this number is too large:
/// the kernel keeps unread bytes only up to a limit.
bool DiscoveryPlay::countSent(int port, const QByteArray &bytes)
{
    m_sent[port] += bytes.size();
    return m_sent[port] <= mostSent;
}

void DiscoveryPlay::readAll(int handOver)
{
    QString payload;
    while (isAlive(handOver) && readPayload(handOver, payload))
        note(QStringLiteral("application reads %1").arg(payload.trimmed()));
}

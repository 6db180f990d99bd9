#include "discoveryschedule.h"

#include "randomchoice.h"
#include "shrink.h"

#include <simulator/wire.h>

#include <QDebug>
#include <QStringList>

#include <algorithm>
#include <utility>
#include <unistd.h>

using Answer = DiscoverySchedule::Answer;
using Step = DiscoverySchedule::Step;
using Turn = DiscoverySchedule::Turn;
using OnInitialized = DiscoverySchedule::OnInitialized;
using OnNotFound = DiscoverySchedule::OnNotFound;
using JwDevice::Type;

namespace {

// If the receive buffer contains too many bytes, it drops the oldest. At least this many of the newest bytes always
// stay.
constexpr int longestThatAlwaysStays = 50;

/// Returns whether `bytes` is a whole sentence that always arrives unchanged, whatever other boards send.
bool isWholeSentence(const QByteArray &bytes)
{
    return bytes.startsWith('$') && bytes.endsWith("\r\n") && bytes.size() <= longestThatAlwaysStays
        && bytes.count('$') == 1 && bytes.count('\n') == 1 && !bytes.contains('\0');
}

class Generator : RandomChoice
{
public:
    explicit Generator(quint32 seed)
        : RandomChoice(seed)
    {
    }

    DiscoverySchedule schedule()
    {
        m_schedule.ports = oneOf<int>({1, 1, 2, 2, 2, 2, 3, 3, 3, 4, 4, 5, 6, 7, 8});
        const bool orderly = chance(30); // if true, most replies are good, so that the probe often finds all boards
        if (orderly)
            m_wholeSentences = between(0, m_schedule.ports);
        m_onlyPieces = chance(30);
        m_oneText = chance(20);
        for (int port = 0; port < m_schedule.ports; ++port)
            m_schedule.answers.append(answers(port < m_wholeSentences ? 100 : orderly ? 80 : 40));
        for (int i = between(0, 6); i > 0; --i)
            m_schedule.turns.append({between(0, DiscoverySchedule::mostPorts - 1), chance(60) ? 1 : between(2, 5)});
        if (chance(30))
            m_schedule.steps.append(setMaxRetries());
        if (chance(10))
            addSteps(between(1, 3));
        m_schedule.steps.append(probe());
        addSteps(between(0, 14));
        if (chance(m_wasPulled ? 30 : 5)) {
            m_schedule.steps.append(probe());
            addSteps(between(0, 6));
        }
        if (chance(70))
            m_schedule.steps.append(wait(between(400, 3300)));
        for (int i = between(0, 3); i > 0 && chance(60); --i)
            m_schedule.onInitialized.append(onInitialized());
        for (int i = between(0, 3); i > 0 && chance(40); --i)
            m_schedule.onNotFound.append(onNotFound());
        return m_schedule;
    }

private:
    static Step wait(int milliseconds)
    {
        Step step;
        step.number = milliseconds;
        return step;
    }

    Step setMaxRetries()
    {
        Step step;
        step.action = Step::SetMaxRetries;
        step.number = between(0, 5);
        return step;
    }

    Step probe()
    {
        Step step;
        step.action = Step::Probe;
        const int types = chance(2) ? 0 : between(1, 4);
        while (step.types.size() < types)
            step.types.append(chance(3) ? JwDevice::Unknown : static_cast<Type>(between(1, 3)));
        step.number = oneOf<int>({0, 0, 0, 0, -5, 1, 250, 500, 900});
        if (chance(40)) {
            for (int port = 0; port < m_schedule.ports; ++port)
                step.ports.insert(between(0, step.ports.size()), port);
            if (chance(30))
                step.ports.remove(between(0, step.ports.size() - 1));
            while (chance(30))
                step.ports.insert(between(0, step.ports.size()), m_random.bounded(int(DiscoverySchedule::portCount)));
        }
        return step;
    }

    void addSteps(int count)
    {
        for (; count > 0; --count)
            m_schedule.steps.append(step());
    }

    Step step()
    {
        Step step;
        step.port = m_random.bounded(m_schedule.ports);
        const int kind = m_random.bounded(100);
        const bool sendsOrPulls = kind >= 33 && kind < 84;
        if (kind < 33 || (sendsOrPulls && step.port < m_wholeSentences))
            return wait(oneOf<int>({0, 1, 100, 150, 399, 400, 401, 800, 1600}));
        if (kind < 79) {
            step.action = chance(25) ? Step::SendWithNext : Step::Send;
            step.bytes = piece(step.port);
        } else if (kind < 84) {
            step.action = chance(50) ? Step::PullWithNext : Step::Pull;
            m_wasPulled = true;
            m_lastPulled = step.port;
        } else if (kind < 87) {
            step.action = Step::Plug;
            step.port = m_lastPulled;
        } else if (kind < 91) {
            step.action = Step::Hold;
        } else if (kind < 95) {
            step.action = Step::Release;
        } else if (kind < 99) {
            return setMaxRetries();
        } else {
            step.action = Step::Destroy;
        }
        return step;
    }

    OnInitialized onInitialized()
    {
        return {static_cast<OnInitialized::Action>(m_random.bounded(int(OnInitialized::actionCount))),
                chance(50) ? between(1, 5) : 0};
    }

    OnNotFound onNotFound()
    {
        return {static_cast<OnNotFound::Action>(m_random.bounded(int(OnNotFound::actionCount))),
                chance(50) ? between(1, 5) : 0};
    }

    QVector<Answer> answers(int percentGood)
    {
        QVector<Answer> answers;
        if (chance(35))
            return answers;
        const QByteArray own = goodReplyBody();
        for (int i = between(1, 5); i > 0; --i) {
            if (chance(percentGood))
                answers.append(inPieces(withMark(own)));
            else
                answers.append(chance(50) ? Answer() : inPieces(text()));
        }
        return answers;
    }

    Answer inPieces(QByteArray bytes)
    {
        Answer answer;
        const int most = !m_onlyPieces && chance(40) ? 1 : between(2, 8);
        while (!bytes.isEmpty()) {
            const auto size = answer.size() + 1 == most ? bytes.size() : between(1, bytes.size());
            answer.append({bytes.left(size), chance(85) ? 0 : oneOf<int>({1, 2, 100, 399, 400, 401})});
            bytes.remove(0, size);
        }
        return answer;
    }

    /// Returns a whole text, or the next part of the text that the board is sending.
    QByteArray piece(int port)
    {
        QByteArray &rest = m_rests[m_oneText ? 0 : port];
        if (rest.isEmpty())
            rest = text();
        const auto size = !m_onlyPieces && chance(60) ? rest.size() : between(1, rest.size());
        const QByteArray piece = rest.left(size);
        rest.remove(0, size);
        return piece;
    }

    QByteArray text()
    {
        QByteArray text = sentence();
        if (chance(10))
            text = text.repeated(between(2, 8));
        if (chance(10))
            text += sentence();
        if (chance(8))
            text.prepend(garbage(between(1, 20)));
        if (chance(8))
            text[between(0, text.size() - 1)] = garbage(1)[0];
        return text;
    }

    QByteArray goodReplyBody()
    {
        return oneOf<QByteArray>({
            "PJWVER,7300022,1,4,",
            "PJWVER,7300021,1,4,",
            "PTJWRD,INF,CTRL,3,17,2,1.04,7300030,",
        });
    }

    /// Returns a sentence of `body` and a new number. No other sentence ends with this number, so the trace shows which
    /// sentence arrived.
    QByteArray withMark(const QByteArray &body)
    {
        return JwSimulator::frameSentence(body + QByteArray::number(++m_marks));
    }

    QByteArray sentence()
    {
        if (chance(60))
            return withMark(goodReplyBody());
        const QByteArray body = oneOf<QByteArray>({
            "PJWVER,x7300021y7300022",
            "PJWVER,7300022,1",
            "PJWVER,HW-7300021-R2",
            "PJWVER",
            "PJWVER,",
            "PJWVER,7300030,1,4,0",
            "PJWVER,7300022,1,4,0,5",
            "PTJWRD,INF",
            "PTJWRD,inf,CTRL",
            "PTJWRD,INF ,CTRL",
            "PTJWRD",
            "PTJWRD,INF,1,2,3,4,5,6,7,8",
            "PTJWWR,INF",
            "GPGLL,4916.45,N,12311.12,W,225444,A",
            "PJ,1",
            "PTJWRD,INF,a description that is far too long for the boards that send it,1",
        });
        const QByteArray framed = JwSimulator::frameSentence(body);
        switch (m_random.bounded(13)) {
        case 0:
            return JwSimulator::frameSentence(body, false);
        case 1:
            return '!' + framed.mid(1);
        case 2:
            return '$' + body + "\r\n";
        case 3:
            return framed.left(framed.size() - 4) + "6G\r\n";
        case 4:
            return framed.left(framed.size() - 2) + "*00\r\n";
        case 5:
            return framed.left(framed.size() - 4) + framed.mid(framed.size() - 4).toUpper();
        case 6:
            return "!" + garbage(between(1, 10)) + framed;
        case 7:
            return chance(20) ? garbage(between(100, 700)) : garbage(between(1, 40));
        case 8: // an unfinished line, sometimes of about the greatest length that a port holds back
            return chance(20) ? QByteArray(between(509, 514), chance(50) ? 'x' : '!') : "!x";
        default:
            return framed;
        }
    }

    QByteArray garbage(int length)
    {
        QByteArray bytes;
        while (bytes.size() < length)
            bytes += static_cast<char>(between(0, 255));
        return bytes;
    }

    DiscoverySchedule m_schedule;
    bool m_wasPulled = false;
    int m_lastPulled = 0;
    QByteArray m_rests[DiscoverySchedule::mostPorts]; // for each board, the part of its text that is not sent yet
    bool m_oneText = false; // all boards send parts of one text
    bool m_onlyPieces = false;
    int m_wholeSentences = 0; // number of ports, from port 0 on, that send whole sentences only and stay plugged in
    int m_marks = 0;
};

/// Returns the schedule without this port. The numbers of all higher ports decrease by one.
DiscoverySchedule without(int port, DiscoverySchedule schedule)
{
    const auto renumber = [port](int &other) {
        if (other > port && other < DiscoverySchedule::mostPorts)
            --other;
    };
    --schedule.ports;
    if (port < schedule.answers.size())
        schedule.answers.remove(port);
    QVector<Step> steps;
    for (Step step : std::as_const(schedule.steps)) {
        step.ports.removeAll(port);
        for (int &other : step.ports)
            renumber(other);
        const bool usesPort = step.action == Step::Send || step.action == Step::SendWithNext
            || step.action == Step::Pull || step.action == Step::PullWithNext || step.action == Step::Plug
            || step.action == Step::Hold || step.action == Step::Release;
        if (usesPort && step.port == port)
            continue;
        renumber(step.port);
        steps.append(step);
    }
    schedule.steps = steps;
    return schedule;
}

QString quoted(const QByteArray &bytes)
{
    QString text;
    QDebug(&text).nospace() << bytes;
    return text;
}

QString toText(const Answer &answer)
{
    QStringList texts;
    for (const DiscoverySchedule::Piece &piece : answer)
        texts << (piece.after == 0 ? QString() : QStringLiteral("after %1 ms ").arg(piece.after)) + quoted(piece.bytes);
    return texts.isEmpty() ? QStringLiteral("nothing") : texts.join(QLatin1String(" + "));
}

QString numbers(const QVector<int> &list)
{
    QStringList texts;
    for (const int number : list)
        texts << QString::number(number);
    return texts.join(QLatin1Char(' '));
}

QString toText(const Step &step)
{
    static const char *const names[] = {"probe", "wait", "send",    "send with next",  "pull",   "pull with next",
                                        "plug",  "hold", "release", "set max retries", "destroy"};
    QString text = QLatin1String(names[step.action]);
    switch (step.action) {
    case Step::Probe: {
        QStringList types;
        for (const Type type : step.types)
            types << QString::fromLatin1("-ABC").mid(type, 1);
        text += QStringLiteral(" types %1, delay %2, ports %3")
                    .arg(types.join(QLatin1Char(' ')), QString::number(step.number),
                         step.ports.isEmpty() ? QStringLiteral("by search") : numbers(step.ports));
        break;
    }
    case Step::Wait:
    case Step::SetMaxRetries:
        text += QStringLiteral(" %1").arg(step.number);
        break;
    case Step::Send:
    case Step::SendWithNext:
        text += QStringLiteral(" port %1: %2").arg(QString::number(step.port), quoted(step.bytes));
        break;
    case Step::Pull:
    case Step::PullWithNext:
    case Step::Plug:
    case Step::Hold:
    case Step::Release:
        text += QStringLiteral(" port %1").arg(step.port);
        break;
    case Step::Destroy:
        break;
    }
    return text;
}

} // namespace

QString DiscoverySchedule::toString() const
{
    static const char *const initializedNames[] = {"keep",         "read",   "write",  "delete",
                                                   "delete later", "unbind", "rebind", "delete the Initializer later"};
    static const char *const notFoundNames[] = {"nothing", "raise max retries", "delete the Initializer"};
    QString text = QStringLiteral("%1 port(s)\n").arg(ports);
    for (int port = 0; port < answers.size(); ++port) {
        QStringList texts;
        for (const Answer &answer : answers[port])
            texts << toText(answer);
        if (!texts.isEmpty())
            text +=
                QStringLiteral("  port %1 answers %2\n").arg(QString::number(port), texts.join(QLatin1String(", ")));
    }
    for (const Turn &turn : turns)
        text += QStringLiteral("  turn: %1 piece(s) from position %2 on\n").arg(turn.pieces).arg(turn.first);
    for (const OnInitialized &reaction : onInitialized) {
        text += QStringLiteral("  on deviceInitialized: %1, nested steps %2\n")
                    .arg(QLatin1String(initializedNames[reaction.action]))
                    .arg(reaction.nestedSteps);
    }
    for (const OnNotFound &reaction : onNotFound) {
        text += QStringLiteral("  on deviceNotFound: %1, nested steps %2\n")
                    .arg(QLatin1String(notFoundNames[reaction.action]))
                    .arg(reaction.nestedSteps);
    }
    for (const Step &step : steps)
        text += QStringLiteral("  %1\n").arg(toText(step));
    return text;
}

bool DiscoverySchedule::sendsWholeSentences(int port) const
{
    for (const Answer &answer : answers.value(port)) {
        if (!answer.isEmpty() && !isWholeSentence(bytesOf(answer)))
            return false;
    }
    return std::none_of(steps.cbegin(), steps.cend(), [port](const Step &step) {
        const bool sends = step.action == Step::Send || step.action == Step::SendWithNext;
        const bool pulls = step.action == Step::Pull || step.action == Step::PullWithNext;
        return (sends || pulls) && step.port == port;
    });
}

QByteArray bytesOf(const Answer &answer)
{
    QByteArray bytes;
    for (const DiscoverySchedule::Piece &piece : answer)
        bytes += piece.bytes;
    return bytes;
}

DiscoverySchedule randomSchedule(quint32 seed)
{
    return Generator(seed).schedule();
}

DiscoverySchedule shortestSchedule(DiscoverySchedule schedule,
                                   const std::function<bool(const DiscoverySchedule &)> &fails)
{
    Shrinker<DiscoverySchedule> shrinker(schedule, fails);
    shrinker.shrink(schedule.steps);
    shrinker.shrink(schedule.onInitialized);
    shrinker.shrink(schedule.onNotFound);
    shrinker.shrink(schedule.turns);
    for (QVector<Answer> &answers : schedule.answers) {
        shrinker.shrink(answers);
        for (Answer &answer : answers) {
            shrinker.shrink(answer);
            const Answer before = answer;
            answer = {{bytesOf(before), 0}};
            if (!fails(schedule))
                answer = before;
        }
    }
    for (Step &step : schedule.steps)
        shrinker.replace(step.port, 0);
    for (int port = schedule.ports - 1; port >= 0 && schedule.ports > 1; --port) {
        const DiscoverySchedule fewer = without(port, schedule);
        if (fails(fewer))
            schedule = fewer;
    }
    for (Step &step : schedule.steps) {
        shrinker.shrink(step.types);
        shrinker.shrink(step.ports);
        shrinker.shrink(step.bytes);
        if (step.action == Step::Probe || step.action == Step::Wait)
            shrinker.replace(step.number, 0);
        if (step.action == Step::SendWithNext)
            shrinker.replace(step.action, Step::Send);
        if (step.action == Step::PullWithNext)
            shrinker.replace(step.action, Step::Pull);
    }
    for (OnInitialized &reaction : schedule.onInitialized) {
        shrinker.replace(reaction.action, OnInitialized::Keep);
        shrinker.replace(reaction.nestedSteps, 0);
    }
    for (OnNotFound &reaction : schedule.onNotFound) {
        shrinker.replace(reaction.action, OnNotFound::Nothing);
        shrinker.replace(reaction.nestedSteps, 0);
    }
    for (QVector<Answer> &answers : schedule.answers) {
        for (Answer &answer : answers) {
            for (DiscoverySchedule::Piece &piece : answer) {
                shrinker.shrink(piece.bytes);
                shrinker.replace(piece.after, 0);
            }
        }
    }
    for (Turn &turn : schedule.turns) {
        shrinker.replace(turn.first, 0);
        shrinker.replace(turn.pieces, 1);
    }
    shrinker.shrink(schedule.steps);
    return schedule;
}

QString portName(int port)
{
    // The name contains the process number, because test programs run at the same time and ports with the same name
    // would share a lock file.
    static const QString prefix = QStringLiteral("ttyM%1x").arg(::getpid());
    return prefix + QString::number(port);
}

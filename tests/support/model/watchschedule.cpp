#include "watchschedule.h"

#include "randomchoice.h"
#include "shrink.h"
#include "watchports.h"

#include <QStringList>

#include <type_traits>

using Board = WatchSchedule::Board;
using Reaction = WatchSchedule::Reaction;
using Settings = WatchSchedule::Settings;
using Step = WatchSchedule::Step;
using JwDevice::Type;

namespace {

class Generator : RandomChoice
{
public:
    explicit Generator(quint32 seed)
        : RandomChoice(seed)
    {
    }

    WatchSchedule schedule()
    {
        const int boards = oneOf<int>({1, 1, 2, 2, 2, 3, 3, 4});
        // In simple schedules, most boards answer and are wanted: they are found, and much can happen to them.
        m_isSimple = chance(40);
        m_hasTwoPorts = chance(15);
        while (m_schedule.boards.size() < boards)
            m_schedule.boards.append(board());
        m_schedule.settings.append(settings());
        for (int i = 0; i < boards; ++i) {
            if (chance(60))
                m_schedule.steps.append(plug(i));
        }
        m_schedule.steps.append(step(Step::Start));
        for (int i = between(2, 12); i > 0; --i) {
            m_schedule.steps.append(anyStep());
            if (chance(2))
                replugWhileLent();
            if (chance(2))
                plugBusy();
        }
        for (int i = between(0, 5); i > 0 && chance(70); --i)
            m_schedule.reactions.append(reaction());
        for (int i = between(0, 5); i > 0 && chance(70); --i)
            m_schedule.readReactions.append(reaction());
        return m_schedule;
    }

private:
    int anyBoard() { return between(0, m_schedule.boards.size() - 1); }

    Board board()
    {
        Board board;
        const bool isGood = chance(m_isSimple ? 90 : 55);
        board.kind = static_cast<Board::Kind>(m_random.bounded(int(isGood ? Board::Silent : Board::kindCount)));
        board.delay = oneOf<int>({7, 7, 7, 157, 397, 407, 657});
        board.ignores = chance(80) ? 0 : between(1, 3);
        board.serial = oneOf<QString>({QStringLiteral("S1"), QStringLiteral("S1"), QStringLiteral("S2"),
                                       QStringLiteral("S%1").arg(m_schedule.boards.size() + 3), QString()});
        board.interface = chance(85) ? 0 : 1;
        if (m_hasTwoPorts) {
            board.interface = static_cast<int>(m_schedule.boards.size() % 2);
            if (board.interface == 1 && chance(80))
                board.serial = m_schedule.boards.last().serial;
        }
        board.isCandidate = !chance(3);
        board.isIgnored = chance(3);
        return board;
    }

    Settings settings()
    {
        Settings settings;
        if (!m_isSimple && chance(50)) {
            settings.types = {static_cast<Type>(between(1, 3))};
            if (chance(50))
                settings.types.append(static_cast<Type>(between(1, 3)));
        }
        settings.maxRetries = oneOf<int>({0, 0, 1, 2, 3});
        settings.delay = oneOf<int>({0, 0, 0, 250, 1000});
        settings.checkInterval = oneOf<int>({0, 0, 300, 1000});
        if (chance(10))
            settings.excludedNames.append(m_random.bounded(WatchPorts::names));
        if (chance(10))
            settings.excluded.append(
                oneOf<QString>({QStringLiteral("S1"), QStringLiteral("S2"), QStringLiteral("0483:5740"), QString()}));
        return settings;
    }

    Step step(Step::Action action)
    {
        Step step;
        step.action = action;
        step.board = anyBoard();
        step.withNext = chance(15);
        return step;
    }

    Step plug(int board)
    {
        Step step;
        step.action = chance(85) ? Step::Plug : Step::PlugLate;
        step.board = board;
        step.number = m_hasTwoPorts && chance(80) ? board / 2 : m_random.bounded(WatchPorts::devices);
        step.name = m_random.bounded(WatchPorts::names);
        step.withNext = chance(40);
        return step;
    }

    /// Appends steps that lend a board and pull its cable. A plug comes at a random place after the first step. In half
    /// of the cases, the watch is stopped before the pull and started after it.
    void replugWhileLent()
    {
        const int board = anyBoard();
        QVector<Step> steps = {step(chance(30) ? Step::Lend : Step::LendUntilPlugged), step(Step::Stop),
                               step(Step::Pull), step(Step::Start)};
        if (chance(50))
            steps.remove(1);
        steps.insert(between(1, steps.size()), plug(board));
        for (Step &each : steps)
            each.board = board;
        const int otherPort = board ^ 1; // see m_hasTwoPorts
        if (m_hasTwoPorts && otherPort < m_schedule.boards.size())
            steps.insert(between(1, steps.size()), plug(otherPort));
        m_schedule.steps += steps;
    }

    /// Appends steps that plug in a board whose port another program uses for a while.
    void plugBusy()
    {
        const int board = anyBoard();
        QVector<Step> steps = {step(Step::Pull), plug(board), step(Step::Occupy), anyWait(), step(Step::Vacate)};
        if (chance(50))
            steps.append(anyWait());
        for (Step &each : steps) {
            each.board = board;
            each.withNext = each.action == Step::Plug || each.action == Step::PlugLate;
            m_schedule.steps.append(each);
        }
    }

    Step anyWait()
    {
        Step wait = step(Step::Wait);
        wait.number = oneOf<int>({0, 1, 7, 100, 250, 399, 400, 401, 500, 800, 1300, 2600});
        wait.withNext = false;
        return wait;
    }

    Step anyStep()
    {
        static const QVector<Step::Action> rest = {
            Step::Change,      Step::Occupy,     Step::Occupy,
            Step::Vacate,      Step::Vacate,     Step::Mute,
            Step::Mute,        Step::Unmute,     Step::Unmute,
            Step::Say,         Step::Start,      Step::Stop,
            Step::Lend,        Step::Lend,       Step::TakeBack,
            Step::TakeBack,    Step::LookAgain,  Step::CheckBoards,
            Step::Permit,      Step::Permit,     Step::Delete,
            Step::DeleteLater, Step::DeletePort, Step::CheckBoards,
            Step::DeleteWatch, Step::Configure,  Step::LendUntilPlugged,
            Step::PullPort,
        };
        const int kind = m_random.bounded(100);
        if (kind < 30)
            return anyWait();
        if (kind < 45)
            return plug(anyBoard());
        if (kind < 60) {
            Step pull = step(Step::Pull);
            // Half of the pulls come together with the next step, like the pull of a hub with several boards.
            pull.withNext = chance(50);
            return pull;
        }
        const Step other = step(oneOf(rest));
        if (other.action == Step::Configure)
            m_schedule.settings.append(settings());
        return other;
    }

    Reaction reaction()
    {
        static const QVector<Step::Action> actions = {
            Step::Wait,   Step::Wait,   Step::Wait,        Step::Lend,       Step::TakeBack,
            Step::Delete, Step::Delete, Step::DeleteLater, Step::DeletePort, Step::LendUntilPlugged,
            Step::Stop,   Step::Start,  Step::DeleteWatch, Step::LookAgain,  Step::CheckBoards,
        };
        return {oneOf(actions), chance(75), anyBoard(), chance(50) ? between(1, 4) : 0};
    }

    WatchSchedule m_schedule;
    bool m_isSimple = false;
    bool m_hasTwoPorts = false; // boards 0 and 1 are mostly two ports of one device; boards 2 and 3 too
};

const char *nameOf(Step::Action action)
{
    static const char *const names[] = {
        "wait",
        "plug",
        "plug without permission",
        "pull",
        "pull port",
        "permit",
        "change",
        "occupy",
        "vacate",
        "mute",
        "unmute",
        "say",
        "start",
        "stop",
        "lend",
        "lend until plugged",
        "take back",
        "look again",
        "check boards",
        "delete",
        "delete later",
        "delete port later",
        "delete watch",
        "configure",
    };
    static_assert(std::extent_v<decltype(names)> == Step::actionCount, "each action needs a name");
    return names[action];
}

} // namespace

QString WatchSchedule::toString() const
{
    static const char *const kinds[] = {"BoardA", "BoardB", "BoardC", "silent", "other", "babble"};
    QString text;
    for (int i = 0; i < boards.size(); ++i) {
        const Board &board = boards[i];
        text += QStringLiteral("  board %1: %2, delay %3, ignores %4, serial \"%5\", interface %6%7%8\n")
                    .arg(QString::number(i), QLatin1String(kinds[board.kind]), QString::number(board.delay),
                         QString::number(board.ignores), board.serial, QString::number(board.interface),
                         board.isCandidate ? QString() : QStringLiteral(", no candidate"),
                         board.isIgnored ? QStringLiteral(", ignored") : QString());
    }
    for (const Settings &entry : settings) {
        QStringList types;
        for (const Type type : entry.types)
            types << QString::fromLatin1("-ABC").mid(type, 1);
        text += QStringLiteral("  settings: types %1, max retries %2, delay %3, check interval %4, excluded names %5, "
                               "excluded \"%6\"\n")
                    .arg(types.join(QLatin1Char(' ')))
                    .arg(entry.maxRetries)
                    .arg(entry.delay)
                    .arg(entry.checkInterval)
                    .arg(entry.excludedNames.value(0, -1))
                    .arg(entry.excluded.join(QLatin1Char(' ')));
    }
    const auto add = [&text](const char *when, const QVector<Reaction> &list) {
        for (const Reaction &reaction : list) {
            text += QStringLiteral("  on a %1: %2 %3, nested steps %4\n")
                        .arg(QLatin1String(when), QLatin1String(nameOf(reaction.action)),
                             reaction.onSameBoard ? QStringLiteral("this board") : QString::number(reaction.board),
                             QString::number(reaction.nestedSteps));
        }
    };
    add("signal", reactions);
    add("payload", readReactions);
    for (const Step &step : steps) {
        text += QStringLiteral("  %1").arg(QLatin1String(nameOf(step.action)));
        switch (step.action) {
        case Step::Wait:
            text += QStringLiteral(" %1").arg(step.number);
            break;
        case Step::Plug:
        case Step::PlugLate:
            text += QStringLiteral(" board %1, device %2, name %3").arg(step.board).arg(step.number).arg(step.name);
            break;
        case Step::Start:
        case Step::Stop:
        case Step::LookAgain:
        case Step::CheckBoards:
        case Step::DeleteWatch:
        case Step::Configure:
            break;
        default:
            text += QStringLiteral(" board %1").arg(step.board);
        }
        text += step.withNext ? QStringLiteral(", with next\n") : QStringLiteral("\n");
    }
    return text;
}

WatchSchedule randomWatchSchedule(quint32 seed)
{
    return Generator(seed).schedule();
}

WatchSchedule shortestWatchSchedule(WatchSchedule schedule, const std::function<bool(const WatchSchedule &)> &fails)
{
    Shrinker<WatchSchedule> shrinker(schedule, fails);
    shrinker.shrink(schedule.steps);
    shrinker.shrink(schedule.reactions);
    shrinker.shrink(schedule.readReactions);
    for (Step &step : schedule.steps) {
        shrinker.replace(step.withNext, false);
        if (step.action == Step::PlugLate)
            shrinker.replace(step.action, Step::Plug);
        if (step.action == Step::Wait)
            shrinker.replace(step.number, 0);
    }
    for (QVector<Reaction> *reactions : {&schedule.reactions, &schedule.readReactions}) {
        for (Reaction &reaction : *reactions) {
            shrinker.replace(reaction.nestedSteps, 0);
            shrinker.replace(reaction.action, Step::Wait);
        }
    }
    for (Board &board : schedule.boards) {
        shrinker.replace(board.kind, Board::BoardA);
        shrinker.replace(board.delay, 7);
        shrinker.replace(board.ignores, 0);
        shrinker.replace(board.serial, QString());
        shrinker.replace(board.interface, 0);
        shrinker.replace(board.isCandidate, true);
        shrinker.replace(board.isIgnored, false);
    }
    for (Settings &settings : schedule.settings) {
        const Settings plain;
        shrinker.replace(settings.types, plain.types);
        shrinker.replace(settings.maxRetries, plain.maxRetries);
        shrinker.replace(settings.delay, plain.delay);
        shrinker.replace(settings.checkInterval, plain.checkInterval);
        shrinker.replace(settings.excludedNames, plain.excludedNames);
        shrinker.replace(settings.excluded, plain.excluded);
    }
    shrinker.shrink(schedule.steps);
    while (schedule.boards.size() > 1) {
        WatchSchedule fewer = schedule;
        fewer.boards.removeLast();
        const auto last = fewer.boards.size();
        const auto usesLast = [last](const auto &step) { return step.board == last; };
        if (std::any_of(fewer.steps.cbegin(), fewer.steps.cend(), usesLast)
            || std::any_of(fewer.reactions.cbegin(), fewer.reactions.cend(), usesLast)
            || std::any_of(fewer.readReactions.cbegin(), fewer.readReactions.cend(), usesLast) || !fails(fewer))
            break;
        schedule = fewer;
    }
    return schedule;
}

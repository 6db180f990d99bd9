#include <simulator/jwsim/arguments.h>

#include <simulator/scenario.h>

#include <QtCore/QStringList>

namespace JwSimulator {

namespace {

const char *const usage = "jwsim [--scenario FILE.json] [--board KIND[,key=value...]]...\n"
                          "             [--report FILE.json] [--] COMMAND [ARGS...]";

bool addScenario(Arguments &arguments, const QString &value, QString &error)
{
    const std::optional<QList<BoardConfig>> boards = readScenario(value, &error);
    if (boards)
        arguments.boards += *boards;
    return boards.has_value();
}

bool addBoard(Arguments &arguments, const QString &value, QString &error)
{
    const std::optional<BoardConfig> board = BoardConfig::fromText(value, &error);
    if (board)
        arguments.boards.append(*board);
    else
        error = QStringLiteral("--board %1: %2").arg(value, error);
    return board.has_value();
}

bool setReport(Arguments &arguments, const QString &value, QString &error)
{
    arguments.reportFile = value;
    if (value.isEmpty())
        error = QStringLiteral("--report takes the name of a file");
    return !value.isEmpty();
}

struct Option
{
    const char *name;
    bool (*take)(Arguments &, const QString &value, QString &error);
};

const Option options[] = {{"--scenario", addScenario}, {"--board", addBoard}, {"--report", setReport}};

const Option *findOption(const QString &name)
{
    for (const Option &option : options) {
        if (name == QLatin1String(option.name))
            return &option;
    }
    return nullptr;
}

} // namespace

std::optional<Arguments> Arguments::parse(char **argv, QString &error)
{
    Arguments arguments;
    for (++argv; *argv; ++argv) {
        const QString text = QString::fromLocal8Bit(*argv);
        if (text == QLatin1String("--")) {
            ++argv;
            break;
        }
        if (!text.startsWith(QLatin1Char('-')))
            break;
        const bool isHelp = text == QLatin1String("--help") || text == QLatin1String("-h");
        if (isHelp || text == QLatin1String("--version") || text == QLatin1String("-v")) {
            arguments.action = isHelp ? Action::Help : Action::Version;
            return arguments;
        }
        const int equals = text.indexOf(QLatin1Char('='));
        const QString name = text.left(equals);
        const Option *option = findOption(name);
        if (!option) {
            error =
                QStringLiteral("unknown option %1; allowed are --scenario, --board, --report, --help, --version, and "
                               "-- before a COMMAND that begins with -")
                    .arg(name);
            return std::nullopt;
        }
        if (equals < 0 && !*++argv) {
            error = QStringLiteral("%1 needs a value; usage: %2").arg(name, QLatin1String(usage));
            return std::nullopt;
        }
        const QString value = equals < 0 ? QString::fromLocal8Bit(*argv) : text.mid(equals + 1);
        if (!option->take(arguments, value, error))
            return std::nullopt;
    }
    if (!*argv) {
        error = QStringLiteral("COMMAND is missing; usage: %1").arg(QLatin1String(usage));
        return std::nullopt;
    }
    arguments.command = argv;
    return arguments;
}

QString Arguments::helpText()
{
    return QStringLiteral("Usage: %1\n"
                          "\n"
                          "Makes one simulated USB serial port per board, runs COMMAND so that it sees\n"
                          "these ports as real ones, answers as the boards would, and exits with COMMAND's\n"
                          "exit status. COMMAND must be linked dynamically and not run set-uid.\n"
                          "\n"
                          "Options:\n"
                          "  --board KIND[,key=value...]  add a board; may be repeated\n"
                          "  --scenario FILE.json         add the boards of a file, such as\n"
                          "                               {\"boards\": [{\"kind\": \"BoardA\", \"delay\": 20}]}\n"
                          "  --report FILE.json           on ending, write what each board received and\n"
                          "                               sent, in milliseconds since COMMAND's start\n"
                          "  -h, --help                   print this and exit\n"
                          "  -v, --version                print the version and exit\n"
                          "\n"
                          "%2"
                          "\n"
                          "The manual page (man jwsim) has the defaults.\n"
                          "\n"
                          "Example:\n"
                          "  jwsim --board BoardA --board silent,port=ttyUSB0 -- jwprobe --type BoardA\n"
                          "\n"
                          "SIGINT, SIGTERM, SIGHUP and SIGQUIT are passed on to COMMAND, which is killed\n"
                          "when it has not ended 5 seconds later. What is typed on a terminal (Ctrl-C)\n"
                          "reaches COMMAND anyway and is left to it.\n"
                          "\n"
                          "Exit status: that of COMMAND; 128 + n when signal n ended it; 127 when it was\n"
                          "not found, 126 when it could not be started; 125 when COMMAND ended with 0 but\n"
                          "the report, or this help, could not be written; 2 for wrong use, when COMMAND\n"
                          "was not started at all.\n")
        .arg(QLatin1String(usage), BoardConfig::help());
}

} // namespace JwSimulator

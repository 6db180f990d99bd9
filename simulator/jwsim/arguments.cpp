#include "arguments.h"

#include <simulator/scenario.h>

#include <QStringList>

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
        error = QStringLiteral("--report takes a file name; the name is empty");
    return !value.isEmpty();
}

struct Option
{
    const char *name;
    bool (*apply)(Arguments &, const QString &value, QString &error);
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
        const auto equals = text.indexOf(QLatin1Char('='));
        const QString name = text.left(equals);
        const Option *option = findOption(name);
        if (!option) {
            error = QStringLiteral("unknown option %1; allowed are --scenario, --board, --report, --help, --version; "
                                   "write -- before a COMMAND that begins with -")
                        .arg(name);
            return std::nullopt;
        }
        if (equals < 0 && !*++argv) {
            error = QStringLiteral("%1 needs a value; usage: %2").arg(name, QLatin1String(usage));
            return std::nullopt;
        }
        const QString value = equals < 0 ? QString::fromLocal8Bit(*argv) : text.mid(equals + 1);
        if (!option->apply(arguments, value, error))
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
                          "Makes one simulated USB serial port per board and runs COMMAND, which sees these\n"
                          "ports as real ones. The simulated boards answer. jwsim ends with COMMAND's exit\n"
                          "status. COMMAND must be linked dynamically and must not be set-uid.\n"
                          "\n"
                          "Options:\n"
                          "  --board KIND[,key=value...]  add a board; may be repeated\n"
                          "  --scenario FILE.json         add the boards of a file, for example\n"
                          "                               {\"boards\": [{\"kind\": \"BoardA\", \"delay\": 20}]}\n"
                          "  --report FILE.json           at the end, write the bytes that each board\n"
                          "                               received and sent, with their times\n"
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
                          "jwsim passes SIGINT, SIGTERM, SIGHUP and SIGQUIT on to COMMAND. If COMMAND does\n"
                          "not end within 5 seconds, jwsim kills it. Ctrl-C in a terminal reaches COMMAND\n"
                          "directly; COMMAND decides what to do.\n"
                          "\n"
                          "Exit status: that of COMMAND, or 128 + n if signal n ended it; 127 if COMMAND\n"
                          "was not found; 126 if it could not be started; 125 if COMMAND ended with 0 but\n"
                          "jwsim could not write the report, or could not write this help; 2 for wrong use;\n"
                          "then COMMAND was not started.\n")
        .arg(QLatin1String(usage), BoardConfig::help());
}

} // namespace JwSimulator

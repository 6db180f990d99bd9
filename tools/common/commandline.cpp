#include "commandline.h"

#include "boardtype.h"
#include "portname.h"

#include <device/boardrules.h>

namespace JwTools {

namespace {

bool fail(QString *error, const QString &text)
{
    *error = text;
    return false;
}

} // namespace

CommandLine::CommandLine(const QString &program, const QString &description, const QList<QCommandLineOption> &own)
    : m_program(program)
    , m_type(makeOption("type",
                        tr("Type of board to find: %1. Can be repeated. Without it, all types.")
                            .arg(boardNames(JwDevice::boardTypes(), tr("or"))),
                        "TYPE"))
    , m_port(makeOption("port",
                        tr("Probe this port, such as ttyACM0, and no others. Can be repeated. Without it, every port "
                           "is probed whose USB manufacturer is \"%1\" or whose vendor id is %2.")
                            .arg(QLatin1String(JwDevice::boardManufacturer))
                            .arg(JwDevice::boardVendorId, 4, 16, QLatin1Char('0')),
                        "NAME"))
    , m_delay(makeOption("delay",
                         tr("Wait before the ports are opened, when BoardC is wanted: 0 (default) to %1 ms.")
                             .arg(SearchSettings::maxDelay),
                         "MS"))
    , m_retries(makeOption("retries",
                           tr("How many times a port is asked again while a board is missing: 0 to %1, default %2. A "
                              "round takes %3 ms.")
                               .arg(SearchSettings::maxRetries)
                               .arg(SearchSettings().retries)
                               .arg(JwDevice::replyTime),
                           "N"))
    , m_version(QStringList{QStringLiteral("v"), QStringLiteral("version")}, tr("Show the version."))
    , m_help(QStringList{QStringLiteral("h"), QStringLiteral("help")}, tr("Show this help."))
{
    m_parser.setApplicationDescription(description);
    m_parser.addOptions(QList<QCommandLineOption>{m_type, m_port, m_delay, m_retries} + own
                        + QList<QCommandLineOption>{m_version, m_help});
}

CommandLine::Outcome CommandLine::parse(const QStringList &arguments, QString *error)
{
    if (!m_parser.parse(arguments)) {
        const QString reason = m_parser.errorText();
        *error = tr("%1; \"%2 --help\" shows what is allowed")
                     .arg(reason.endsWith(QLatin1Char('.')) ? reason.chopped(1) : reason, m_program);
        return WrongUse;
    }
    if (m_parser.isSet(m_help))
        return ShowHelp;
    if (m_parser.isSet(m_version))
        return ShowVersion;
    const QStringList rest = m_parser.positionalArguments();
    const int operands = !m_operandOption.isEmpty() && m_parser.isSet(m_operandOption) ? 1 : 0;
    if (rest.size() == operands)
        return Run;
    *error = rest.size() < operands
        ? tr("--%1 needs two arguments; \"%2 --help\" shows them").arg(m_operandOption, m_program)
        : tr("unexpected argument \"%1\": %2 takes options only, a port is given as --port %1")
              .arg(rest.at(operands), m_program);
    return WrongUse;
}

bool CommandLine::readSearch(SearchSettings &settings, QString *error) const
{
    return readTypes(settings, error) && readPorts(settings, error)
        && readNumber(m_delay, 0, SearchSettings::maxDelay, settings.delay, error)
        && readNumber(m_retries, 0, SearchSettings::maxRetries, settings.retries, error);
}

bool CommandLine::readTypes(SearchSettings &settings, QString *error) const
{
    const QStringList names = m_parser.values(m_type);
    for (const QString &name : names) {
        const std::optional<JwDevice::Type> type = boardType(name);
        if (!type) {
            return fail(error,
                        tr("--type \"%1\" is not known: allowed are %2")
                            .arg(name, boardNames(JwDevice::boardTypes(), tr("and"))));
        }
        if (!settings.types.contains(*type))
            settings.types.append(*type);
    }
    if (settings.types.isEmpty())
        settings.types = JwDevice::boardTypes();
    return true;
}

bool CommandLine::readPorts(SearchSettings &settings, QString *error) const
{
    const QStringList names = m_parser.values(m_port);
    for (const QString &name : names)
        settings.ports.append(portName(name));
    settings.ports.removeDuplicates();
    return !settings.ports.contains(QString())
        || fail(error, tr("--port needs the name of a port, such as ttyACM0; \"jwprobe --list\" shows all"));
}

bool CommandLine::readNumber(const QCommandLineOption &option, int lowest, int highest, int &value,
                             QString *error) const
{
    if (!m_parser.isSet(option))
        return true;
    const QString text = m_parser.value(option);
    bool ok = false;
    value = text.toInt(&ok);
    return (ok && value >= lowest && value <= highest)
        || fail(error,
                tr("--%1 \"%2\" is not allowed: give a whole number from %3 to %4")
                    .arg(option.names().first(), text)
                    .arg(lowest)
                    .arg(highest));
}

QString CommandLine::help() const
{
    const QString text = m_parser.helpText(); // the first line shows the program's path, so it is replaced
    return tr("Usage: %1 [options]").arg(m_program) + text.mid(text.indexOf(QLatin1Char('\n')));
}

QCommandLineOption makeOption(const char *name, const QString &description, const char *value)
{
    return QCommandLineOption(QString::fromLatin1(name), description, QString::fromLatin1(value));
}

} // namespace JwTools

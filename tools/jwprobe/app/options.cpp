#include "options.h"

#include <jwprobe/search/boardtype.h>

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QFileInfo>

namespace JwProbe {

namespace {

constexpr int maxTime = 3600000; // ms, an hour
constexpr int maxRetries = 10000;

const char *const levelNames[] = {"trace", "debug", "info", "warning", "error", "fatal"};

const char *const details = R"(
Output
  People get a table on standard output, one row for each wanted type: port, USB
  manufacturer and serial number, hardware version, and the time from the start
  of the search to the board's answer. Below it stands what the other ports did
  and, when a board is missing, what can be done about it.
  With --json there is one document:
    {"version", "wanted": [TYPE...], "missing": [TYPE...],
     "boards": [{PORT, REPORT, "type", "hardwareVersion", "milliseconds",
                 "connected"}...],
     "ports": [{PORT, REPORT, "state", "summary", "advice": [LINE...]}...],
     "advice": [LINE...], "deadlineReached", "milliseconds", "exitStatus"}
  where PORT is what the system tells of a port,
    "port", "location", "manufacturer", "serialNumber", "vendorId", "productId"
  and REPORT what the search did with it:
    "product", "verdict", "error", "errorText", "reply", "unreadable",
    "queries", "payloads"
  "ports" are the probed ports that hold no board of "boards". Their "state" is
  one of duplicate, otherType, unknownBoard, unreadable, silent, unheard,
  unplugged, failed, notOpened, noSuchPort, noPermission, held, openFailed.
  "verdict" is one of notOpened, awaiting, timedOut, silenced, duplicate, lost,
  handedOver; "error" is QSerialPort's name of an error. What there is nothing
  to say about is null; ids are four hexadecimal digits.
  With --list and --json:
    {"version", "ports": [{PORT, "probed", "reason", "obstacle"}...]}

Doctor
  For each candidate port, or those named by --port, standard output says what
  keeps it from opening and the command that mends it: no permission for this
  user, session or group, no udev rule; another program that has it open, or a
  lock file that names one; a lock file left behind that this user may not
  remove; what is no lock file in place of one, which a search does not open
  either. Only a process that was seen to have the port open is to be ended,
  only a lock file that names no living process is to be removed. It also
  names what may keep a board from being found, which counts as trouble too:
  another program that has the port open and lets others open it; ModemManager,
  which udev was not told to keep off the port. It changes nothing, and opens a
  port for an instant only when it sees no trouble. With --json:
    {"version", "ports": [{PORT, "troubles": [{"kind", "summary",
                                               "advice": [LINE...]}...]}...],
     "advice": [LINE...], "exitStatus"}
  "kind" is one of noSuchPort, noPermission, held, openFailed, shared,
  modemManager.

Monitor
  Each payload is one line: local time, port, "<-" from the board or "->" to it,
  and the text. With --json it is one object a line, the first {"event":
  "search", ...} as above, then
    {"event": "payload", "time", "port", "type", "direction", "text"} and
    {"event": "lost", "time", "port", "type"}
  A line typed on standard input is sent: "PJWVER" becomes "$PJWVER*0c" and its
  line end. A start flag ("$" or "!") and a checksum may be typed; a line with a
  wrong checksum is not sent. It goes to every board, or to the one that it
  begins with: "ttyACM0: PJWVER" or "BoardA: PJWVER". The end of standard input
  does not end the monitor; Ctrl-C does, and so does the loss of the last board
  or of the reader of standard output. Standard input waits while a board has
  more than 64 KiB to take, and a terminal is read in its foreground only.

Exit status
  0  all wanted boards were found; the doctor found no trouble; the monitor was
     ended by Ctrl-C or SIGTERM
  1  some are missing; the doctor found trouble; the monitor lost its last board
     or the reader of its output
  2  wrong use
  3  no candidate port: nothing is plugged in that looks like a board
  A search that is ended by a signal gives 128 and the signal's number. Ctrl-C
  and SIGTERM end it, and the monitor, within a second.
)";

class Parser
{
public:
    Parser();

    std::optional<Options> parse(const QStringList &arguments, QString *error);
    QString help() const;

private:
    bool readAction(Options &options, QString *error) const;
    bool readTypes(Options &options, QString *error) const;
    bool readPorts(Options &options, QString *error) const;
    bool readNumber(const QCommandLineOption &option, int lowest, int highest, int &value, QString *error) const;
    bool readLevel(Options &options, QString *error) const;

    const QCommandLineOption m_type;
    const QCommandLineOption m_port;
    const QCommandLineOption m_delay;
    const QCommandLineOption m_retries;
    const QCommandLineOption m_deadline;
    const QCommandLineOption m_json;
    const QCommandLineOption m_list;
    const QCommandLineOption m_doctor;
    const QCommandLineOption m_monitor;
    const QCommandLineOption m_udevRules;
    const QCommandLineOption m_log;
    const QCommandLineOption m_traffic;
    const QCommandLineOption m_rawTraffic;
    const QCommandLineOption m_version;
    const QCommandLineOption m_help;
    QCommandLineParser m_parser;
};

QCommandLineOption makeOption(const char *name, const char *description, const char *value = "")
{
    return QCommandLineOption(QString::fromLatin1(name), QString::fromLatin1(description), QString::fromLatin1(value));
}

bool fail(QString *error, const QString &text)
{
    *error = text;
    return false;
}

QString longName(const QCommandLineOption &option)
{
    return QStringLiteral("--") + option.names().last();
}

QString levelList()
{
    QStringList names;
    for (const char *name : levelNames)
        names.append(QString::fromLatin1(name));
    return names.join(QLatin1String(", "));
}

// "/dev/ttyACM0" and "/dev/serial/by-id/..." are what people have at hand.
QString portName(const QString &name)
{
    if (name.startsWith(QLatin1String("/dev/serial/")) && QFileInfo(name).isSymLink())
        return QFileInfo(QFileInfo(name).symLinkTarget()).fileName();
    const QLatin1String folder("/dev/");
    return name.startsWith(folder) ? name.mid(folder.size()) : name;
}

Parser::Parser()
    : m_type(makeOption("type",
                        "Type of board to find: BoardA, BoardB or BoardC. May be repeated; all three without "
                        "it.",
                        "TYPE"))
    , m_port(makeOption("port",
                        "Probe this port, such as ttyACM0, and no others. May be repeated. Without it, every "
                        "port is probed whose USB manufacturer is \"STMicroelectronics.\" or whose vendor id "
                        "is 0483.",
                        "NAME"))
    , m_delay(makeOption("delay", "Wait before the ports are opened, when BoardC is wanted: 0 (default) to 3600000 ms.",
                         "MS"))
    , m_retries(makeOption("retries",
                           "How many times ports are asked again while a board is missing: 0 to 10000, "
                           "default 3. A round takes 400 ms.",
                           "N"))
    , m_deadline(makeOption("deadline",
                            "End the search after this time; what is missing then counts as not found: 1 "
                            "to 3600000 ms, default 5000.",
                            "MS"))
    , m_json(makeOption("json", "Write JSON to standard output, for programs."))
    , m_list(makeOption("list",
                        "Show every serial port of the system, which ones would be probed, and why the others "
                        "would not. Opens no port."))
    , m_doctor(makeOption("doctor",
                          "Look at what keeps each candidate port from opening, and show the command that mends "
                          "it."))
    , m_monitor(makeOption("monitor", "Stay on the boards found: show every payload, send the lines typed."))
    , m_udevRules(makeOption("udev-rules",
                             "Write the udev rules to standard output that give access to the boards and keep "
                             "ModemManager off them."))
    , m_log(makeOption("log",
                       "Show the library's log from LEVEL on, on standard error: trace, debug, info, warning, "
                       "error or fatal.",
                       "LEVEL"))
    , m_traffic(makeOption("traffic", "Show the payloads of the search on standard error."))
    , m_rawTraffic(makeOption("raw-traffic", "Show what is read and written, as text, on standard error."))
    , m_version(QStringList{QStringLiteral("v"), QStringLiteral("version")}, QStringLiteral("Show the version."))
    , m_help(QStringList{QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("Show this help."))
{
    m_parser.setApplicationDescription(QStringLiteral("Finds boards on USB serial ports and says what it found."));
    m_parser.addOptions({m_type, m_port, m_delay, m_retries, m_deadline, m_json, m_list, m_doctor, m_monitor,
                         m_udevRules, m_log, m_traffic, m_rawTraffic, m_version, m_help});
}

std::optional<Options> Parser::parse(const QStringList &arguments, QString *error)
{
    Options options;
    if (!m_parser.parse(arguments)) {
        *error = m_parser.errorText();
        if (error->endsWith(QLatin1Char('.')))
            error->chop(1);
        *error += QLatin1String("; \"jwprobe --help\" shows what is allowed");
        return std::nullopt;
    }
    if (m_parser.isSet(m_help) || m_parser.isSet(m_version)) {
        options.action = m_parser.isSet(m_help) ? Options::ShowHelp : Options::ShowVersion;
        return options;
    }
    const QStringList rest = m_parser.positionalArguments();
    if (!rest.isEmpty()) {
        *error = QStringLiteral("unexpected argument \"%1\": jwprobe takes options only, a port is given as --port %1")
                     .arg(rest.first());
        return std::nullopt;
    }
    int retries = static_cast<int>(options.retries);
    if (!readAction(options, error) || !readTypes(options, error) || !readPorts(options, error)
        || !readLevel(options, error) || !readNumber(m_delay, 0, maxTime, options.delay, error)
        || !readNumber(m_retries, 0, maxRetries, retries, error)
        || !readNumber(m_deadline, 1, maxTime, options.deadline, error))
        return std::nullopt;
    if (options.types.contains(JwDevice::BoardC) && options.delay >= options.deadline) {
        *error = QStringLiteral("--delay %1 leaves no time before --deadline %2: give a later --deadline")
                     .arg(options.delay)
                     .arg(options.deadline);
        return std::nullopt;
    }
    options.retries = static_cast<uint>(retries);
    options.json = m_parser.isSet(m_json);
    options.traffic = m_parser.isSet(m_traffic);
    options.rawTraffic = m_parser.isSet(m_rawTraffic);
    return options;
}

QString Parser::help() const
{
    const QString text = m_parser.helpText(); // its first line has the path of the program
    return QStringLiteral("Usage: jwprobe [options]") + text.mid(text.indexOf(QLatin1Char('\n')))
        + QString::fromLatin1(details);
}

bool Parser::readAction(Options &options, QString *error) const
{
    const std::pair<const QCommandLineOption &, Options::Action> actions[] = {{m_list, Options::List},
                                                                              {m_doctor, Options::Doctor},
                                                                              {m_monitor, Options::Monitor},
                                                                              {m_udevRules, Options::ShowUdevRules}};
    QString given;
    for (const auto &[option, action] : actions) {
        if (!m_parser.isSet(option))
            continue;
        const QString name = longName(option);
        if (!given.isEmpty())
            return fail(error, QStringLiteral("%1 and %2 exclude each other: give one of them").arg(given, name));
        given = name;
        options.action = action;
    }
    if (options.action == Options::Find || options.action == Options::Monitor)
        return true;
    for (const QCommandLineOption &option : {m_type, m_delay, m_retries, m_deadline, m_log, m_traffic, m_rawTraffic}) {
        if (m_parser.isSet(option)) {
            return fail(error,
                        QStringLiteral("%1 is for a search, and with %2 there is none: leave one of them out")
                            .arg(longName(option), given));
        }
    }
    if (options.action != Options::ShowUdevRules)
        return true;
    for (const QCommandLineOption &option : {m_port, m_json}) {
        if (m_parser.isSet(option)) {
            return fail(error,
                        QStringLiteral("%1 has no effect on %2, which always writes the same rules: leave one of them "
                                       "out")
                            .arg(longName(option), given));
        }
    }
    return true;
}

bool Parser::readTypes(Options &options, QString *error) const
{
    const QStringList names = m_parser.values(m_type);
    for (const QString &name : names) {
        const std::optional<JwDevice::Type> type = typeFromName(name);
        if (!type) {
            return fail(error,
                        QStringLiteral("--type \"%1\" is not known: allowed are %2")
                            .arg(name, typeNames(allTypes(), QStringLiteral("and"))));
        }
        if (!options.types.contains(*type))
            options.types.append(*type);
    }
    if (options.types.isEmpty())
        options.types = allTypes();
    return true;
}

bool Parser::readPorts(Options &options, QString *error) const
{
    const QStringList names = m_parser.values(m_port);
    for (const QString &name : names) {
        const QString port = portName(name);
        if (port.isEmpty())
            return fail(error,
                        QStringLiteral("--port needs the name of a port, such as ttyACM0; \"jwprobe --list\" "
                                       "shows all"));
        options.ports.append(port);
    }
    options.ports.removeDuplicates();
    return true;
}

bool Parser::readNumber(const QCommandLineOption &option, int lowest, int highest, int &value, QString *error) const
{
    if (!m_parser.isSet(option))
        return true;
    const QString text = m_parser.value(option);
    bool ok = false;
    value = text.toInt(&ok);
    if (ok && value >= lowest && value <= highest)
        return true;
    return fail(error,
                QStringLiteral("--%1 \"%2\" is not allowed: give a whole number from %3 to %4")
                    .arg(option.names().first(), text)
                    .arg(lowest)
                    .arg(highest));
}

bool Parser::readLevel(Options &options, QString *error) const
{
    if (!m_parser.isSet(m_log))
        return true;
    const QString text = m_parser.value(m_log);
    for (int level = Logger::Trace; level <= Logger::Fatal; ++level) {
        if (text.compare(QLatin1String(levelNames[level]), Qt::CaseInsensitive) == 0) {
            options.logLevel = static_cast<Logger::Level>(level);
            return true;
        }
    }
    return fail(error, QStringLiteral("--log \"%1\" is not a level: allowed are %2").arg(text, levelList()));
}

} // namespace

std::optional<Options> parseOptions(const QStringList &arguments, QString *error)
{
    return Parser().parse(arguments, error);
}

QString helpText()
{
    return Parser().help();
}

} // namespace JwProbe

#include "options.h"

#include <common/commandline.h>
#include <common/loglevel.h>

namespace JwProbe {

namespace {

constexpr int maxTime = 3600000; // ms, an hour

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
  line end. A start flag ("$" or "!") and a checksum may be typed. A line is not
  sent if its checksum is wrong, if it has characters beyond Latin-1, or if the
  sentence has more than 74 characters, all counted. It goes to every board, or to the one that it
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

using JwTools::makeOption;

class Parser
{
public:
    Parser();

    std::optional<Options> parse(const QStringList &arguments, QString *error);
    QString help() const;

private:
    bool readAction(Options &options, QString *error) const;
    bool readLevel(Options &options, QString *error) const;

    const QCommandLineOption m_deadline;
    const QCommandLineOption m_json;
    const QCommandLineOption m_list;
    const QCommandLineOption m_doctor;
    const QCommandLineOption m_monitor;
    const QCommandLineOption m_udevRules;
    const QCommandLineOption m_log;
    const QCommandLineOption m_traffic;
    const QCommandLineOption m_rawTraffic;
    JwTools::CommandLine m_line;
};

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
    const QList<Logger::Level> levels = JwTools::logLevels();
    for (const Logger::Level level : levels)
        names.append(JwTools::logLevelName(level).toLower());
    return names.join(QLatin1String(", "));
}

Parser::Parser()
    : m_deadline(makeOption("deadline",
                            QStringLiteral("End the search after this time; what is missing then counts as not found: "
                                           "1 to 3600000 ms, default 5000."),
                            "MS"))
    , m_json(makeOption("json", QStringLiteral("Write JSON to standard output, for programs.")))
    , m_list(makeOption("list",
                        QStringLiteral("Show every serial port of the system, which ones would be probed, and why the "
                                       "others would not. Opens no port.")))
    , m_doctor(makeOption("doctor",
                          QStringLiteral("Look at what keeps each candidate port from opening, and show the command "
                                         "that mends it.")))
    , m_monitor(
          makeOption("monitor", QStringLiteral("Stay on the boards found: show every payload, send the lines typed.")))
    , m_udevRules(makeOption("udev-rules",
                             QStringLiteral("Write the udev rules to standard output that give access to the boards "
                                            "and keep ModemManager off them.")))
    , m_log(makeOption("log",
                       QStringLiteral("Show the library's log from LEVEL on, on standard error: %1.").arg(levelList()),
                       "LEVEL"))
    , m_traffic(makeOption("traffic", QStringLiteral("Show the payloads of the search on standard error.")))
    , m_rawTraffic(
          makeOption("raw-traffic", QStringLiteral("Show what is read and written, as text, on standard error.")))
    , m_line(QStringLiteral("jwprobe"), QStringLiteral("Finds boards on USB serial ports and says what it found."),
             {m_deadline, m_json, m_list, m_doctor, m_monitor, m_udevRules, m_log, m_traffic, m_rawTraffic})
{
}

std::optional<Options> Parser::parse(const QStringList &arguments, QString *error)
{
    Options options;
    switch (m_line.parse(arguments, error)) {
    case JwTools::CommandLine::WrongUse:
        return std::nullopt;
    case JwTools::CommandLine::ShowHelp:
        options.action = Options::ShowHelp;
        return options;
    case JwTools::CommandLine::ShowVersion:
        options.action = Options::ShowVersion;
        return options;
    case JwTools::CommandLine::Run:
        break;
    }
    if (!readAction(options, error) || !m_line.readSearch(options, error) || !readLevel(options, error)
        || !m_line.readNumber(m_deadline, 1, maxTime, options.deadline, error))
        return std::nullopt;
    if (options.types.contains(JwDevice::BoardC) && options.delay >= options.deadline) {
        *error = QStringLiteral("--delay %1 leaves no time before --deadline %2: give a later --deadline")
                     .arg(options.delay)
                     .arg(options.deadline);
        return std::nullopt;
    }
    options.json = m_line.isSet(m_json);
    options.traffic = m_line.isSet(m_traffic);
    options.rawTraffic = m_line.isSet(m_rawTraffic);
    return options;
}

QString Parser::help() const
{
    return m_line.help() + QString::fromLatin1(details);
}

bool Parser::readAction(Options &options, QString *error) const
{
    const std::pair<const QCommandLineOption &, Options::Action> actions[] = {{m_list, Options::List},
                                                                              {m_doctor, Options::Doctor},
                                                                              {m_monitor, Options::Monitor},
                                                                              {m_udevRules, Options::ShowUdevRules}};
    QString given;
    for (const auto &[option, action] : actions) {
        if (!m_line.isSet(option))
            continue;
        const QString name = longName(option);
        if (!given.isEmpty())
            return fail(error, QStringLiteral("%1 and %2 exclude each other: give one of them").arg(given, name));
        given = name;
        options.action = action;
    }
    if (options.action == Options::Find || options.action == Options::Monitor)
        return true;
    const QList<QCommandLineOption> ofSearch =
        m_line.searchOptions() + QList<QCommandLineOption>{m_deadline, m_log, m_traffic, m_rawTraffic};
    for (const QCommandLineOption &option : ofSearch) {
        if (m_line.isSet(option)) {
            return fail(error,
                        QStringLiteral("%1 is for a search, and with %2 there is none: leave one of them out")
                            .arg(longName(option), given));
        }
    }
    if (options.action != Options::ShowUdevRules)
        return true;
    for (const QCommandLineOption &option : {m_line.port(), m_json}) {
        if (m_line.isSet(option)) {
            return fail(error,
                        QStringLiteral("%1 has no effect on %2, which always writes the same rules: leave one of them "
                                       "out")
                            .arg(longName(option), given));
        }
    }
    return true;
}

bool Parser::readLevel(Options &options, QString *error) const
{
    if (!m_line.isSet(m_log))
        return true;
    const QString text = m_line.value(m_log);
    const QList<Logger::Level> levels = JwTools::logLevels();
    for (const Logger::Level level : levels) {
        if (text.compare(JwTools::logLevelName(level), Qt::CaseInsensitive) == 0) {
            options.logLevel = level;
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

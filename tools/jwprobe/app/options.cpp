#include "options.h"

#include <common/commandline.h>
#include <common/loglevel.h>
#include <fleet/brokeroptions.h>

namespace JwProbe {

namespace {

constexpr int maxTime = 3600000; // ms; one hour, the largest value of --deadline

const char *const details = R"(
Output
  Standard output has a table with one row for each wanted type: port, USB
  manufacturer and serial number, hardware version, and the time from the start
  of the search to the board's answer. Below the table stands what the other
  ports did. When a board is missing, advice follows.
  With --json there is one document:
    {"version", "wanted": [TYPE...], "missing": [TYPE...],
     "boards": [{PORT, REPORT, "type", "hardwareVersion", "milliseconds",
                 "connected"}...],
     "ports": [{PORT, REPORT, "state", "summary", "advice": [LINE...]}...],
     "advice": [LINE...], "deadlineReached", "milliseconds", "exitStatus"}
  PORT is what the system knows of a port:
    "port", "location", "manufacturer", "serialNumber", "id", "vendorId",
    "productId"
  REPORT is what the search did with the port:
    "product", "verdict", "error", "errorText", "reply", "unreadable",
    "queries", "payloads"
  "ports" are the probed ports that hold no board of "boards". Their "state" is
  one of duplicate, otherType, unknownBoard, unreadable, silent, unheard,
  unplugged, failed, notOpened, noSuchPort, noPermission, held, ignored,
  openFailed.
  "verdict" is one of notOpened, awaiting, timedOut, silenced, duplicate, lost,
  handedOver; "error" is QSerialPort's name of an error. A value that is not
  known is null. Vendor and product ids have four hexadecimal digits.
  With --list and --json:
    {"version", "ports": [{PORT, "probed", "reason", "obstacle"}...]}

Doctor
  The doctor looks at each candidate port, or at the ports that --port or --id
  names. It says what keeps a port from opening, and which command helps:
  * no permission for this user, session or group, or no udev rule
  * another program has the port open, or a lock file names such a program
  * a lock file was left behind that this user may not remove
  * something else is in place of the lock file; a search doesn't open such a
    port
  These troubles may keep a board from being found:
  * another program has the port open and lets others open it too
  * ModemManager runs, and udev was not told to keep it off the port
  * the udev property JWDEVICE_IGNORE of the port is 1; a search opens such a
    port only if --port names it
  The doctor names a process to end only if it saw the port open there. It names
  a lock file to remove only if the file names no living process. It changes
  nothing. It opens a port, for an instant, only if it sees no trouble.
  With --json:
    {"version", "ports": [{PORT, "troubles": [{"kind", "summary",
                                               "advice": [LINE...]}...]}...],
     "advice": [LINE...], "exitStatus"}
  "kind" is one of noSuchPort, noPermission, held, openFailed, shared, ignored,
  modemManager.

Monitor
  Each payload is one line: local time, port, "<-" from the board or "->" to the
  board, and the text. With --json it is one object a line. The first object is
  {"event": "search", ...} as above. These follow:
    {"event": "payload", "time", "port", "type", "direction", "text"} and
    {"event": "lost", "time", "port", "type"}
  Type a line to send it: "PJWVER" goes out as "$PJWVER*0c" and a line end. A
  start flag ("$" or "!") and a checksum may be typed. A line is not sent if its
  checksum is wrong, if it has characters beyond Latin-1, or if the sentence has
  more than 74 characters, all counted. The line goes to every board, or to the
  one that it begins with: "ttyACM0: PJWVER" or "BoardA: PJWVER".
  The monitor ends with Ctrl-C, with the last board, or when nobody reads its
  output any more. It goes on at the end of standard input. It reads no input
  while more than 64 KiB wait to be sent to a board, and reads a terminal only
  in the foreground.

Watch
  The watch finds boards that are plugged in later, and all boards of a type. If
  a port does not open, it tries again when another program closes the port, and
  after pauses of 0.5 to 8 s. It asks a silent port again when the port was
  plugged in again. On a terminal, a table shows each board, its state, since
  when, how often it was lost, and the number of its payloads. Below the table
  stand the ports without a board, and why. Elsewhere each event is one line:
  local time, port, and the event, or "<-" and a payload. With --json it is one
  object a line:
    {"event", "time", "milliseconds", "id", "type", "port", "location",
     "serialNumber", "hardwareVersion", ...}
    {..., "sharesSerialNumber"} for found and back
    {..., "sharesSerialNumber", "reason"} for lost
    {..., "direction", "text"} for payload
    {..., "reason", "summary"} for refused
  "event" is one of found, lost, back, payload, refused. "milliseconds" is the
  time since the start. A board with a serial number has the same "id" at every
  port. If two boards have the same serial number, the id of one is its place in
  the USB tree. The "reason" of a lost board is one of cablePulled, portFailed,
  noAnswer. The "reason" of a refused port is a "state" of a port in a search,
  or excluded: the watch does not open the port, because another port of its USB
  device is a board, or because of the udev property JWDEVICE_IGNORE=1.
  The watch ends with Ctrl-C, at --deadline, or when nobody reads its output any
  more.

Fleet
  The option --fleet shows the boards of all machines on which jwbridge runs. It
  opens no port. On a terminal, a table shows each machine and board, its state,
  since when, and how often it was lost. Elsewhere each event is one line. With
  the option --monitor, payloads are shown too, and each event is one line. Type
  "ID: PJWVER" to send a sentence to the board with this id. If several machines
  have a board with this id, type "MACHINE/ID: PJWVER". Both --type and
  the option --id select boards. With --json, each event is one object a line:
    {"event", "time", "milliseconds", "machine", ...}
    {..., "reason"} for offline
    {..., "id", "type", "port", "serialNumber", "hardwareVersion", "since"} for
    found, back and forgotten
    {..., "since", "reason"} for lost
    {..., "direction", "text", "seq"} for payload
    {..., "port", "reason", "summary"} for refused
  "event" is one of online, offline, found, lost, back, forgotten, payload,
  refused. The "time" of a payload is the time at which the bridge received it.
  The "reason" of a lost board is one of cablePulled, portFailed, noAnswer,
  bridgeStopped, released, lent, offline, noNews. It is offline while the
  machine is offline, and noNews while there is no connection to the broker. The
  event lost comes again if the reason changes. The "reason" of a machine that
  is offline is one of bridgeAway, noNews.
  The option --send writes one line to one board, and prints the result. With
  the option --json:
    {"event", "time", "machine", "id", "payloadId", "error"}

Exit status
  0  all wanted boards were found; the doctor found no trouble; the monitor or
     the watch was ended by Ctrl-C or SIGTERM; the bridge wrote the line of
     --send
  1  some are missing; the doctor found trouble; the monitor lost its last
     board; the monitor or the watch lost the reader of its output; the line of
     --send was not written
  2  wrong use
  3  no candidate port: nothing is plugged in that looks like a board, or that
     has the id of --id
  With --watch or --id and without --type, one board of any type is enough. At
  its --deadline, a watch ends with the status of a search that found the same
  boards. With --fleet, one board is enough.
  A signal that ends a search gives 128 and the signal's number. Ctrl-C and
  SIGTERM end a search, the monitor or the watch within a second.
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
    bool readFleet(Options &options, QString *error) const;
    bool readId(Options &options, QString *error) const;
    bool readDeadline(Options &options, QString *error) const;
    bool readLevel(Options &options, QString *error) const;

    const QCommandLineOption m_id;
    const QCommandLineOption m_deadline;
    const QCommandLineOption m_json;
    const QCommandLineOption m_list;
    const QCommandLineOption m_doctor;
    const QCommandLineOption m_monitor;
    const QCommandLineOption m_watch;
    const QCommandLineOption m_fleet;
    const QCommandLineOption m_send;
    const JwFleet::BrokerOptions m_connection;
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
    : m_id(makeOption("id",
                      QStringLiteral("Use the board with this id and no others. The id is a USB serial number and an "
                                     "interface (SIM1:1.0), a place in the USB tree (1-4.2:1.0) or the name of a port. "
                                     "--list shows the ids."),
                      "ID"))
    , m_deadline(makeOption("deadline",
                            QStringLiteral("End the search or the watch after this time. Boards still missing count as "
                                           "not found: 1 to 3600000 ms. Default: 5000 for a search and --send, no end "
                                           "for --watch and --fleet."),
                            "MS"))
    , m_json(makeOption("json", QStringLiteral("Write JSON to standard output, for programs.")))
    , m_list(makeOption(
          "list",
          QStringLiteral("Show every serial port of the system: whether a search probes it, and why. Opens no port.")))
    , m_doctor(makeOption("doctor",
                          QStringLiteral("Show what keeps each candidate port from opening, and the command that "
                                         "helps.")))
    , m_monitor(makeOption(
          "monitor", QStringLiteral("Stay connected to the boards found: show every payload, send the lines typed.")))
    , m_watch(makeOption(
          "watch",
          QStringLiteral("Show boards that come and go: when each is found, lost and back, and its payloads.")))
    , m_fleet(makeOption("fleet",
                         QStringLiteral("Show the boards of all machines on this MQTT broker: mqtt://HOST:PORT, or "
                                        "mqtts://HOST:PORT for TLS. With --monitor, also their payloads."),
                         "BROKER"))
    , m_send(makeOption("send",
                        QStringLiteral("With --fleet: send LINE to the board ID or MACHINE/ID, print the result, and "
                                       "end."),
                        "ID> <LINE")) // two values, because the help adds "<" and ">"
    , m_udevRules(makeOption("udev-rules",
                             QStringLiteral("Write udev rules to standard output. They give access to the boards and "
                                            "keep ModemManager off them.")))
    , m_log(makeOption(
          "log", QStringLiteral("Show the library's log, from LEVEL upward, on standard error: %1.").arg(levelList()),
          "LEVEL"))
    , m_traffic(makeOption("traffic", QStringLiteral("Show the payloads of the search on standard error.")))
    , m_rawTraffic(
          makeOption("raw-traffic", QStringLiteral("Show what is read and written, as text, on standard error.")))
    , m_line(QStringLiteral("jwprobe"), QStringLiteral("Finds boards on USB serial ports and shows what it found."),
             QList<QCommandLineOption>{m_id, m_deadline, m_json, m_list, m_doctor, m_monitor, m_watch, m_fleet, m_send}
                 + m_connection.all() + QList<QCommandLineOption>{m_udevRules, m_log, m_traffic, m_rawTraffic})
{
    m_line.setOperandOption(m_send);
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
    if (!readAction(options, error) || !readFleet(options, error) || !m_line.readSearch(options, error)
        || !readLevel(options, error) || !readId(options, error) || !readDeadline(options, error))
        return std::nullopt;
    const bool isLimited = options.deadline > 0;
    if (isLimited && options.types.contains(JwDevice::BoardC) && options.delay >= options.deadline) {
        *error = QStringLiteral("--delay %1 leaves no time before --deadline %2: give a later --deadline")
                     .arg(options.delay)
                     .arg(options.deadline);
        return std::nullopt;
    }
    options.anyType = !m_line.isSet(m_line.type())
        && (options.action == Options::Watch || options.action == Options::Fleet || m_line.isSet(m_id));
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
    const std::pair<const QCommandLineOption &, Options::Action> actions[] = {
        {m_list, Options::List},   {m_doctor, Options::Doctor}, {m_monitor, Options::Monitor},
        {m_watch, Options::Watch}, {m_fleet, Options::Fleet},   {m_udevRules, Options::ShowUdevRules}};
    QString given;
    for (const auto &[option, action] : actions) {
        if (!m_line.isSet(option))
            continue;
        const QString name = longName(option);
        const bool isFleetMonitor = given == longName(m_monitor) && action == Options::Fleet;
        if (!given.isEmpty() && !isFleetMonitor)
            return fail(error, QStringLiteral("%1 and %2 exclude each other: give one of them").arg(given, name));
        given = name;
        options.action = action;
    }
    if (options.action == Options::Find || options.action == Options::Monitor || options.action == Options::Watch
        || options.action == Options::Fleet)
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
    for (const QCommandLineOption &option : {m_line.port(), m_id, m_json}) {
        if (m_line.isSet(option)) {
            return fail(error,
                        QStringLiteral("%1 has no effect on %2, which always writes the same rules: leave one of them "
                                       "out")
                            .arg(longName(option), given));
        }
    }
    return true;
}

bool Parser::readFleet(Options &options, QString *error) const
{
    const bool isFleet = options.action == Options::Fleet;
    const QList<QCommandLineOption> ofFleet = QList<QCommandLineOption>{m_send} + m_connection.all();
    for (const QCommandLineOption &option : ofFleet) {
        if (m_line.isSet(option) && !isFleet)
            return fail(error, QStringLiteral("%1 is for --fleet: give --fleet BROKER too").arg(longName(option)));
    }
    if (!isFleet)
        return true;
    const QList<QCommandLineOption> ofPorts = {m_line.port(), m_line.delay(), m_line.retries(),
                                               m_log,         m_traffic,      m_rawTraffic};
    for (const QCommandLineOption &option : ofPorts) {
        if (m_line.isSet(option)) {
            return fail(error,
                        QStringLiteral("%1 is for ports of this machine, and --fleet opens none: leave one of them out")
                            .arg(longName(option)));
        }
    }
    options.fleet.withPayloads = m_line.isSet(m_monitor);
    options.fleet.sendTo = m_line.value(m_send);
    options.fleet.line = m_line.operand().trimmed();
    if (m_line.isSet(m_send)) {
        if (options.fleet.withPayloads)
            return fail(error, QStringLiteral("--send and --monitor exclude each other: give one of them"));
        if (options.fleet.sendTo.isEmpty() || options.fleet.line.isEmpty())
            return fail(error,
                        QStringLiteral("--send needs the id of a board and a line, such as --send SIM1:1.0 PJWVER"));
    }
    return m_connection.read(m_line, m_line.value(m_fleet), options.fleet.broker, error)
        && m_connection.readPrefix(m_line, options.fleet.prefix, error);
}

bool Parser::readId(Options &options, QString *error) const
{
    options.id = m_line.value(m_id);
    return !m_line.isSet(m_id) || !options.id.isEmpty()
        || fail(error, QStringLiteral("--id needs the id of a board, such as SIM1:1.0; \"jwprobe --list\" shows all"));
}

bool Parser::readDeadline(Options &options, QString *error) const
{
    if (options.action == Options::Watch || (options.action == Options::Fleet && options.fleet.line.isEmpty()))
        options.deadline = 0;
    return m_line.readNumber(m_deadline, 1, maxTime, options.deadline, error);
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

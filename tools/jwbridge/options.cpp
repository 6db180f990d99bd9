#include "options.h"

#include "settingsfile.h"
#include "units.h"
#include <common/commandline.h>
#include <fleet/brokeroptions.h>
#include <fleet/topics.h>

#include <QSysInfo>

namespace JwBridge {

namespace {

constexpr int longestKeepAlive = 3600; // seconds
constexpr int highestRate = 1000;
constexpr qint64 smallestSpool = 1024 * 1024; // bytes
constexpr qint64 longestAge = 3650LL * 24 * 3600; // seconds

const char *const details = R"(
Topics
  HOST is the name of this machine, ID the id of a board. In ID, every byte that
  is not a letter, a digit or one of "-._~:" is written as "%" and two
  hexadecimal digits. All messages have quality of service 1. Retained:
    PREFIX/HOST/online           "true", or "false" if the bridge is away
    PREFIX/HOST/boards/ID/state  JSON: "id", "type", "port", "serialNumber",
                                 "hardwareVersion", "state" (ready, lost, lent),
                                 "reason", "since"; empty if forgotten
    PREFIX/HOST/ports            JSON: for each candidate port "port",
                                 "verdict", "state", "summary", "advice"
    PREFIX/HOST/lost             JSON: the number of payloads that were given up
                                 because of "size", "age", "disk", "refused"
  Not retained:
    PREFIX/HOST/boards/ID/rx     each payload of the board without its line end.
                                 User properties: "time", in microseconds since
                                 1970, and "seq", which grows with each payload
    PREFIX/HOST/boards/ID/tx     send a sentence here, with or without "$",
                                 checksum and line end
    PREFIX/HOST/boards/ID/tx/result
                                 JSON: "id" of the written payload, or "error".
                                 If the message has a response topic outside of
                                 PREFIX, the result goes there

Spool
  A payload stays here until the broker has acknowledged it. A payload that the
  broker does not acknowledge at once is written to disk within 0.4 seconds. A
  crash or a power failure loses only payloads that were not yet written. After
  an interruption a payload may be sent twice, with the same "seq".

Configuration file
  A line of the file is "NAME = VALUE", where NAME is a long option. An option
  without a value takes true or false. Lines that begin with "#" are comments.
  The command line wins.

Exit status
  0  ended by Ctrl-C or SIGTERM
  1  the spool can't be used
  2  wrong use
)";

using JwTools::makeOption;

class Parser
{
public:
    Parser();

    std::optional<Options> parse(const QStringList &arguments, QString *error);
    QString help() const { return m_line.help() + QString::fromLatin1(details); }

private:
    bool addFile(QStringList &arguments, QString *error);
    bool readBroker(JwFleet::BrokerSettings &broker, QString *error) const;
    bool readNames(Options &options, QString *error) const;
    bool readSpool(Options &options, QString *error) const;

    const QCommandLineOption m_broker;
    const QCommandLineOption m_host;
    const QCommandLineOption m_spool;
    const QCommandLineOption m_config;
    const JwFleet::BrokerOptions m_connection;
    const QCommandLineOption m_keepAlive;
    const QCommandLineOption m_spoolSize;
    const QCommandLineOption m_spoolAge;
    const QCommandLineOption m_forgetAfter;
    const QCommandLineOption m_readOnly;
    const QCommandLineOption m_txRate;
    JwTools::CommandLine m_line;
};

bool fail(QString *error, const QString &text)
{
    *error = text;
    return false;
}

Parser::Parser()
    : m_broker(makeOption("broker",
                          QStringLiteral("The broker: mqtt://HOST:PORT, or mqtts://HOST:PORT for TLS. It must speak "
                                         "MQTT 5. Required."),
                          "URL"))
    , m_host(makeOption("host",
                        QStringLiteral("Name of this machine in the topics. No other machine may have it. Default: the "
                                       "system's host name."),
                        "NAME"))
    , m_spool(makeOption("spool",
                         QStringLiteral("Existing folder for payloads that the broker has not yet acknowledged. "
                                        "Required."),
                         "FOLDER"))
    , m_config(makeOption("config", QStringLiteral("Read options from this file."), "FILE"))
    , m_keepAlive(makeOption("keep-alive",
                             QStringLiteral("How long the broker may stay silent before the connection counts as lost: "
                                            "5 to %1 seconds, default 30.")
                                 .arg(longestKeepAlive),
                             "SECONDS"))
    , m_spoolSize(makeOption("spool-size",
                             QStringLiteral("Give up the oldest payloads if the spool is larger, for example 500M or "
                                            "2G. At least 1M. Default: 256M."),
                             "SIZE"))
    , m_spoolAge(makeOption("spool-age",
                            QStringLiteral("Give up payloads in the spool that are older, for example 12h or 30d. "
                                           "Default: 7d."),
                            "TIME"))
    , m_forgetAfter(makeOption("forget-after",
                               QStringLiteral("Forget a board that is lost for this time. Default: 30d."), "TIME"))
    , m_readOnly(makeOption("read-only", QStringLiteral("Write nothing to boards except queries: no topics tx.")))
    , m_txRate(makeOption(
          "tx-rate", QStringLiteral("Sentences that a board gets in a second: 1 to %1, default 10.").arg(highestRate),
          "N"))
    , m_line(QStringLiteral("jwbridge"), QStringLiteral("Connects the boards of this machine with an MQTT broker."),
             QList<QCommandLineOption>{m_broker, m_host, m_spool, m_config} + m_connection.all()
                 + QList<QCommandLineOption>{m_keepAlive, m_spoolSize, m_spoolAge, m_forgetAfter, m_readOnly, m_txRate})
{
}

std::optional<Options> Parser::parse(const QStringList &arguments, QString *error)
{
    QStringList all = arguments;
    Options options;
    JwTools::CommandLine::Outcome outcome = m_line.parse(all, error);
    if (outcome == JwTools::CommandLine::Run && m_line.isSet(m_config)) {
        if (!addFile(all, error))
            return std::nullopt;
        outcome = m_line.parse(all, error);
    }
    switch (outcome) {
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
    options.readOnly = m_line.isSet(m_readOnly);
    if (m_line.readSearch(options.search, error) && readBroker(options.broker, error) && readNames(options, error)
        && readSpool(options, error) && m_line.readNumber(m_txRate, 1, highestRate, options.txRate, error))
        return options;
    return std::nullopt;
}

// Inserts the options of the file before those of the command line, so that these win.
bool Parser::addFile(QStringList &arguments, QString *error)
{
    const QString file = m_line.value(m_config);
    const std::optional<QStringList> options = readSettingsFile(file, error);
    if (!options)
        return false;
    QString reason;
    if (m_line.parse(QStringList{arguments.first()} + *options, &reason) != JwTools::CommandLine::Run)
        return fail(error, QStringLiteral("%1: %2").arg(file, reason));
    if (m_line.isSet(m_config))
        return fail(error, QStringLiteral("%1: config can't stand in the file: remove it").arg(file));
    arguments = QStringList{arguments.first()} + *options + arguments.mid(1);
    return true;
}

bool Parser::readBroker(JwFleet::BrokerSettings &broker, QString *error) const
{
    if (!m_line.isSet(m_broker))
        return fail(error, QStringLiteral("--broker is missing: give the address of a broker, mqtt://HOST:PORT"));
    return m_connection.read(m_line, m_line.value(m_broker), broker, error)
        && m_line.readNumber(m_keepAlive, 5, longestKeepAlive, broker.keepAlive, error);
}

bool Parser::readNames(Options &options, QString *error) const
{
    if (!m_connection.readPrefix(m_line, options.prefix, error))
        return false;
    options.host = m_line.isSet(m_host) ? m_line.value(m_host) : QSysInfo::machineHostName();
    const QString hostFault = JwFleet::Topics::hostFault(options.host);
    if (!hostFault.isEmpty())
        return fail(error, QStringLiteral("--host \"%1\" %2").arg(options.host, hostFault));
    options.broker.clientId = QStringLiteral("jwbridge-%1-%2").arg(options.prefix, options.host).toUtf8();
    return true;
}

bool Parser::readSpool(Options &options, QString *error) const
{
    options.spoolFolder = m_line.value(m_spool);
    if (options.spoolFolder.isEmpty())
        return fail(error, QStringLiteral("--spool is missing: give a folder on a disk, such as /var/lib/jwbridge"));
    struct
    {
        const QCommandLineOption &option;
        std::optional<qint64> (*read)(const QString &text);
        qint64 lowest;
        qint64 highest;
        const char *allowed;
        qint64 &value;
    } const values[] = {{m_spoolSize, readSize, smallestSpool, maxSize, "a size from 1M to 1000G, such as 256M",
                         options.spoolLimits.bytes},
                        {m_spoolAge, readTime, 1, longestAge, "a time from 1s to 3650d, such as 30s, 10m, 12h or 7d",
                         options.spoolLimits.age},
                        {m_forgetAfter, readTime, 1, longestAge, "a time from 1s to 3650d, such as 30s, 10m, 12h or 7d",
                         options.forgetAfter}};
    for (const auto &value : values) {
        if (!m_line.isSet(value.option))
            continue;
        const QString text = m_line.value(value.option);
        const std::optional<qint64> number = value.read(text);
        if (!number || *number < value.lowest || *number > value.highest)
            return fail(error,
                        QStringLiteral("--%1 \"%2\" is not allowed: give %3")
                            .arg(value.option.names().first(), text, QLatin1String(value.allowed)));
        value.value = *number;
    }
    return true;
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

} // namespace JwBridge

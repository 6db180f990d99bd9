#include "options.h"

#include <common/commandline.h>
#include <fleet/brokeroptions.h>

#include <QCoreApplication>

namespace JwMonitor {

namespace {

class Parser
{
    Q_DECLARE_TR_FUNCTIONS(JwMonitor::Parser)

public:
    Parser();

    std::optional<Options> parse(const QStringList &arguments, QString *error);
    QString help() const { return m_line.help(); }

private:
    bool readFleet(Options &options, QString *error) const;
    bool readPalette(Options &options, QString *error) const;

    const QCommandLineOption m_fleet;
    const JwFleet::BrokerOptions m_connection;
    const QCommandLineOption m_palette;
    JwTools::CommandLine m_line;
};

Parser::Parser()
    : m_fleet(
        JwTools::makeOption("fleet",
                            tr("Show the boards of all machines on this MQTT broker, instead of the boards of this "
                               "machine: mqtt://HOST:PORT, or mqtts://HOST:PORT for TLS."),
                            "BROKER"))
    , m_palette(JwTools::makeOption("palette", tr("Colours: light or dark. Without it, those of the desktop."), "NAME"))
    , m_line(QStringLiteral("jwmonitor"),
             tr("Finds boards on USB serial ports, shows what each port did, and talks to the boards, in a window."),
             QList<QCommandLineOption>{m_palette, m_fleet} + m_connection.all())
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
    if (!m_line.readSearch(options.settings, error) || !readFleet(options, error) || !readPalette(options, error))
        return std::nullopt;
    return options;
}

bool Parser::readFleet(Options &options, QString *error) const
{
    const bool isFleet = m_line.isSet(m_fleet);
    const QList<QCommandLineOption> excluded =
        isFleet ? m_line.searchOptions() + QList<QCommandLineOption>{m_line.port()} : m_connection.all();
    for (const QCommandLineOption &option : excluded) {
        if (!m_line.isSet(option))
            continue;
        const QString name = QStringLiteral("--") + option.names().first();
        *error = isFleet
            ? tr("%1 is for ports of this machine, and --fleet opens none: leave one of them out").arg(name)
            : tr("%1 is for --fleet: give --fleet BROKER too").arg(name);
        return false;
    }
    if (!isFleet)
        return true;
    options.broker.emplace();
    return m_connection.read(m_line, m_line.value(m_fleet), *options.broker, error)
        && m_connection.readPrefix(m_line, options.prefix, error);
}

bool Parser::readPalette(Options &options, QString *error) const
{
    if (!m_line.isSet(m_palette))
        return true;
    const QString text = m_line.value(m_palette);
    if (text == QLatin1String("light"))
        options.palette = Theme::Palette::Light;
    else if (text == QLatin1String("dark"))
        options.palette = Theme::Palette::Dark;
    else
        *error = tr("--palette \"%1\" is not known: allowed are light and dark").arg(text);
    return options.palette.has_value();
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

} // namespace JwMonitor

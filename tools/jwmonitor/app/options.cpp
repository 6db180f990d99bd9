#include "options.h"

#include "boardtypes.h"
#include <jwmonitor/find/systemport.h>

#include <QCommandLineParser>
#include <QCoreApplication>

namespace JwMonitor {

namespace {

class Parser
{
    Q_DECLARE_TR_FUNCTIONS(JwMonitor::Parser)

public:
    Parser();

    std::optional<Options> parse(const QStringList &arguments, QString *error);
    QString help() const;

private:
    bool readTypes(FindSettings &settings, QString *error) const;
    bool readPorts(FindSettings &settings, QString *error) const;
    bool readNumber(const QCommandLineOption &option, int highest, int &value, QString *error) const;
    bool readPalette(Options &options, QString *error) const;

    const QCommandLineOption m_type;
    const QCommandLineOption m_port;
    const QCommandLineOption m_delay;
    const QCommandLineOption m_retries;
    const QCommandLineOption m_palette;
    const QCommandLineOption m_screenshots;
    const QCommandLineOption m_version;
    const QCommandLineOption m_help;
    QCommandLineParser m_parser;
};

QCommandLineOption makeOption(const char *name, const QString &description, const char *value)
{
    return QCommandLineOption(QString::fromLatin1(name), description, QString::fromLatin1(value));
}

Parser::Parser()
    : m_type(makeOption(
        "type", tr("Type of board to find: BoardA, BoardB or BoardC. May be repeated; all three without it."), "TYPE"))
    , m_port(makeOption("port",
                        tr("Probe this port, such as ttyACM0, and no others. May be repeated. Without it, every port "
                           "is probed whose USB manufacturer is \"STMicroelectronics.\" or whose vendor id is 0483."),
                        "NAME"))
    , m_delay(makeOption("delay",
                         tr("Wait before the ports are opened, when BoardC is wanted: 0 (default) to %1 ms.")
                             .arg(FindSettings::maxDelay),
                         "MS"))
    , m_retries(makeOption(
          "retries",
          tr("How many times ports are asked again while a board is missing: 0 to %1, default 3. A round takes 400 ms.")
              .arg(FindSettings::maxRetries),
          "N"))
    , m_palette(makeOption("palette", tr("Colours: light or dark. Without it, whichever the desktop has."), "NAME"))
    , m_screenshots(makeOption(
          "screenshots", tr("Find the boards, talk to them, save a picture of each view to this folder, and end."),
          "FOLDER"))
    , m_version(QStringList{QStringLiteral("v"), QStringLiteral("version")}, tr("Show the version."))
    , m_help(QStringList{QStringLiteral("h"), QStringLiteral("help")}, tr("Show this help."))
{
    m_parser.setApplicationDescription(
        tr("Finds boards on USB serial ports, shows what each port did, and talks to the boards, in a window."));
    m_parser.addOptions({m_type, m_port, m_delay, m_retries, m_palette, m_screenshots, m_version, m_help});
}

std::optional<Options> Parser::parse(const QStringList &arguments, QString *error)
{
    Options options;
    if (!m_parser.parse(arguments)) {
        const QString reason = m_parser.errorText();
        *error = tr("%1; \"jwmonitor --help\" shows what is allowed")
                     .arg(reason.endsWith(QLatin1Char('.')) ? reason.chopped(1) : reason);
        return std::nullopt;
    }
    if (m_parser.isSet(m_help) || m_parser.isSet(m_version)) {
        options.action = m_parser.isSet(m_help) ? Options::ShowHelp : Options::ShowVersion;
        return options;
    }
    const QStringList rest = m_parser.positionalArguments();
    if (!rest.isEmpty()) {
        *error = tr("unexpected argument \"%1\": jwmonitor takes options only, a port is given as --port %1")
                     .arg(rest.first());
        return std::nullopt;
    }
    if (!readTypes(options.settings, error) || !readPorts(options.settings, error)
        || !readNumber(m_delay, FindSettings::maxDelay, options.settings.delay, error)
        || !readNumber(m_retries, FindSettings::maxRetries, options.settings.retries, error)
        || !readPalette(options, error))
        return std::nullopt;
    options.screenshots = m_parser.value(m_screenshots);
    return options;
}

QString Parser::help() const
{
    const QString text = m_parser.helpText(); // its first line has the path of the program
    return tr("Usage: jwmonitor [options]") + text.mid(text.indexOf(QLatin1Char('\n')));
}

bool Parser::readTypes(FindSettings &settings, QString *error) const
{
    const QStringList names = m_parser.values(m_type);
    for (const QString &name : names) {
        const JwDevice::Type type = boardType(name);
        if (type == JwDevice::Unknown) {
            *error = tr("--type \"%1\" is not known: allowed are BoardA, BoardB and BoardC").arg(name);
            return false;
        }
        if (!settings.types.contains(type))
            settings.types.append(type);
    }
    if (settings.types.isEmpty())
        settings.types = boardTypes();
    return true;
}

bool Parser::readPorts(FindSettings &settings, QString *error) const
{
    const QStringList names = m_parser.values(m_port);
    for (const QString &name : names)
        settings.ports.append(portName(name));
    settings.ports.removeDuplicates();
    if (settings.ports.contains(QString())) {
        *error = tr("--port needs the name of a port, such as ttyACM0");
        return false;
    }
    return true;
}

bool Parser::readNumber(const QCommandLineOption &option, int highest, int &value, QString *error) const
{
    if (!m_parser.isSet(option))
        return true;
    const QString text = m_parser.value(option);
    bool ok = false;
    value = text.toInt(&ok);
    if (ok && value >= 0 && value <= highest)
        return true;
    *error = tr("--%1 \"%2\" is not allowed: give a whole number from 0 to %3")
                 .arg(option.names().first(), text)
                 .arg(highest);
    return false;
}

bool Parser::readPalette(Options &options, QString *error) const
{
    if (!m_parser.isSet(m_palette))
        return true;
    const QString text = m_parser.value(m_palette);
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

#pragma once

#include <common/searchsettings.h>
#include <fleet/brokersettings.h>
#include <jwmonitor/look/theme.h>

#include <QString>
#include <QStringList>

#include <optional>

namespace JwMonitor {

/// The options that the user gave on the command line.
struct Options
{
    enum Action { ShowWindow, ShowHelp, ShowVersion };

    Action action = ShowWindow;
    JwTools::SearchSettings settings; ///< the settings of the first search; without --type, they contain all types
    std::optional<JwFleet::BrokerSettings> broker; ///< the broker of --fleet, without client id and will
    QString prefix = QStringLiteral("jw"); ///< beginning of the topics of --fleet
    std::optional<Theme::Palette> palette; ///< the chosen palette; if empty, the desktop decides
};

/// Reads `arguments`; the first argument is the program's name. If an argument is wrong, returns nothing and sets
/// `error` to one line that says what is allowed.
std::optional<Options> parseOptions(const QStringList &arguments, QString *error);

/// Returns the text that --help prints.
QString helpText();

} // namespace JwMonitor

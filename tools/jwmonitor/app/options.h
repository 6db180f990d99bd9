#pragma once

#include <jwmonitor/find/findsettings.h>
#include <jwmonitor/look/theme.h>

#include <QString>
#include <QStringList>

#include <optional>

namespace JwMonitor {

/// The options of the command line.
struct Options
{
    enum Action { ShowWindow, ShowHelp, ShowVersion };

    Action action = ShowWindow;
    FindSettings settings; ///< without --type: all types
    std::optional<Theme::Palette> palette; ///< empty: as the desktop
};

/// Reads `arguments`; the first one is the program's name. On wrong use it returns nothing and sets `error` to one line
/// that says what is allowed.
std::optional<Options> parseOptions(const QStringList &arguments, QString *error);

/// The text of --help.
QString helpText();

} // namespace JwMonitor

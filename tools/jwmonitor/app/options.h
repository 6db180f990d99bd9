#pragma once

#include <jwmonitor/find/findsettings.h>
#include <jwmonitor/look/theme.h>

#include <QString>
#include <QStringList>

#include <optional>

namespace JwMonitor {

/// What the command line asks for.
struct Options
{
    enum Action { ShowWindow, ShowHelp, ShowVersion };

    Action action = ShowWindow;
    FindSettings settings; ///< all types when none is given
    std::optional<Theme::Palette> palette; ///< without one: as the system's own
};

/// Reads `arguments`, the first of which is the program's name. On wrong use nothing is returned, and `error` is one
/// line that says what is allowed.
std::optional<Options> parseOptions(const QStringList &arguments, QString *error);

/// What --help shows.
QString helpText();

} // namespace JwMonitor

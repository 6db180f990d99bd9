#pragma once

#include <common/searchsettings.h>

#include <logger/logger.h>

#include <QString>
#include <QStringList>

#include <optional>

namespace JwProbe {

/// What the command line asks for.
struct Options : JwTools::SearchSettings
{
    enum Action { Find, List, Doctor, Monitor, ShowUdevRules, ShowHelp, ShowVersion };

    Action action = Find;
    int deadline = 5000; ///< ms
    bool json = false;
    std::optional<Logger::Level> logLevel; ///< without one, the log stays hidden
    bool traffic = false;
    bool rawTraffic = false;
};

/// Reads `arguments`, the first of which is the program's name. On wrong use nothing is returned, and `error` is one
/// line that says what is allowed.
std::optional<Options> parseOptions(const QStringList &arguments, QString *error);

/// What --help shows.
QString helpText();

} // namespace JwProbe

#pragma once

#include <common/searchsettings.h>

#include <logger/logger.h>

#include <QString>
#include <QStringList>

#include <optional>

namespace JwProbe {

/// The options of the command line.
struct Options : JwTools::SearchSettings
{
    enum Action { Find, List, Doctor, Monitor, ShowUdevRules, ShowHelp, ShowVersion };

    Action action = Find;
    int deadline = 5000; ///< ms
    bool json = false;
    std::optional<Logger::Level> logLevel; ///< empty: the log stays hidden
    bool traffic = false;
    bool rawTraffic = false;
};

/// Reads `arguments`; the first one is the program's name. On wrong use it returns nothing and sets `error` to one line
/// that says what is allowed.
std::optional<Options> parseOptions(const QStringList &arguments, QString *error);

/// The text of --help.
QString helpText();

} // namespace JwProbe

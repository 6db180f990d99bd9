#pragma once

#include <common/searchsettings.h>
#include <jwprobe/search/portlist.h>

#include <logger/logger.h>

#include <QString>
#include <QStringList>

#include <optional>

namespace JwProbe {

/// The options that the user gave on the command line.
struct Options : JwTools::SearchSettings
{
    enum Action { Find, List, Doctor, Monitor, Watch, ShowUdevRules, ShowHelp, ShowVersion };

    Action action = Find;
    int deadline = 5000; ///< longest time of a search or a watch, in ms; 0: no limit
    QString id; ///< value of --id; empty if it was not given
    bool anyType = false; ///< one board of any type is enough, because --watch or --id was given without --type
    bool json = false;
    std::optional<Logger::Level> logLevel; ///< the level that --log names; if empty, the log is not shown
    bool traffic = false;
    bool rawTraffic = false;

    PortChoice portChoice() const { return {ports, id}; }
};

/// Reads `arguments`; the first argument is the program's name. If an argument is wrong, returns nothing and sets
/// `error` to one line that says what is allowed.
std::optional<Options> parseOptions(const QStringList &arguments, QString *error);

/// Returns the text that --help prints.
QString helpText();

} // namespace JwProbe

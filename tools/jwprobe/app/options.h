#pragma once

#include <common/searchsettings.h>
#include <fleet/brokersettings.h>
#include <jwprobe/search/portlist.h>

#include <logger/logger.h>

#include <QString>
#include <QStringList>

#include <optional>

namespace JwProbe {

/// The options that the user gave on the command line.
struct Options : JwTools::SearchSettings
{
    enum Action { Find, List, Doctor, Monitor, Watch, Fleet, ShowUdevRules, ShowHelp, ShowVersion };

    /// The values of --fleet and of the options that belong to it.
    struct FleetOptions
    {
        JwFleet::BrokerSettings broker; ///< without client id and will
        QString prefix = QStringLiteral("jw");
        bool withPayloads = false; ///< --monitor
        QString sendTo; ///< the board of --send
        QString line; ///< the line of --send; empty if it was not given
    };

    Action action = Find;
    int deadline = 5000; ///< longest time of a search, a watch or --send, in ms; 0: no limit
    QString id; ///< value of --id; empty if it was not given
    bool anyType =
        false; ///< one board of any type is enough, because --watch, --fleet or --id was given without --type
    FleetOptions fleet;
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

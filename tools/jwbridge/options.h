#pragma once

#include "spool.h"
#include <common/searchsettings.h>
#include <fleet/brokersettings.h>

#include <QString>
#include <QStringList>

#include <optional>

namespace JwBridge {

/// The options of the command line and of the file that --config names.
struct Options
{
    enum Action { Run, ShowHelp, ShowVersion };

    Action action = Run;
    JwTools::SearchSettings search;
    JwFleet::BrokerSettings broker; ///< without the will
    QString prefix = QStringLiteral("jw");
    QString host;
    QString spoolFolder;
    Spool::Limits spoolLimits;
    qint64 forgetAfter = 30 * 24 * 3600; ///< seconds
    bool readOnly = false;
    int txRate = 10; ///< sentences a second for each board
};

/// Reads the command line, and the file that it names. Returns nothing and sets `error` if something is wrong.
std::optional<Options> parseOptions(const QStringList &arguments, QString *error);

QString helpText();

} // namespace JwBridge

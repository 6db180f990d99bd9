#pragma once

#include <logger/logger.h>

#include <QList>
#include <QString>

namespace JwTools {

/// All levels of the log, the finest first.
QList<Logger::Level> logLevels();

/// The level's name, such as "Warning".
QString logLevelName(Logger::Level level);

} // namespace JwTools

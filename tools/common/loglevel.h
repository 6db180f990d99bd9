#pragma once

#include <logger/logger.h>

#include <QList>
#include <QString>

namespace JwTools {

/// Returns all levels of the log. The first level logs most.
QList<Logger::Level> logLevels();

/// Returns the name of a level, for example "Warning".
QString logLevelName(Logger::Level level);

} // namespace JwTools

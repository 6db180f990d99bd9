#pragma once

#include <logger/logger.h>

#include <QList>
#include <QString>

namespace JwTools {

/// Returns all levels of the log, from the lowest (Trace) to the highest (Fatal).
QList<Logger::Level> logLevels();

/// Returns the name of a level, for example "Warning".
QString logLevelName(Logger::Level level);

} // namespace JwTools

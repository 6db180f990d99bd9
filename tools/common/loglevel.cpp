#include "loglevel.h"

namespace JwTools {

QList<Logger::Level> logLevels()
{
    return {Logger::Trace, Logger::Debug, Logger::Info, Logger::Warning, Logger::Error, Logger::Fatal};
}

QString logLevelName(Logger::Level level)
{
    switch (level) {
    case Logger::Trace:
        return QStringLiteral("Trace");
    case Logger::Debug:
        return QStringLiteral("Debug");
    case Logger::Info:
        return QStringLiteral("Info");
    case Logger::Warning:
        return QStringLiteral("Warning");
    case Logger::Error:
        return QStringLiteral("Error");
    case Logger::Fatal:
        return QStringLiteral("Fatal");
    }
    return QString();
}

} // namespace JwTools

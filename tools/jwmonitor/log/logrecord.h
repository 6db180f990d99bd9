#pragma once

#include <logger/logger.h>

#include <QString>
#include <QtGlobal>

namespace JwMonitor {

/// One record of the library's log.
struct LogRecord
{
    qint64 timeUs; ///< since the epoch
    Logger::Level level;
    QString category; ///< empty for none
    QString text;
    QString place; ///< "communicator.cpp:87"
    QString function;
};

} // namespace JwMonitor

#pragma once

#include <logger/logger.h>

#include <QString>
#include <QtGlobal>

namespace JwMonitor {

/// One record of the library's log.
struct LogRecord
{
    qint64 timeUs; ///< microseconds since the epoch
    Logger::Level level;
    QString category; ///< name of the category; empty if the record has no category
    QString text;
    QString place; ///< source file and number of the line, for example "communicator.cpp:87"
    QString function;
};

} // namespace JwMonitor

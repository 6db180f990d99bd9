#pragma once

#include <logger/jwlogger_export.h>

#include <QDebug>
#include <QString>

#include <atomic>
#include <memory>

namespace spdlog {
namespace sinks {
class sink;
}
} // namespace spdlog

class CuteMessageLogger;

// The classes are in a namespace, because many programs have their own class Logger.
namespace JwLogger {

/**
 * A log. Each record has a level and, if you want, a category. The logger passes each record to all its spdlog sinks.
 * LOGGER_RECORD and libJwDevice write to the logger of the process, loggerInstance().
 *
 * By default, the level is Warning, and one sink writes to standard error. All functions may be called from any thread,
 * also from a sink.
 *
 * A sink receives each record as a `spdlog::details::log_msg` with these members:
 * - `level`: spdlog's levels trace to critical mean Trace to Fatal
 * - `logger_name`: the category; "" if the record has no category
 * - `source.filename` and `source.line`: the file name without folders, and the line
 * - `source.funcname`: the full signature of the calling function
 * - `payload`: the text in UTF-8, without a line end
 *
 * If a sink throws, the other sinks still get the record, and a line on standard error reports the lost record.
 *
 * Sinks run without a lock in the thread that logs. So if several threads log, use spdlog's `..._mt` sinks. The logger
 * never flushes a sink. Set the sink's own flush policy, so that a file contains the last lines after a crash.
 */
class JWLOGGER_EXPORT Logger
{
public:
    /// The levels of records. Fatal does not end the program.
    enum Level { Trace = 0, Debug = 1, Info = 2, Warning = 3, Error = 4, Fatal = 5 };

    Logger();
    ~Logger();
    Logger(const Logger &) = delete;
    Logger &operator=(const Logger &) = delete;

    /// Adds a sink, which gets every later record that the sink's own level allows. Null is ignored. If you add a sink
    /// twice, it gets every record twice.
    void addSink(std::shared_ptr<spdlog::sinks::sink> sink);
    /// Removes `sink`, even if it was added several times. A record that another thread is writing may still reach the
    /// sink.
    void removeSink(const std::shared_ptr<spdlog::sinks::sink> &sink);
    /// Removes all sinks, also the default sink, which writes to standard error.
    void clearSinks();

    /// Sets the general level. Records below this level are dropped, unless their category has its own level.
    void setLevel(Level level);
    /// Sets the level of one category. The category then ignores the general level. If `category` is empty, sets the
    /// general level.
    void setLevel(const QString &category, Level level);
    /// Returns whether a record of `level` in `category` would be written. `category` is in UTF-8; null or "" means no
    /// category. Allocates no memory.
    bool isEnabled(Level level, const char *category = nullptr) const
    {
        return level >= m_lowestLevel.load(std::memory_order_relaxed) && isEnabledFor(level, category);
    }

private:
    friend class ::CuteMessageLogger;

    bool isEnabledFor(Level level, const char *category) const;
    JWLOGGER_NO_EXPORT void updateLowestLevel();
    JWLOGGER_NO_EXPORT void write(Level level, const char *file, int line, const char *function, const char *category,
                                  const QString &text) noexcept;

    struct Private;
    const std::unique_ptr<Private> d;
    std::atomic<int> m_lowestLevel; // the lowest of all set levels; lets isEnabled() drop most records without a lock
};

/**
 * The stream of one record. It accepts the same values as QDebug and formats them in the same way. For example,
 * `<< "-> " << text` writes `->  "text"`, because QDebug puts a blank after each item and quotes around a QString. The
 * destructor writes the record, without the last blank. If the record is disabled, the stream ignores all values.
 */
class JWLOGGER_EXPORT LogStream
{
public:
    ~LogStream();
    LogStream(const LogStream &) = delete;
    LogStream &operator=(const LogStream &) = delete;

    /// Adds `value`, formatted by QDebug.
    template <typename T>
    LogStream &operator<<(const T &value)
    {
        if (m_record)
            stream() << value;
        return *this;
    }
    /// Applies `manipulator`, for example Qt::hex.
    LogStream &operator<<(QTextStreamFunction manipulator);
    LogStream &space(); ///< Does the same as QDebug::space().
    LogStream &nospace(); ///< Does the same as QDebug::nospace().
    LogStream &quote(); ///< Does the same as QDebug::quote().
    LogStream &noquote(); ///< Does the same as QDebug::noquote().

private:
    friend class ::CuteMessageLogger;

    struct Record;
    JWLOGGER_NO_EXPORT explicit LogStream(const CuteMessageLogger *place); // `place` is null if the record is disabled
    QDebug &stream();

    const std::unique_ptr<Record> m_record;
};

} // namespace JwLogger

#ifndef JWLOGGER_NO_ALIAS
// This alias is for shorter names. If your program has its own class Logger, define JWLOGGER_NO_ALIAS before you
// include this header, and write JwLogger::Logger.
using JwLogger::Logger;
#endif

/// Returns the logger of the process. This logger is never destroyed, so destructors of static objects may also log.
JWLOGGER_EXPORT JwLogger::Logger *loggerInstance();

/**
 * A place in the source that writes records. LOGGER_RECORD creates the object. The object keeps only the pointers
 * `file`, `function` and `category`, so the texts must exist as long as the object. String literals always do.
 */
class JWLOGGER_EXPORT CuteMessageLogger
{
public:
    /// `file` may contain folders; the record gets only the file name. If `category` is null, the record has no
    /// category.
    CuteMessageLogger(JwLogger::Logger *logger, JwLogger::Logger::Level level, const char *file, int line,
                      const char *function, const char *category = nullptr);

    /// Returns a stream that becomes one record.
    JwLogger::LogStream write() const;
    /// Formats `format` and the other arguments like QString::asprintf(), and writes the result as one record. A text
    /// for `%s` must be UTF-8. The locale does not change how numbers are written.
    void write(const char *format, ...) const Q_ATTRIBUTE_FORMAT_PRINTF(2, 3);

private:
    friend class JwLogger::LogStream;

    bool isEnabled() const { return m_logger->isEnabled(m_level, m_category); }
    JWLOGGER_NO_EXPORT void log(const QString &text) const;

    JwLogger::Logger *m_logger;
    JwLogger::Logger::Level m_level;
    const char *m_file;
    int m_line;
    const char *m_function;
    const char *m_category;
};

/**
 * Writes a record from this place in the source. `category` is null for a record without a category. Examples:
 * \code
 * LOGGER_RECORD(Logger::Trace, "Communication").write() << "-> " << payload;
 * LOGGER_RECORD(Logger::Warning, nullptr).write("%d of %d", i, n);
 * \endcode
 * If the record is disabled, the program does not evaluate the rest of the statement. The macro evaluates `level` and
 * `category` twice.
 */
#define LOGGER_RECORD(level, category)                                                                                 \
    for (bool loggerEnabled = ::loggerInstance()->isEnabled(level, category); loggerEnabled; loggerEnabled = false)    \
    ::CuteMessageLogger(::loggerInstance(), level, __FILE__, __LINE__, Q_FUNC_INFO, category)

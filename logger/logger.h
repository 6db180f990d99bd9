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

// In a namespace, because many programs have their own class Logger.
namespace JwLogger {

/**
 * A log. Each record has a level and perhaps a category, and goes to any number of spdlog sinks. LOGGER_RECORD writes
 * to the logger of the process, loggerInstance(); libJwDevice writes there too.
 *
 * At first the level is Warning, and one sink writes to standard error. All functions may be called from any thread,
 * also from a sink.
 *
 * A sink receives in its `spdlog::details::log_msg`: `level` (spdlog's trace to critical are Trace to Fatal),
 * `logger_name` = the category ("" for none), `source.filename` = the file name without folders, `source.line`,
 * `source.funcname` = the full signature of the calling function, `payload` = the text in UTF-8, without a line end.
 * If a sink throws, the other sinks still get the record; a line on standard error reports it.
 *
 * Sinks run in the thread that logs, without a lock. If several threads log, use spdlog's `..._mt` sinks. The logger
 * never flushes a sink: set the sink's own flush policy, so that a file has its last lines after a crash.
 */
class JWLOGGER_EXPORT Logger
{
public:
    /// Fatal is a level like the others; it does not end the program.
    enum Level { Trace = 0, Debug = 1, Info = 2, Warning = 3, Error = 4, Fatal = 5 };

    Logger();
    ~Logger();
    Logger(const Logger &) = delete;
    Logger &operator=(const Logger &) = delete;

    /// Sends every later record to `sink` too, if the sink's own level allows it. Null is ignored. A sink added twice
    /// gets every record twice.
    void addSink(std::shared_ptr<spdlog::sinks::sink> sink);
    /// Removes `sink`, however often it was added. A record that another thread writes just now may still reach it.
    void removeSink(const std::shared_ptr<spdlog::sinks::sink> &sink);
    /// Removes all sinks, also the sink that writes to standard error at first.
    void clearSinks();

    /// Sets the general level. Records below it are dropped, unless their category has its own level.
    void setLevel(Level level);
    /// Sets the level of one category. From then on the category ignores the general level. An empty category sets the
    /// general level.
    void setLevel(const QString &category, Level level);
    /// Whether a record of `level` in `category` would be written. `category` is UTF-8; null or "" is no category.
    /// Allocates no memory.
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
    std::atomic<int> m_lowestLevel; // of all levels that are set; for most records this test is enough
};

/**
 * The stream of one record. It takes the same values as QDebug and formats them as QDebug does: `<< "-> " << text`
 * gives
 * `->  "text"`, because QDebug puts a blank after each item and quotes around a QString. The destructor writes the
 * record, without the last blank. A stream of a disabled record ignores all values.
 */
class JWLOGGER_EXPORT LogStream
{
public:
    ~LogStream();
    LogStream(const LogStream &) = delete;
    LogStream &operator=(const LogStream &) = delete;

    /// Adds `value` as QDebug writes it.
    template <typename T>
    LogStream &operator<<(const T &value)
    {
        if (m_record)
            stream() << value;
        return *this;
    }
    /// Applies `manipulator`, such as Qt::hex.
    LogStream &operator<<(QTextStreamFunction manipulator);
    LogStream &space(); ///< as QDebug::space()
    LogStream &nospace(); ///< as QDebug::nospace()
    LogStream &quote(); ///< as QDebug::quote()
    LogStream &noquote(); ///< as QDebug::noquote()

private:
    friend class ::CuteMessageLogger;

    struct Record;
    JWLOGGER_NO_EXPORT explicit LogStream(const CuteMessageLogger *place); // null if the record is disabled
    QDebug &stream();

    const std::unique_ptr<Record> m_record;
};

} // namespace JwLogger

#ifndef JWLOGGER_NO_ALIAS
// If your program has its own Logger, define JWLOGGER_NO_ALIAS before this header, and write JwLogger::Logger::Trace.
using JwLogger::Logger;
#endif

/// The logger of the process. It is never destroyed, so destructors of static objects may still log.
JWLOGGER_EXPORT JwLogger::Logger *loggerInstance();

/**
 * One place in the source that writes records. LOGGER_RECORD creates it. The object keeps the pointers `file`,
 * `function` and `category`: they must outlive it, as literals do.
 */
class JWLOGGER_EXPORT CuteMessageLogger
{
public:
    /// `file` may contain folders; the record gets the file name only. A null `category` is no category.
    CuteMessageLogger(JwLogger::Logger *logger, JwLogger::Logger::Level level, const char *file, int line,
                      const char *function, const char *category = nullptr);

    /// Returns a stream that becomes one record.
    JwLogger::LogStream write() const;
    /// Writes one record, formatted by QString::asprintf(): texts are UTF-8, numbers do not depend on the locale.
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
 * Writes a record from this place in the source, in `category` (null for none):
 * \code
 * LOGGER_RECORD(Logger::Trace, "Communication").write() << "-> " << payload;
 * LOGGER_RECORD(Logger::Warning, nullptr).write("%d of %d", i, n);
 * \endcode
 * If the record is disabled, the rest of the statement is not evaluated. `level` and `category` are evaluated twice.
 */
#define LOGGER_RECORD(level, category)                                                                                 \
    for (bool loggerEnabled = ::loggerInstance()->isEnabled(level, category); loggerEnabled; loggerEnabled = false)    \
    ::CuteMessageLogger(::loggerInstance(), level, __FILE__, __LINE__, Q_FUNC_INFO, category)

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

// Programs often define their own Logger, so ours is in a namespace.
namespace JwLogger {

/**
 * A log: records of a level and an optional category go to any number of spdlog sinks. LOGGER_RECORD, and so
 * libJwDevice, writes to the one of the process, loggerInstance().
 *
 * At start its level is Warning and its one sink writes to standard error. All functions may be called from any thread,
 * also from within a sink.
 *
 * What a sink receives in its `spdlog::details::log_msg`: `level` (spdlog's trace to critical are Trace to Fatal),
 * `logger_name` = the category ("" for none), `source.filename` = the bare file name, `source.line`,
 * `source.funcname` = the full signature of the calling function, `payload` = the text in UTF-8, without a line end.
 * A sink that throws loses its own copy of the record only; a line on standard error says so.
 *
 * Sinks run in the thread that logs, without a lock: where several threads log, take spdlog's `..._mt` sinks. They are
 * never flushed from here: set their own policy, so that a file has its last lines after a crash.
 */
class JWLOGGER_EXPORT Logger
{
public:
    /// Fatal is a level like the others: it ends nothing.
    enum Level { Trace = 0, Debug = 1, Info = 2, Warning = 3, Error = 4, Fatal = 5 };

    Logger();
    ~Logger();
    Logger(const Logger &) = delete;
    Logger &operator=(const Logger &) = delete;

    /// Sends every later record to `sink` as well, as far as the sink's own level lets it through. Null is ignored; a
    /// sink added twice gets every record twice.
    void addSink(std::shared_ptr<spdlog::sinks::sink> sink);
    /// Takes `sink` out, however often it was added. A record on its way in another thread may still reach it.
    void removeSink(const std::shared_ptr<spdlog::sinks::sink> &sink);
    /// Takes all sinks out, also the first one that writes to standard error.
    void clearSinks();

    /// Sets the general level: records below it are dropped, unless their category has a level of its own.
    void setLevel(Level level);
    /// Sets the level of one category, which from then on counts in place of the general level, for good. An empty
    /// category means the general level.
    void setLevel(const QString &category, Level level);
    /// Whether a record of `level` in `category` (UTF-8; null or "" for none) would be written. Allocates nothing.
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
    std::atomic<int> m_lowestLevel; // of the general one and all categories: most records need no more than this
};

/**
 * The stream of one record: takes what QDebug takes and makes of it what QDebug makes, so `<< "-> " << text` reads
 * `->  "text"`: a literal as it stands, a separating blank, a QString between quotes. The record is written, without
 * the last separator, when the stream is destroyed. A stream of a disabled record does nothing with what it is given.
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
    JWLOGGER_NO_EXPORT explicit LogStream(const CuteMessageLogger *place); // null: the record is disabled
    QDebug &stream();

    const std::unique_ptr<Record> m_record;
};

} // namespace JwLogger

#ifndef JWLOGGER_NO_ALIAS
// If your program has another Logger, define JWLOGGER_NO_ALIAS before this header, and write JwLogger::Logger::Trace.
using JwLogger::Logger;
#endif

/// The logger of the process. Never destroyed, so that destructors of static objects may still log.
JWLOGGER_EXPORT JwLogger::Logger *loggerInstance();

/**
 * One place in the source from which records are written; made on the spot, most simply by LOGGER_RECORD. The pointers
 * are borrowed: `file`, `function` and `category` must outlive the object, as literals do.
 */
class JWLOGGER_EXPORT CuteMessageLogger
{
public:
    /// `file` may hold folders, the record carries the bare file name; `category` null means none.
    CuteMessageLogger(JwLogger::Logger *logger, JwLogger::Logger::Level level, const char *file, int line,
                      const char *function, const char *category = nullptr);

    /// A stream whose content becomes one record.
    JwLogger::LogStream write() const;
    /// One record, formatted as by printf (QString::asprintf: texts are UTF-8, numbers independent of the locale).
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
 * Writes a record from here, in `category` (null for none):
 * \code
 * LOGGER_RECORD(Logger::Trace, "Communication").write() << "-> " << payload;
 * LOGGER_RECORD(Logger::Warning, nullptr).write("%d of %d", i, n);
 * \endcode
 * When the record is disabled, nothing behind the macro is evaluated. `level` and `category` are evaluated twice.
 */
#define LOGGER_RECORD(level, category)                                                                                 \
    for (bool loggerEnabled = ::loggerInstance()->isEnabled(level, category); loggerEnabled; loggerEnabled = false)    \
    ::CuteMessageLogger(::loggerInstance(), level, __FILE__, __LINE__, Q_FUNC_INFO, category)

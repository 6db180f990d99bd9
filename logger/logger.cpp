#include "logger.h"

#include <spdlog/details/log_msg.h>
#include <spdlog/sinks/sink.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace JwLogger {

namespace {

using Sink = std::shared_ptr<spdlog::sinks::sink>;
using Sinks = std::vector<Sink>;

const char *bareFileName(const char *file)
{
    if (!file)
        return "";
    const char *name = file;
    for (const char *c = file; *c; ++c) {
        if (*c == '/' || *c == '\\')
            name = c + 1;
    }
    return name;
}

void reportLostRecord(const char *why) noexcept
{
    std::fprintf(stderr, "libLogger: a log sink failed and lost a record: %s\n", why);
}

} // namespace

struct Logger::Private
{
    mutable std::mutex mutex; // protects all members below; not locked while a sink runs, so a sink may use the logger
    // Each change replaces the whole list, so another thread can continue to use the old list.
    std::shared_ptr<const Sinks> sinks = std::make_shared<const Sinks>();
    int level = Logger::Warning;
    std::map<std::string, int, std::less<>> categoryLevels;

    template <typename Change>
    void changeSinks(Change change)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        auto changed = std::make_shared<Sinks>(*sinks);
        change(*changed);
        sinks = std::move(changed);
    }

    std::shared_ptr<const Sinks> currentSinks() const
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return sinks;
    }
};

Logger::Logger()
    : d(std::make_unique<Private>())
    , m_lowestLevel(Warning)
{
    addSink(std::make_shared<spdlog::sinks::stderr_sink_mt>());
}

Logger::~Logger() = default;

void Logger::addSink(std::shared_ptr<spdlog::sinks::sink> sink)
{
    if (sink)
        d->changeSinks([&sink](Sinks &sinks) { sinks.push_back(std::move(sink)); });
}

void Logger::removeSink(const std::shared_ptr<spdlog::sinks::sink> &sink)
{
    d->changeSinks([&sink](Sinks &sinks) { sinks.erase(std::remove(sinks.begin(), sinks.end(), sink), sinks.end()); });
}

void Logger::clearSinks()
{
    d->changeSinks([](Sinks &sinks) { sinks.clear(); });
}

void Logger::setLevel(Level level)
{
    const std::lock_guard<std::mutex> lock(d->mutex);
    d->level = level;
    updateLowestLevel();
}

void Logger::setLevel(const QString &category, Level level)
{
    if (category.isEmpty()) {
        setLevel(level);
        return;
    }
    const std::lock_guard<std::mutex> lock(d->mutex);
    d->categoryLevels[category.toStdString()] = level;
    updateLowestLevel();
}

void Logger::updateLowestLevel()
{
    int lowest = d->level;
    for (const auto &[category, level] : d->categoryLevels)
        lowest = std::min(lowest, level);
    m_lowestLevel.store(lowest, std::memory_order_relaxed);
}

bool Logger::isEnabledFor(Level level, const char *category) const
{
    const std::lock_guard<std::mutex> lock(d->mutex);
    if (category && *category) {
        const auto found = d->categoryLevels.find(std::string_view(category));
        if (found != d->categoryLevels.end())
            return level >= found->second;
    }
    return level >= d->level;
}

void Logger::write(Level level, const char *file, int line, const char *function, const char *category,
                   const QString &text) noexcept
{
    try {
        const QByteArray utf8 = text.toUtf8();
        const spdlog::details::log_msg message(
            spdlog::source_loc(bareFileName(file), line, function ? function : ""), category ? category : "",
            static_cast<spdlog::level::level_enum>(level),
            spdlog::string_view_t(utf8.constData(), static_cast<std::size_t>(utf8.size())));
        const std::shared_ptr<const Sinks> sinks = d->currentSinks();
        for (const Sink &sink : *sinks) {
            try {
                if (sink->should_log(message.level))
                    sink->log(message);
            } catch (const std::exception &exception) {
                reportLostRecord(exception.what());
            } catch (...) {
                reportLostRecord("unknown exception");
            }
        }
    } catch (const std::exception &exception) { // possible if there is no memory for the record
        reportLostRecord(exception.what());
    }
}

struct LogStream::Record
{
    explicit Record(const CuteMessageLogger &where)
        : place(where)
        , debug(&text)
    {
    }

    const CuteMessageLogger place;
    QString text;
    QDebug debug;
};

LogStream::LogStream(const CuteMessageLogger *place)
    : m_record(place ? std::make_unique<Record>(*place) : nullptr)
{
}

LogStream::~LogStream()
{
    if (!m_record)
        return;
    // QDebug puts a blank after every item, also after the last item, so the last blank is removed.
    if (m_record->debug.autoInsertSpaces() && m_record->text.endsWith(QLatin1Char(' ')))
        m_record->text.chop(1);
    m_record->place.log(m_record->text);
}

QDebug &LogStream::stream()
{
    return m_record->debug;
}

LogStream &LogStream::operator<<(QTextStreamFunction manipulator)
{
    if (m_record)
        m_record->debug << manipulator;
    return *this;
}

LogStream &LogStream::space()
{
    if (m_record)
        m_record->debug.space();
    return *this;
}

LogStream &LogStream::nospace()
{
    if (m_record)
        m_record->debug.nospace();
    return *this;
}

LogStream &LogStream::quote()
{
    if (m_record)
        m_record->debug.quote();
    return *this;
}

LogStream &LogStream::noquote()
{
    if (m_record)
        m_record->debug.noquote();
    return *this;
}

} // namespace JwLogger

JwLogger::Logger *loggerInstance()
{
    static auto *const instance = new JwLogger::Logger;
    return instance;
}

CuteMessageLogger::CuteMessageLogger(JwLogger::Logger *logger, JwLogger::Logger::Level level, const char *file,
                                     int line, const char *function, const char *category)
    : m_logger(logger)
    , m_level(level)
    , m_file(file)
    , m_line(line)
    , m_function(function)
    , m_category(category)
{
}

JwLogger::LogStream CuteMessageLogger::write() const
{
    return JwLogger::LogStream(isEnabled() ? this : nullptr);
}

void CuteMessageLogger::write(const char *format, ...) const
{
    if (!isEnabled())
        return;
    std::va_list arguments;
    va_start(arguments, format);
    const QString text = QString::vasprintf(format, arguments);
    va_end(arguments);
    log(text);
}

void CuteMessageLogger::log(const QString &text) const
{
    m_logger->write(m_level, m_file, m_line, m_function, m_category, text);
}

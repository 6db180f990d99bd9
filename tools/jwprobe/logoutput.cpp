#include "logoutput.h"

#include "options.h"

#include <spdlog/details/null_mutex.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/base_sink.h>

#include <cstdio>
#include <memory>
#include <set>
#include <string>

namespace JwProbe {

namespace {

class LogOutput : public spdlog::sinks::base_sink<spdlog::details::null_mutex>
{
public:
    LogOutput(int level, std::set<std::string> categories)
        : m_level(level)
        , m_categories(std::move(categories))
        , m_trafficFormat("%H:%M:%S.%e %-7l %n: %v")
    {
        set_pattern("%H:%M:%S.%e %-7l %s:%#: %v");
    }

protected:
    void sink_it_(const spdlog::details::log_msg &message) override
    {
        const std::string category(message.logger_name.data(), message.logger_name.size());
        if (message.level < m_level && m_categories.count(category) == 0)
            return;
        spdlog::memory_buf_t line;
        if (category.empty())
            formatter_->format(message, line);
        else
            m_trafficFormat.format(message, line);
        std::fwrite(line.data(), 1, line.size(), stderr);
    }
    void flush_() override { std::fflush(stderr); }

private:
    const int m_level;
    const std::set<std::string> m_categories; // shown whatever their level
    spdlog::pattern_formatter m_trafficFormat;
};

} // namespace

void setUpLogOutput(const Options &options)
{
    loggerInstance()->clearSinks();
    loggerInstance()->setLevel(Logger::Trace); // the sinks choose
    std::set<std::string> categories;
    if (options.traffic)
        categories.insert("Communication");
    if (options.rawTraffic)
        categories.insert("RawCommunication");
    const int level = options.logLevel ? *options.logLevel : Logger::Fatal + 1;
    if (options.logLevel || !categories.empty())
        loggerInstance()->addSink(std::make_shared<LogOutput>(level, categories));
}

} // namespace JwProbe

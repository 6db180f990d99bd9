#include "logoutput.h"

#include <jwprobe/app/options.h>

#include <spdlog/details/null_mutex.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/base_sink.h>

#include <cstdio>
#include <memory>

namespace JwProbe {

namespace {

// Writes every log record to standard error. This sink (output of the logger) needs no level, because the logger drops
// unwanted records before they reach a sink.
class LogOutput : public spdlog::sinks::base_sink<spdlog::details::null_mutex>
{
public:
    LogOutput()
        : m_trafficFormat("%H:%M:%S.%e %-7l %n: %v")
    {
        set_pattern("%H:%M:%S.%e %-7l %s:%#: %v");
    }

protected:
    void sink_it_(const spdlog::details::log_msg &message) override
    {
        spdlog::memory_buf_t line;
        if (message.logger_name.size() == 0)
            formatter_->format(message, line);
        else
            m_trafficFormat.format(message, line);
        std::fwrite(line.data(), 1, line.size(), stderr);
    }
    void flush_() override { std::fflush(stderr); }

private:
    spdlog::pattern_formatter m_trafficFormat;
};

} // namespace

void setUpLogOutput(const Options &options)
{
    Logger *logger = loggerInstance();
    logger->clearSinks();
    logger->setLevel(options.logLevel.value_or(Logger::Fatal));
    if (options.traffic)
        logger->setLevel(QStringLiteral("Communication"), Logger::Trace);
    if (options.rawTraffic)
        logger->setLevel(QStringLiteral("RawCommunication"), Logger::Trace);
    if (options.logLevel || options.traffic || options.rawTraffic)
        logger->addSink(std::make_shared<LogOutput>());
}

} // namespace JwProbe

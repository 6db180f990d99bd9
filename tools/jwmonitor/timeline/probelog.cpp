#include "probelog.h"

#include <logger/logger.h>

#include <spdlog/sinks/base_sink.h>

#include <chrono>
#include <mutex>

namespace JwMonitor {

namespace {

constexpr char payloads[] = "Communication";

} // namespace

class ProbeLog::Sink : public spdlog::sinks::base_sink<std::mutex>
{
public:
    explicit Sink(ProbeLog *log)
        : m_log(log)
    {
    }

    /// From now on it keeps quiet: a record on its way in another thread may come after the sink was taken out.
    void leave()
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        m_log = nullptr;
    }

protected:
    void sink_it_(const spdlog::details::log_msg &message) override
    {
        using namespace std::chrono;
        const bool isPayload = message.logger_name == payloads;
        if (!m_log || (!isPayload && message.logger_name.size() != 0))
            return;
        const ProbeRecord record{duration_cast<microseconds>(message.time.time_since_epoch()).count(), isPayload,
                                 QString::fromUtf8(message.payload.data(), static_cast<int>(message.payload.size()))};
        QMetaObject::invokeMethod(
            m_log, [log = m_log, record] { Q_EMIT log->recorded(record); }, Qt::QueuedConnection);
    }
    void flush_() override { }

private:
    ProbeLog *m_log;
};

ProbeLog::ProbeLog(QObject *parent)
    : QObject(parent)
    , m_sink(std::make_shared<Sink>(this))
{
}

ProbeLog::~ProbeLog()
{
    stop();
    m_sink->leave();
}

void ProbeLog::start()
{
    stop();
    loggerInstance()->addSink(m_sink);
}

void ProbeLog::stop()
{
    loggerInstance()->removeSink(m_sink);
}

bool ProbeLog::isFineEnough()
{
    return loggerInstance()->isEnabled(Logger::Trace) && loggerInstance()->isEnabled(Logger::Trace, payloads);
}

} // namespace JwMonitor

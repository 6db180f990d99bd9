#pragma once

#include "logrecord.h"

#include <QVector>

#include <spdlog/sinks/base_sink.h>

#include <functional>
#include <mutex>

namespace JwMonitor {

/// Keeps log records of any thread until somebody takes them.
class LogSink : public spdlog::sinks::base_sink<std::mutex>
{
public:
    /// `wake` is called in the thread that logs when there is something to take() again.
    explicit LogSink(const std::function<void()> &wake);

    /// Calls `wake` no more, from the moment on at which this returns.
    void silence();
    QVector<LogRecord> take();

protected:
    void sink_it_(const spdlog::details::log_msg &message) override;
    void flush_() override;

private:
    static constexpr int maxRecords = 100000; // the newest are lost when nobody takes them

    std::function<void()> m_wake;
    QVector<LogRecord> m_records;
};

} // namespace JwMonitor

#pragma once

#include "logrecord.h"

#include <QVector>

#include <spdlog/sinks/base_sink.h>

#include <functional>
#include <mutex>

namespace JwMonitor {

/// Keeps log records of all threads until take().
class LogSink : public spdlog::sinks::base_sink<std::mutex>
{
public:
    /// Calls `wake` in the logging thread when the first record is there to take().
    explicit LogSink(const std::function<void()> &wake);

    /// After this returns, `wake` is never called again.
    void silence();
    /// Removes and returns all records.
    QVector<LogRecord> take();

protected:
    void sink_it_(const spdlog::details::log_msg &message) override;
    void flush_() override;

private:
    static constexpr int maxRecords = 100000; // further records are dropped until take()

    std::function<void()> m_wake;
    QVector<LogRecord> m_records;
};

} // namespace JwMonitor

#pragma once

#include "logrecord.h"

#include <QVector>

#include <spdlog/sinks/base_sink.h>

#include <functional>
#include <mutex>

namespace JwMonitor {

/// A sink (output of the logger) that collects the log records of all threads until take() is called.
class LogSink : public spdlog::sinks::base_sink<std::mutex>
{
public:
    /// Calls `wake` when the first record after a take() arrives. The call is made in the thread that logs.
    explicit LogSink(const std::function<void()> &wake);

    /// After this function has returned, no thread calls `wake` any more.
    void silence();
    /// Removes and returns all records.
    QVector<LogRecord> take();

protected:
    void sink_it_(const spdlog::details::log_msg &message) override;
    void flush_() override;

private:
    static constexpr int maxRecords = 100000; // further records are dropped until take() is called

    std::function<void()> m_wake;
    QVector<LogRecord> m_records;
};

} // namespace JwMonitor

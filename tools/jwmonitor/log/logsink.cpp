#include "logsink.h"

#include <chrono>

namespace JwMonitor {

namespace {

QString text(spdlog::string_view_t view)
{
    return QString::fromUtf8(view.data(), static_cast<int>(view.size()));
}

} // namespace

LogSink::LogSink(const std::function<void()> &wake)
    : m_wake(wake)
{
}

void LogSink::silence()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    m_wake = nullptr;
}

QVector<LogRecord> LogSink::take()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    QVector<LogRecord> records;
    records.swap(m_records);
    return records;
}

void LogSink::sink_it_(const spdlog::details::log_msg &message)
{
    if (m_records.size() == maxRecords)
        return;
    const auto time = std::chrono::duration_cast<std::chrono::microseconds>(message.time.time_since_epoch());
    m_records.append({time.count(), static_cast<Logger::Level>(message.level), text(message.logger_name),
                      text(message.payload),
                      QStringLiteral("%1:%2").arg(QString::fromUtf8(message.source.filename)).arg(message.source.line),
                      QString::fromUtf8(message.source.funcname)});
    if (m_records.size() == 1 && m_wake)
        m_wake();
}

void LogSink::flush_()
{
}

} // namespace JwMonitor

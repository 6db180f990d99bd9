#pragma once

#include <logger/logger.h>

#include <QByteArray>
#include <QString>
#include <QVector>

#include <spdlog/details/null_mutex.h>
#include <spdlog/sinks/base_sink.h>

#include <memory>

/// One record as a sink sees it.
struct LogRecord
{
    Logger::Level level;
    QByteArray category;
    QByteArray file;
    int line;
    QByteArray function;
    QString text;
};

/// Keeps every record. For tests that log from one thread. A port that the system doesn't know has no name, and all
/// ports without one have the same lock file: if another process tries one at that moment, it counts as not found all
/// the same.
class RecordSink : public spdlog::sinks::base_sink<spdlog::details::null_mutex>
{
public:
    QVector<LogRecord> records;

    /// The records with this text.
    QVector<LogRecord> withText(const QString &text) const
    {
        QVector<LogRecord> found;
        for (const LogRecord &record : records) {
            if (record.text == text)
                found.append(record);
        }
        return found;
    }

protected:
    void sink_it_(const spdlog::details::log_msg &message) override
    {
        const auto bytes = [](spdlog::string_view_t view) {
            return QByteArray(view.data(), static_cast<int>(view.size()));
        };
        static const QString locked = QStringLiteral("Serial port not accessible:  \"\"  -  2");
        static const QString absent = QStringLiteral("Serial port not accessible:  \"\"  -  1");
        const QString text = QString::fromUtf8(bytes(message.payload));
        records.append({static_cast<Logger::Level>(message.level), bytes(message.logger_name), message.source.filename,
                        message.source.line, message.source.funcname, text == locked ? absent : text});
    }
    void flush_() override { }
};

/// While it lives, every record of every level goes to its sink, and none to standard error.
class LogCapture
{
public:
    explicit LogCapture(Logger::Level level = Logger::Trace)
        : sink(std::make_shared<RecordSink>())
    {
        loggerInstance()->clearSinks();
        loggerInstance()->addSink(sink);
        loggerInstance()->setLevel(level);
    }
    ~LogCapture()
    {
        loggerInstance()->removeSink(sink);
        loggerInstance()->setLevel(Logger::Warning);
    }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    const std::shared_ptr<RecordSink> sink;
};

#pragma once

#include <logger/logger.h>

#include <QByteArray>
#include <QString>
#include <QVector>

#include <spdlog/details/null_mutex.h>
#include <spdlog/sinks/base_sink.h>

#include <functional>
#include <memory>
#include <utility>

/// One log record.
struct LogRecord
{
    Logger::Level level;
    QByteArray category;
    QByteArray file;
    int line;
    QByteArray function;
    QString text;
};

/// A log sink that calls a function with every record. It has no mutex, so only one thread may log.
class RecordForwarder : public spdlog::sinks::base_sink<spdlog::details::null_mutex>
{
public:
    using Receiver = std::function<void(const LogRecord &record)>;

    explicit RecordForwarder(Receiver receiver)
        : m_receiver(std::move(receiver))
    {
    }

protected:
    void sink_it_(const spdlog::details::log_msg &message) override
    {
        const auto bytes = [](spdlog::string_view_t view) {
            return QByteArray(view.data(), static_cast<int>(view.size()));
        };
        // QSerialPort locks a port by a file with the port's name. A port that the system doesn't know has an empty
        // name, so all such ports share one lock file. If another test program holds this lock, the logged error is 2
        // (permission) instead of 1 (not found). Record 1 in both cases, so that tests can expect one text.
        static const QString locked = QStringLiteral("Serial port not accessible:  \"\"  -  2");
        static const QString absent = QStringLiteral("Serial port not accessible:  \"\"  -  1");
        const QString text = QString::fromUtf8(bytes(message.payload));
        m_receiver({static_cast<Logger::Level>(message.level), bytes(message.logger_name), message.source.filename,
                    message.source.line, message.source.funcname, text == locked ? absent : text});
    }
    void flush_() override { }

private:
    const Receiver m_receiver;
};

/// A log sink that stores every record.
class RecordSink : public RecordForwarder
{
public:
    RecordSink()
        : RecordForwarder([this](const LogRecord &record) { records.append(record); })
    {
    }

    QVector<LogRecord> records;

    /// Returns the records with this text.
    QVector<LogRecord> withText(const QString &text) const
    {
        QVector<LogRecord> found;
        for (const LogRecord &record : records) {
            if (record.text == text)
                found.append(record);
        }
        return found;
    }
};

/// Captures the log while this object exists: records of `level` or higher are stored in `sink` and are not written to
/// standard error.
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

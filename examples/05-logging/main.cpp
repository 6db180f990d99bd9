// Writes the traffic with the boards to a rotating file, and turns every record into a Qt message.
#include <device/initializer.h>
#include <logger/logger.h>

#include <QCoreApplication>
#include <QIODevice>
#include <QTimer>

#include <spdlog/sinks/rotating_file_sink.h>

/// Hands records with their category to Qt's message handler.
class QtSink : public spdlog::sinks::base_sink<std::mutex>
{
    void sink_it_(const spdlog::details::log_msg &record) override
    {
        // Fatal becomes critical, because a fatal Qt message would end the program.
        const QtMsgType types[] = {QtDebugMsg, QtDebugMsg, QtInfoMsg, QtWarningMsg, QtCriticalMsg, QtCriticalMsg};
        const std::string category(record.logger_name.data(), record.logger_name.size());
        const QMessageLogContext place(record.source.filename, record.source.line, record.source.funcname,
                                       category.empty() ? "default" : category.c_str());
        qt_message_output(types[record.level], place,
                          QString::fromUtf8(record.payload.data(), static_cast<int>(record.payload.size())));
    }
    void flush_() override { }
};

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    std::shared_ptr<spdlog::sinks::sink> file;
    try { // keeps the newest file and three old files, each with up to a million bytes
        file = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(argc > 1 ? argv[1] : "traffic.log", 1000000, 3);
    } catch (const spdlog::spdlog_ex &error) {
        qCritical("%s; give the name of a file that can be written", error.what());
        return 1;
    }
    file->set_pattern("%Y-%m-%d %H:%M:%S.%e %n %v");
    loggerInstance()->clearSinks(); // removes the default sink, which would also write warnings to standard error
    loggerInstance()->addSink(file);
    loggerInstance()->addSink(std::make_shared<QtSink>());
    loggerInstance()->setLevel(QStringLiteral("Communication"), Logger::Trace); // other categories stay at Warning
    QTimer flush; // flushes the file each second, so a crash loses at most one second of records
    QObject::connect(&flush, &QTimer::timeout, [&] { file->flush(); });
    flush.start(1000);

    QObject owner; // parent of the board's port
    JwDevice::Initializer initializer;
    QObject::connect(&initializer, &JwDevice::Initializer::deviceInitialized, &app, [&](JwDevice::Type, auto *board) {
        board->device()->setParent(&owner);
        board->setParent(board->device());
        app.quit();
    });
    QObject::connect(&initializer, &JwDevice::Initializer::deviceNotFound, &app, [&] {
        qWarning("no BoardA; jwprobe --type BoardA says why");
        app.exit(1);
    });
    QTimer::singleShot(0, &initializer, [&] { initializer.probe({JwDevice::BoardA}); });
    return app.exec();
}

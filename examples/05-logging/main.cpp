// Writes the traffic with the boards to a rotating file, and makes a Qt message of every record.
#include <device/initializer.h>
#include <logger/logger.h>

#include <QCoreApplication>
#include <QIODevice>
#include <QTimer>

#include <spdlog/sinks/rotating_file_sink.h>

/// Hands records to Qt's message handler, with their category.
class QtSink : public spdlog::sinks::base_sink<std::mutex>
{
    void sink_it_(const spdlog::details::log_msg &record) override
    {
        // Fatal is a level like the others here, while a fatal message of Qt's ends the program.
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
    try { // three old files beside the newest, of a million bytes each
        file = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(argc > 1 ? argv[1] : "traffic.log", 1000000, 3);
    } catch (const spdlog::spdlog_ex &error) {
        qCritical("%s; give the name of a file that can be written", error.what());
        return 1;
    }
    file->set_pattern("%Y-%m-%d %H:%M:%S.%e %n %v");
    loggerInstance()->clearSinks(); // or warnings come twice: the first sink writes to standard error, as Qt does
    loggerInstance()->addSink(file);
    loggerInstance()->addSink(std::make_shared<QtSink>());
    loggerInstance()->setLevel(QStringLiteral("Communication"), Logger::Trace); // all else starts at Warning
    QTimer flush; // nobody else does it: now a crash loses no more than the last second
    QObject::connect(&flush, &QTimer::timeout, [&] { file->flush(); });
    flush.start(1000);

    QObject owner; // of the board
    JwDevice::Initializer initializer;
    QObject::connect(&initializer, &JwDevice::Initializer::deviceInitialized, &app, [&](JwDevice::Type, auto *board) {
        board->device()->setParent(&owner);
        board->setParent(board->device());
        app.quit();
    });
    QObject::connect(&initializer, &JwDevice::Initializer::deviceNotFound, &app, [&] {
        qWarning("no BoardA; jwprobe --type BoardA tells why");
        app.exit(1);
    });
    QTimer::singleShot(0, &initializer, [&] { initializer.probe({JwDevice::BoardA}); });
    return app.exec();
}

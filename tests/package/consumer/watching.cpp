// Waits for a BoardA with a watch, and prints the library's log to standard output.
#include <logger/logger.h>
#include <watch/boardwatch.h>

#include <QCoreApplication>

#include <spdlog/sinks/stdout_sinks.h>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    loggerInstance()->addSink(std::make_shared<spdlog::sinks::stdout_sink_mt>());
    loggerInstance()->setLevel(QStringLiteral("Communication"), JwLogger::Logger::Trace);

    JwDevice::BoardWatch watch;
    watch.setTypes({JwDevice::BoardA});
    QObject::connect(&watch, &JwDevice::BoardWatch::boardFound, &application, [](const JwDevice::Board &board) {
        std::printf("found %d on %s\n", board.type, qPrintable(board.portName));
        QCoreApplication::quit();
    });
    watch.start();
    return application.exec();
}

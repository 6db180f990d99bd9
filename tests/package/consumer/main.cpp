// Searches for a BoardA, and prints the library's log to standard output. The exit status is 0 if a BoardA was found.
#include <device/initializer.h>
#include <logger/logger.h>
#ifdef JWLOGGER_NO_ALIAS
#include "namesakes.h"
#endif

#include <QCoreApplication>
#include <QSerialPort>

#include <spdlog/sinks/stdout_sinks.h>

#include <cstdio>

#ifndef JWLOGGER_NO_ALIAS
static_assert(Logger::Trace == JwLogger::Logger::Trace, "Logger is JwLogger::Logger");
#endif

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    loggerInstance()->addSink(std::make_shared<spdlog::sinks::stdout_sink_mt>());
    loggerInstance()->setLevel(QStringLiteral("Communication"), JwLogger::Logger::Trace);

    JwDevice::Initializer initializer;
    QObject::connect(&initializer, &JwDevice::Initializer::deviceInitialized, &application,
                     [](JwDevice::Type type, JwDevice::Communicator *board) {
                         auto *port = static_cast<QSerialPort *>(board->device());
                         std::printf("found %d on %s\n", type, qPrintable(port->portName()));
                         board->deleteLater();
                         port->deleteLater();
                         QCoreApplication::quit();
                     });
    QObject::connect(
        &initializer, &JwDevice::Initializer::deviceNotFound, &application, [] { QCoreApplication::exit(1); },
        Qt::QueuedConnection);
    initializer.probe({JwDevice::BoardA});
    return application.exec();
}

#include "bridge.h"
#include "message.h"
#include "options.h"
#include <jwprobe/app/signalwatch.h>

#include <logger/logger.h>

#include <QCoreApplication>

#include <csignal>
#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

using namespace JwBridge;

namespace {

constexpr int failed = 1;
constexpr int wrongUse = 2;

// Opens /dev/null for each standard stream that is closed. Otherwise a port or the spool could get the descriptor
// number of that stream, and a message would be written there.
void openStandardStreams()
{
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) < 0 && ::open("/dev/null", O_RDWR) < 0)
            ::_exit(wrongUse);
    }
}

int print(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    return std::fputs(bytes.constData(), stdout) >= 0 && std::fflush(stdout) == 0 ? 0 : failed;
}

int run(const Options &options)
{
    JwProbe::SignalWatch signalWatch;
    JwProbe::SignalWatch::setExitStatus(0); // success, because a signal is the normal end of a service
    Bridge bridge(options);
    QObject::connect(&signalWatch, &JwProbe::SignalWatch::received, &QCoreApplication::exit);
    return bridge.start() ? QCoreApplication::exec() : failed;
}

} // namespace

int main(int argc, char **argv)
{
    openStandardStreams();
    std::signal(SIGPIPE, SIG_IGN); // libmosquitto and OpenSSL write to sockets that the broker may have closed
    std::signal(SIGXFSZ, SIG_IGN); // if the size of files is limited, only the write fails
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("jwbridge"));
    loggerInstance()->setLevel(Logger::Fatal);

    QString error;
    const std::optional<Options> options = parseOptions(QCoreApplication::arguments(), &error);
    if (!options) {
        say(error);
        return wrongUse;
    }
    switch (options->action) {
    case Options::ShowHelp:
        return print(helpText());
    case Options::ShowVersion:
        return print(QStringLiteral("jwbridge " JWBRIDGE_VERSION "\n"));
    case Options::Run:
        break;
    }
    return run(*options);
}

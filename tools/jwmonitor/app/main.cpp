#include "mainwindow.h"
#include "options.h"

#ifdef JWMONITOR_HAS_FLEET
#include <jwmonitor/fleet/fleetboards.h>
#endif
#include <jwmonitor/look/qtversion.h>

#include <logger/logger.h>

#include <QApplication>
#include <QIcon>
#include <QTextStream>

#include <csignal>
#include <cstdio>

namespace {

/// Returns whether there is a desktop that can show a window. Without a desktop, Qt aborts with a message that does not
/// help the user, so the program has to check first.
bool hasDisplay(const QStringList &arguments)
{
    return !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")
        || !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") || arguments.contains(QLatin1String("-platform"))
        || arguments.contains(QLatin1String("--platform"));
}

int show(FILE *file, const QString &text, int status)
{
    QTextStream(file) << text << Qt::endl;
    return status;
}

} // namespace

int main(int argc, char **argv)
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    QString error;
    std::optional<JwMonitor::Options> options = JwMonitor::parseOptions(arguments, &error);
    if (options && options->action == JwMonitor::Options::ShowHelp) {
        const QCoreApplication app(argc, argv); // the texts are translated only while an application exists
        return show(stdout, JwMonitor::helpText().trimmed(), 0);
    }
    if (options && options->action == JwMonitor::Options::ShowVersion)
        return show(stdout, QStringLiteral("jwmonitor " JWMONITOR_VERSION), 0);
    bool isBlind = false;
#ifdef Q_OS_LINUX
    isBlind = !hasDisplay(arguments);
    if (isBlind)
        qputenv("QT_QPA_PLATFORM", "offscreen"); // so that QApplication starts and reads Qt's own options
#endif

    JwMonitor::enableHighDpi();
    QApplication app(argc, argv);
    QGuiApplication::setWindowIcon(QIcon(QStringLiteral(":/jwmonitor/jwmonitor.svg")));
    QGuiApplication::setDesktopFileName(QStringLiteral("jwmonitor"));
    QCoreApplication::setApplicationName(QStringLiteral("jwmonitor"));
    QCoreApplication::setApplicationVersion(QStringLiteral(JWMONITOR_VERSION));
    // Qt's own options, for example -platform, were an error in the first call. QApplication has removed them.
    options = JwMonitor::parseOptions(QCoreApplication::arguments(), &error);
    if (!options)
        return show(stderr, QStringLiteral("jwmonitor: ") + error, 2);
#ifndef JWMONITOR_HAS_FLEET
    if (options->broker)
        return show(stderr,
                    QStringLiteral("jwmonitor: this jwmonitor was built without --fleet: build it with "
                                   "JWDEVICE_BUILD_BRIDGE=ON"),
                    2);
#endif
    if (isBlind)
        return show(stderr,
                    QStringLiteral("jwmonitor: there is no display here (neither DISPLAY nor WAYLAND_DISPLAY "
                                   "is set): start it on a desktop, or use jwprobe"),
                    1);

    // The window shows the log, so nothing is printed. All levels are logged, because the window can filter them.
    loggerInstance()->clearSinks();
    loggerInstance()->setLevel(Logger::Trace);
    JwMonitor::Theme::apply(app, options->palette.value_or(JwMonitor::Theme::of(QApplication::palette())));
#ifdef JWMONITOR_HAS_FLEET
    if (options->broker) {
        std::signal(SIGPIPE, SIG_IGN); // libmosquitto and OpenSSL write to sockets that the broker may have closed
        JwMonitor::FleetBoards boards(*options->broker, options->prefix);
        JwMonitor::MainWindow window(&boards);
        window.show();
        boards.start();
        return QApplication::exec();
    }
#endif
    JwMonitor::MainWindow window;
    window.show();
    window.find(options->settings);
    return QApplication::exec();
}

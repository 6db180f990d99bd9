// Measures how soon a BoardWatch hands over boards that are plugged in, and how much processor time it takes while
// nothing happens. Writes the results as JSON. plug.py starts this program under jwsim, which plugs the boards in.
#include <logger/logger.h>
#include <watch/boardwatch.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <dlfcn.h>
#include <libudev.h>
#include <mutex>
#include <poll.h>
#include <sys/resource.h>
#include <thread>
#include <time.h>

using JwDevice::Board;
using JwDevice::BoardWatch;
using JwDevice::PortEvent;

namespace {

bool isWithoutEvents = false; // whether the watch gets no events from udev; then it lists the ports

double milliseconds()
{
    timespec now;
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

/// Notes when udev's event of each new port arrives. Has its own thread, so that a busy watch does not delay it.
class Arrivals
{
public:
    Arrivals()
        : m_context(udev_new())
        , m_monitor(udev_monitor_new_from_netlink(m_context, "udev"))
    {
        udev_monitor_filter_add_match_subsystem_devtype(m_monitor, "tty", nullptr);
        if (udev_monitor_enable_receiving(m_monitor) < 0)
            qFatal("no events of udev");
        std::thread([this] { run(); }).detach(); // ends with the process
    }

    /// Returns the time of the port's newest event, or 0 if there was none.
    double of(const QString &portName)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_times.value(portName);
    }

private:
    void run()
    {
        pollfd polled = {udev_monitor_get_fd(m_monitor), POLLIN, 0};
        while (::poll(&polled, 1, -1) >= 0) {
            const double now = milliseconds();
            while (udev_device *const device = udev_monitor_receive_device(m_monitor)) {
                if (qstrcmp(udev_device_get_action(device), "add") == 0) {
                    const std::lock_guard<std::mutex> lock(m_mutex);
                    m_times.insert(QString::fromLocal8Bit(udev_device_get_sysname(device)), now);
                }
                udev_device_unref(device);
            }
        }
    }

    udev *const m_context;
    udev_monitor *const m_monitor;
    std::mutex m_mutex;
    QHash<QString, double> m_times; // in ms, by port name
};

/// Times of one port, in ms.
struct Times
{
    double opened = 0;
    double asked = 0;
    double answered = 0;
    double found = 0;
};

QJsonObject usage()
{
    rusage used;
    ::getrusage(RUSAGE_SELF, &used);
    const auto inMs = [](const timeval &time) {
        return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
    };
    return {{QStringLiteral("processorMs"), inMs(used.ru_utime) + inMs(used.ru_stime)},
            {QStringLiteral("switches"), static_cast<double>(used.ru_nvcsw)}};
}

/// Finds `boards` boards in each of `rounds` rounds, and then rests for `rest` ms.
class Measurement
{
public:
    Measurement(int boards, int rounds, int rest)
        : m_boards(boards)
        , m_rounds(rounds)
        , m_rest(rest)
    {
        m_watch.setPortObserver([this](const PortEvent &event) {
            Times &times = m_times[event.portName];
            if (event.kind == PortEvent::Opened)
                times.opened = milliseconds();
            else if (event.kind == PortEvent::Asked)
                times.asked = milliseconds();
            else if (event.kind == PortEvent::Answered)
                times.answered = milliseconds();
        });
        for (const auto signal : {&BoardWatch::boardFound, &BoardWatch::boardBack})
            QObject::connect(&m_watch, signal, [this](const Board &board) { onThere(board); });
    }

    void start(int pollInterval)
    {
        if (pollInterval > 0) {
            isWithoutEvents = true;
            m_watch.setPollInterval(pollInterval);
        }
        m_watch.start();
    }

private:
    void onThere(const Board &board)
    {
        m_times[board.portName].found = milliseconds();
        if (m_watch.boards().size() == m_boards)
            QTimer::singleShot(0, &m_watch, [this] { endRound(); });
    }

    void endRound()
    {
        QJsonArray ports;
        for (auto it = m_times.cbegin(); it != m_times.cend(); ++it) {
            const double arrived = m_arrivals.of(it.key());
            ports << QJsonObject{{QStringLiteral("event"), arrived},
                                 {QStringLiteral("opened"), it->opened},
                                 {QStringLiteral("asked"), it->asked},
                                 {QStringLiteral("answered"), it->answered},
                                 {QStringLiteral("found"), it->found}};
        }
        m_times.clear();
        m_results << ports;
        if (m_results.size() < m_rounds)
            return;
        const QJsonObject before = usage();
        QTimer::singleShot(m_rest, &m_watch, [this, before] {
            const QJsonObject rest{{QStringLiteral("before"), before}, {QStringLiteral("after"), usage()}};
            const QJsonObject result{{QStringLiteral("rounds"), m_results}, {QStringLiteral("rest"), rest}};
            std::puts(QJsonDocument(result).toJson(QJsonDocument::Compact).constData());
            QCoreApplication::quit();
        });
    }

    const int m_boards;
    const int m_rounds;
    const int m_rest;
    Arrivals m_arrivals;
    BoardWatch m_watch;
    QHash<QString, Times> m_times; // by port name
    QJsonArray m_results;
};

} // namespace

extern "C" {

/// Replaces libudev's function of this name. Gives the watch no events if isWithoutEvents.
__attribute__((visibility("default"))) udev_monitor *udev_monitor_new_from_netlink(udev *context, const char *name)
{
    static const auto real =
        reinterpret_cast<decltype(&udev_monitor_new_from_netlink)>(::dlsym(RTLD_NEXT, "udev_monitor_new_from_netlink"));
    return isWithoutEvents ? nullptr : real(context, name);
}

} // extern "C"

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addOptions({
        {QStringLiteral("boards"), QStringLiteral("Number of boards in each round."), QStringLiteral("number"),
         QStringLiteral("1")},
        {QStringLiteral("rounds"), QStringLiteral("Number of rounds."), QStringLiteral("number"), QStringLiteral("1")},
        {QStringLiteral("poll"), QStringLiteral("List the ports at this interval, without events of udev."),
         QStringLiteral("ms")},
        {QStringLiteral("rest"), QStringLiteral("Time after the last round."), QStringLiteral("ms"),
         QStringLiteral("0")},
    });
    parser.process(application);
    const auto number = [&parser](const char *option) { return parser.value(QLatin1String(option)).toInt(); };

    loggerInstance()->setLevel(Logger::Fatal);
    Measurement measurement(number("boards"), number("rounds"), number("rest"));
    measurement.start(number("poll"));
    return QCoreApplication::exec();
}

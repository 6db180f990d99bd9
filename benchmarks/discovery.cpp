// Probes all ports several times and writes the time of each step as JSON. discovery.py starts this program under
// jwsim. So the simulated boards are in another process, and answer while this process opens ports.
#include "sentences.h"

#include <device/boardrules.h>
#include <device/initializer.h>
#include <logger/logger.h>

#include <spdlog/details/log_msg.h>
#include <spdlog/sinks/base_sink.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaEnum>
#include <QSerialPort>
#include <QSerialPortInfo>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

using JwDevice::Communicator;
using JwDevice::Initializer;
using JwDevice::Type;

namespace {

constexpr int longestProbe = 10000; // ms

double milliseconds(qint64 nanoseconds)
{
    return static_cast<double>(nanoseconds) / 1e6;
}

/// Measures how long each event of the event loop takes, and keeps the longest time.
class WatchedApplication : public QCoreApplication
{
public:
    using QCoreApplication::QCoreApplication;

    bool notify(QObject *receiver, QEvent *event) override
    {
        if (m_inside)
            return QCoreApplication::notify(receiver, event);
        const char *const className = receiver->metaObject()->className();
        const QEvent::Type type = event->type();
        QElapsedTimer timer;
        timer.start();
        m_inside = true;
        const bool result = QCoreApplication::notify(receiver, event);
        m_inside = false;
        if (timer.nsecsElapsed() > m_longest) {
            m_longest = timer.nsecsElapsed();
            m_className = className;
            m_type = type;
        }
        return result;
    }

    void restart() { m_longest = 0; }
    QJsonObject longest() const
    {
        return {{QStringLiteral("ms"), milliseconds(m_longest)},
                {QStringLiteral("receiver"), QLatin1String(m_className)},
                {QStringLiteral("event"), QLatin1String(QMetaEnum::fromType<QEvent::Type>().valueToKey(m_type))}};
    }

private:
    bool m_inside = false;
    qint64 m_longest = 0;
    const char *m_className = "";
    QEvent::Type m_type = QEvent::None;
};

/// Finds the end of a probe in the log, because no signal reports that end.
class EndOfProbe : public spdlog::sinks::base_sink<std::mutex>
{
public:
    std::function<void()> reached;

protected:
    void sink_it_(const spdlog::details::log_msg &message) override
    {
        if (message.payload == "Disconnect from signals")
            reached();
    }
    void flush_() override { }
};

/// Returns the milliseconds that opening each port takes without the library. As in a probe, every port stays open
/// until the last port is open.
QJsonArray openAll(const QList<QSerialPortInfo> &infos)
{
    QJsonArray opens;
    QList<QSerialPort *> ports;
    for (const QSerialPortInfo &info : infos) {
        QElapsedTimer timer;
        timer.start();
        auto *port = new QSerialPort(info);
        if (!port->open(QIODevice::ReadWrite))
            qFatal("%s: %s", qUtf8Printable(info.portName()), qUtf8Printable(port->errorString()));
        port->setBaudRate(QSerialPort::Baud115200);
        opens << milliseconds(timer.nsecsElapsed());
        ports << port;
    }
    qDeleteAll(ports);
    return opens;
}

/// Sends queries to the first `boards` ports without the library. Returns the milliseconds until
/// all of them answered.
double exchange(QList<QSerialPortInfo> infos, int boards)
{
    std::sort(infos.begin(), infos.end(), [&](const auto &a, const auto &b) {
        return std::make_pair(a.portName().size(), a.portName()) < std::make_pair(b.portName().size(), b.portName());
    });
    QEventLoop loop;
    std::vector<std::unique_ptr<QSerialPort>> ports;
    int answers = 0;
    for (const QSerialPortInfo &info : infos.mid(0, boards)) {
        ports.push_back(std::make_unique<QSerialPort>(info));
        QSerialPort *const port = ports.back().get();
        if (!port->open(QIODevice::ReadWrite))
            qFatal("%s: %s", qUtf8Printable(info.portName()), qUtf8Printable(port->errorString()));
        QObject::connect(port, &QSerialPort::readyRead, [&, port] {
            if (port->canReadLine() && ++answers == boards)
                loop.quit();
        });
    }
    QElapsedTimer timer;
    timer.start();
    for (const auto &port : ports) {
        port->write(versionQuery);
        port->write(informationRequest);
        port->flush();
    }
    loop.exec();
    return milliseconds(timer.nsecsElapsed());
}

QJsonObject probeOnce(WatchedApplication &application, EndOfProbe &end, const QList<Type> &types, bool named, bool bare)
{
    QElapsedTimer clock;
    clock.start();
    const QList<QSerialPortInfo> infos = QSerialPortInfo::availablePorts();
    const double enumeration = milliseconds(clock.nsecsElapsed());
    const double exchanged = bare ? exchange(infos, static_cast<int>(types.size())) : -1;
    const QJsonArray opens = openAll(infos);
    QStringList names;
    if (named) {
        for (const QSerialPortInfo &info : infos)
            names << info.portName();
    }

    QJsonArray found;
    QJsonArray notFound;
    QList<Communicator *> handedOver;
    Initializer initializer;
    QObject::connect(&initializer, &Initializer::deviceInitialized, [&](Type type, Communicator *comm) {
        found << QJsonObject{{QStringLiteral("type"), static_cast<int>(type)},
                             {QStringLiteral("ms"), milliseconds(clock.nsecsElapsed())}};
        handedOver << comm;
    });
    QObject::connect(&initializer, &Initializer::deviceNotFound, [&](Type type) {
        notFound << QJsonObject{{QStringLiteral("type"), static_cast<int>(type)},
                                {QStringLiteral("ms"), milliseconds(clock.nsecsElapsed())}};
    });
    double settled = -1;
    QEventLoop loop;
    end.reached = [&] {
        settled = milliseconds(clock.nsecsElapsed());
        loop.quit();
    };
    QTimer guard;
    guard.setSingleShot(true);
    QObject::connect(&guard, &QTimer::timeout, &loop, &QEventLoop::quit);
    guard.start(longestProbe);

    application.restart();
    clock.start();
    initializer.probe(types, 0, names);
    const double probe = milliseconds(clock.nsecsElapsed());
    loop.exec();

    for (Communicator *comm : std::as_const(handedOver)) {
        delete comm->device();
        delete comm;
    }
    return {{QStringLiteral("ports"), infos.size()}, {QStringLiteral("enumeration"), enumeration},
            {QStringLiteral("opens"), opens},        {QStringLiteral("probe"), probe},
            {QStringLiteral("found"), found},        {QStringLiteral("notFound"), notFound},
            {QStringLiteral("settled"), settled},    {QStringLiteral("stall"), application.longest()},
            {QStringLiteral("exchange"), exchanged}};
}

QList<Type> typesOf(const QString &letters)
{
    QList<Type> types;
    for (const QChar letter : letters) {
        const Type type = static_cast<Type>(letter.unicode() - 'A' + JwDevice::BoardA);
        if (!JwDevice::boardTypes().contains(type))
            qFatal("--types takes the last letters of board types, for example AC");
        types << type;
    }
    return types;
}

} // namespace

int main(int argc, char **argv)
{
    WatchedApplication application(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addOptions({
        {QStringLiteral("types"), QStringLiteral("Letters of the boards to look for."), QStringLiteral("letters"),
         QStringLiteral("A")},
        {QStringLiteral("probes"), QStringLiteral("Number of probes."), QStringLiteral("number"), QStringLiteral("5")},
        {QStringLiteral("named"), QStringLiteral("Give probe() the names of the ports.")},
        {QStringLiteral("bare"), QStringLiteral("Before each probe, ask one board of each type without the library.")},
    });
    parser.process(application);
    const QList<Type> types = typesOf(parser.value(QStringLiteral("types")));

    const auto end = std::make_shared<EndOfProbe>();
    loggerInstance()->clearSinks();
    loggerInstance()->addSink(end);
    loggerInstance()->setLevel(Logger::Debug);

    QJsonArray probes;
    for (int i = 0; i < parser.value(QStringLiteral("probes")).toInt(); ++i)
        probes << probeOnce(application, *end, types, parser.isSet(QStringLiteral("named")),
                            parser.isSet(QStringLiteral("bare")));
    std::puts(QJsonDocument(probes).toJson(QJsonDocument::Compact).constData());
    return 0;
}

#include "support/common/environmentnumber.h"
#include "support/common/processusage.h"
#include "support/jwbridge/bridgerun.h"

#include <fleet/fleetwatch.h>
#include <jwbridge/database.h>
#include <jwbridge/outbox.h>
#include <jwbridge/spool.h>
#include <jwbridge/statebook.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QHash>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

namespace {

qint64 microseconds()
{
    using namespace std::chrono;
    return duration_cast<std::chrono::microseconds>(system_clock::now().time_since_epoch()).count();
}

/// Returns the processor time that this process has used, in seconds.
double ownSeconds()
{
    rusage usage = {};
    ::getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval &time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// Returns the processor time that a process has used, in seconds.
double secondsOf(qint64 process)
{
    QFile file(QStringLiteral("/proc/%1/stat").arg(process));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const QList<QByteArray> fields = file.readAll().split(')').last().split(' ');
    return (fields[12].toDouble() + fields[13].toDouble()) / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

/// Returns a number of KiB in the table of a process's memory.
int kibibytesOf(const QByteArray &process, const QByteArray &name)
{
    QFile file(QStringLiteral("/proc/%1/smaps_rollup").arg(QString::fromLatin1(process)));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const QList<QByteArray> lines = linesOf(file.readAll());
    for (const QByteArray &line : lines) {
        if (line.startsWith(name + ':'))
            return line.mid(name.size() + 1).simplified().split(' ').first().toInt();
    }
    return 0;
}

JwFleet::BrokerSettings settingsFor(const BrokerRun &broker, const QByteArray &clientId)
{
    JwFleet::BrokerSettings settings;
    settings.address = {QStringLiteral("localhost"), broker.port(), false};
    settings.clientId = clientId;
    return settings;
}

/// The parts of a jwbridge, without boards. Payloads are put into its spool instead.
class Machine
{
public:
    Machine(const BrokerRun &broker, const QString &name, const QString &folder, int boards, int rate)
        : m_topics(QStringLiteral("jw"), name)
        , m_broker(settingsFor(broker, "jwbridge-jw-" + name.toLatin1()))
        , m_spool(m_database, {})
        , m_states(m_broker)
        , m_outbox(m_broker, m_spool, m_topics)
        , m_boards(boards)
    {
        QDir().mkpath(folder);
        QString error;
        QVERIFY2(m_database.open(folder + QStringLiteral("/jwbridge.db"), &error) && m_spool.load(&error),
                 qPrintable(error));
        for (int board = 0; board < boards; ++board)
            m_states.set(m_topics.state(part(board)), "{\"state\":\"ready\",\"type\":\"BoardA\",\"port\":\"ttyACM0\"}");
        m_states.set(m_topics.online(), "true");
        m_timer.setTimerType(Qt::PreciseTimer);
        m_timer.setInterval(60000 / (boards * rate));
        QObject::connect(&m_timer, &QTimer::timeout, [this] { add(); });
        m_broker.start();
    }

    void send() { m_timer.start(); }
    void stop() { m_timer.stop(); }
    qint64 sent() const { return m_sent; }

private:
    static QByteArray part(qint64 board) { return 'S' + QByteArray::number(board) + ":1.0"; }

    void add()
    {
        m_spool.add(part(m_sent % m_boards), microseconds(), "$PJWVER,7300021,1,4,0*0e");
        ++m_sent;
    }

    const JwFleet::Topics m_topics;
    JwFleet::Broker m_broker;
    JwBridge::Database m_database;
    JwBridge::Spool m_spool;
    JwBridge::StateBook m_states;
    JwBridge::Outbox m_outbox;
    const int m_boards;
    QTimer m_timer;
    qint64 m_sent = 0;
};

} // namespace

/// Measures many bridges on one broker. benchmarks/fleet.py sets the environment variables for a large number.
class TestFleetScale : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { NEEDS_MOSQUITTO; }

    void everyPayloadArrivesInOrder();
    void memoryOfOneBridge();
};

void TestFleetScale::everyPayloadArrivesInOrder()
{
    const int machines = static_cast<int>(environmentNumber("JWDEVICE_FLEET_MACHINES", 5));
    const int boards = static_cast<int>(environmentNumber("JWDEVICE_FLEET_BOARDS", 4));
    const int rate =
        static_cast<int>(environmentNumber("JWDEVICE_FLEET_RATE", 600)); // payloads a minute for each board
    const int seconds = static_cast<int>(environmentNumber("JWDEVICE_FLEET_SECONDS", 2));
    const QTemporaryDir folder;
    BrokerRun broker(QByteArray(), BrokerRun::QuietLog);
    broker.start();

    JwFleet::FleetWatch watch(settingsFor(broker, QByteArray()), QStringLiteral("jw"),
                              JwFleet::FleetWatch::WithPayloads);
    int found = 0;
    qint64 received = 0;
    qint64 outOfOrder = 0;
    std::vector<qint64> delays;
    QHash<QString, qint64> newest; // seq by machine
    connect(&watch, &JwFleet::FleetWatch::boardFound, this, [&found] { ++found; });
    connect(&watch, &JwFleet::FleetWatch::payloadReceived, this,
            [&](const JwFleet::RemoteBoard &board, qint64 time, qint64 seq) {
                ++received;
                delays.push_back(microseconds() - time);
                qint64 &before = newest[board.host];
                outOfOrder += seq > before ? 0 : 1;
                before = seq;
            });
    watch.start();
    WAIT_FOR(watch.isConnected());

    const qint64 memoryBefore = ProcessUsage::now().residentBytes;
    std::vector<std::unique_ptr<Machine>> fleet;
    for (int i = 0; i < machines; ++i) {
        const QString name = QStringLiteral("m%1").arg(i);
        fleet.push_back(std::make_unique<Machine>(broker, name, folder.filePath(name), boards, rate));
    }
    QTRY_COMPARE_WITH_TIMEOUT(found, machines * boards, programPatience);
    const qint64 memory = ProcessUsage::now().residentBytes - memoryBefore;

    const double ownBefore = ownSeconds();
    const double brokerBefore = secondsOf(broker.processId());
    QElapsedTimer clock;
    clock.start();
    for (const auto &machine : fleet)
        machine->send();
    WAIT_FOR(clock.elapsed() >= seconds * 1000);
    for (const auto &machine : fleet)
        machine->stop();
    qint64 sent = 0;
    for (const auto &machine : fleet)
        sent += machine->sent();
    WAIT_FOR(received >= sent);
    const double taken = static_cast<double>(clock.elapsed()) / 1000;
    QCOMPARE(received, sent);
    QCOMPARE(outOfOrder, 0);
    QVERIFY(sent >= static_cast<qint64>(machines) * boards);

    std::sort(delays.begin(), delays.end());
    const auto delayAt = [&delays](double share) {
        return static_cast<double>(delays[static_cast<std::size_t>(share * static_cast<double>(delays.size() - 1))])
            / 1000;
    };
    const double brokerTime = secondsOf(broker.processId()) - brokerBefore;
    const double ownTime = ownSeconds() - ownBefore;
    const auto perPayload = [sent](double time) { return 1e6 * time / static_cast<double>(sent); };
    qInfo("%d machines, %d boards, %.0f payloads a second; delay: median %.1f ms, 99 %% %.1f ms; broker: %.0f us of "
          "processor time a payload, %.0f %% of a core, %d KiB; bridges and receiver: %.0f us, %.0f %% of a core; %lld "
          "KiB "
          "for each bridge",
          machines, machines * boards, static_cast<double>(sent) / taken, delayAt(0.5), delayAt(0.99),
          perPayload(brokerTime), 100 * brokerTime / taken, kibibytesOf(QByteArray::number(broker.processId()), "Rss"),
          perPayload(ownTime), 100 * ownTime / taken, memory / 1024 / machines);
}

void TestFleetScale::memoryOfOneBridge()
{
    const QTemporaryDir spool;
    BrokerRun broker;
    broker.start();
    Subscriber subscriber(broker);
    subscriber.start();
    QStringList boards;
    for (int i = 0; i < 16; ++i)
        boards.append(boardOn("BoardA", uniquePortName()));
    BridgeRun bridge(boards, broker.url(), spool.path());
    const auto ready = [&subscriber] {
        const QList<ReceivedMessage> messages = subscriber.messages();
        return std::count_if(messages.begin(), messages.end(), [](const ReceivedMessage &message) {
            return message.topic.endsWith("/state") && message.payload.contains("\"ready\"");
        });
    };
    WAIT_FOR(ready() == 16);
    QFile children(QStringLiteral("/proc/%1/task/%1/children").arg(bridge.processId()));
    QVERIFY(children.open(QIODevice::ReadOnly));
    const QByteArray process = children.readAll().simplified().split(' ').first();
    const int own = kibibytesOf(process, "Private_Dirty");
    const int whole = kibibytesOf(process, "Rss");
    QVERIFY(own > 0);
#ifdef NDEBUG
    QVERIFY2(own < 16 * 1024, QByteArray::number(own));
#endif
    qInfo("a jwbridge process with 16 boards uses %d KiB alone, %d KiB with the code that it shares", own, whole);
}

QTEST_GUILESS_MAIN(TestFleetScale)
#include "tst_fleet_scale.moc"

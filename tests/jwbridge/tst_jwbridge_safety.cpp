#include "support/jwbridge/bridgerun.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

namespace {

// A jwbridge without simulated boards, as a machine named `host`.
class PlainBridge : public ProgramRun
{
public:
    PlainBridge(const QString &broker, const QString &spool, const QStringList &options = {},
                const QString &host = QStringLiteral("here"))
        : ProgramRun(QStringLiteral(JWBRIDGE_PROGRAM),
                     QStringList{QStringLiteral("--broker"), broker, QStringLiteral("--spool"), spool,
                                 QStringLiteral("--host"), host, QStringLiteral("--port"), QStringLiteral("none")}
                         + options)
    {
        start();
    }
};

/// Processor time of a process in ms.
qint64 processorTime(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    const QList<QByteArray> fields = file.readAll().split(' ');
    return (fields.value(13).toLongLong() + fields.value(14).toLongLong()) * 1000 / ::sysconf(_SC_CLK_TCK);
}

/// A server that is no broker. It answers each connection with `greeting`.
class Impostor
{
public:
    explicit Impostor(const QByteArray &greeting)
    {
        QObject::connect(&m_server, &QTcpServer::newConnection, [this, greeting] {
            QTcpSocket *const socket = m_server.nextPendingConnection();
            ++connections;
            socket->write(greeting);
        });
        m_server.listen(QHostAddress::LocalHost);
    }
    QString url() const { return QStringLiteral("mqtt://127.0.0.1:%1").arg(m_server.serverPort()); }
    int connections = 0;

private:
    QTcpServer m_server;
};

} // namespace

/// Tests what jwbridge does with brokers that refuse it, with servers that are no brokers, and with bad certificates.
class TestJwbridgeSafety : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init() { m_spool = std::make_unique<QTemporaryDir>(); }

    void impostorIsReported_data();
    void impostorIsReported();
    void unknownNameIsReported();
    void wrongPasswordIsReported();
    void refusedTopicsAreReported();
    void certificateIsChecked_data();
    void certificateIsChecked();
    void secondBridgeOfAMachineIsReported();
    void largeMessageIsNotTaken();
    void spoolInUseEndsTheProgram();
    void wrongHostEndsTheProgram();

private:
    void makeCertificate(const QString &name, const QString &subject, const QString &alternative);
    QString certificate(const QString &name) const { return m_certificates.filePath(name); }

    QTemporaryDir m_certificates;
    std::unique_ptr<QTemporaryDir> m_spool;
};

void TestJwbridgeSafety::makeCertificate(const QString &name, const QString &subject, const QString &alternative)
{
    const Outcome outcome = runProgram(
        QStringLiteral("openssl"),
        {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"), QStringLiteral("rsa:2048"),
         QStringLiteral("-nodes"), QStringLiteral("-days"), QStringLiteral("2"), QStringLiteral("-subj"), subject,
         QStringLiteral("-addext"), alternative, QStringLiteral("-keyout"), certificate(name + QStringLiteral(".key")),
         QStringLiteral("-out"), certificate(name + QStringLiteral(".crt"))});
    QVERIFY2(outcome.status == 0, outcome.error.constData());
}

void TestJwbridgeSafety::initTestCase()
{
    makeCertificate(QStringLiteral("right"), QStringLiteral("/CN=localhost"),
                    QStringLiteral("subjectAltName=DNS:localhost"));
    makeCertificate(QStringLiteral("other"), QStringLiteral("/CN=elsewhere.example"),
                    QStringLiteral("subjectAltName=DNS:elsewhere.example"));
}

void TestJwbridgeSafety::impostorIsReported_data()
{
    QTest::addColumn<QByteArray>("greeting");
    QTest::addColumn<QByteArray>("text");
    QByteArray noise;
    for (int i = 0; i < 4096; ++i)
        noise.append(static_cast<char>(i * 7919 % 251));
    QTest::newRow("silent") << QByteArray() << QByteArray("does not answer as a broker");
    QTest::newRow("garbage") << noise << QByteArray("does not speak MQTT 5");
    QTest::newRow("web server") << QByteArray("HTTP/1.1 400 Bad Request\r\n\r\n")
                                << QByteArray("does not answer as a broker");
    QTest::newRow("endless length") << QByteArray("\x20\xff\xff\xff\xff\xff", 6) << QByteArray("does not speak MQTT 5");
    // A CONNACK, then a message of 256 MB that never comes.
    QTest::newRow("huge message") << QByteArray("\x20\x03\x00\x00\x00\x30\xff\xff\xff\x7f\x00\x01x", 13)
                                  << QByteArray("connected to");
}

void TestJwbridgeSafety::impostorIsReported()
{
    QFETCH(QByteArray, greeting);
    QFETCH(QByteArray, text);
    Impostor impostor(greeting);
    PlainBridge bridge(impostor.url(), m_spool->path(), {QStringLiteral("--keep-alive"), QStringLiteral("5")});
    WAIT_FOR(bridge.error().contains(text));
    // It tries again, ever more slowly, and does not spin.
    const qint64 before = processorTime(bridge.processId());
    QElapsedTimer clock;
    clock.start();
    WAIT_FOR(clock.elapsed() > 2000);
    QVERIFY(impostor.connections <= 6);
    const qint64 used = processorTime(bridge.processId()) - before;
    QVERIFY2(used < 500, qPrintable(QString::number(used)));
    QVERIFY(!bridge.isOver());
    bridge.sendSignal(SIGTERM);
    QVERIFY(bridge.finish());
    QCOMPARE(bridge.status(), 0);
}

void TestJwbridgeSafety::unknownNameIsReported()
{
    PlainBridge bridge(QStringLiteral("mqtt://nowhere.invalid"), m_spool->path());
    WAIT_FOR(bridge.error().contains("the name \"nowhere.invalid\" has no address"));
}

void TestJwbridgeSafety::wrongPasswordIsReported()
{
    BrokerRun folder;
    const QString passwords = folder.file(QStringLiteral("passwords"));
    QCOMPARE(runProgram(QStringLiteral("mosquitto_passwd"),
                        {QStringLiteral("-b"), QStringLiteral("-c"), passwords, QStringLiteral("anna"),
                         QStringLiteral("right")})
                 .status,
             0);
    BrokerRun broker("password_file " + passwords.toUtf8() + '\n');
    broker.start();
    const auto login = [&folder](const char *password) {
        QFile file(folder.file(QStringLiteral("login")));
        file.open(QIODevice::WriteOnly | QIODevice::Truncate);
        file.write(QByteArray("anna\n") + password + '\n');
        file.setPermissions(QFile::ReadOwner | QFile::WriteOwner);
        return QStringList{QStringLiteral("--login"), file.fileName()};
    };
    {
        PlainBridge bridge(broker.url(), m_spool->path(), login("wrong"));
        WAIT_FOR(bridge.error().contains("refuses the user or the password: check the file of --login"));
        QVERIFY(!bridge.error().contains("connected to"));
        QVERIFY(!bridge.error().contains("wrong"));
    }
    PlainBridge bridge(broker.url(), m_spool->path(), login("right"));
    WAIT_FOR(bridge.error().contains("connected to"));
}

void TestJwbridgeSafety::refusedTopicsAreReported()
{
    BrokerRun folder;
    QFile acl(folder.file(QStringLiteral("acl")));
    QVERIFY(acl.open(QIODevice::WriteOnly));
    acl.write("topic write jw/here/online\n");
    acl.close();
    BrokerRun broker("acl_file " + acl.fileName().toUtf8() + '\n');
    broker.start();
    PlainBridge bridge(broker.url(), m_spool->path());
    WAIT_FOR(bridge.error().contains("the broker refuses a message to jw/here/ports: Not authorized"));
    QVERIFY(!bridge.error().contains("refuses a message to jw/here/online"));
}

void TestJwbridgeSafety::certificateIsChecked_data()
{
    QTest::addColumn<QString>("server");
    QTest::addColumn<QString>("trusted");
    QTest::addColumn<QByteArray>("text");
    const QString right = QStringLiteral("right");
    const QString other = QStringLiteral("other");
    QTest::newRow("right") << right << right << QByteArray("connected to mqtts://localhost");
    QTest::newRow("not trusted") << right << other << QByteArray("the broker's certificate is refused: self-signed");
    QTest::newRow("other name") << other << other
                                << QByteArray("the broker's certificate is refused: hostname mismatch");
    QTest::newRow("no TLS") << QString() << right << QByteArray("no connection to mqtts://localhost");
}

void TestJwbridgeSafety::certificateIsChecked()
{
    QFETCH(QString, server);
    QFETCH(QString, trusted);
    QFETCH(QByteArray, text);
    const QByteArray file = certificate(server).toUtf8();
    BrokerRun broker(server.isEmpty() ? QByteArray() : "certfile " + file + ".crt\nkeyfile " + file + ".key\n");
    broker.start();
    PlainBridge bridge(broker.url(QStringLiteral("mqtts")), m_spool->path(),
                       {QStringLiteral("--ca"), certificate(trusted + QStringLiteral(".crt"))});
    WAIT_FOR(bridge.error().contains(text));
    QCOMPARE(bridge.error().contains("connected to"), text.startsWith("connected to"));
}

void TestJwbridgeSafety::secondBridgeOfAMachineIsReported()
{
    BrokerRun broker;
    broker.start();
    PlainBridge first(broker.url(), m_spool->path());
    WAIT_FOR(first.error().contains("connected to"));
    QTemporaryDir spool;
    PlainBridge second(broker.url(), spool.path());
    WAIT_FOR(first.error().contains("another program is connected to the broker as \"jwbridge-jw-here\""));
    QVERIFY(first.error().contains("give each machine its own --host"));
}

void TestJwbridgeSafety::largeMessageIsNotTaken()
{
    BrokerRun broker;
    broker.start();
    PlainBridge bridge(broker.url(), m_spool->path());
    WAIT_FOR(broker.log().contains("Sending SUBACK to jwbridge"));
    Subscriber subscriber(broker, QStringLiteral("jw/here/boards/+/tx/result"));
    subscriber.start();
    publish(broker, QStringLiteral("jw/here/boards/S1/tx"), QByteArray(20 * 1024 * 1024, 'x'));
    publish(broker, QStringLiteral("jw/here/boards/S1/tx"), QByteArray("PJWVER"));
    // Only the second message has a result: the broker does not send the first one to the bridge.
    WAIT_FOR(!subscriber.messages().isEmpty());
    QCOMPARE(subscriber.messages().size(), 1);
    QVERIFY2(subscriber.messages().first().payload.contains("not there"),
             subscriber.messages().first().payload.constData());
}

void TestJwbridgeSafety::spoolInUseEndsTheProgram()
{
    Impostor impostor{QByteArray()};
    PlainBridge first(impostor.url(), m_spool->path());
    WAIT_FOR(impostor.connections > 0);
    PlainBridge second(impostor.url(), m_spool->path());
    QVERIFY(second.finish());
    QCOMPARE(second.status(), 1);
    QVERIFY2(second.error().contains("another jwbridge has the same --spool"), second.error().constData());
    PlainBridge third(impostor.url(), QStringLiteral("/nowhere/spool"));
    QVERIFY(third.finish());
    QCOMPARE(third.status(), 1);
    QVERIFY2(third.error().contains("/nowhere/spool"), third.error().constData());
}

void TestJwbridgeSafety::wrongHostEndsTheProgram()
{
    PlainBridge bridge(QStringLiteral("mqtt://localhost"), m_spool->path(), {}, QStringLiteral("lab/+"));
    QVERIFY(bridge.finish());
    QCOMPARE(bridge.status(), 2);
    QVERIFY2(bridge.error().contains("--host \"lab/+\" is not allowed"), bridge.error().constData());
}

QTEST_GUILESS_MAIN(TestJwbridgeSafety)
#include "tst_jwbridge_safety.moc"

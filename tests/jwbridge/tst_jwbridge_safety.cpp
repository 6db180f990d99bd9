#include "support/jwbridge/bridgerun.h"
#include "support/jwbridge/plainbridge.h"
#include "support/programs/terminalrun.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSslSocket>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <memory>

namespace {

/// Processor time of a process in ms.
qint64 processorTime(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    const QList<QByteArray> fields = file.readAll().split(' ');
    return (fields.value(13).toLongLong() + fields.value(14).toLongLong()) * 1000 / ::sysconf(_SC_CLK_TCK);
}

// Writes a file, and returns its name.
QByteArray write(const QString &name, const QByteArray &content)
{
    QFile file(name);
    file.open(QIODevice::WriteOnly);
    file.write(content);
    return name.toUtf8();
}

// The packet with which a broker accepts a connection.
const QByteArray welcome("\x20\x03\x00\x00\x00", 5);

/// A server that speaks TLS if it has a certificate: the files NAME.crt and NAME.key.
class TlsServer : public QTcpServer
{
public:
    explicit TlsServer(const QString &certificate)
        : m_certificate(certificate)
    {
    }

protected:
    void incomingConnection(qintptr descriptor) override
    {
        auto *const socket = new QSslSocket(this);
        socket->setSocketDescriptor(descriptor);
        if (!m_certificate.isEmpty()) {
            socket->setLocalCertificate(m_certificate + QStringLiteral(".crt"));
            socket->setPrivateKey(m_certificate + QStringLiteral(".key"));
            socket->startServerEncryption();
        }
        addPendingConnection(socket);
    }

private:
    const QString m_certificate;
};

/// A server that is no broker. With a `certificate` it speaks TLS. It answers each connection with `greeting`, and then
/// sends `flood` bytes.
class Impostor
{
public:
    explicit Impostor(const QByteArray &greeting, qint64 flood = 0, const QString &certificate = QString())
        : m_server(certificate)
    {
        QObject::connect(&m_server, &QTcpServer::newConnection, [this, greeting, flood] {
            QTcpSocket *const socket = m_server.nextPendingConnection();
            ++connections;
            socket->write(greeting);
            QObject::connect(socket, &QTcpSocket::bytesWritten, socket, [socket, left = flood](qint64) mutable {
                const QByteArray piece(static_cast<int>(std::min<qint64>(left, 65536)), '\0');
                if (socket->bytesToWrite() < piece.size())
                    left -= socket->write(piece);
            });
        });
        m_server.listen(QHostAddress::LocalHost);
    }
    QString url(const QString &scheme = QStringLiteral("mqtt"), const QString &host = QStringLiteral("127.0.0.1")) const
    {
        return QStringLiteral("%1://%2:%3").arg(scheme, host).arg(m_server.serverPort());
    }
    int connections = 0;

private:
    TlsServer m_server;
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
    void impostorWithTlsIsReported_data();
    void impostorWithTlsIsReported();
    void unknownNameIsReported();
    void wrongPasswordIsReported();
    void refusedTopicsAreReported();
    void refusedPayloadsAreCounted();
    void refusedSubscriptionIsReported();
    void certificateIsChecked_data();
    void certificateIsChecked();
    void clientCertificateIsChecked_data();
    void clientCertificateIsChecked();
    void keyWithAPasswordIsRefused();
    void secondBridgeOfAMachineIsReported();
    void largeMessageIsNotTaken();
    void floodIsNotTaken_data();
    void floodIsNotTaken();
    void brokerThatFallsSilentIsLeft();
    void spoolInUseEndsTheProgram();
    void wrongHostEndsTheProgram();

private:
    // Makes the files NAME.crt and NAME.key. Without an issuer, the certificate signs itself.
    void makeCertificate(const QString &name, const QString &subject, const QString &alternative,
                         const QString &issuer = QString());
    QString certificate(const QString &name) const { return m_certificates.filePath(name); }

    QTemporaryDir m_certificates;
    std::unique_ptr<QTemporaryDir> m_spool;
};

void TestJwbridgeSafety::makeCertificate(const QString &name, const QString &subject, const QString &alternative,
                                         const QString &issuer)
{
    const QStringList signer = issuer.isEmpty()
        ? QStringList()
        : QStringList{QStringLiteral("-CA"), certificate(issuer + QStringLiteral(".crt")), QStringLiteral("-CAkey"),
                      certificate(issuer + QStringLiteral(".key"))};
    const Outcome outcome =
        runProgram(QStringLiteral("openssl"),
                   QStringList{QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"),
                               QStringLiteral("rsa:2048"), QStringLiteral("-nodes"), QStringLiteral("-days"),
                               QStringLiteral("2"), QStringLiteral("-subj"), subject, QStringLiteral("-addext"),
                               alternative, QStringLiteral("-keyout"), certificate(name + QStringLiteral(".key")),
                               QStringLiteral("-out"), certificate(name + QStringLiteral(".crt"))}
                       + signer);
    QVERIFY2(outcome.status == 0, outcome.error.constData());
}

void TestJwbridgeSafety::initTestCase()
{
    NEEDS_MOSQUITTO;
    NEEDS_PROGRAM("mosquitto_passwd", "mosquitto");
    NEEDS_PROGRAM("openssl", "openssl");
    makeCertificate(QStringLiteral("right"), QStringLiteral("/CN=localhost"),
                    QStringLiteral("subjectAltName=DNS:localhost"));
    makeCertificate(QStringLiteral("other"), QStringLiteral("/CN=elsewhere.example"),
                    QStringLiteral("subjectAltName=DNS:elsewhere.example"));
    makeCertificate(QStringLiteral("machines"), QStringLiteral("/CN=Machines"), QStringLiteral("keyUsage=keyCertSign"));
    makeCertificate(QStringLiteral("here"), QStringLiteral("/CN=here"), QStringLiteral("extendedKeyUsage=clientAuth"),
                    QStringLiteral("machines"));
    makeCertificate(QStringLiteral("stranger"), QStringLiteral("/CN=here"),
                    QStringLiteral("extendedKeyUsage=clientAuth"), QStringLiteral("other"));
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
    QTest::newRow("a message of 256 MB that never comes")
        << welcome + QByteArray("\x30\xff\xff\xff\x7f\x00\x01x", 8) << QByteArray("a message of more than 65536 bytes");
    // From here on, packets of MQTT 5 with bad properties. Before the properties stands the number of their bytes.
    const QByteArray no = QByteArrayLiteral("does not speak MQTT 5");
    QTest::newRow("CONNACK, unknown property") << QByteArray("\x20\x05\x00\x00\x02\x7f\x00", 7) << no;
    const auto packet = [&no](const char *name, const QByteArray &bytes) {
        QTest::newRow(name) << welcome + bytes << no;
    };
    packet("PUBLISH, unknown property", QByteArray("\x30\x06\x00\x01x\x02\x7f\x00", 8));
    packet("PUBLISH with a number, unknown property", QByteArray("\x32\x08\x00\x01x\x00\x01\x02\x7f\x00", 10));
    packet("PUBLISH, unknown property after a known one", QByteArray("\x30\x08\x00\x01x\x04\x01\x01\x7f\x00", 10));
    packet("PUBLISH, identifier of two bytes", QByteArray("\x30\x08\x00\x01x\x04\x81\x00\x01\x7f", 10));
    packet("PUBLISH, property longer than said", QByteArray("\x30\x0a\x00\x01x\x03\x03\x00\x02tt\x7f", 12));
    packet("PUBLISH, properties longer than the packet", QByteArray("\x30\x06\x00\x01x\x09\x01\x01", 8));
    packet("PUBACK, unknown property", QByteArray("\x40\x06\x00\x01\x00\x02\x7f\x00", 8));
    packet("SUBACK, unknown property", QByteArray("\x90\x06\x00\x01\x02\x7f\x00\x01", 8));
    packet("DISCONNECT, unknown property", QByteArray("\xe0\x04\x00\x02\x7f\x00", 6));
    packet("AUTH, unknown property", QByteArray("\xf0\x04\x00\x02\x7f\x00", 6));
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
    QVERIFY2(bridge.status() == 0, bridge.error().constData());
}

void TestJwbridgeSafety::impostorWithTlsIsReported_data()
{
    QTest::addColumn<QByteArray>("greeting");
    QTest::addColumn<QByteArray>("text");
    const QByteArray unknown("\x30\x06\x00\x01x\x02\x7f\x00", 8); // a message with an unknown property
    const QByteArray ping("\xd0\x00", 2);
    QTest::newRow("good") << welcome << QByteArray("connected to");
    QTest::newRow("unknown property") << welcome + unknown << QByteArray("does not speak MQTT 5");
    // One record of TLS has at most 16384 bytes.
    QTest::newRow("unknown property in a later record")
        << welcome + ping.repeated(40000) + unknown << QByteArray("does not speak MQTT 5");
    QTest::newRow("too large") << welcome + QByteArray("\x30\xff\xff\xff\x7f\x00\x01x", 8)
                               << QByteArray("a message of more than 65536 bytes");
}

void TestJwbridgeSafety::impostorWithTlsIsReported()
{
    QFETCH(QByteArray, greeting);
    QFETCH(QByteArray, text);
    Impostor impostor(greeting, 0, certificate(QStringLiteral("right")));
    PlainBridge bridge(impostor.url(QStringLiteral("mqtts"), QStringLiteral("localhost")), m_spool->path(),
                       {QStringLiteral("--ca"), certificate(QStringLiteral("right.crt"))});
    WAIT_FOR(bridge.error().contains(text));
    QVERIFY(!bridge.isOver());
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
    QTemporaryDir folder;
    BrokerRun broker("acl_file " + write(folder.filePath(QStringLiteral("acl")), "topic write jw/here/online\n")
                     + '\n');
    broker.start();
    PlainBridge bridge(broker.url(), m_spool->path());
    WAIT_FOR(bridge.error().contains("the broker refuses a message to jw/here/ports: Not authorized"));
    QVERIFY(!bridge.error().contains("refuses a message to jw/here/online"));
}

void TestJwbridgeSafety::refusedPayloadsAreCounted()
{
    QTemporaryDir folder;
    BrokerRun broker("acl_file "
                     + write(folder.filePath(QStringLiteral("acl")),
                             "topic read jw/#\ntopic write jw/here/lost\ntopic write jw/here/online\n")
                     + '\n');
    broker.start();
    Subscriber subscriber(broker);
    subscriber.start();
    BridgeRun bridge({boardOn("BoardA", uniquePortName(), "serial=S1,replies=50")}, broker.url(), m_spool->path());
    // 49 payloads, or more if the query of the probe was repeated.
    WAIT_FOR(QJsonDocument::fromJson(subscriber.newest("jw/here/lost")).object()[QLatin1String("refused")].toInt()
             >= 49);
    const QByteArray line = "the broker refuses a message to jw/here/boards/S1:1.0/rx: Not authorized";
    QCOMPARE(bridge.error().count(line), 1);
}

// Mosquitto's acl_file refuses no subscription, but its plug-in for rights does.
void TestJwbridgeSafety::refusedSubscriptionIsReported()
{
    QTemporaryDir folder;
    const QByteArray rights =
        write(folder.filePath(QStringLiteral("rights.json")),
              R"({"defaultACLAccess": {"publishClientSend": true, "publishClientReceive": true, "subscribe": false,
                     "unsubscribe": true}, "clients": [], "roles": [], "groups": [{"groupname": "all", "roles": []}],
                     "anonymousGroup": "all"})");
    const Outcome plugIn =
        runProgram(QStringLiteral("sh"),
                   {QStringLiteral("-c"), QStringLiteral("dpkg -L mosquitto | grep /mosquitto_dynamic_security.so$")});
    QVERIFY(!plugIn.output.isEmpty());
    BrokerRun broker("plugin " + plugIn.output.trimmed() + "\nplugin_opt_config_file " + rights + '\n');
    broker.start();
    PlainBridge bridge(broker.url(), m_spool->path());
    WAIT_FOR(bridge.error().contains("the broker refuses the subscription to jw/here/boards/+/tx: Not authorized. "
                                     "Nothing can be sent to boards"));
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

void TestJwbridgeSafety::clientCertificateIsChecked_data()
{
    QTest::addColumn<QString>("own");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QByteArray>("text");
    const QString here = QStringLiteral("here");
    const QString stranger = QStringLiteral("stranger");
    const QByteArray refused = "TLS failed: ";
    QTest::newRow("right") << here << here << QByteArray("connected to mqtts://localhost");
    QTest::newRow("none") << QString() << QString() << refused;
    QTest::newRow("of another authority") << stranger << stranger << refused;
    QTest::newRow("other key") << here << stranger << QByteArray("stranger.key as --key: ");
}

void TestJwbridgeSafety::clientCertificateIsChecked()
{
    QFETCH(QString, own);
    QFETCH(QString, key);
    QFETCH(QByteArray, text);
    const QByteArray server = certificate(QStringLiteral("right")).toUtf8();
    BrokerRun broker("certfile " + server + ".crt\nkeyfile " + server + ".key\nrequire_certificate true\ncafile "
                     + certificate(QStringLiteral("machines.crt")).toUtf8() + '\n');
    broker.start();
    QStringList options{QStringLiteral("--ca"), certificate(QStringLiteral("right.crt"))};
    if (!own.isEmpty())
        options << QStringLiteral("--certificate") << certificate(own + QStringLiteral(".crt"))
                << QStringLiteral("--key") << certificate(key + QStringLiteral(".key"));
    PlainBridge bridge(broker.url(QStringLiteral("mqtts")), m_spool->path(), options);
    WAIT_FOR(bridge.error().contains(text));
    QCOMPARE(bridge.error().contains("connected to"), text.startsWith("connected to"));
}

// On a terminal, OpenSSL can ask for the password, and would wait for the answer.
void TestJwbridgeSafety::keyWithAPasswordIsRefused()
{
    const QString key = certificate(QStringLiteral("locked.key"));
    QCOMPARE(runProgram(QStringLiteral("openssl"),
                        {QStringLiteral("rsa"), QStringLiteral("-aes256"), QStringLiteral("-passout"),
                         QStringLiteral("pass:secret"), QStringLiteral("-in"), certificate(QStringLiteral("here.key")),
                         QStringLiteral("-out"), key})
                 .status,
             0);
    QTcpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost));
    TerminalRun bridge(QStringLiteral(JWBRIDGE_PROGRAM),
                       {QStringLiteral("--broker"), QStringLiteral("mqtts://localhost:%1").arg(server.serverPort()),
                        QStringLiteral("--host"), QStringLiteral("here"), QStringLiteral("--spool"), m_spool->path(),
                        QStringLiteral("--port"), QStringLiteral("none"), QStringLiteral("--certificate"),
                        certificate(QStringLiteral("here.crt")), QStringLiteral("--key"), key});
    WAIT_FOR(bridge.screen().contains("locked.key as --key: "));
    QVERIFY(!bridge.isOver());
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

void TestJwbridgeSafety::floodIsNotTaken_data()
{
    QTest::addColumn<QByteArray>("head");
    // A packet begins with its kind, and its length in groups of 7 bits. Then follow the topic "x" and no property.
    QTest::newRow("256 MB") << QByteArray("\x30\xff\xff\xff\x7f\x00\x01x\x00", 9);
    QTest::newRow("a bit too large") << QByteArray("\x30\x84\x80\x05\x00\x01x\x00", 8);
    QTest::newRow("a kind that does not exist") << QByteArray("\xf0\xff\xff\xff\x7f", 5);
}

// A broker that is asked for small messages, but sends a large one.
void TestJwbridgeSafety::floodIsNotTaken()
{
    QFETCH(QByteArray, head);
    Impostor quiet(welcome);
    QTemporaryDir otherSpool;
    PlainBridge other(quiet.url(), otherSpool.path());
    WAIT_FOR(other.error().contains("connected to"));
    Impostor impostor(welcome + head, 256 * 1024 * 1024);
    PlainBridge bridge(impostor.url(), m_spool->path());
    WAIT_FOR(bridge.error().contains("the broker sends a message of more than 65536 bytes"));
    WAIT_FOR(impostor.connections >= 3);
    const qint64 growth = mostMemory(bridge.processId()) - mostMemory(other.processId());
    QVERIFY2(growth < 64 * 1024, qPrintable(QStringLiteral("%1 KiB").arg(growth)));
    QVERIFY(!bridge.isOver());
}

void TestJwbridgeSafety::brokerThatFallsSilentIsLeft()
{
    Impostor impostor(welcome);
    PlainBridge bridge(impostor.url(), m_spool->path(), {QStringLiteral("--keep-alive"), QStringLiteral("5")});
    WAIT_FOR(bridge.error().contains("connected to"));
    WAIT_FOR(bridge.error().contains("the broker does not answer any more"));
    WAIT_FOR(impostor.connections >= 2);
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

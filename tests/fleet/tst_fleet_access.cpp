#include "support/jwbridge/bridgerun.h"

#include <fleet/fleetwatch.h>

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using JwFleet::FleetWatch;

namespace {

// Returns the block that stands in the page after a comment that ends with `words`.
QString blockAfter(const QString &words)
{
    QFile page(QStringLiteral(PROJECT_FOLDER "/docs/boards-on-many-machines.md"));
    if (!page.open(QIODevice::ReadOnly))
        return QString();
    const QRegularExpression block(words + QStringLiteral(" -->\\n```\\n(.*?)```"),
                                   QRegularExpression::DotMatchesEverythingOption);
    return block.match(QString::fromUtf8(page.readAll())).captured(1);
}

} // namespace

/// Tests the access rules and the command that docs/boards-on-many-machines.md gives for Mosquitto.
class TestFleetAccess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void operatorSeesAndSends();
    void viewerSeesOnly();
    void bridgeMayUseOnlyItsOwnName();
    void goneMachineIsRemoved();

private:
    JwFleet::BrokerSettings settings(const char *user) const
    {
        JwFleet::BrokerSettings settings;
        settings.address = {QStringLiteral("localhost"), m_broker->port(), false};
        settings.user = user;
        settings.password = "secret";
        return settings;
    }
    QStringList machine(const QString &name) const
    {
        return {QStringLiteral("--host"), name, QStringLiteral("--login"), m_folder.filePath(QStringLiteral("lab1"))};
    }
    QString send(const char *user);

    QTemporaryDir m_folder;
    std::unique_ptr<BrokerRun> m_broker;
};

void TestFleetAccess::initTestCase()
{
    NEEDS_MOSQUITTO;
    NEEDS_PROGRAM("mosquitto_passwd", "mosquitto");
    const QString rules = blockAfter(QStringLiteral("uses this file"));
    QVERIFY(rules.contains(QLatin1String("user viewer")));
    QFile access(m_folder.filePath(QStringLiteral("access")));
    QVERIFY(access.open(QIODevice::WriteOnly));
    access.write(rules.toUtf8());
    QFile login(m_folder.filePath(QStringLiteral("lab1")));
    QVERIFY(login.open(QIODevice::WriteOnly));
    login.write("lab1\nsecret\n");
    QVERIFY(login.setPermissions(QFile::ReadOwner));
    const QString passwords = m_folder.filePath(QStringLiteral("passwords"));
    QVERIFY(QFile(passwords).open(QIODevice::WriteOnly));
    for (const char *user : {"lab1", "operator", "viewer"}) {
        QCOMPARE(runProgram(QStringLiteral("mosquitto_passwd"),
                            {QStringLiteral("-b"), passwords, QString::fromLatin1(user), QStringLiteral("secret")})
                     .status,
                 0);
    }
    m_broker = std::make_unique<BrokerRun>("password_file " + passwords.toUtf8() + "\nacl_file "
                                           + access.fileName().toUtf8() + '\n');
    access.close();
    login.close();
    m_broker->start();
}

// Sends a line to the board as this user. Returns the error, or an empty text if the line was written and answered.
QString TestFleetAccess::send(const char *user)
{
    const QTemporaryDir spool;
    BridgeRun bridge({boardOn("BoardA", uniquePortName(), "serial=S1")}, m_broker->url(), spool.path(),
                     machine(QStringLiteral("lab1")));
    FleetWatch watch(settings(user), QStringLiteral("jw"), FleetWatch::WithPayloads);
    bool isFound = false;
    bool isSettled = false;
    QStringList payloads;
    QString result = QStringLiteral("no result");
    connect(&watch, &FleetWatch::boardFound, this, [&isFound] { isFound = true; });
    connect(&watch, &FleetWatch::settled, this, [&isSettled] { isSettled = true; });
    connect(&watch, &FleetWatch::payloadReceived, this,
            [&payloads](const JwFleet::RemoteBoard &, qint64, qint64, const QString &text) { payloads.append(text); });
    connect(&watch, &FleetWatch::sendFinished, this, [&result](int, qint64, const QString &error) { result = error; });
    watch.start();
    [&] {
        WAIT_FOR(isFound && isSettled);
        QVERIFY(watch.send(QStringLiteral("lab1"), QStringLiteral("S1:1.0"), QStringLiteral("PJWVER")) > 0);
        WAIT_FOR(result != QLatin1String("no result"));
        WAIT_FOR(!result.isEmpty() || !payloads.isEmpty());
    }();
    return result;
}

void TestFleetAccess::operatorSeesAndSends()
{
    QCOMPARE(send("operator"), QString());
}

void TestFleetAccess::viewerSeesOnly()
{
    const QString error = send("viewer");
    QVERIFY2(error.startsWith(QLatin1String("the broker refuses the line")), qPrintable(error));
}

void TestFleetAccess::bridgeMayUseOnlyItsOwnName()
{
    const QTemporaryDir spool;
    BridgeRun bridge({boardOn("BoardA", uniquePortName())}, m_broker->url(), spool.path(),
                     machine(QStringLiteral("lab2")));
    WAIT_FOR(bridge.error().contains("the broker refuses a message to jw/lab2/"));
}

void TestFleetAccess::goneMachineIsRemoved()
{
    BrokerRun broker;
    broker.start();
    const QStringList port{QStringLiteral("-p"), QString::number(broker.port())};
    for (const char *topic : {"jw/lab-7/online", "jw/lab-7/boards/S1/state", "jw/lab-8/online"}) {
        const Outcome stored =
            runProgram(QStringLiteral("mosquitto_pub"),
                       port
                           + QStringList{QStringLiteral("-r"), QStringLiteral("-m"), QStringLiteral("x"),
                                         QStringLiteral("-t"), QLatin1String(topic)});
        QCOMPARE(stored.status, 0);
    }
    QString command = blockAfter(QStringLiteral("runs this command"));
    QVERIFY(command.contains(QLatin1String("-h broker.example")));
    command.replace(QLatin1String("-h broker.example"), port.join(QLatin1Char(' ')));
    runProgram(QStringLiteral("sh"), {QStringLiteral("-c"), command});
    const Outcome left =
        runProgram(QStringLiteral("mosquitto_sub"),
                   port
                       + QStringList{QStringLiteral("-t"), QStringLiteral("jw/#"), QStringLiteral("--retained-only"),
                                     QStringLiteral("-v"), QStringLiteral("-W"), QStringLiteral("2")});
    QCOMPARE(left.output, QByteArray("jw/lab-8/online x\n"));
}

QTEST_GUILESS_MAIN(TestFleetAccess)
#include "tst_fleet_access.moc"

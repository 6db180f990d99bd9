#include "support/programs/jwsimrun.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

/// Tests what jwprobe does with a port whose udev property JWDEVICE_IGNORE is "1".
class TestJwprobeIgnored : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_port = uniquePortName(); }

    void searchLeavesThePortAlone();
    void searchFindsTheOtherBoards();
    void idDoesNotOpenThePort();
    void namedPortIsSearched();
    void listSaysWhy();
    void doctorSaysWhy();

private:
    /// Runs jwprobe with these arguments. m_port has the property and a BoardA. `boards` are on other ports.
    Outcome run(const QStringList &arguments, const QStringList &boards = {}) const
    {
        const QString script =
            QStringLiteral("echo JWDEVICE_IGNORE=1 >> /sys/class/tty/%1/uevent; exec \"$@\"").arg(m_port);
        return runProgram(jwsimProgram(),
                          simulated(QStringList{boardOn("BoardA", m_port)} + boards,
                                    QStringList{QStringLiteral("sh"), QStringLiteral("-c"), script,
                                                QStringLiteral("sh"), jwprobeProgram(), QStringLiteral("--json")}
                                        + arguments));
    }
    static QJsonObject documentOf(const Outcome &outcome) { return QJsonDocument::fromJson(outcome.output).object(); }
    /// Returns the first port in jwprobe's output.
    static QJsonObject portOf(const Outcome &outcome)
    {
        return documentOf(outcome)[QLatin1String("ports")].toArray().at(0).toObject();
    }
    static auto boardsOf(const Outcome &outcome)
    {
        return documentOf(outcome)[QLatin1String("boards")].toArray().size();
    }

    QString m_port;
};

void TestJwprobeIgnored::searchLeavesThePortAlone()
{
    const Outcome outcome = run({QStringLiteral("--type"), QStringLiteral("BoardA")});
    QCOMPARE(boardsOf(outcome), 0);
    const QJsonObject port = portOf(outcome);
    QCOMPARE(port[QLatin1String("port")].toString(), m_port);
    QCOMPARE(port[QLatin1String("state")].toString(), QStringLiteral("ignored"));
    QCOMPARE(port[QLatin1String("verdict")].toString(), QStringLiteral("notOpened"));
    QVERIFY(port[QLatin1String("error")].isNull());
    QCOMPARE(port[QLatin1String("summary")].toString(),
             QStringLiteral("left alone, because the udev property JWDEVICE_IGNORE is set"));
    QCOMPARE(port[QLatin1String("queries")].toInt(), 0);
    QCOMPARE(outcome.status, 1);
}

void TestJwprobeIgnored::searchFindsTheOtherBoards()
{
    const QString other = uniquePortName();
    const Outcome outcome = run({QStringLiteral("--type"), QStringLiteral("BoardA")}, {boardOn("BoardA", other)});
    QCOMPARE(boardsOf(outcome), 1);
    QCOMPARE(documentOf(outcome)[QLatin1String("boards")].toArray().at(0).toObject()[QLatin1String("port")].toString(),
             other);
    QCOMPARE(outcome.status, 0);
}

void TestJwprobeIgnored::idDoesNotOpenThePort()
{
    const Outcome outcome = run({QStringLiteral("--id"), QStringLiteral("SIM1:1.0")});
    QCOMPARE(boardsOf(outcome), 0);
    QCOMPARE(portOf(outcome)[QLatin1String("state")].toString(), QStringLiteral("ignored"));
}

void TestJwprobeIgnored::namedPortIsSearched()
{
    const Outcome outcome = run({QStringLiteral("--type"), QStringLiteral("BoardA"), QStringLiteral("--port"), m_port});
    QCOMPARE(boardsOf(outcome), 1);
    QCOMPARE(outcome.status, 0);
}

void TestJwprobeIgnored::listSaysWhy()
{
    const QJsonObject port = portOf(run({QStringLiteral("--list")}));
    QVERIFY(!port[QLatin1String("probed")].toBool(true));
    QCOMPARE(port[QLatin1String("reason")].toString(),
             QStringLiteral("its USB manufacturer is a board's, but the udev property JWDEVICE_IGNORE is set"));
    const QJsonObject named = portOf(run({QStringLiteral("--list"), QStringLiteral("--port"), m_port}));
    QVERIFY(named[QLatin1String("probed")].toBool());
}

void TestJwprobeIgnored::doctorSaysWhy()
{
    const Outcome outcome = run({QStringLiteral("--doctor")});
    const QJsonArray troubles = portOf(outcome)[QLatin1String("troubles")].toArray();
    QCOMPARE(troubles.size(), 1);
    const QJsonObject trouble = troubles.at(0).toObject();
    QCOMPARE(trouble[QLatin1String("kind")].toString(), QStringLiteral("ignored"));
    QVERIFY(trouble[QLatin1String("advice")].toArray().at(0).toString().contains(QLatin1String("--port ") + m_port));
    QCOMPARE(outcome.status, 1);
}

QTEST_GUILESS_MAIN(TestJwprobeIgnored)
#include "tst_jwprobe_ignored.moc"

#include "support/jwbridge/bridgerun.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

namespace {

QJsonObject stateIn(const QByteArray &payload)
{
    return QJsonDocument::fromJson(payload).object();
}

QString word(const QByteArray &payload, const char *key)
{
    return stateIn(payload)[QLatin1String(key)].toString();
}

} // namespace

/// Tests what clients of the broker see of the boards of a machine, and how they send sentences.
class TestJwbridgeBoards : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        NEEDS_MOSQUITTO;
        NEEDS_PROGRAM("mosquitto_rr", "mosquitto-clients");
    }
    void init();

    void stateFollowsTheBoard();
    void idIsEscapedInTopics();
    void portsHaveVerdictAndAdvice();
    void onlineIsFalseAfterTheEnd_data();
    void onlineIsFalseAfterTheEnd();
    void sentenceIsAnsweredOnRx();
    void resultGoesToTheResponseTopic();
    void responseTopicBelowThePrefixIsNotUsed();
    void wrongSentenceIsRefused_data();
    void wrongSentenceIsRefused();
    void fastSentencesAreRefused();
    void readOnlyTakesNoSentence();
    void lostBoardIsForgotten();
    void boardThatLeftWhileTheBridgeWasAwayIsLost();

private:
    QString m_port;
    std::unique_ptr<QTemporaryDir> m_spool;
    const QByteArray m_board = "jw/here/boards/S1:1.0";
};

void TestJwbridgeBoards::init()
{
    m_port = uniquePortName();
    m_spool = std::make_unique<QTemporaryDir>();
}

void TestJwbridgeBoards::stateFollowsTheBoard()
{
    BrokerRun broker;
    broker.start();
    Subscriber subscriber(broker);
    subscriber.start();
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1,pull-after=2000,replug-after=500")}, broker.url(),
                     m_spool->path());
    WAIT_FOR(subscriber.messages(m_board + "/state").size() == 3);
    const QList<ReceivedMessage> states = subscriber.messages(m_board + "/state");

    const QJsonObject ready = stateIn(states[0].payload);
    QCOMPARE(ready[QLatin1String("state")].toString(), QStringLiteral("ready"));
    QCOMPARE(ready[QLatin1String("id")].toString(), QStringLiteral("S1:1.0"));
    QCOMPARE(ready[QLatin1String("type")].toString(), QStringLiteral("BoardA"));
    QCOMPARE(ready[QLatin1String("port")].toString(), m_port);
    QCOMPARE(ready[QLatin1String("serialNumber")].toString(), QStringLiteral("S1"));
    QCOMPARE(ready[QLatin1String("hardwareVersion")].toString(), QStringLiteral("7300022"));
    const QDateTime since = QDateTime::fromString(ready[QLatin1String("since")].toString(), Qt::ISODateWithMs);
    QVERIFY(qAbs(since.msecsTo(QDateTime::currentDateTimeUtc())) < programPatience);
    QCOMPARE(word(states[1].payload, "state"), QStringLiteral("lost"));
    QCOMPARE(word(states[1].payload, "reason"), QStringLiteral("cablePulled"));
    QCOMPARE(word(states[2].payload, "state"), QStringLiteral("ready"));
    QCOMPARE(subscriber.newest("jw/here/online"), QByteArray("true"));

    Subscriber late(broker, QStringLiteral("jw/#"), {QStringLiteral("-i"), QStringLiteral("late")});
    late.start();
    WAIT_FOR(!late.messages(m_board + "/state").isEmpty());
    QVERIFY(late.messages(m_board + "/state").first().isRetained);
    QVERIFY(late.messages("jw/here/online").first().isRetained);
}

void TestJwbridgeBoards::idIsEscapedInTopics()
{
    BrokerRun broker;
    broker.start();
    Subscriber subscriber(broker);
    subscriber.start();
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=a/b+#%")}, broker.url(), m_spool->path());
    const QByteArray board = "jw/here/boards/a%2Fb%2B%23%25:1.0";
    WAIT_FOR(word(subscriber.newest(board + "/state"), "id") == QLatin1String("a/b+#%:1.0"));
    publish(broker, QString::fromLatin1(board + "/tx"), "PJWVER");
    WAIT_FOR(!subscriber.newest(board + "/rx").isEmpty());
}

void TestJwbridgeBoards::portsHaveVerdictAndAdvice()
{
    BrokerRun broker;
    broker.start();
    Subscriber subscriber(broker);
    subscriber.start();
    const QString silent = uniquePortName();
    BridgeRun bridge({boardOn("BoardA", m_port), boardOn("silent", silent)}, broker.url(), m_spool->path());
    const auto port = [&subscriber](const QString &name) {
        const QJsonArray ports = QJsonDocument::fromJson(subscriber.newest("jw/here/ports")).array();
        for (const QJsonValue object : ports) {
            if (object[QLatin1String("port")].toString() == name)
                return object.toObject();
        }
        return QJsonObject();
    };
    WAIT_FOR(port(silent)[QLatin1String("state")].toString() == QLatin1String("silent"));
    QCOMPARE(port(silent)[QLatin1String("verdict")].toString(), QStringLiteral("timedOut"));
    QVERIFY(port(silent)[QLatin1String("summary")].toString().contains(QLatin1String("no sentence")));
    QVERIFY(!port(silent)[QLatin1String("advice")].toArray().isEmpty());
    QCOMPARE(port(m_port)[QLatin1String("verdict")].toString(), QStringLiteral("handedOver"));
    QCOMPARE(port(m_port)[QLatin1String("state")].toString(), QStringLiteral("ready"));
}

void TestJwbridgeBoards::onlineIsFalseAfterTheEnd_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("ended") << SIGTERM;
    QTest::newRow("killed") << SIGKILL;
}

void TestJwbridgeBoards::onlineIsFalseAfterTheEnd()
{
    QFETCH(int, signal);
    BrokerRun broker;
    broker.start();
    Subscriber subscriber(broker);
    subscriber.start();
    ProgramRun bridge(QStringLiteral(JWBRIDGE_PROGRAM),
                      bridgeUnderJwsim({}, broker.url(), m_spool->path())
                          .mid(2)); // without "--" and the name of the program: no simulated boards are needed
    bridge.start();
    WAIT_FOR(subscriber.newest("jw/here/online") == "true");
    bridge.sendSignal(signal);
    WAIT_FOR(subscriber.newest("jw/here/online") == "false");
    WAIT_FOR(bridge.isOver());
    if (signal == SIGTERM)
        QCOMPARE(bridge.status(), 0);
}

void TestJwbridgeBoards::sentenceIsAnsweredOnRx()
{
    BrokerRun broker;
    broker.start();
    Subscriber subscriber(broker);
    subscriber.start();
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1")}, broker.url(), m_spool->path());
    WAIT_FOR(word(subscriber.newest(m_board + "/state"), "state") == QLatin1String("ready"));
    for (const char *sentence : {"PJWVER", "$PJWVER", "$PJWVER*0c", "$PJWVER*0c\r\n"}) {
        const auto answers = subscriber.messages(m_board + "/rx").size();
        const auto results = subscriber.messages(m_board + "/tx/result").size();
        publish(broker, QString::fromLatin1(m_board + "/tx"), sentence);
        WAIT_FOR(subscriber.messages(m_board + "/rx").size() > answers); // more than one if the bridge checks the board
        WAIT_FOR(subscriber.messages(m_board + "/tx/result").size() == results + 1);
        QVERIFY(stateIn(subscriber.newest(m_board + "/tx/result"))[QLatin1String("id")].isDouble());
    }
    const QList<ReceivedMessage> payloads = subscriber.messages(m_board + "/rx");
    qint64 last = 0;
    for (const ReceivedMessage &payload : payloads) {
        QCOMPARE(payload.payload, QByteArray("$PJWVER,7300022,1,4,0*0d"));
        QVERIFY(!payload.isRetained);
        QVERIFY(payload.property("seq") > last);
        last = payload.property("seq");
        QVERIFY(qAbs(payload.property("time") / 1000 - QDateTime::currentMSecsSinceEpoch()) < programPatience);
    }
}

void TestJwbridgeBoards::resultGoesToTheResponseTopic()
{
    BrokerRun broker;
    broker.start();
    Subscriber subscriber(broker);
    subscriber.start();
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1")}, broker.url(), m_spool->path());
    WAIT_FOR(word(subscriber.newest(m_board + "/state"), "state") == QLatin1String("ready"));
    const Outcome outcome = runProgram(
        QStringLiteral("mosquitto_rr"),
        {QStringLiteral("-V"), QStringLiteral("5"), QStringLiteral("-p"), QString::number(broker.port()),
         QStringLiteral("-q"), QStringLiteral("1"), QStringLiteral("-t"), QString::fromLatin1(m_board + "/tx"),
         QStringLiteral("-e"), QStringLiteral("answers/7"), QStringLiteral("-m"), QStringLiteral("PJWVER*00")});
    QCOMPARE(outcome.status, 0);
    QVERIFY2(word(outcome.output, "error").contains(QLatin1String("checksum")), outcome.output.constData());
    QVERIFY(subscriber.messages(m_board + "/tx/result").isEmpty());
}

void TestJwbridgeBoards::responseTopicBelowThePrefixIsNotUsed()
{
    BrokerRun broker;
    broker.start();
    Subscriber subscriber(broker);
    subscriber.start();
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1")}, broker.url(), m_spool->path());
    WAIT_FOR(word(subscriber.newest(m_board + "/state"), "state") == QLatin1String("ready"));
    const Outcome outcome =
        runProgram(QStringLiteral("mosquitto_pub"),
                   {QStringLiteral("-V"), QStringLiteral("5"), QStringLiteral("-p"), QString::number(broker.port()),
                    QStringLiteral("-t"), QString::fromLatin1(m_board + "/tx"), QStringLiteral("-m"),
                    QStringLiteral("PJWVER"), QStringLiteral("-D"), QStringLiteral("publish"),
                    QStringLiteral("response-topic"), QStringLiteral("jw/here/online")});
    QCOMPARE(outcome.status, 0);
    WAIT_FOR(!subscriber.messages(m_board + "/tx/result").isEmpty());
    QCOMPARE(subscriber.newest("jw/here/online"), QByteArray("true"));
}

void TestJwbridgeBoards::wrongSentenceIsRefused_data()
{
    QTest::addColumn<QByteArray>("sentence");
    QTest::addColumn<QString>("reason");
    QTest::newRow("empty") << QByteArray() << QStringLiteral("Type a sentence");
    QTest::newRow("too long") << QByteArray("PJWVER,") + QByteArray(70, 'x') << QStringLiteral("at most 74");
    QTest::newRow("much too long") << QByteArray(60000, 'x') << QStringLiteral("at most 74");
    QTest::newRow("control character") << QByteArray("PJW\x07VER") << QStringLiteral("control character");
    QTest::newRow("two lines") << QByteArray("PJWVER\r\nPJWVER") << QStringLiteral("control character");
    QTest::newRow("NUL") << QByteArray("PJWVER\0PJWVER", 13) << QStringLiteral("control character");
    QTest::newRow("not UTF-8") << QByteArray("PJW\xff") << QStringLiteral("not UTF-8");
    QTest::newRow("beyond Latin-1") << QByteArray("PJW\xe2\x82\xac") << QStringLiteral("Latin-1");
    QTest::newRow("wrong checksum") << QByteArray("PJWVER*00") << QStringLiteral("checksum");
}

void TestJwbridgeBoards::wrongSentenceIsRefused()
{
    QFETCH(QByteArray, sentence);
    QFETCH(QString, reason);
    BrokerRun broker;
    broker.start();
    Subscriber subscriber(broker);
    subscriber.start();
    const QString report = m_spool->filePath(QStringLiteral("report"));
    {
        ProgramRun bridge(
            jwsimProgram(),
            QStringList{QStringLiteral("--report"), report}
                + bridgeUnderJwsim({boardOn("BoardA", m_port, "serial=S1")}, broker.url(), m_spool->path()));
        bridge.start();
        WAIT_FOR(word(subscriber.newest(m_board + "/state"), "state") == QLatin1String("ready"));
        publish(broker, QString::fromLatin1(m_board + "/tx"), sentence);
        WAIT_FOR(!subscriber.messages(m_board + "/tx/result").isEmpty());
        const QString error = word(subscriber.newest(m_board + "/tx/result"), "error");
        QVERIFY2(error.contains(reason), qPrintable(error));
        publish(broker, QStringLiteral("jw/here/boards/S2:1.0/tx"), "PJWVER");
        WAIT_FOR(
            word(subscriber.newest("jw/here/boards/S2:1.0/tx/result"), "error").contains(QLatin1String("not there")));
    }
    QFile file(report);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QJsonArray boards = QJsonDocument::fromJson(file.readAll()).object()[QLatin1String("boards")].toArray();
    QString received;
    const QJsonArray entries = boards[0].toObject()[QLatin1String("received")].toArray();
    for (const QJsonValue entry : entries)
        received += entry[QLatin1String("text")].toString();
    // Only the queries of the probe, each perhaps several times.
    received.remove(QLatin1String("$PJWVER*0c\\r\\n")).remove(QLatin1String("$PTJWWR,INF*71\\r\\n"));
    QCOMPARE(received, QString());
}

void TestJwbridgeBoards::fastSentencesAreRefused()
{
    BrokerRun broker;
    broker.start();
    Subscriber subscriber(broker);
    subscriber.start();
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1")}, broker.url(), m_spool->path(),
                     {QStringLiteral("--tx-rate"), QStringLiteral("1")});
    WAIT_FOR(word(subscriber.newest(m_board + "/state"), "state") == QLatin1String("ready"));
    const Outcome outcome =
        runProgram(QStringLiteral("mosquitto_pub"),
                   {QStringLiteral("-V"), QStringLiteral("5"), QStringLiteral("-p"), QString::number(broker.port()),
                    QStringLiteral("-t"), QString::fromLatin1(m_board + "/tx"), QStringLiteral("-q"),
                    QStringLiteral("1"), QStringLiteral("-l")},
                   QByteArray("PJWVER\n").repeated(50));
    QCOMPARE(outcome.status, 0);
    WAIT_FOR(subscriber.messages(m_board + "/tx/result").size() == 50);
    int refused = 0;
    const QList<ReceivedMessage> results = subscriber.messages(m_board + "/tx/result");
    for (const ReceivedMessage &result : results) {
        if (word(result.payload, "error").contains(QLatin1String("too fast")))
            ++refused;
    }
    QVERIFY2(refused >= 25 && refused < 50, qPrintable(QString::number(refused)));
}

void TestJwbridgeBoards::readOnlyTakesNoSentence()
{
    BrokerRun broker;
    broker.start();
    Subscriber subscriber(broker);
    subscriber.start();
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1")}, broker.url(), m_spool->path(),
                     {QStringLiteral("--read-only")});
    WAIT_FOR(word(subscriber.newest(m_board + "/state"), "state") == QLatin1String("ready"));
    // The board became ready after the connect, when a bridge subscribes to its tx topics.
    QVERIFY(broker.log().contains("jwbridge-jw-here"));
    QVERIFY(!broker.log().contains("Received SUBSCRIBE from jwbridge"));
}

void TestJwbridgeBoards::lostBoardIsForgotten()
{
    BrokerRun broker;
    broker.start();
    Subscriber subscriber(broker);
    subscriber.start();
    BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1,pull-after=1500")}, broker.url(), m_spool->path(),
                     {QStringLiteral("--forget-after"), QStringLiteral("1s")});
    WAIT_FOR(subscriber.messages(m_board + "/state").size() == 3);
    QCOMPARE(word(subscriber.messages(m_board + "/state")[1].payload, "state"), QStringLiteral("lost"));
    QCOMPARE(subscriber.newest(m_board + "/state"), QByteArray());
    Subscriber late(broker, QStringLiteral("jw/#"), {QStringLiteral("-i"), QStringLiteral("late")});
    late.start();
    WAIT_FOR(!late.messages("jw/here/ports").isEmpty());
    QVERIFY(late.messages(m_board + "/state").isEmpty());
}

void TestJwbridgeBoards::boardThatLeftWhileTheBridgeWasAwayIsLost()
{
    BrokerRun broker;
    broker.start();
    Subscriber subscriber(broker);
    subscriber.start();
    {
        BridgeRun bridge({boardOn("BoardA", m_port, "serial=S1")}, broker.url(), m_spool->path());
        WAIT_FOR(word(subscriber.newest(m_board + "/state"), "state") == QLatin1String("ready"));
    }
    BridgeRun bridge({}, broker.url(), m_spool->path());
    WAIT_FOR(word(subscriber.newest(m_board + "/state"), "state") == QLatin1String("lost"));
    QCOMPARE(word(subscriber.newest(m_board + "/state"), "reason"), QStringLiteral("bridgeStopped"));
}

QTEST_GUILESS_MAIN(TestJwbridgeBoards)
#include "tst_jwbridge_boards.moc"

#include "support/initializer/probefixture.h"
#include "support/common/simulatedportsmain.h"

#include <device/sessioninit.h>

#include <QBuffer>
#include <QTest>

#include <utility>

using JwDevice::Communicator;
using JwDevice::Initializer;
using JwDevice::SessionInit;
using JwSimulator::Board;

namespace {

/// A Communicator that writes to a buffer.
struct BufferedCommunicator
{
    explicit BufferedCommunicator(QIODevice::OpenMode mode = QIODevice::ReadWrite)
    {
        device.open(mode);
        comm.setIODevice(&device);
    }

    QBuffer device;
    Communicator comm;
};

SessionInit sessionOf(int sentenceId)
{
    SessionInit session;
    session.clear();
    session.sentenceId = sentenceId;
    return session;
}

} // namespace

class TestInitializerQuery : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void wantedTypesChooseTheQueriesOnTheWire_data();
    void wantedTypesChooseTheQueriesOnTheWire();
    void bothQueriesAreWrittenInTheSameCallWithNothingAwaitedBetween();
    void everyOpenedPortIsQueried();
    void unknownAloneAsksNothingAndReportsNothing();
    void unknownBesideAnotherTypeIsNeverHandedOver();
    void queryBoardVersionWritesTheQueriesToTheGivenCommunicator();
    void queryBoardVersionWritesNothingBeforeTheFirstProbe();
    void sendProtocolBuildsTheSentenceAndReturnsTrue();
    void sentenceThatCannotBeBuiltReturnsFalseAfterOneErrorLineAndWritesNothing_data();
    void sentenceThatCannotBeBuiltReturnsFalseAfterOneErrorLineAndWritesNothing();
    void writeThatFailsIsNotSeen();
};

void TestInitializerQuery::wantedTypesChooseTheQueriesOnTheWire_data()
{
    using namespace JwDevice;
    QTest::addColumn<TypeList>("types");
    QTest::addColumn<QByteArray>("queries");
    const QByteArray both = versionQuery + informationRequest;
    QTest::newRow("A") << TypeList{BoardA} << versionQuery;
    QTest::newRow("B") << TypeList{BoardB} << versionQuery;
    QTest::newRow("C") << TypeList{BoardC} << informationRequest;
    QTest::newRow("A, B: one query tells them apart") << TypeList{BoardA, BoardB} << versionQuery;
    QTest::newRow("B, A: one query tells them apart") << TypeList{BoardB, BoardA} << versionQuery;
    QTest::newRow("A, C") << TypeList{BoardA, BoardC} << both;
    QTest::newRow("C, A: the version query goes first") << TypeList{BoardC, BoardA} << both;
    QTest::newRow("B, C") << TypeList{BoardB, BoardC} << both;
    QTest::newRow("C, B, A") << TypeList{BoardC, BoardB, BoardA} << both;
    QTest::newRow("A twice") << TypeList{BoardA, BoardA} << versionQuery;
    QTest::newRow("C twice") << TypeList{BoardC, BoardC} << informationRequest;
    QTest::newRow("Unknown, A") << TypeList{Unknown, BoardA} << versionQuery;
    QTest::newRow("Unknown only") << TypeList{Unknown} << QByteArray();
    QTest::newRow("Unknown twice") << TypeList{Unknown, Unknown} << QByteArray();
}

void TestInitializerQuery::wantedTypesChooseTheQueriesOnTheWire()
{
    QFETCH(TypeList, types);
    QFETCH(QByteArray, queries);
    ProbeFixture fixture;
    const Board *const board = fixture.attach("silent");
    fixture.probe(types);
    // Write a mark after the queries. When the board has received the mark, it has received all queries.
    fixture.comm(board)->writePayload(QStringLiteral("$MARK\r\n"));
    QTRY_VERIFY(received(board).endsWith("$MARK\r\n"));
    QCOMPARE(received(board), queries + "$MARK\r\n");
}

void TestInitializerQuery::bothQueriesAreWrittenInTheSameCallWithNothingAwaitedBetween()
{
    ProbeFixture fixture;
    fixture.attach("silent");
    fixture.probe({JwDevice::BoardA, JwDevice::BoardC});
    QStringList written;
    for (const LogRecord &record : std::as_const(fixture.log.sink->records)) {
        if (record.category == "Communication")
            written << record.text;
    }
    QCOMPARE(written, QStringList({QStringLiteral("->  \"$PJWVER*0c\""), QStringLiteral("->  \"$PTJWWR,INF*71\"")}));
}

void TestInitializerQuery::everyOpenedPortIsQueried()
{
    ProbeFixture fixture;
    for (int i = 0; i < 3; ++i)
        fixture.attach("silent");
    fixture.probe({JwDevice::BoardC});
    const auto boards = fixture.testbed.boards();
    for (const Board *board : boards)
        QTRY_COMPARE(received(board), informationRequest);
}

void TestInitializerQuery::unknownAloneAsksNothingAndReportsNothing()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    fixture.probe({JwDevice::Unknown});
    QCOMPARE(fixture.state(board), PortState::AwaitingReply);
    QTRY_VERIFY(fixture.isOver());
    // Unknown is the wanted type here. A port that timed out has the type Unknown, so no type is missing.
    QCOMPARE(fixture.decisions(), QStringList{QStringLiteral("Disconnect from signals")});
    QVERIFY(received(board).isEmpty());
}

void TestInitializerQuery::unknownBesideAnotherTypeIsNeverHandedOver()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    fixture.probe({JwDevice::Unknown, JwDevice::BoardA});
    fixture.initializer->setMaxRetries(0);
    QTRY_VERIFY(fixture.isOver());
    QCOMPARE(fixture.handOver(board).type, JwDevice::BoardA);
    QCOMPARE(fixture.decisions(),
             QStringList({QStringLiteral("deviceInitialized BoardA"), QStringLiteral("deviceNotFound Unknown"),
                          QStringLiteral("Disconnect from signals")}));
}

void TestInitializerQuery::queryBoardVersionWritesTheQueriesToTheGivenCommunicator()
{
    ProbeFixture fixture;
    QVERIFY(fixture.initializer->probe({JwDevice::BoardC, JwDevice::BoardB}));
    BufferedCommunicator given;
    fixture.initializer->queryBoardVersion(&given.comm);
    QCOMPARE(given.device.data(), versionQuery + informationRequest);
    fixture.initializer->queryBoardVersion(&given.comm);
    QCOMPARE(given.device.data(), versionQuery + informationRequest + versionQuery + informationRequest);
}

void TestInitializerQuery::queryBoardVersionWritesNothingBeforeTheFirstProbe()
{
    Initializer initializer;
    BufferedCommunicator given;
    initializer.queryBoardVersion(&given.comm);
    QCOMPARE(given.device.data(), QByteArray());
}

void TestInitializerQuery::sendProtocolBuildsTheSentenceAndReturnsTrue()
{
    Initializer initializer;
    BufferedCommunicator given;
    SessionInit session = sessionOf(2);
    session.fields.insert(QStringLiteral("subcommand"), QStringLiteral("STATE"));
    QVERIFY(initializer.sendProtocol(&given.comm, &session));
    QCOMPARE(given.device.data(), JwSimulator::frameSentence("PTJWWR,STATE"));
    QCOMPARE(given.comm.writePayload(QStringLiteral("$X\r\n")), 2U); // id 2, so sendProtocol() wrote one payload
}

void TestInitializerQuery::sentenceThatCannotBeBuiltReturnsFalseAfterOneErrorLineAndWritesNothing_data()
{
    QTest::addColumn<int>("sentenceId");
    QTest::newRow("no sentence") << 0;
    QTest::newRow("the information reply") << 3;
    QTest::newRow("negative") << -1;
}

void TestInitializerQuery::sentenceThatCannotBeBuiltReturnsFalseAfterOneErrorLineAndWritesNothing()
{
    QFETCH(int, sentenceId);
    LogCapture log;
    Initializer initializer;
    BufferedCommunicator given;
    SessionInit session = sessionOf(sentenceId);
    QVERIFY(!initializer.sendProtocol(&given.comm, &session));
    QCOMPARE(log.sink->records.size(), 1);
    const LogRecord record = log.sink->records.first();
    QCOMPARE(record.text, QStringLiteral("Build failed:  \"No formatter found\""));
    QCOMPARE(record.level, Logger::Error);
    QCOMPARE(record.category, QByteArray());
    QCOMPARE(record.file, QByteArray("initializer.cpp"));
    QVERIFY2(record.function.contains("Initializer::sendProtocol("), record.function);
    QCOMPARE(given.device.data(), QByteArray());
    QCOMPARE(given.comm.writePayload(QStringLiteral("$X\r\n")), 1U); // id 1, so sendProtocol() wrote no payload
}

void TestInitializerQuery::writeThatFailsIsNotSeen()
{
    Initializer initializer;
    BufferedCommunicator given(QIODevice::ReadOnly);
    SessionInit session = sessionOf(1);
    QTest::ignoreMessage(QtWarningMsg, "QIODevice::write (QBuffer): ReadOnly device");
    QVERIFY(initializer.sendProtocol(&given.comm, &session));
}

SIMULATED_PORTS_MAIN(TestInitializerQuery)
#include "tst_initializer_query.moc"

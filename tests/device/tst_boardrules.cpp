#include "support/common/simulatedportsmain.h"
#include "support/initializer/probefixture.h"

#include <device/boardrules.h>
#include <nmea/exception.h>
#include <nmea/parserinit.h>

#include <QSerialPortInfo>
#include <QTest>

#include <algorithm>

using JwDevice::PortReport;
using JwDevice::SessionInit;
using JwDevice::Type;
using JwSimulator::Board;

namespace {

/// Returns the type after `type`, and Unknown after the last type. The switch has no default, so that the compiler
/// reports a type without a case.
Type next(Type type)
{
    switch (type) {
    case JwDevice::Unknown:
        return JwDevice::BoardA;
    case JwDevice::BoardA:
        return JwDevice::BoardB;
    case JwDevice::BoardB:
        return JwDevice::BoardC;
    case JwDevice::BoardC:
        return JwDevice::Unknown;
    }
    return JwDevice::Unknown;
}

TypeList everyType()
{
    TypeList types;
    for (Type type = next(JwDevice::Unknown); type != JwDevice::Unknown; type = next(type))
        types.append(type);
    return types;
}

SessionInit session(int key, const QHash<QString, QVariant> &fields = {})
{
    SessionInit session;
    session.sentenceId = key;
    session.fields = fields;
    return session;
}

SessionInit parsed(const QByteArray &sentence)
{
    Nmea::ParserInit parser;
    parser.init();
    SessionInit session;
    parser.parse(&session, QString::fromLatin1(sentence));
    return session;
}

QByteArray built(const SessionInit &session)
{
    Nmea::ParserInit parser;
    parser.init();
    QString sentence;
    parser.build(&session, sentence);
    return sentence.toLatin1();
}

QByteArray built(const QList<JwDevice::SentenceKey> &queries)
{
    QByteArray sentences;
    for (const JwDevice::SentenceKey query : queries)
        sentences += built(JwDevice::queryRecord(query));
    return sentences;
}

} // namespace

/// Tests the rules of the search for boards, and that the Initializer follows the rules.
class TestBoardRules : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void candidateIsAPortOfTheManufacturerOrTheVendor_data();
    void candidateIsAPortOfTheManufacturerOrTheVendor();
    void unknownPortIsNoCandidate();
    void probeOpensTheCandidatesAndNoOtherPort();
    void eachTypeStandsOnceAndInTheOrderOfItsValue();
    void eachTypeHasAName();
    void eachTypeHasASimulatedBoardThatIsFoundAsIt();
    void keysAreThoseOfTheParser();
    void typeOfAReply_data();
    void typeOfAReply();
    void replyOfTheWrongSentenceIsOfNoType_data();
    void replyOfTheWrongSentenceIsOfNoType();
    void queriesForTypes_data();
    void queriesForTypes();
    void replyTimeIsThatOfTheReplyTimer();
};

void TestBoardRules::candidateIsAPortOfTheManufacturerOrTheVendor_data()
{
    QTest::addColumn<QByteArray>("usb");
    QTest::addColumn<bool>("isCandidate");
    QTest::newRow("both") << QByteArray("manufacturer=STMicroelectronics.,vendor=0483") << true;
    QTest::newRow("manufacturer alone") << QByteArray("manufacturer=STMicroelectronics.,vendor=0403") << true;
    QTest::newRow("vendor alone") << QByteArray("manufacturer=FTDI,vendor=0483") << true;
    QTest::newRow("neither") << QByteArray("manufacturer=FTDI,vendor=0403") << false;
    QTest::newRow("no full stop") << QByteArray("manufacturer=STMicroelectronics,vendor=0403") << false;
    QTest::newRow("no full stop, but the vendor") << QByteArray("manufacturer=STMicroelectronics,vendor=0483") << true;
    QTest::newRow("other letter case") << QByteArray("manufacturer=stmicroelectronics.,vendor=0403") << false;
    QTest::newRow("longer name") << QByteArray("manufacturer=STMicroelectronics. Inc,vendor=0403") << false;
    QTest::newRow("vendor beside it") << QByteArray("manufacturer=FTDI,vendor=0484") << false;
}

void TestBoardRules::candidateIsAPortOfTheManufacturerOrTheVendor()
{
    QFETCH(QByteArray, usb);
    ProbeFixture fixture;
    const Board *const board = fixture.attach("silent," + usb);
    const QSerialPortInfo info(board->portName());
    QVERIFY(!info.isNull());
    QTEST(JwDevice::isCandidate(info), "isCandidate");
}

void TestBoardRules::unknownPortIsNoCandidate()
{
    QVERIFY(!JwDevice::isCandidate(QSerialPortInfo()));
}

void TestBoardRules::probeOpensTheCandidatesAndNoOtherPort()
{
    ProbeFixture fixture;
    fixture.attach("silent");
    fixture.attach("silent,manufacturer=FTDI,vendor=0403");
    fixture.attach("silent,manufacturer=STMicroelectronics.,vendor=0403");
    fixture.attach("silent,manufacturer=STMicroelectronics,vendor=0403");
    fixture.attach("silent,manufacturer=FTDI,vendor=0483");
    QStringList candidates;
    const QList<QSerialPortInfo> ports = QSerialPortInfo::availablePorts();
    QCOMPARE(ports.size(), 5);
    for (const QSerialPortInfo &port : ports) {
        if (JwDevice::isCandidate(port))
            candidates << port.portName();
    }
    QCOMPARE(candidates.size(), 3);
    QVERIFY(fixture.initializer->probe(JwDevice::boardTypes()));
    QStringList opened;
    const QList<Board *> boards = fixture.testbed.boards();
    for (const Board *board : boards) {
        if (fixture.port(board))
            opened << board->portName();
    }
    std::sort(opened.begin(), opened.end());
    std::sort(candidates.begin(), candidates.end());
    QCOMPARE(opened, candidates);
}

void TestBoardRules::eachTypeStandsOnceAndInTheOrderOfItsValue()
{
    const TypeList types = JwDevice::boardTypes();
    QCOMPARE(types, everyType());
    QVERIFY(std::is_sorted(types.begin(), types.end()));
}

void TestBoardRules::eachTypeHasAName()
{
    QCOMPARE(JwDevice::typeName(JwDevice::BoardA), QStringLiteral("BoardA"));
    QCOMPARE(JwDevice::typeName(JwDevice::BoardB), QStringLiteral("BoardB"));
    QCOMPARE(JwDevice::typeName(JwDevice::BoardC), QStringLiteral("BoardC"));
    const QString unknown = QStringLiteral("Unknown");
    QCOMPARE(JwDevice::typeName(JwDevice::Unknown), unknown);
    QCOMPARE(JwDevice::typeName(static_cast<Type>(99)), unknown);
    QCOMPARE(JwDevice::typeName(static_cast<Type>(-1)), unknown);
    QSet<QString> names = {unknown};
    for (const Type type : everyType())
        names.insert(JwDevice::typeName(type));
    QCOMPARE(names.size(), everyType().size() + 1);
}

void TestBoardRules::eachTypeHasASimulatedBoardThatIsFoundAsIt()
{
    for (const Type type : everyType()) {
        ProbeFixture fixture;
        const Board *const board = fixture.attach(JwDevice::typeName(type).toLatin1());
        fixture.probe(everyType());
        QTRY_COMPARE(fixture.handOvers.size(), 1);
        QCOMPARE(fixture.handOver(board).type, type);
    }
}

void TestBoardRules::keysAreThoseOfTheParser()
{
    QCOMPARE(built(session(JwDevice::VersionSentence)), versionQuery);
    QCOMPARE(built(session(JwDevice::InformationRequest, {{QStringLiteral("subcommand"), QStringLiteral("INF")}})),
             informationRequest);
    QCOMPARE(parsed(versionReply("1")).sentenceId, int(JwDevice::VersionSentence));
    QCOMPARE(parsed(informationReply("INF")).sentenceId, int(JwDevice::InformationReply));
}

void TestBoardRules::typeOfAReply_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<Type>("type");
    QTest::newRow("hardware number of BoardA") << versionReply("7300022") << JwDevice::BoardA;
    QTest::newRow("hardware number of BoardB") << versionReply("7300021") << JwDevice::BoardB;
    QTest::newRow("number of BoardA within a text") << versionReply("HW-7300022.4") << JwDevice::BoardA;
    QTest::newRow("number of BoardB within a text") << versionReply("HW-7300021.4") << JwDevice::BoardB;
    QTest::newRow("both numbers, A first") << versionReply("7300022 7300021") << JwDevice::BoardB;
    QTest::newRow("both numbers, B first") << versionReply("7300021 7300022") << JwDevice::BoardB;
    QTest::newRow("another number") << versionReply("7300020") << JwDevice::Unknown;
    QTest::newRow("part of a number") << versionReply("730002") << JwDevice::Unknown;
    QTest::newRow("no number") << versionReply("") << JwDevice::Unknown;
    QTest::newRow("number of BoardA in a version")
        << JwSimulator::frameSentence("PJWVER,1,7300022,4,0") << JwDevice::Unknown;
    QTest::newRow("subcommand of BoardC") << informationReply("INF") << JwDevice::BoardC;
    QTest::newRow("subcommand in other letter case") << informationReply("Inf") << JwDevice::Unknown;
    QTest::newRow("subcommand with a blank") << informationReply("INF ") << JwDevice::Unknown;
    QTest::newRow("longer subcommand") << informationReply("INFO") << JwDevice::Unknown;
    QTest::newRow("no subcommand") << informationReply("") << JwDevice::Unknown;
    QTest::newRow("number of BoardA in the information")
        << JwSimulator::frameSentence("PTJWRD,VER,CTRL,3,17,2,1.04,7300022,1") << JwDevice::Unknown;
}

void TestBoardRules::typeOfAReply()
{
    QFETCH(QByteArray, reply);
    QFETCH(Type, type);
    QCOMPARE(JwDevice::typeOf(parsed(reply)), type);

    // The Initializer must find the type that typeOf() returns.
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    fixture.probe(everyType());
    QVERIFY(board->send(reply));
    const auto report = [&fixture] { return fixture.initializer->portReports().first(); };
    QTRY_COMPARE(report().payloads, qint64(1));
    QCOMPARE(report().type, type);
    QCOMPARE(report().verdict, type == JwDevice::Unknown ? PortReport::Silenced : PortReport::HandedOver);
    QCOMPARE(fixture.handOver(board).type, type);
}

void TestBoardRules::replyOfTheWrongSentenceIsOfNoType_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<QVariantHash>("fields");
    const QVariantHash fields = {{QStringLiteral("hwversion"), QStringLiteral("7300022 7300021")},
                                 {QStringLiteral("subcommand"), QStringLiteral("INF")}};
    QTest::newRow("no sentence") << 0 << fields;
    QTest::newRow("the information request") << int(JwDevice::InformationRequest) << fields;
    QTest::newRow("a key that no sentence has") << 4 << fields;
    QTest::newRow("subcommand in a version sentence")
        << int(JwDevice::VersionSentence) << QVariantHash{{QStringLiteral("subcommand"), QStringLiteral("INF")}};
    QTest::newRow("hardware number in an information reply")
        << int(JwDevice::InformationReply)
        << QVariantHash{{QStringLiteral("hwversion"), QStringLiteral("7300022 7300021")}};
    QTest::newRow("version sentence without a field") << int(JwDevice::VersionSentence) << QVariantHash();
    QTest::newRow("information reply without a field") << int(JwDevice::InformationReply) << QVariantHash();
}

void TestBoardRules::replyOfTheWrongSentenceIsOfNoType()
{
    QFETCH(int, key);
    QFETCH(QVariantHash, fields);
    QCOMPARE(JwDevice::typeOf(session(key, fields)), JwDevice::Unknown);
}

void TestBoardRules::queriesForTypes_data()
{
    using namespace JwDevice;
    QTest::addColumn<TypeList>("types");
    QTest::addColumn<QByteArray>("queries");
    const QByteArray both = versionQuery + informationRequest;
    QTest::newRow("BoardA") << TypeList({BoardA}) << versionQuery;
    QTest::newRow("BoardB") << TypeList({BoardB}) << versionQuery;
    QTest::newRow("BoardC") << TypeList({BoardC}) << informationRequest;
    QTest::newRow("BoardB, BoardA") << TypeList({BoardB, BoardA}) << versionQuery;
    QTest::newRow("BoardA, BoardC") << TypeList({BoardA, BoardC}) << both;
    QTest::newRow("BoardC, BoardB") << TypeList({BoardC, BoardB}) << both;
    QTest::newRow("BoardB, BoardC, BoardA") << TypeList({BoardB, BoardC, BoardA}) << both;
    QTest::newRow("BoardC twice") << TypeList({BoardC, BoardC}) << informationRequest;
    QTest::newRow("Unknown") << TypeList({Unknown}) << QByteArray();
    QTest::newRow("Unknown, BoardC") << TypeList({Unknown, BoardC}) << informationRequest;
}

void TestBoardRules::queriesForTypes()
{
    QFETCH(TypeList, types);
    QFETCH(QByteArray, queries);
    QCOMPARE(built(JwDevice::queriesFor(types)), queries);
    QVERIFY(JwDevice::queriesFor({}).isEmpty());

    // The Initializer must write the queries that queriesFor() returns.
    ProbeFixture fixture;
    const Board *const board = fixture.attach("silent");
    fixture.probe(types);
    QTRY_COMPARE(received(board), queries);
    QCOMPARE(fixture.initializer->portReports().first().queries, JwDevice::queriesFor(types).size());
}

void TestBoardRules::replyTimeIsThatOfTheReplyTimer()
{
    QCOMPARE(JwDevice::replyTime, 400);
    ProbeFixture fixture;
    const Board *const board = fixture.attach("silent");
    fixture.probe({JwDevice::BoardA});
    QCOMPARE(fixture.replyTimer(board)->interval(), JwDevice::replyTime);
}

SIMULATED_PORTS_MAIN(TestBoardRules)
#include "tst_boardrules.moc"

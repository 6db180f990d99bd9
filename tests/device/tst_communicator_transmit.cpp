#include "support/common/allocationcount.h"
#include "support/common/processusage.h"
#include "support/common/throws.h"
#include "support/device/communicatorcounters.h"
#include "support/device/communicatorfixture.h"
#include "support/device/scriptedparser.h"
#include "support/device/serialline.h"

#include <device/communicator.h>
#include <device/sessioninit.h>
#include <nmea/exception.h>
#include <nmea/parserinit.h>

#include <QBuffer>
#include <QMap>
#include <QPointer>
#include <QRandomGenerator>
#include <QSerialPort>
#include <QSignalSpy>
#include <QTest>

#include <memory>
#include <stdexcept>
#include <utility>

using JwDevice::Communicator;
using JwDevice::SessionInit;

namespace {

const QString abc = QStringLiteral("abc");
const QString defg = QStringLiteral("defg");

SessionInit versionQuery()
{
    SessionInit session;
    session.sentenceId = 1;
    return session;
}

SessionInit informationRequest()
{
    SessionInit session;
    session.sentenceId = 2;
    session.fields.insert(QStringLiteral("subcommand"), QStringLiteral("INF"));
    return session;
}

} // namespace

class TestCommunicatorTransmit : public CommunicatorFixture
{
    Q_OBJECT

private Q_SLOTS:
    void newCommunicatorIsUnbound();
    void parentDeletesItsCommunicator();
    void setIODeviceAlwaysReturnsTrue();
    void setParserReturnsTrueAndDoesNothingElse();

    void firstIdIs1AndTheNext2();
    void idsKeepRisingAcrossFailedWrites();
    void transmitIdsAreIndependentOfReceiveIds();
    void idsAreIndependentBetweenCommunicators();
    void idWrapsToZero();
    void wrappedIdOverwritesItsEntry();
    void wrappedIdIsChargedBeforeHigherIds();
    void wrappedIdChangesOnlyItsOwnPayload_data();
    void wrappedIdChangesOnlyItsOwnPayload();

    void payloadIsWrittenUnchanged_data();
    void payloadIsWrittenUnchanged();
    void writeIsLoggedInBothCategories();
    void failedWriteIsLoggedLikeAnyOther();
    void recordCarriesThePlaceInTheSource();
    void writeWithoutDeviceIsAFailedWrite();

    void sessionWithoutParserReturnsZeroSilently();
    void sessionWithDetachedParserReturnsZero();
    void sessionIsBuiltAndWritten();
    void parserGetsTheSessionAndAnEmptyText();
    void buildFailureIsLoggedAndReturnsZero();
    void buildFailureOfTheLibrarysParserIsLogged();
    void codecExceptionOutOfTheWriteIsLoggedAsBuildFailure();
    void otherExceptionsOfTheParserPass();

    void notificationIsChargedInIdOrder_data();
    void notificationIsChargedInIdOrder();
    void everyNotificationIsChargedFromTheLowestId();
    void notificationWithoutEntriesIsIgnored();
    void payloadWrittenDuringTheWalkIsNotCharged();
    void failedWriteIsNotReportedBySignal();
    void ledgerOutlivesRebinding();
    void randomWritesAreChargedAsInAPlainLedger();
    void chargeCostsWhatTheNotificationCovers();
    void payloadsOfOneLengthKeepNoMemory();

    void bindingTwiceLeavesOneConnectionOfEachKind();
    void bindingNoneLeavesNoConnection();
    void bindingAnotherDeviceDisconnectsTheFirst();
    void unboundDeviceIsNeitherClosedNorDeleted();
    void rebindingLeavesTheConnectionsOfOthers();
    void destructionLeavesDeviceAndParserAlive();
    void destructionLeavesNoConnection();
    void deviceDeletedFirstIsNoLongerBound();

    void realBufferReportsTheTransfer();
    void realSerialPortReportsTheTransfer();
};

void TestCommunicatorTransmit::newCommunicatorIsUnbound()
{
    const Communicator communicator;
    QVERIFY(!communicator.device());
    QVERIFY(!communicator.parent());
    QCOMPARE(takeLog(*m_log), QStringList());
}

void TestCommunicatorTransmit::parentDeletesItsCommunicator()
{
    auto parent = std::make_unique<QObject>();
    const QPointer<Communicator> communicator = new Communicator(parent.get());
    QCOMPARE(communicator->parent(), parent.get());
    parent.reset();
    QVERIFY(!communicator);
}

void TestCommunicatorTransmit::setIODeviceAlwaysReturnsTrue()
{
    ScriptedDevice device;
    QBuffer closed;
    Communicator communicator;
    QVERIFY(communicator.setIODevice(nullptr));
    QVERIFY(communicator.setIODevice(&device));
    QCOMPARE(communicator.device(), &device);
    QVERIFY(communicator.setIODevice(&device));
    QVERIFY(communicator.setIODevice(&closed));
    QCOMPARE(communicator.device(), &closed);
    QVERIFY(communicator.setIODevice(nullptr));
    QVERIFY(!communicator.device());
    QCOMPARE(takeLog(*m_log), QStringList());
}

void TestCommunicatorTransmit::setParserReturnsTrueAndDoesNothingElse()
{
    ScriptedParser parser; // no functions are set, so every call throws
    QVERIFY(m_communicator->setParser(&parser));
    QVERIFY(m_communicator->setParser(&parser));
    QVERIFY(m_communicator->setParser(nullptr));
    QCOMPARE(m_device->written, QList<QByteArray>());
    QCOMPARE(takeLog(*m_log), QStringList());
}

void TestCommunicatorTransmit::firstIdIs1AndTheNext2()
{
    QCOMPARE(m_communicator->writePayload(abc), 1u);
    QCOMPARE(m_communicator->writePayload(abc), 2u);
}

void TestCommunicatorTransmit::idsKeepRisingAcrossFailedWrites()
{
    QCOMPARE(m_communicator->writePayload(abc), 1u);
    m_device->queueWriteResult(-1);
    QCOMPARE(m_communicator->writePayload(abc), 2u);
    m_device->queueWriteResult(-1);
    QCOMPARE(m_communicator->writePayload(abc), 3u);
    QCOMPARE(m_communicator->writePayload(abc), 4u);
}

void TestCommunicatorTransmit::transmitIdsAreIndependentOfReceiveIds()
{
    QCOMPARE(m_communicator->writePayload(abc), 1u);
    m_device->deliver("$A\r\n$B\r\n");
    QCOMPARE(m_emissions->take(), arrivals(2));
    QCOMPARE(m_communicator->writePayload(abc), 2u);
    m_device->deliver("$C\r\n");
    QCOMPARE(m_emissions->take(), arrivals(1, 4));
}

void TestCommunicatorTransmit::idsAreIndependentBetweenCommunicators()
{
    ScriptedDevice device;
    Communicator first;
    Communicator second;
    first.setIODevice(&device);
    second.setIODevice(&device);
    QCOMPARE(first.writePayload(abc), 1u);
    QCOMPARE(first.writePayload(abc), 2u);
    QCOMPARE(second.writePayload(abc), 1u);
}

void TestCommunicatorTransmit::idWrapsToZero()
{
    setNextTransmitId(*m_communicator, 4294967295u);
    QCOMPARE(m_communicator->writePayload(abc), 4294967295u);
    QCOMPARE(m_communicator->writePayload(abc), 0u);
    QCOMPARE(m_communicator->writePayload(abc), 1u);
}

void TestCommunicatorTransmit::wrappedIdOverwritesItsEntry()
{
    m_communicator->writePayload(abc);
    setNextTransmitId(*m_communicator, 1);
    m_communicator->writePayload(defg);
    m_device->reportWritten(3);
    QCOMPARE(m_emissions->take(), transfers({}));
    m_device->reportWritten(8);
    QCOMPARE(m_emissions->take(), transfers({1}));
}

void TestCommunicatorTransmit::wrappedIdIsChargedBeforeHigherIds()
{
    setNextTransmitId(*m_communicator, 4294967295u);
    m_communicator->writePayload(abc);
    m_communicator->writePayload(defg);
    m_device->reportWritten(7);
    QCOMPARE(m_emissions->take(), transfers({0, 4294967295u}));
    m_device->reportWritten(3);
    QCOMPARE(m_emissions->take(), transfers({}));
}

void TestCommunicatorTransmit::wrappedIdChangesOnlyItsOwnPayload_data()
{
    QTest::addColumn<uint>("id");
    QTest::addColumn<QList<uint>>("ids"); // the ids that 9 bytes cover
    using Ids = QList<uint>;
    QTest::newRow("first of a run") << 1u << Ids{1, 2};
    QTest::newRow("middle of a run") << 3u << Ids{1, 2};
    QTest::newRow("last of a run") << 4u << Ids{1, 2, 3};
}

void TestCommunicatorTransmit::wrappedIdChangesOnlyItsOwnPayload()
{
    QFETCH(uint, id);
    QFETCH(QList<uint>, ids);
    for (int i = 0; i < 4; ++i)
        m_communicator->writePayload(abc);
    setNextTransmitId(*m_communicator, id);
    QCOMPARE(m_communicator->writePayload(defg), id);
    m_device->reportWritten(9);
    QCOMPARE(m_emissions->take(), transfers(ids));
    m_device->reportWritten(13);
    QCOMPARE(m_emissions->take(), transfers({1, 2, 3, 4}));
    m_device->reportWritten(12);
    QCOMPARE(m_emissions->take(), transfers({1, 2, 3}));
}

void TestCommunicatorTransmit::payloadIsWrittenUnchanged_data()
{
    QTest::addColumn<QString>("payload");
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("whole sentence") << QStringLiteral("$PJWVER*0c\r\n") << QByteArray("$PJWVER*0c\r\n");
    QTest::newRow("no start character and no line end are added") << abc << QByteArray("abc");
    QTest::newRow("blanks at the ends stay") << QStringLiteral("  a \r\n \r\n") << QByteArray("  a \r\n \r\n");
    QTest::newRow("empty") << QString() << QByteArray("");
    QTest::newRow("Latin-1") << QStringLiteral("$\u00e9\u00ff\r\n") << QByteArray("$\xe9\xff\r\n");
    QTest::newRow("outside Latin-1") << QStringLiteral("$\u20ac\r\n") << QByteArray("$?\r\n");
    QTest::newRow("NUL inside") << QStringLiteral("$a") + QChar(0) + QStringLiteral("b\r\n")
                                << QByteArray("$a\0b\r\n", 6);
    QTest::newRow("longer than a read") << QString(1000, QLatin1Char('x')) << QByteArray(1000, 'x');
}

void TestCommunicatorTransmit::payloadIsWrittenUnchanged()
{
    QFETCH(QString, payload);
    QFETCH(QByteArray, bytes);
    QCOMPARE(m_communicator->writePayload(payload), 1u);
    QCOMPARE(m_device->written, QList<QByteArray>{bytes});
}

void TestCommunicatorTransmit::writeIsLoggedInBothCategories()
{
    m_communicator->writePayload(QStringLiteral("\t $PJWVER*0c\r\n"));
    QCOMPARE(takeLog(*m_log),
             (QStringList{QStringLiteral("0 [Communication] communicator.cpp ->  \"$PJWVER*0c\""),
                          QStringLiteral("0 [RawCommunication] communicator.cpp ->  \"$PJWVER*0c\"")}));
}

void TestCommunicatorTransmit::failedWriteIsLoggedLikeAnyOther()
{
    m_device->queueWriteResult(-1);
    m_communicator->writePayload(abc);
    QCOMPARE(takeLog(*m_log),
             (QStringList{QStringLiteral("0 [Communication] communicator.cpp ->  \"abc\""),
                          QStringLiteral("0 [RawCommunication] communicator.cpp ->  \"abc\"")}));
}

void TestCommunicatorTransmit::recordCarriesThePlaceInTheSource()
{
    m_communicator->writePayload(abc);
    QCOMPARE(m_log->sink->records.size(), 2);
    for (const LogRecord &record : std::as_const(m_log->sink->records)) {
        QVERIFY(record.line > 0);
        QVERIFY2(record.function.contains("JwDevice::Communicator::writePayload(const QString"),
                 record.function.constData());
    }
}

void TestCommunicatorTransmit::writeWithoutDeviceIsAFailedWrite()
{
    ScriptedDevice device;
    Communicator communicator;
    SignalRecord signalRecord(&communicator);
    QCOMPARE(communicator.writePayload(abc), 1u);
    communicator.setIODevice(&device);
    QCOMPARE(communicator.writePayload(defg), 2u);
    QCOMPARE(device.written, QList<QByteArray>{"defg"});
    // Three bytes cover both payloads: the failed write counts -1, which is its result, and `defg` counts 4.
    device.reportWritten(3);
    QCOMPARE(signalRecord.take(), transfers({1, 2}));
}

void TestCommunicatorTransmit::sessionWithoutParserReturnsZeroSilently()
{
    const SessionInit session = versionQuery();
    QCOMPARE(m_communicator->writePayload(&session), 0u);
    QCOMPARE(m_device->written, QList<QByteArray>());
    QCOMPARE(takeLog(*m_log), QStringList());
    QCOMPARE(m_communicator->writePayload(abc), 1u);
}

void TestCommunicatorTransmit::sessionWithDetachedParserReturnsZero()
{
    Nmea::ParserInit parser;
    parser.init();
    m_communicator->setParser(&parser);
    m_communicator->setParser(nullptr);
    const SessionInit session = versionQuery();
    QCOMPARE(m_communicator->writePayload(&session), 0u);
    QCOMPARE(m_device->written, QList<QByteArray>());
}

void TestCommunicatorTransmit::sessionIsBuiltAndWritten()
{
    Nmea::ParserInit parser;
    parser.init();
    m_communicator->setParser(&parser);

    const SessionInit query = versionQuery();
    const SessionInit request = informationRequest();
    QCOMPARE(m_communicator->writePayload(&query), 1u);
    QCOMPARE(m_communicator->writePayload(&request), 2u);
    QCOMPARE(m_device->written, (QList<QByteArray>{"$PJWVER*0c\r\n", "$PTJWWR,INF*71\r\n"}));
    QCOMPARE(takeLog(*m_log),
             (QStringList{QStringLiteral("0 [Communication] communicator.cpp ->  \"$PJWVER*0c\""),
                          QStringLiteral("0 [RawCommunication] communicator.cpp ->  \"$PJWVER*0c\""),
                          QStringLiteral("0 [Communication] communicator.cpp ->  \"$PTJWWR,INF*71\""),
                          QStringLiteral("0 [RawCommunication] communicator.cpp ->  \"$PTJWWR,INF*71\"")}));
    m_device->reportWritten(12 + 16);
    QCOMPARE(m_emissions->take(), transfers({1, 2}));
}

void TestCommunicatorTransmit::parserGetsTheSessionAndAnEmptyText()
{
    ScriptedParser parser;
    m_communicator->setParser(&parser);
    const SessionInit session = versionQuery();
    int builds = 0;
    parser.onBuild = [&](const JwDevice::SessionAbstract *built, QString &text) {
        ++builds;
        const bool asExpected = built == &session && text.isEmpty();
        text = asExpected ? QStringLiteral("$X\r\n") : QStringLiteral("$wrong\r\n");
        return true;
    };
    QCOMPARE(m_communicator->writePayload(&session), 1u);
    QCOMPARE(builds, 1);
    QCOMPARE(m_device->written, QList<QByteArray>{"$X\r\n"});
}

void TestCommunicatorTransmit::buildFailureIsLoggedAndReturnsZero()
{
    ScriptedParser parser;
    m_communicator->setParser(&parser);
    parser.onBuild = [](const JwDevice::SessionAbstract *, QString &text) -> bool {
        text = QStringLiteral("$half");
        throw Nmea::Exception(QStringLiteral("no such \"sentence\""));
    };
    const SessionInit session = versionQuery();
    QCOMPARE(m_communicator->writePayload(&session), 0u);
    QCOMPARE(takeLog(*m_log),
             QStringList{QStringLiteral("4 [] communicator.cpp Build failed:  \"no such \\\"sentence\\\"\"")});
    QCOMPARE(m_device->written, QList<QByteArray>());

    m_device->reportWritten(5); // causes no signal, because the payload was not built and so was not written
    QCOMPARE(m_emissions->take(), transfers({}));
    QCOMPARE(m_communicator->writePayload(abc), 1u);
}

void TestCommunicatorTransmit::buildFailureOfTheLibrarysParserIsLogged()
{
    Nmea::ParserInit parser;
    parser.init();
    m_communicator->setParser(&parser);

    const SessionInit empty;
    QString message;
    try {
        QString text;
        parser.build(&empty, text);
    } catch (const Nmea::Exception &exception) {
        message = exception.message();
    }
    QVERIFY(!message.isEmpty());
    QCOMPARE(m_communicator->writePayload(&empty), 0u);
    QCOMPARE(takeLog(*m_log), QStringList{QStringLiteral("4 [] communicator.cpp Build failed:  \"%1\"").arg(message)});
}

void TestCommunicatorTransmit::codecExceptionOutOfTheWriteIsLoggedAsBuildFailure()
{
    Nmea::ParserInit parser;
    parser.init();
    m_communicator->setParser(&parser);
    m_device->insideWrite = [] { throw Nmea::Exception(QStringLiteral("from the device")); };
    const SessionInit session = versionQuery();
    QCOMPARE(m_communicator->writePayload(&session), 0u);
    QCOMPARE(takeLog(*m_log), QStringList{QStringLiteral("4 [] communicator.cpp Build failed:  \"from the device\"")});
    m_device->insideWrite = nullptr;
    QCOMPARE(m_communicator->writePayload(&session), 1u);
}

void TestCommunicatorTransmit::otherExceptionsOfTheParserPass()
{
    ScriptedParser parser;
    m_communicator->setParser(&parser);
    parser.onBuild = [](const JwDevice::SessionAbstract *, QString &) -> bool {
        throw std::runtime_error("not of the codec");
    };
    const SessionInit session = versionQuery();
    QVERIFY(throws<std::runtime_error>([&] { m_communicator->writePayload(&session); }));
    QCOMPARE(takeLog(*m_log), QStringList());
    QCOMPARE(m_communicator->writePayload(abc), 1u);
}

void TestCommunicatorTransmit::notificationIsChargedInIdOrder_data()
{
    QTest::addColumn<QList<qint64>>("sizes");
    QTest::addColumn<qint64>("bytes");
    QTest::addColumn<QList<uint>>("ids");
    using Sizes = QList<qint64>;
    using Ids = QList<uint>;
    QTest::newRow("all of two payloads") << Sizes{3, 4} << qint64(7) << Ids{1, 2};
    QTest::newRow("less than the first") << Sizes{3} << qint64(2) << Ids{};
    QTest::newRow("exactly the first") << Sizes{3, 4} << qint64(3) << Ids{1};
    QTest::newRow("the first and a part of the second") << Sizes{3, 4} << qint64(6) << Ids{1};
    QTest::newRow("a part ends the count before smaller payloads") << Sizes{3, 4, 1} << qint64(4) << Ids{1};
    QTest::newRow("more than was written") << Sizes{3, 4} << qint64(1000) << Ids{1, 2};
    QTest::newRow("a part of a run of equal sizes") << Sizes{3, 3, 3, 4} << qint64(8) << Ids{1, 2};
    QTest::newRow("a run of equal sizes and the next payload") << Sizes{3, 3, 4, 4, 3} << qint64(10) << Ids{1, 2, 3};
    QTest::newRow("three runs") << Sizes{3, 3, 4, 4, 3} << qint64(17) << Ids{1, 2, 3, 4, 5};
    QTest::newRow("no bytes") << Sizes{3, 4} << qint64(0) << Ids{};
    QTest::newRow("no bytes, size 0 first") << Sizes{0, 3} << qint64(0) << Ids{};
    QTest::newRow("size 0 is reported when passed") << Sizes{0, 3} << qint64(1) << Ids{1};
    QTest::newRow("size 0 in the middle") << Sizes{3, 0, 4} << qint64(7) << Ids{1, 2, 3};
    QTest::newRow("size 0 after the last byte is not reached") << Sizes{3, 0} << qint64(3) << Ids{1};
    QTest::newRow("size 0 while bytes remain") << Sizes{3, 0} << qint64(4) << Ids{1, 2};
    QTest::newRow("failed write is reported and counts as -1 byte") << Sizes{-1, 3} << qint64(2) << Ids{1, 2};
    QTest::newRow("failed write, one byte too few") << Sizes{-1, 3} << qint64(1) << Ids{1};
    QTest::newRow("failed write after the last byte is not reached") << Sizes{3, -1} << qint64(3) << Ids{1};
    QTest::newRow("two failed writes count as -2 bytes") << Sizes{-1, -1, 4} << qint64(2) << Ids{1, 2, 3};
    QTest::newRow("only failed writes") << Sizes{-1, -1} << qint64(5) << Ids{1, 2};
    QTest::newRow("sizes beyond 32 bits, one byte too few") << Sizes{4294967297} << qint64(4294967296) << Ids{};
    QTest::newRow("sizes beyond 32 bits, low part alone") << Sizes{4294967297} << qint64(1) << Ids{};
    QTest::newRow("sizes beyond 32 bits, exactly") << Sizes{4294967297} << qint64(4294967297) << Ids{1};
}

void TestCommunicatorTransmit::notificationIsChargedInIdOrder()
{
    QFETCH(QList<qint64>, sizes);
    QFETCH(qint64, bytes);
    QFETCH(QList<uint>, ids);
    for (const qint64 size : std::as_const(sizes)) {
        m_device->queueWriteResult(size);
        m_communicator->writePayload(abc);
    }
    m_device->reportWritten(bytes);
    QCOMPARE(m_emissions->take(), transfers(ids));
    // The second report causes the same signals, because the Communicator counts from the first id at every report.
    m_device->reportWritten(bytes);
    QCOMPARE(m_emissions->take(), transfers(ids));
}

void TestCommunicatorTransmit::everyNotificationIsChargedFromTheLowestId()
{
    m_communicator->writePayload(abc);
    m_communicator->writePayload(defg);
    m_device->reportWritten(7);
    QCOMPARE(m_emissions->take(), transfers({1, 2}));
    m_device->reportWritten(4);
    QCOMPARE(m_emissions->take(), transfers({1}));
    m_communicator->writePayload(abc);
    m_device->reportWritten(3);
    QCOMPARE(m_emissions->take(), transfers({1}));
    m_device->reportWritten(10);
    QCOMPARE(m_emissions->take(), transfers({1, 2, 3}));
}

void TestCommunicatorTransmit::notificationWithoutEntriesIsIgnored()
{
    m_device->reportWritten(7);
    QCOMPARE(m_emissions->take(), transfers({}));
    QCOMPARE(takeLog(*m_log), QStringList());
    QCOMPARE(m_communicator->writePayload(abc), 1u);
}

void TestCommunicatorTransmit::payloadWrittenDuringTheWalkIsNotCharged()
{
    m_communicator->writePayload(abc);
    m_communicator->writePayload(defg);
    QObject context;
    uint writtenInside = 0;
    QObject::connect(m_communicator.get(), &Communicator::transferred, &context, [&](uint id) {
        if (id == 1)
            writtenInside = m_communicator->writePayload(abc);
    });
    m_device->reportWritten(1000);
    QCOMPARE(writtenInside, 3u);
    QCOMPARE(m_emissions->take(), transfers({1, 2}));
    m_device->reportWritten(1000);
    QCOMPARE(writtenInside, 4u);
    QCOMPARE(m_emissions->take(), transfers({1, 2, 3}));
}

void TestCommunicatorTransmit::failedWriteIsNotReportedBySignal()
{
    m_device->queueWriteResult(-1);
    QCOMPARE(m_communicator->writePayload(abc), 1u);
    QCOMPARE(m_emissions->take(), QStringList());
}

void TestCommunicatorTransmit::ledgerOutlivesRebinding()
{
    ScriptedDevice first;
    ScriptedDevice second;
    Communicator communicator;
    communicator.setIODevice(&first);
    SignalRecord signalRecord(&communicator);
    communicator.writePayload(abc);
    communicator.setIODevice(&second);
    QCOMPARE(communicator.writePayload(defg), 2u);
    second.reportWritten(4);
    QCOMPARE(signalRecord.take(), transfers({1}));
}

void TestCommunicatorTransmit::randomWritesAreChargedAsInAPlainLedger()
{
    // The ids jump, as if many payloads had been written in between, also across the wrap from 2^32 - 1 to 0.
    QRandomGenerator random(1);
    m_log.reset();
    for (int round = 0; round < 100; ++round) {
        Communicator communicator;
        communicator.setIODevice(m_device.get());
        SignalRecord signalRecord(&communicator);
        QMap<uint, qint64> ledger;
        uint next = 1;
        for (int step = 0; step < 40; ++step) {
            if (random.bounded(8) == 0)
                setNextTransmitId(communicator, next = 4294967290u + random.bounded(12u));
            const qint64 size = random.bounded(-1, 4);
            m_device->queueWriteResult(size);
            QCOMPARE(communicator.writePayload(abc), next);
            ledger[next++] = size;

            qint64 bytes = random.bounded(40);
            QList<uint> expected;
            m_device->reportWritten(bytes);
            for (auto entry = ledger.cbegin(); entry != ledger.cend() && bytes > 0 && bytes >= *entry; ++entry) {
                expected.append(entry.key());
                bytes -= *entry;
            }
            QCOMPARE(signalRecord.take(), transfers(expected));
        }
    }
}

void TestCommunicatorTransmit::chargeCostsWhatTheNotificationCovers()
{
    // Heap use of one bytesWritten() signal. The signal reports 9 bytes, which cover three payloads. For each of them
    // the Communicator emits transferred(), and a slot then writes a new payload.
    struct Cost
    {
        long blocks;
        long bytes;
    };
    m_log.reset();
    const auto costAfter = [](int payloads) {
        QBuffer device;
        device.open(QIODevice::ReadWrite);
        Communicator communicator;
        communicator.setIODevice(&device);
        for (int i = 0; i < payloads; ++i)
            communicator.writePayload(abc);
        QObject context;
        QObject::connect(&communicator, &Communicator::transferred, &context,
                         [&communicator] { communicator.writePayload(defg); });
        // Otherwise the device's buffer would grow during the measurement, and its heap use would also be counted.
        device.buffer().reserve(device.buffer().size() + 1000);
        const Cost before{allocationCount(), allocatedBytes()};
        Q_EMIT device.bytesWritten(9);
        return Cost{allocationCount() - before.blocks, allocatedBytes() - before.bytes};
    };
    costAfter(3); // not measured, because the first run also allocates objects that the process keeps for good
    const Cost few = costAfter(100);
    const Cost many = costAfter(100000);
    QVERIFY2(few.blocks > 0, "The counter of heap blocks does not work.");
    QVERIFY2(many.blocks <= few.blocks + 8, qPrintable(QStringLiteral("%1 > %2").arg(many.blocks).arg(few.blocks)));
    QVERIFY2(many.bytes <= few.bytes + 1024, qPrintable(QStringLiteral("%1 > %2").arg(many.bytes).arg(few.bytes)));
}

void TestCommunicatorTransmit::payloadsOfOneLengthKeepNoMemory()
{
    m_log.reset();
    QBuffer device;
    QVERIFY(device.open(QIODevice::ReadWrite));
    Communicator communicator;
    communicator.setIODevice(&device);
    const auto bytesAfter = [&](int payloads) {
        for (int i = 0; i < payloads; ++i) {
            device.seek(0); // so that the device's own memory does not grow
            communicator.writePayload(abc);
        }
        return ProcessUsage::now().heapBytes;
    };
    bytesAfter(100); // the first measurement itself leaves freed blocks in malloc's caches, which count as used
    const qint64 few = bytesAfter(100);
    const qint64 many = bytesAfter(100000);
    QVERIFY2(many - few < 4096, QByteArray::number(many - few));
    QCOMPARE(communicator.writePayload(defg), 100201u);
}

void TestCommunicatorTransmit::bindingTwiceLeavesOneConnectionOfEachKind()
{
    m_communicator->setIODevice(m_device.get());
    QCOMPARE(m_device->connectionsOf(SIGNAL(readyRead())), 1);
    QCOMPARE(m_device->connectionsOf(SIGNAL(bytesWritten(qint64))), 1);

    m_communicator->writePayload(abc);
    m_device->reportWritten(3);
    QCOMPARE(m_emissions->take(), transfers({1}));
    takeLog(*m_log);
    m_device->announce();
    QCOMPARE(takeLog(*m_log), QStringList{QStringLiteral("0 [] communicator.cpp IO Data Ready")});
}

void TestCommunicatorTransmit::bindingNoneLeavesNoConnection()
{
    m_communicator->writePayload(abc);
    takeLog(*m_log);
    m_communicator->setIODevice(nullptr);
    QCOMPARE(m_device->connectionsOf(SIGNAL(readyRead())), 0);
    QCOMPARE(m_device->connectionsOf(SIGNAL(bytesWritten(qint64))), 0);
    m_device->deliver("$A\r\n");
    m_device->reportWritten(3);
    QCOMPARE(m_emissions->take(), QStringList());
    QCOMPARE(takeLog(*m_log), QStringList());
}

void TestCommunicatorTransmit::bindingAnotherDeviceDisconnectsTheFirst()
{
    ScriptedDevice first;
    ScriptedDevice second;
    Communicator communicator;
    SignalRecord signalRecord(&communicator);
    communicator.setIODevice(&first);
    communicator.setIODevice(&second);
    QCOMPARE(first.connectionsOf(SIGNAL(readyRead())), 0);
    QCOMPARE(first.connectionsOf(SIGNAL(bytesWritten(qint64))), 0);
    QCOMPARE(second.connectionsOf(SIGNAL(readyRead())), 1);
    QCOMPARE(second.connectionsOf(SIGNAL(bytesWritten(qint64))), 1);

    communicator.writePayload(abc);
    QCOMPARE(first.written, QList<QByteArray>());
    QCOMPARE(second.written, QList<QByteArray>{"abc"});
    first.deliver("$A\r\n");
    QCOMPARE(signalRecord.take(), QStringList());
    second.deliver("$B\r\n");
    QCOMPARE(signalRecord.take(), arrivals(1));
    QCOMPARE(takePayloads(communicator), QStringList{QStringLiteral("$B\r\n")});
}

void TestCommunicatorTransmit::unboundDeviceIsNeitherClosedNorDeleted()
{
    const auto device = std::make_unique<ScriptedDevice>();
    const QPointer<ScriptedDevice> alive(device.get());
    Communicator communicator;
    communicator.setIODevice(device.get());
    communicator.setIODevice(nullptr);
    QVERIFY(alive);
    QVERIFY(device->isOpen());
}

void TestCommunicatorTransmit::rebindingLeavesTheConnectionsOfOthers()
{
    ScriptedDevice device;
    Communicator communicator;
    Communicator other;
    QSignalSpy ready(&device, &QIODevice::readyRead);
    communicator.setIODevice(&device);
    other.setIODevice(&device);
    communicator.setIODevice(nullptr);
    QCOMPARE(device.connectionsOf(SIGNAL(readyRead())), 2);
    QCOMPARE(device.connectionsOf(SIGNAL(bytesWritten(qint64))), 1);
    SignalRecord signalRecord(&other);
    device.deliver("$A\r\n");
    QCOMPARE(signalRecord.take(), arrivals(1));
    QCOMPARE(ready.count(), 1);
}

void TestCommunicatorTransmit::destructionLeavesDeviceAndParserAlive()
{
    const auto device = std::make_unique<ScriptedDevice>();
    const QPointer<ScriptedDevice> alive(device.get());
    Nmea::ParserInit parser;
    parser.init();
    {
        Communicator communicator;
        communicator.setIODevice(device.get());
        communicator.setParser(&parser);
    }
    QVERIFY(alive);
    QVERIFY(device->isOpen());
    const SessionInit session = versionQuery();
    QString text;
    QVERIFY(parser.build(&session, text));
    QCOMPARE(text, QStringLiteral("$PJWVER*0c\r\n"));
}

void TestCommunicatorTransmit::destructionLeavesNoConnection()
{
    ScriptedDevice device;
    {
        Communicator communicator;
        communicator.setIODevice(&device);
        device.deliver("$A\r\n");
        communicator.writePayload(abc);
    }
    QCOMPARE(device.connectionsOf(SIGNAL(readyRead())), 0);
    QCOMPARE(device.connectionsOf(SIGNAL(bytesWritten(qint64))), 0);
    takeLog(*m_log);
    device.deliver("$B\r\n");
    device.reportWritten(3);
    QCOMPARE(takeLog(*m_log), QStringList());
}

void TestCommunicatorTransmit::deviceDeletedFirstIsNoLongerBound()
{
    auto device = std::make_unique<ScriptedDevice>();
    ScriptedDevice next;
    Communicator communicator;
    communicator.setIODevice(device.get());
    communicator.writePayload(abc);
    device.reset();
    QVERIFY(!communicator.device());
    QCOMPARE(communicator.writePayload(abc), 2u);
    QVERIFY(communicator.setIODevice(&next));
    QCOMPARE(communicator.writePayload(defg), 3u);
    QCOMPARE(next.written, QList<QByteArray>{"defg"});
}

void TestCommunicatorTransmit::realBufferReportsTheTransfer()
{
    QBuffer device;
    QVERIFY(device.open(QIODevice::ReadWrite));
    Communicator communicator;
    communicator.setIODevice(&device);
    QSignalSpy transferred(&communicator, &Communicator::transferred);
    communicator.writePayload(abc);
    communicator.writePayload(defg);
    QVERIFY(transferred.wait());
    QCOMPARE(transferred.count(), 2);
    QCOMPARE(transferred.at(0).at(0).toUInt(), 1u);
    QCOMPARE(transferred.at(1).at(0).toUInt(), 2u);
    QCOMPARE(device.data(), QByteArray("abcdefg"));
}

void TestCommunicatorTransmit::realSerialPortReportsTheTransfer()
{
    SerialCommunicator serial;
    QSignalSpy transferred(&serial.communicator, &Communicator::transferred);
    QCOMPARE(serial.communicator.writePayload(QStringLiteral("$PJWVER*0c\r\n")), 1u);
    QVERIFY(transferred.wait());
    QCOMPARE(transferred.at(0).at(0).toUInt(), 1u);
    QCOMPARE(serial.line.receive(), QByteArray("$PJWVER*0c\r\n"));
}

QTEST_GUILESS_MAIN(TestCommunicatorTransmit)
#include "tst_communicator_transmit.moc"

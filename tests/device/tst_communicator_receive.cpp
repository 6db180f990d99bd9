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
#include <QSerialPort>
#include <QSignalSpy>
#include <QTest>

#include <memory>
#include <stdexcept>
#include <utility>

using JwDevice::Communicator;
using JwDevice::SessionInit;

namespace {

const QString untouched = QStringLiteral("untouched");

QString payloadLine(const QString &text)
{
    return QStringLiteral("0 [Communication] communicator.cpp  <-  \"%1\"").arg(text);
}

QString rawLine(const QString &text)
{
    return QStringLiteral("0 [RawCommunication] communicator.cpp  <-  \"%1\"").arg(text);
}

const QString readyLine = QStringLiteral("0 [] communicator.cpp IO Data Ready");
const QString truncationLine = QStringLiteral("3 [] communicator.cpp Payload input buffer too large - truncating ...");
const QString emptyLine = QStringLiteral("0 [] communicator.cpp Rx buffer is empty");
const QString notFoundLine = QStringLiteral("3 [] communicator.cpp Requested payload not found");
const QString noParserLine = QStringLiteral("4 [] communicator.cpp No parser attached");

struct SampleStream
{
    const char *name;
    QByteArray bytes;
    QStringList payloads;
};

const QByteArray versionReply = "$PJWVER,7300021,1,4,0*0e\r\n";
const QByteArray descriptionReply = "$PTJWRD,INF,CTRL,3,17,2,1.04,7300022,1*5e\r\n";

QList<SampleStream> sampleStreams()
{
    const QString version = QString::fromLatin1(versionReply);
    const QString description = QString::fromLatin1(descriptionReply);
    const QByteArray longReply = "$L," + QByteArray(200, 'x') + "*00\r\n";
    return {
        {"version reply", versionReply, {version}},
        {"description reply", descriptionReply, {description}},
        {"several replies", versionReply + descriptionReply + versionReply, {version, description, version}},
        {"longer than a read", longReply + versionReply, {QString::fromLatin1(longReply), version}},
        {"both start characters",
         "$A\r\n!B,$\r\n!C\r\n",
         {QStringLiteral("$A\r\n"), QStringLiteral("$\r\n"), QStringLiteral("!C\r\n")}},
        {"exclamation mark first",
         "!C\r\n$A\r\n!B\r\n",
         {QStringLiteral("!C\r\n"), QStringLiteral("$A\r\n"), QStringLiteral("!B\r\n")}},
        {"reply begun twice", "$PJWVER,73$PJWVER,7300021,1,4,0*0e\r\n", {version}},
        {"text between replies", "one\r\n" + versionReply + "two\r\n\r\n" + descriptionReply, {version, description}},
        {"bytes above 127", "$\xe9\xfc\xff*00\r\n", {QStringLiteral("$\u00e9\u00fc\u00ff*00\r\n")}},
    };
}

void addSampleStreams()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QStringList>("payloads");
    const QList<SampleStream> streams = sampleStreams();
    for (const SampleStream &stream : streams)
        QTest::newRow(stream.name) << stream.bytes << stream.payloads;
}

} // namespace

class TestCommunicatorReceive : public CommunicatorFixture
{
    Q_OBJECT

private Q_SLOTS:
    void firstPayloadHasId2AndBothSignals();
    void severalPayloadsOfOneChunkComeInOrder();
    void payloadBeginsAtItsLastDollar_data();
    void payloadBeginsAtItsLastDollar();
    void laterChunkCompletesAPayload();
    void textWithoutLineEndWaits_data();
    void textWithoutLineEndWaits();
    void textBeforeAStartCharacterIsDroppedSilently();

    void storeKeepsTheSixNewest();
    void storeMakesRoomBySingleLowestIds();
    void lowestIdIsReadFirst();
    void payloadIsReadById();
    void readPayloadLeavesTheStore();
    void idsAreNotReused();
    void idWrapsToZero();
    void lowestIdIsTheNumericallyLowestAfterTheWrap();
    void emptyStoreIsLogged_data();
    void emptyStoreIsLogged();
    void missingIdIsLogged();
    void receiverMayReadInsideTheSignal();

    void bufferAbove500CharactersLosesItsFirst450_data();
    void bufferAbove500CharactersLosesItsFirst450();
    void newestCharactersSurviveTheTruncation();
    void truncationComesBeforeTheExtraction();
    void truncationIsLoggedOncePerChunk();

    void zeroByteEndsItsRead_data();
    void zeroByteEndsItsRead();
    void deviceIsReadInSlicesOf100();
    void nothingIsReadWithoutBytes();
    void failedReadsAreSkipped_data();
    void failedReadsAreSkipped();
    void extractionRunsAfterAFailedRead_data();
    void extractionRunsAfterAFailedRead();

    void everyStepIsLogged();
    void traceNamesTheSlot();

    void bufferIsSharedByAllCommunicators();
    void partialPayloadOutlivesItsCommunicator();
    void leftoverOfAGoneDeviceSpoilsOnlyAPayloadWithoutADollar_data();
    void leftoverOfAGoneDeviceSpoilsOnlyAPayloadWithoutADollar();

    void sessionIsParsed();
    void parserGetsTheSessionAndTheWholePayload();
    void resultOfTheParserIsNotUsed();
    void parseFailureIsLoggedAndConsumesThePayload();
    void parseFailureOfTheLibrarysParserIsLogged();
    void otherExceptionsOfTheParserPass();
    void sessionReadWithoutParserConsumesThePayload();
    void sessionReadOfNothingDoesNotParse();

    void streamWhole_data() { addSampleStreams(); }
    void streamWhole();
    void streamSplitAtEachByte_data() { addSampleStreams(); }
    void streamSplitAtEachByte();
    void streamInReadsOf_data();
    void streamInReadsOf();
    void streamTruncatedAtEachByte_data() { addSampleStreams(); }
    void streamTruncatedAtEachByte();
    void streamWithGarbageBefore_data();
    void streamWithGarbageBefore();
    void streamWithoutLineEnd_data() { addSampleStreams(); }
    void streamWithoutLineEnd();
    void streamOverABuffer_data() { addSampleStreams(); }
    void streamOverABuffer();
    void streamOverASerialPort_data() { addSampleStreams(); }
    void streamOverASerialPort();
};

void TestCommunicatorReceive::firstPayloadHasId2AndBothSignals()
{
    m_device->deliver("$A,1*00\r\n");
    QCOMPARE(m_emissions->take(), (QStringList{QStringLiteral("readyRead(2)"), QStringLiteral("readyRead()")}));
    QString payload;
    QVERIFY(m_communicator->readPayload(payload, 2));
    QCOMPARE(payload, QStringLiteral("$A,1*00\r\n"));
}

void TestCommunicatorReceive::severalPayloadsOfOneChunkComeInOrder()
{
    m_device->deliver("xx$A\r\n!B\r\n");
    QCOMPARE(m_emissions->take(), arrivals(2));
    QString payload;
    QVERIFY(m_communicator->readPayload(payload, 2));
    QCOMPARE(payload, QStringLiteral("$A\r\n"));
    QVERIFY(m_communicator->readPayload(payload, 3));
    QCOMPARE(payload, QStringLiteral("!B\r\n"));
}

void TestCommunicatorReceive::payloadBeginsAtItsLastDollar_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("payload");
    QTest::newRow("dollar after exclamation mark") << QByteArray("!X$A\r\n") << QStringLiteral("$A\r\n");
    QTest::newRow("two dollars") << QByteArray("$A$B\r\n") << QStringLiteral("$B\r\n");
    QTest::newRow("many dollars") << QByteArray("$A$B$$C$D\r\n") << QStringLiteral("$D\r\n");
    QTest::newRow("dollar as the last character") << QByteArray("$A,1$\r\n") << QStringLiteral("$\r\n");
    QTest::newRow("mixed") << QByteArray("!X$A!B\r\n") << QStringLiteral("$A!B\r\n");
    QTest::newRow("exclamation mark after dollar stays") << QByteArray("$A!B\r\n") << QStringLiteral("$A!B\r\n");
    QTest::newRow("two exclamation marks stay") << QByteArray("!A!B\r\n") << QStringLiteral("!A!B\r\n");
    QTest::newRow("start character alone") << QByteArray("!\r\n") << QStringLiteral("!\r\n");
}

void TestCommunicatorReceive::payloadBeginsAtItsLastDollar()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, payload);
    m_device->deliver(bytes);
    QCOMPARE(m_emissions->take(), arrivals(1));
    QCOMPARE(takePayloads(*m_communicator), QStringList{payload});
}

void TestCommunicatorReceive::laterChunkCompletesAPayload()
{
    m_device->deliver("$A,1");
    QCOMPARE(m_emissions->take(), QStringList());
    m_device->deliver("*00\r\n");
    QCOMPARE(m_emissions->take(), arrivals(1));
    QCOMPARE(takePayloads(*m_communicator), QStringList{QStringLiteral("$A,1*00\r\n")});
}

void TestCommunicatorReceive::textWithoutLineEndWaits_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QByteArray>("rest");
    QTest::newRow("no line end") << QByteArray("$A") << QByteArray("\r\n");
    QTest::newRow("carriage return alone") << QByteArray("$A\r") << QByteArray("\n");
    QTest::newRow("line end before the start character") << QByteArray("\r\n$A") << QByteArray("\r\n");
    QTest::newRow("start character behind a line end") << QByteArray("x\r\ny\r\n") << QByteArray("$A\r\n");
}

void TestCommunicatorReceive::textWithoutLineEndWaits()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QByteArray, rest);
    m_device->deliver(bytes);
    QCOMPARE(m_emissions->take(), QStringList());
    QCOMPARE(takePayloads(*m_communicator), QStringList());
    m_device->deliver(rest);
    QCOMPARE(m_emissions->take(), arrivals(1));
    QCOMPARE(takePayloads(*m_communicator), QStringList{QStringLiteral("$A\r\n")});
}

void TestCommunicatorReceive::textBeforeAStartCharacterIsDroppedSilently()
{
    m_device->deliver("xx$A\r\n");
    QCOMPARE(takeLog(*m_log),
             (QStringList{readyLine, rawLine(QStringLiteral("xx$A")), payloadLine(QStringLiteral("$A"))}));
    m_device->deliver("!X$B\r\n");
    QCOMPARE(takeLog(*m_log),
             (QStringList{readyLine, rawLine(QStringLiteral("!X$B")), payloadLine(QStringLiteral("$B"))}));
    QCOMPARE(takePayloads(*m_communicator), (QStringList{QStringLiteral("$A\r\n"), QStringLiteral("$B\r\n")}));
}

void TestCommunicatorReceive::storeKeepsTheSixNewest()
{
    m_device->deliver("$2\r\n$3\r\n$4\r\n$5\r\n$6\r\n$7\r\n$8\r\n$9\r\n");
    const QStringList log = takeLog(*m_log);
    QCOMPARE(log.size(), 1 + 1 + 8); // "IO Data Ready", the bytes, 8 payloads; no record for the 2 dropped payloads
    QString payload = untouched;
    QVERIFY(!m_communicator->readPayload(payload, 2));
    QVERIFY(!m_communicator->readPayload(payload, 3));
    QCOMPARE(payload, untouched);
    QCOMPARE(takePayloads(*m_communicator),
             (QStringList{QStringLiteral("$4\r\n"), QStringLiteral("$5\r\n"), QStringLiteral("$6\r\n"),
                          QStringLiteral("$7\r\n"), QStringLiteral("$8\r\n"), QStringLiteral("$9\r\n")}));
}

void TestCommunicatorReceive::storeMakesRoomBySingleLowestIds()
{
    m_device->deliver("$2\r\n$3\r\n$4\r\n$5\r\n$6\r\n$7\r\n");
    QString payload;
    QVERIFY(m_communicator->readPayload(payload, 5));
    m_device->deliver("$8\r\n"); // the store then contains six payloads, so it drops none
    m_device->deliver("$9\r\n");
    QCOMPARE(takePayloads(*m_communicator),
             (QStringList{QStringLiteral("$3\r\n"), QStringLiteral("$4\r\n"), QStringLiteral("$6\r\n"),
                          QStringLiteral("$7\r\n"), QStringLiteral("$8\r\n"), QStringLiteral("$9\r\n")}));
}

void TestCommunicatorReceive::lowestIdIsReadFirst()
{
    for (const uint id : {7u, 3u, 5u}) {
        setLastReceiveId(*m_communicator, id - 1);
        m_device->deliver("$" + QByteArray::number(id) + "\r\n");
    }
    QString payload;
    QVERIFY(m_communicator->readPayload(payload, 0));
    QCOMPARE(payload, QStringLiteral("$3\r\n"));
    QVERIFY(m_communicator->readPayload(payload));
    QCOMPARE(payload, QStringLiteral("$5\r\n"));
    QVERIFY(m_communicator->readPayload(payload));
    QCOMPARE(payload, QStringLiteral("$7\r\n"));
}

void TestCommunicatorReceive::payloadIsReadById()
{
    m_device->deliver("$2\r\n$3\r\n$4\r\n");
    QString payload;
    QVERIFY(m_communicator->readPayload(payload, 3));
    QCOMPARE(payload, QStringLiteral("$3\r\n"));
    QCOMPARE(takePayloads(*m_communicator), (QStringList{QStringLiteral("$2\r\n"), QStringLiteral("$4\r\n")}));
}

void TestCommunicatorReceive::readPayloadLeavesTheStore()
{
    m_device->deliver("$2\r\n$3\r\n");
    QString payload;
    QVERIFY(m_communicator->readPayload(payload, 2));
    QVERIFY(!m_communicator->readPayload(payload, 2));
    QVERIFY(m_communicator->readPayload(payload));
    QCOMPARE(payload, QStringLiteral("$3\r\n"));
    QVERIFY(!m_communicator->readPayload(payload));
}

void TestCommunicatorReceive::idsAreNotReused()
{
    m_device->deliver("$A\r\n");
    takePayloads(*m_communicator);
    m_device->deliver("$B\r\n");
    QCOMPARE(m_emissions->take(), arrivals(2));
}

void TestCommunicatorReceive::idWrapsToZero()
{
    setLastReceiveId(*m_communicator, 4294967294u);
    m_device->deliver("$A\r\n$B\r\n$C\r\n");
    QCOMPARE(m_emissions->take(), arrivals(3, 4294967295u));
    QString payload;
    QVERIFY(m_communicator->readPayload(payload, 1));
    QCOMPARE(payload, QStringLiteral("$C\r\n"));
}

void TestCommunicatorReceive::lowestIdIsTheNumericallyLowestAfterTheWrap()
{
    setLastReceiveId(*m_communicator, 4294967290u);
    m_device->deliver("$1\r\n$2\r\n$3\r\n$4\r\n$5\r\n"); // the last payload gets id 4294967295, the largest
    m_device->deliver("$zero\r\n");
    QString payload;
    QVERIFY(m_communicator->readPayload(payload, 0));
    QCOMPARE(payload, QStringLiteral("$zero\r\n"));

    // The store keeps six payloads. To make room for "$two", it drops the payload with the lowest id, "$one".
    m_device->deliver("$one\r\n$two\r\n");
    QVERIFY(!m_communicator->readPayload(payload, 1));
    QCOMPARE(takePayloads(*m_communicator),
             (QStringList{QStringLiteral("$two\r\n"), QStringLiteral("$1\r\n"), QStringLiteral("$2\r\n"),
                          QStringLiteral("$3\r\n"), QStringLiteral("$4\r\n"), QStringLiteral("$5\r\n")}));
}

void TestCommunicatorReceive::emptyStoreIsLogged_data()
{
    QTest::addColumn<uint>("id");
    QTest::newRow("lowest id") << 0u;
    QTest::newRow("a given id") << 99u;
}

void TestCommunicatorReceive::emptyStoreIsLogged()
{
    QFETCH(uint, id);
    Communicator communicator;
    QString payload = untouched;
    QVERIFY(!communicator.readPayload(payload, id));
    QCOMPARE(payload, untouched);
    QCOMPARE(takeLog(*m_log), QStringList{emptyLine});
}

void TestCommunicatorReceive::missingIdIsLogged()
{
    m_device->deliver("$A\r\n");
    takeLog(*m_log);
    QString payload = untouched;
    QVERIFY(!m_communicator->readPayload(payload, 99));
    QCOMPARE(payload, untouched);
    QCOMPARE(takeLog(*m_log), QStringList{notFoundLine});
    QCOMPARE(takePayloads(*m_communicator), QStringList{QStringLiteral("$A\r\n")});
}

void TestCommunicatorReceive::receiverMayReadInsideTheSignal()
{
    QStringList payloads;
    QObject context;
    QObject::connect(m_communicator.get(), qOverload<uint>(&Communicator::readyRead), &context, [&](uint id) {
        QString payload;
        if (m_communicator->readPayload(payload, id))
            payloads << payload;
    });
    m_device->deliver("$2\r\n$3\r\n$4\r\n$5\r\n$6\r\n$7\r\n$8\r\n$9\r\n");
    QCOMPARE(payloads.size(), 8);
    QCOMPARE(payloads.constFirst(), QStringLiteral("$2\r\n"));
    QCOMPARE(payloads.constLast(), QStringLiteral("$9\r\n"));
    QCOMPARE(takePayloads(*m_communicator), QStringList());
}

void TestCommunicatorReceive::bufferAbove500CharactersLosesItsFirst450_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("left");
    QTest::newRow("420 and 100 leave 70") << 520 << 70;
    QTest::newRow("499 stay") << 499 << 499;
    QTest::newRow("500 stay") << 500 << 500;
    QTest::newRow("501 leave 51") << 501 << 51;
    QTest::newRow("twice") << 1000 << 100;
}

void TestCommunicatorReceive::bufferAbove500CharactersLosesItsFirst450()
{
    QFETCH(int, size);
    QFETCH(int, left);
    // Every byte is a "!", which can start a payload and does not end one. So the payload that the line end below
    // completes contains all bytes that stayed in the buffer.
    if (size % 100 != 0)
        m_device->queueRead(QByteArray(size % 100, '!'));
    for (int i = 0; i < size / 100; ++i)
        m_device->queueRead(QByteArray(100, '!'));
    m_device->announce();
    QCOMPARE(takePayloads(*m_communicator), QStringList());
    QCOMPARE(takeLog(*m_log).count(truncationLine), (size - left) / 450);

    // If the line end below makes the buffer too long, the buffer loses another 450 characters.
    m_device->deliver("\r\n");
    const int expected = left + 2 > 500 ? left + 2 - 450 : left + 2;
    const QStringList payloads = takePayloads(*m_communicator);
    QCOMPARE(payloads.size(), 1);
    QCOMPARE(payloads.constFirst().size(), expected);
}

void TestCommunicatorReceive::newestCharactersSurviveTheTruncation()
{
    QByteArray bytes = "!";
    while (bytes.size() < 520)
        bytes += "!" + QByteArray::number(bytes.size());
    bytes.truncate(520);
    m_device->queueRead(bytes.left(20));
    for (int i = 20; i < 520; i += 100)
        m_device->queueRead(bytes.mid(i, 100));
    m_device->announce();
    m_device->deliver("\r\n");
    const QByteArray kept = bytes.mid(450);
    const QStringList payloads = takePayloads(*m_communicator);
    QCOMPARE(payloads.size(), 1);
    QCOMPARE(payloads.constFirst(), QString::fromLatin1(kept.mid(kept.indexOf('!')) + "\r\n"));
}

void TestCommunicatorReceive::truncationComesBeforeTheExtraction()
{
    for (int i = 0; i < 5; ++i)
        m_device->queueRead(QByteArray(i == 0 ? "$" : "x") + QByteArray(99, 'x'));
    // The buffer overflows: it loses the start character of the long payload, so this payload is not received.
    m_device->queueRead("tail\r\n$B\r\n");
    m_device->announce();
    QCOMPARE(takePayloads(*m_communicator), QStringList{QStringLiteral("$B\r\n")});
    const QStringList log = takeLog(*m_log);
    QCOMPARE(log.count(truncationLine), 1);
    // In the log, the record of the truncation stands directly before the record of the bytes that caused it.
    QCOMPARE(log.indexOf(rawLine(QStringLiteral("tail\\r\\n$B"))), log.indexOf(truncationLine) + 1);
}

void TestCommunicatorReceive::truncationIsLoggedOncePerChunk()
{
    // After the sixth read the buffer contains 600 characters and loses 450 of them. So the next truncation happens
    // four reads later.
    for (int i = 0; i < 6; ++i)
        m_device->queueRead(QByteArray(100, 'x'));
    m_device->announce();
    QCOMPARE(takeLog(*m_log).count(truncationLine), 1);
    for (int i = 0; i < 3; ++i)
        m_device->queueRead(QByteArray(100, 'x'));
    m_device->announce();
    QCOMPARE(takeLog(*m_log).count(truncationLine), 0);
    m_device->deliver(QByteArray(100, 'x'));
    m_device->deliver(QByteArray(100, 'x'));
    QCOMPARE(takeLog(*m_log).count(truncationLine), 1);
}

void TestCommunicatorReceive::zeroByteEndsItsRead_data()
{
    QTest::addColumn<QList<QByteArray>>("reads");
    QTest::addColumn<QStringList>("payloads");
    using Reads = QList<QByteArray>;
    const QStringList a{QStringLiteral("$A\r\n")};
    QTest::newRow("inside a payload") << Reads{QByteArray("$A\0lost", 7), "\r\n"} << a;
    QTest::newRow("line end lost") << Reads{QByteArray("$A\0\r\n", 5), "B\r\n"}
                                   << QStringList{QStringLiteral("$AB\r\n")};
    QTest::newRow("behind a payload") << Reads{QByteArray("$A\r\n\0$B\r\n", 9), "\r\n"} << a;
    QTest::newRow("first byte") << Reads{QByteArray("\0$B\r\n", 5), "$A\r\n"} << a;
    QTest::newRow("last byte") << Reads{QByteArray("$A\0", 3), "\r\n"} << a;
    QTest::newRow("alone") << Reads{"$A", QByteArray("\0", 1), "\r\n"} << a;
    QTest::newRow("rest of a longer arrival is another read") << Reads{"$A" + QByteArray(98, '\0') + "\r\n"} << a;
}

void TestCommunicatorReceive::zeroByteEndsItsRead()
{
    QFETCH(QList<QByteArray>, reads);
    QFETCH(QStringList, payloads);
    for (const QByteArray &read : std::as_const(reads))
        m_device->queueRead(read);
    m_device->announce();
    QCOMPARE(takePayloads(*m_communicator), payloads);
}

void TestCommunicatorReceive::deviceIsReadInSlicesOf100()
{
    m_device->deliver("$" + QByteArray(248, 'x') + "\r\n");
    QCOMPARE(m_device->requestedReads, (QList<qint64>{100, 100, 100}));
    QCOMPARE(m_device->bytesAvailable(), qint64(0));
    QCOMPARE(takePayloads(*m_communicator).size(), 1);
}

void TestCommunicatorReceive::nothingIsReadWithoutBytes()
{
    m_device->announce();
    QCOMPARE(m_device->requestedReads, QList<qint64>());
    QCOMPARE(takeLog(*m_log), QStringList{readyLine});
}

void TestCommunicatorReceive::failedReadsAreSkipped_data()
{
    QTest::addColumn<qint64>("result");
    QTest::addColumn<int>("times");
    QTest::newRow("0 once") << qint64(0) << 1;
    QTest::newRow("0 many times") << qint64(0) << 50;
    QTest::newRow("-1 once") << qint64(-1) << 1;
    QTest::newRow("-1 many times") << qint64(-1) << 50;
}

void TestCommunicatorReceive::failedReadsAreSkipped()
{
    QFETCH(qint64, result);
    QFETCH(int, times);
    m_device->queueRead("$A");
    for (int i = 0; i < times; ++i)
        m_device->queueReadResult(result);
    m_device->queueRead("\r\n");
    m_device->announce();
    QCOMPARE(m_device->requestedReads.size(), times + 2);
    QCOMPARE(m_emissions->take(), arrivals(1));
    // A read without bytes is not logged. The empty text is the log record of the read of "\r\n".
    const QStringList expected{readyLine, rawLine(QStringLiteral("$A")), rawLine(QString()),
                               payloadLine(QStringLiteral("$A"))};
    QCOMPARE(takeLog(*m_log), expected);
    QCOMPARE(takePayloads(*m_communicator), QStringList{QStringLiteral("$A\r\n")});
}

void TestCommunicatorReceive::extractionRunsAfterAFailedRead_data()
{
    QTest::addColumn<qint64>("result");
    QTest::newRow("0") << qint64(0);
    QTest::newRow("-1") << qint64(-1);
}

void TestCommunicatorReceive::extractionRunsAfterAFailedRead()
{
    QFETCH(qint64, result);
    // This Communicator is deleted at its first payload, so its second payload stays in the shared buffer.
    ScriptedDevice otherDevice;
    auto *deleted = new Communicator;
    deleted->setIODevice(&otherDevice);
    QObject::connect(deleted, qOverload<uint>(&Communicator::readyRead), deleted, [deleted] { delete deleted; });
    otherDevice.deliver("$A\r\n$B\r\n");

    m_device->queueReadResult(result);
    m_device->announce();
    QCOMPARE(m_emissions->take(), arrivals(1));
    QCOMPARE(takePayloads(*m_communicator), QStringList{QStringLiteral("$B\r\n")});
}

void TestCommunicatorReceive::everyStepIsLogged()
{
    m_device->queueRead(" \t$A,1");
    m_device->queueRead("*00\r\n!B \r\n \r\n");
    m_device->announce();
    QCOMPARE(takeLog(*m_log),
             (QStringList{readyLine, rawLine(QStringLiteral("$A,1")), rawLine(QStringLiteral("*00\\r\\n!B")),
                          payloadLine(QStringLiteral("$A,1*00")), payloadLine(QStringLiteral("!B"))}));
}

void TestCommunicatorReceive::traceNamesTheSlot()
{
    m_device->announce();
    QCOMPARE(m_log->sink->records.size(), 1);
    const LogRecord &record = m_log->sink->records.constFirst();
    QCOMPARE(record.level, Logger::Trace);
    QVERIFY(record.line > 0);
    QVERIFY2(record.function.contains("JwDevice::Communicator::ioReadyRead()"), record.function.constData());
}

void TestCommunicatorReceive::bufferIsSharedByAllCommunicators()
{
    ScriptedDevice firstDevice;
    ScriptedDevice secondDevice;
    Communicator first;
    Communicator second;
    first.setIODevice(&firstDevice);
    second.setIODevice(&secondDevice);
    SignalRecord firstSignals(&first);
    SignalRecord secondSignals(&second);
    firstDevice.deliver("$A,1");
    secondDevice.deliver("*00\r\n$B");
    QCOMPARE(firstSignals.take(), QStringList());
    QCOMPARE(secondSignals.take(), arrivals(1));
    QCOMPARE(takePayloads(second), QStringList{QStringLiteral("$A,1*00\r\n")});
    QCOMPARE(takePayloads(first), QStringList());

    firstDevice.deliver("\r\n");
    QCOMPARE(firstSignals.take(), arrivals(1));
    QCOMPARE(takePayloads(first), QStringList{QStringLiteral("$B\r\n")});
}

void TestCommunicatorReceive::leftoverOfAGoneDeviceSpoilsOnlyAPayloadWithoutADollar_data()
{
    QTest::addColumn<QByteArray>("later");
    QTest::addColumn<QString>("payload");
    QTest::newRow("$") << QByteArray("$B,1*00\r\n") << QStringLiteral("$B,1*00\r\n");
    QTest::newRow("!") << QByteArray("!B,1*00\r\n") << QStringLiteral("$A,1!B,1*00\r\n");
}

void TestCommunicatorReceive::leftoverOfAGoneDeviceSpoilsOnlyAPayloadWithoutADollar()
{
    QFETCH(QByteArray, later);
    QFETCH(QString, payload);
    {
        ScriptedDevice gone;
        Communicator communicator;
        communicator.setIODevice(&gone);
        gone.deliver("$A,1");
    }
    m_device->deliver(later);
    QCOMPARE(takePayloads(*m_communicator), QStringList{payload});
}

void TestCommunicatorReceive::partialPayloadOutlivesItsCommunicator()
{
    {
        Communicator communicator;
        m_communicator->setIODevice(m_device.get());
        m_device->deliver("$A,1");
    }
    m_device->deliver("*00\r\n");
    QCOMPARE(takePayloads(*m_communicator), QStringList{QStringLiteral("$A,1*00\r\n")});
}

void TestCommunicatorReceive::sessionIsParsed()
{
    Nmea::ParserInit parser;
    parser.init();
    m_communicator->setParser(&parser);
    m_device->deliver(versionReply + descriptionReply);
    takeLog(*m_log);

    SessionInit session;
    QVERIFY(m_communicator->readPayload(&session, 3));
    QCOMPARE(session.sentenceId, 3);
    QCOMPARE(session.fields.value(QStringLiteral("name")).toString(), QStringLiteral("CTRL"));
    session.clear();
    QVERIFY(m_communicator->readPayload(&session));
    QCOMPARE(session.sentenceId, 1);
    QCOMPARE(session.fields.value(QStringLiteral("hwversion")).toString(), QStringLiteral("7300021"));
    QCOMPARE(takeLog(*m_log), QStringList());
    QCOMPARE(takePayloads(*m_communicator), QStringList());
}

void TestCommunicatorReceive::parserGetsTheSessionAndTheWholePayload()
{
    ScriptedParser parser;
    m_communicator->setParser(&parser);
    m_device->deliver("xx$A,1*00\r\n");
    SessionInit session;
    JwDevice::SessionAbstract *parsedInto = nullptr;
    QString parsed;
    parser.onParse = [&](JwDevice::SessionAbstract *into, const QString &sentence) {
        parsedInto = into;
        parsed = sentence;
        return true;
    };
    QVERIFY(m_communicator->readPayload(&session));
    QCOMPARE(parsedInto, &session);
    QCOMPARE(parsed, QStringLiteral("$A,1*00\r\n"));
}

void TestCommunicatorReceive::resultOfTheParserIsNotUsed()
{
    ScriptedParser parser;
    m_communicator->setParser(&parser);
    m_device->deliver("$A\r\n");
    takeLog(*m_log);
    parser.onParse = [](JwDevice::SessionAbstract *, const QString &) { return false; };
    SessionInit session;
    QVERIFY(m_communicator->readPayload(&session));
    QCOMPARE(takeLog(*m_log), QStringList());
}

void TestCommunicatorReceive::parseFailureIsLoggedAndConsumesThePayload()
{
    ScriptedParser parser;
    m_communicator->setParser(&parser);
    m_device->deliver("$A\r\n");
    takeLog(*m_log);
    m_emissions->take();
    parser.onParse = [](JwDevice::SessionAbstract *, const QString &) -> bool {
        throw Nmea::Exception(QStringLiteral("no such sentence"));
    };
    SessionInit session;
    QVERIFY(m_communicator->readPayload(&session));
    QCOMPARE(takeLog(*m_log), QStringList{QStringLiteral("4 [] communicator.cpp Parse failed:  \"no such sentence\"")});
    QCOMPARE(m_emissions->take(), QStringList()); // readFailed() is never emitted, not even after a failed parse
    QCOMPARE(takePayloads(*m_communicator), QStringList());
}

void TestCommunicatorReceive::parseFailureOfTheLibrarysParserIsLogged()
{
    Nmea::ParserInit parser;
    parser.init();
    m_communicator->setParser(&parser);
    const QByteArray wrongChecksum = "$PJWVER,7300021,1,4,0*0f\r\n";
    SessionInit session;
    QString message;
    try {
        parser.parse(&session, QString::fromLatin1(wrongChecksum));
    } catch (const Nmea::Exception &exception) {
        message = exception.message();
    }
    QVERIFY(!message.isEmpty());

    m_device->deliver(wrongChecksum);
    takeLog(*m_log);
    QVERIFY(m_communicator->readPayload(&session));
    QCOMPARE(takeLog(*m_log), QStringList{QStringLiteral("4 [] communicator.cpp Parse failed:  \"%1\"").arg(message)});
    QCOMPARE(takePayloads(*m_communicator), QStringList());
}

void TestCommunicatorReceive::otherExceptionsOfTheParserPass()
{
    ScriptedParser parser;
    m_communicator->setParser(&parser);
    m_device->deliver("$A\r\n");
    takeLog(*m_log);
    parser.onParse = [](JwDevice::SessionAbstract *, const QString &) -> bool {
        throw std::runtime_error("not of the codec");
    };
    SessionInit session;
    QVERIFY(throws<std::runtime_error>([&] { m_communicator->readPayload(&session); }));
    QCOMPARE(takeLog(*m_log), QStringList());
    QCOMPARE(takePayloads(*m_communicator), QStringList());
}

void TestCommunicatorReceive::sessionReadWithoutParserConsumesThePayload()
{
    m_device->deliver("$A\r\n");
    takeLog(*m_log);
    SessionInit session;
    QVERIFY(m_communicator->readPayload(&session, 0));
    QCOMPARE(takeLog(*m_log), QStringList{noParserLine});
    QCOMPARE(session.sentenceId, 0);
    QVERIFY(session.fields.isEmpty());
    QCOMPARE(takePayloads(*m_communicator), QStringList());
}

void TestCommunicatorReceive::sessionReadOfNothingDoesNotParse()
{
    ScriptedParser parser; // no functions are set, so every call throws
    m_communicator->setParser(&parser);
    SessionInit session;
    QVERIFY(!m_communicator->readPayload(&session));
    QVERIFY(!m_communicator->readPayload(&session, 2));
    QCOMPARE(takeLog(*m_log), (QStringList{emptyLine, emptyLine}));
    m_device->deliver("$A\r\n");
    takeLog(*m_log);
    QVERIFY(!m_communicator->readPayload(&session, 99));
    QCOMPARE(takeLog(*m_log), QStringList{notFoundLine});
    m_communicator->setParser(nullptr);
    QVERIFY(!m_communicator->readPayload(&session, 99));
    QCOMPARE(takeLog(*m_log), QStringList{notFoundLine});
}

void TestCommunicatorReceive::streamWhole()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QStringList, payloads);
    m_device->deliver(bytes);
    QCOMPARE(m_emissions->take(), arrivals(payloads.size()));
    QCOMPARE(takePayloads(*m_communicator), payloads);
}

void TestCommunicatorReceive::streamSplitAtEachByte()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QStringList, payloads);
    for (int i = 1; i < bytes.size(); ++i) {
        ScriptedDevice device;
        Communicator communicator;
        communicator.setIODevice(&device);
        SignalRecord signalRecord(&communicator);
        device.deliver(bytes.left(i));
        device.deliver(bytes.mid(i));
        QCOMPARE(signalRecord.take(), arrivals(payloads.size()));
        QCOMPARE(takePayloads(communicator), payloads);
    }
}

void TestCommunicatorReceive::streamInReadsOf_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QStringList>("payloads");
    QTest::addColumn<int>("size");
    const QList<SampleStream> streams = sampleStreams();
    for (const SampleStream &stream : streams) {
        for (const int size : {1, 2, 99, 100, 101})
            QTest::addRow("%s, %d", stream.name, size) << stream.bytes << stream.payloads << size;
    }
}

void TestCommunicatorReceive::streamInReadsOf()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QStringList, payloads);
    QFETCH(int, size);
    for (int i = 0; i < bytes.size(); i += size)
        m_device->queueRead(bytes.mid(i, size));
    m_device->announce();
    QCOMPARE(m_emissions->take(), arrivals(payloads.size()));
    QCOMPARE(takePayloads(*m_communicator), payloads);
}

void TestCommunicatorReceive::streamTruncatedAtEachByte()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QStringList, payloads);
    const QString next = QStringLiteral("$next\r\n");
    for (int i = 0; i < bytes.size(); ++i) {
        ScriptedDevice device;
        Communicator communicator;
        communicator.setIODevice(&device);
        device.deliver(bytes.left(i));
        QStringList expected;
        QByteArray::size_type end = 0;
        for (const QString &payload : std::as_const(payloads)) {
            end = bytes.indexOf(payload.toLatin1(), end) + payload.size();
            if (end <= i)
                expected << payload;
        }
        QCOMPARE(takePayloads(communicator), expected);
        device.deliver(next.toLatin1()); // the cut payload must not change the next payload
        QCOMPARE(takePayloads(communicator), QStringList{next});
    }
}

void TestCommunicatorReceive::streamWithGarbageBefore_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QStringList>("payloads");
    QTest::addColumn<QByteArray>("garbage");
    const QList<QPair<const char *, QByteArray>> noise = {
        {"text", "boot v1.2"},
        {"lines", "boot\r\n\r\nready\r\n"},
        {"line end halves", "\n\r\n\r"},
        {"bytes above 127", "\xff\x80\xfe"},
        {"control characters", "\x01\x1b[0m\x7f"},
        {"more than the buffer", QByteArray(600, 'x')},
    };
    const QList<QPair<const char *, QByteArray>> begunPayloads = {
        {"begun with a dollar", "$PJWVER,73"},
        {"begun with an exclamation mark", "!AIVDM,1"},
        {"start characters", "!$!$"},
    };
    const QList<SampleStream> streams = sampleStreams();
    for (const SampleStream &stream : streams) {
        // A "$" ends a begun payload. If the stream does not start with "$", the begun payload would become part of the
        // stream's first payload. So no begun payload is sent before such a stream.
        const auto all = stream.bytes.startsWith('$') ? noise + begunPayloads : noise;
        for (const auto &garbage : all)
            QTest::addRow("%s, %s", stream.name, garbage.first) << stream.bytes << stream.payloads << garbage.second;
    }
}

void TestCommunicatorReceive::streamWithGarbageBefore()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QStringList, payloads);
    QFETCH(QByteArray, garbage);
    m_device->deliver(garbage + bytes);
    QCOMPARE(m_emissions->take(), arrivals(payloads.size()));
    QCOMPARE(takePayloads(*m_communicator), payloads);
}

void TestCommunicatorReceive::streamWithoutLineEnd()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QStringList, payloads);
    m_device->deliver(bytes.chopped(2));
    QCOMPARE(m_emissions->take(), arrivals(payloads.size() - 1));
    m_device->deliver("\r");
    QCOMPARE(m_emissions->take(), QStringList());
    m_device->deliver("\n");
    QCOMPARE(m_emissions->take(), arrivals(1, static_cast<uint>(payloads.size()) + 1));
    QCOMPARE(takePayloads(*m_communicator), payloads);
}

void TestCommunicatorReceive::streamOverABuffer()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QStringList, payloads);
    QBuffer device;
    QVERIFY(device.open(QIODevice::ReadWrite));
    Communicator communicator;
    communicator.setIODevice(&device);
    QSignalSpy ready(&communicator, qOverload<uint>(&Communicator::readyRead));
    device.write(bytes);
    device.seek(0);
    QTRY_COMPARE(ready.count(), payloads.size());
    QCOMPARE(takePayloads(communicator), payloads);
    QVERIFY(device.atEnd());
}

void TestCommunicatorReceive::streamOverASerialPort()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QStringList, payloads);
    SerialCommunicator serial;
    QSignalSpy ready(&serial.communicator, qOverload<uint>(&Communicator::readyRead));
    QVERIFY(serial.line.send(bytes));
    QTRY_COMPARE(ready.count(), payloads.size());
    QCOMPARE(takePayloads(serial.communicator), payloads);
}

QTEST_GUILESS_MAIN(TestCommunicatorReceive)
#include "tst_communicator_receive.moc"

#include "support/device/communicatorfixture.h"
#include "support/common/recordsink.h"
#include "support/common/eventloop.h"
#include "support/device/scriptedparser.h"
#include "support/device/serialline.h"

#include <device/communicator.h>
#include <device/sessioninit.h>
#include <nmea/parserinit.h>

#include <QBuffer>
#include <QEventLoop>
#include <QPointer>
#include <QSerialPort>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <functional>
#include <memory>

using JwDevice::Communicator;
using JwDevice::SessionInit;

namespace {

enum class Signal { Transferred, ReadyReadOfId, ReadyRead };

const QStringList allTransfers = transfers({1, 2});
const QString a = QStringLiteral("$A\r\n");
const QString b = QStringLiteral("$B\r\n");
const QString c = QStringLiteral("$C\r\n");
const QStringList none;

/// A Communicator that has written two payloads. Three payloads wait in its device: the first read returns two of them,
/// the second read returns the third.
class SignalFixture
{
public:
    explicit SignalFixture(Signal signal)
        : m_signal(signal)
        , device(std::make_unique<ScriptedDevice>())
        , communicator(new Communicator)
        , emissions(communicator)
    {
        communicator->setIODevice(device.get());
        communicator->writePayload(QStringLiteral("abc"));
        communicator->writePayload(QStringLiteral("defg"));
        device->queueRead("$A\r\n$B\r\n");
        device->queueRead("$C\r\n");
    }
    ~SignalFixture() { delete communicator; }
    SignalFixture(const SignalFixture &) = delete;
    SignalFixture &operator=(const SignalFixture &) = delete;

    /// Calls `receiver` in each emission of the signal under test.
    void onEach(const std::function<void()> &receiver)
    {
        switch (m_signal) {
        case Signal::Transferred:
            QObject::connect(communicator, &Communicator::transferred, &m_context, receiver);
            break;
        case Signal::ReadyReadOfId:
            QObject::connect(communicator, qOverload<uint>(&Communicator::readyRead), &m_context, receiver);
            break;
        case Signal::ReadyRead:
            QObject::connect(communicator, qOverload<>(&Communicator::readyRead), &m_context, receiver);
            break;
        }
    }
    void onFirst(const std::function<void()> &receiver)
    {
        onEach([called = false, receiver]() mutable {
            if (!std::exchange(called, true))
                receiver();
        });
    }
    /// Disconnects the receivers of onEach().
    void stopReceiving() { communicator->disconnect(&m_context); }

    /// Makes the device emit a signal that causes the Communicator to emit the signal under test.
    void provoke()
    {
        if (m_signal == Signal::Transferred)
            device->reportWritten(7);
        else
            device->announce();
    }

    /// Returns all signals that provoke() causes if the slots do nothing.
    QStringList allEmissions() const { return m_signal == Signal::Transferred ? allTransfers : arrivals(3); }
    /// Returns the signals of allEmissions() up to the first emission of the signal under test.
    QStringList firstEmissions() const { return allEmissions().mid(0, m_signal == Signal::ReadyRead ? 2 : 1); }
    /// Returns whether the signal under test is one of the two readyRead() signals. Otherwise it is transferred().
    bool receives() const { return m_signal != Signal::Transferred; }

private:
    const Signal m_signal;
    QObject m_context;

public:
    std::unique_ptr<ScriptedDevice> device;
    const QPointer<Communicator> communicator;
    SignalRecord emissions;
};

void addSignals()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("transferred") << static_cast<int>(Signal::Transferred);
    QTest::newRow("readyRead of an id") << static_cast<int>(Signal::ReadyReadOfId);
    QTest::newRow("readyRead") << static_cast<int>(Signal::ReadyRead);
}

Signal fetchSignal()
{
    QFETCH(int, signal);
    return static_cast<Signal>(signal);
}

} // namespace

/// Tests slots that do everything an application may do inside the Communicator's signals, for example delete the
/// Communicator. If the Communicator then uses a deleted object, in most cases only AddressSanitizer reports the error.
class TestCommunicatorHostile : public CommunicatorFixture
{
    Q_OBJECT

private Q_SLOTS:
    void receiverDeletesTheCommunicator_data() { addSignals(); }
    void receiverDeletesTheCommunicator();
    void receiverDeletesItAmongOtherReceivers_data() { addSignals(); }
    void receiverDeletesItAmongOtherReceivers();
    void receiverBindsAnotherDevice_data() { addSignals(); }
    void receiverBindsAnotherDevice();
    void receiverBindsNoDevice_data() { addSignals(); }
    void receiverBindsNoDevice();
    void receiverBindsTheSameDevice_data() { addSignals(); }
    void receiverBindsTheSameDevice();
    void receiverWrites_data() { addSignals(); }
    void receiverWrites();
    void receiverReads_data() { addSignals(); }
    void receiverReads();
    void receiverAttachesAParser_data() { addSignals(); }
    void receiverAttachesAParser();
    void receiverConnectsAndDisconnects_data() { addSignals(); }
    void receiverConnectsAndDisconnects();
    void receiverDisconnectsEverything_data() { addSignals(); }
    void receiverDisconnectsEverything();
    void receiverDeletesAnotherCommunicatorOfTheDevice_data() { addSignals(); }
    void receiverDeletesAnotherCommunicatorOfTheDevice();
    void receiverClosesTheSerialPort();
    void receiverClosesTheBuffer();

    void nestedLoopBringsMoreData_data();
    void nestedLoopBringsMoreData();
    void nestedLoopBringsMoreReports();
    void nestedLoopDeletesTheCommunicator_data();
    void nestedLoopDeletesTheCommunicator();
    void nestedLoopDeletesTheDevice_data() { addSignals(); }
    void nestedLoopDeletesTheDevice();
    void nestedLoopInTheParser();

    void deviceReportsInsideTheWrite();
    void deviceReportsInsideTheWriteToADeletingReceiver_data();
    void deviceReportsInsideTheWriteToADeletingReceiver();
    void deviceReportsInsideTheWriteToAReceiverThatDeletesTheText();
    void deviceReportsInsideTheWriteToAWritingReceiver();
    void deviceReportsInsideTheWriteToAnUnbindingReceiver();
    void deviceAnswersInsideTheWriteToADeletingReceiver();
    void deviceAnnouncesInsideTheRead();
    void deviceAnnouncesInsideTheReadToADeletingReceiver();

    void deviceIsDeletedBeforeTheCommunicator();
    void deviceOwnsItsCommunicator();
    void parserIsDeletedAfterItWasDetached();
    void parserIsDeletedAfterTheCommunicator();
};

void TestCommunicatorHostile::receiverDeletesTheCommunicator()
{
    SignalFixture fixture(fetchSignal());
    fixture.onEach([&] { delete fixture.communicator; });
    fixture.provoke();
    QVERIFY(!fixture.communicator);
    QCOMPARE(fixture.emissions.take(), fixture.firstEmissions());
    QCOMPARE(fixture.device->connectionsOf(SIGNAL(readyRead())), 0);
    QCOMPARE(fixture.device->connectionsOf(SIGNAL(bytesWritten(qint64))), 0);

    // The unread payloads are not lost: they wait in the receive buffer and in the device, and the next Communicator
    // gets them.
    Communicator next;
    next.setIODevice(fixture.device.get());
    fixture.device->announce();
    QCOMPARE(takePayloads(next), fixture.receives() ? (QStringList{b, c}) : (QStringList{a, b, c}));
}

void TestCommunicatorHostile::receiverDeletesItAmongOtherReceivers()
{
    SignalFixture fixture(fetchSignal());
    int before = 0;
    int after = 0;
    fixture.onEach([&] { ++before; });
    fixture.onEach([&] { delete fixture.communicator; });
    fixture.onEach([&] { ++after; });
    fixture.provoke();
    QVERIFY(!fixture.communicator);
    QCOMPARE(before, 1);
    QCOMPARE(after, 0);
}

void TestCommunicatorHostile::receiverBindsAnotherDevice()
{
    SignalFixture fixture(fetchSignal());
    ScriptedDevice other;
    other.queueRead("$D\r\n");
    fixture.onFirst([&] { fixture.communicator->setIODevice(&other); });
    fixture.provoke();
    QCOMPARE(fixture.emissions.take(), fixture.allEmissions());
    QCOMPARE(fixture.communicator->device(), &other);
    QCOMPARE(fixture.device->connectionsOf(SIGNAL(readyRead())), 0);
    QCOMPARE(other.connectionsOf(SIGNAL(readyRead())), 1);
    if (fixture.receives()) { // the Communicator receives the rest of the buffer, then the new device's payload
        QCOMPARE(takePayloads(*fixture.communicator), (QStringList{a, b, QStringLiteral("$D\r\n")}));
        QCOMPARE(other.bytesAvailable(), qint64(0));
        QCOMPARE(fixture.device->bytesAvailable(), qint64(4));
    }
    fixture.communicator->writePayload(QStringLiteral("x"));
    QCOMPARE(other.written, QList<QByteArray>{"x"});
}

void TestCommunicatorHostile::receiverBindsNoDevice()
{
    SignalFixture fixture(fetchSignal());
    fixture.onFirst([&] { fixture.communicator->setIODevice(nullptr); });
    fixture.provoke();
    QVERIFY(!fixture.communicator->device());
    QCOMPARE(fixture.emissions.take(), fixture.receives() ? arrivals(2) : allTransfers);
    QCOMPARE(takePayloads(*fixture.communicator), fixture.receives() ? (QStringList{a, b}) : none);
    fixture.provoke();
    QCOMPARE(fixture.emissions.take(), none);
}

void TestCommunicatorHostile::receiverBindsTheSameDevice()
{
    SignalFixture fixture(fetchSignal());
    fixture.onEach([&] { fixture.communicator->setIODevice(fixture.device.get()); });
    fixture.provoke();
    QCOMPARE(fixture.emissions.take(), fixture.allEmissions());
    QCOMPARE(fixture.device->connectionsOf(SIGNAL(readyRead())), 1);
    QCOMPARE(fixture.device->connectionsOf(SIGNAL(bytesWritten(qint64))), 1);
}

void TestCommunicatorHostile::receiverWrites()
{
    SignalFixture fixture(fetchSignal());
    QList<uint> ids;
    fixture.onEach([&] { ids << fixture.communicator->writePayload(QStringLiteral("x")); });
    fixture.provoke();
    QCOMPARE(fixture.emissions.take(), fixture.allEmissions());
    QCOMPARE(ids, fixture.receives() ? (QList<uint>{3, 4, 5}) : (QList<uint>{3, 4}));
    QCOMPARE(fixture.device->written.size(), 2 + ids.size());
}

void TestCommunicatorHostile::receiverReads()
{
    SignalFixture fixture(fetchSignal());
    QStringList payloads;
    fixture.onEach([&] { payloads << takePayloads(*fixture.communicator); });
    fixture.provoke();
    QCOMPARE(fixture.emissions.take(), fixture.allEmissions());
    QCOMPARE(payloads, fixture.receives() ? (QStringList{a, b, c}) : none);
}

void TestCommunicatorHostile::receiverAttachesAParser()
{
    SignalFixture fixture(fetchSignal());
    Nmea::ParserInit parser;
    parser.init();
    SessionInit query;
    query.sentenceId = 1;
    QList<uint> ids;
    fixture.onEach([&] {
        fixture.communicator->setParser(&parser);
        ids << fixture.communicator->writePayload(&query);
        fixture.communicator->setParser(nullptr);
        ids << fixture.communicator->writePayload(&query);
    });
    fixture.provoke();
    QCOMPARE(fixture.emissions.take(), fixture.allEmissions());
    QCOMPARE(ids.mid(0, 4), (QList<uint>{3, 0, 4, 0}));
    QCOMPARE(fixture.device->written.at(2), QByteArray("$PJWVER*0c\r\n"));
}

void TestCommunicatorHostile::receiverConnectsAndDisconnects()
{
    SignalFixture fixture(fetchSignal());
    int calls = 0;
    int callsOfNext = 0;
    fixture.onEach([&] {
        ++calls;
        fixture.stopReceiving();
        fixture.onEach([&callsOfNext] { ++callsOfNext; });
    });
    fixture.provoke();
    QCOMPARE(fixture.emissions.take(), fixture.allEmissions());
    QCOMPARE(calls, 1);
    QCOMPARE(callsOfNext, fixture.receives() ? 2 : 1);
}

void TestCommunicatorHostile::receiverDisconnectsEverything()
{
    SignalFixture fixture(fetchSignal());
    fixture.onEach([&] { fixture.communicator->disconnect(); });
    fixture.provoke();
    QCOMPARE(fixture.emissions.take(), fixture.firstEmissions());
    QCOMPARE(takePayloads(*fixture.communicator), fixture.receives() ? (QStringList{a, b, c}) : none);
    // The Communicator is still connected to its device.
    QCOMPARE(fixture.device->connectionsOf(SIGNAL(readyRead())), 1);
}

void TestCommunicatorHostile::receiverDeletesAnotherCommunicatorOfTheDevice()
{
    SignalFixture fixture(fetchSignal());
    const QPointer<Communicator> other = new Communicator;
    other->setIODevice(fixture.device.get());
    SignalRecord emissionsOfOther(other);
    fixture.onEach([&] { delete other; });
    fixture.provoke();
    QVERIFY(!other);
    QCOMPARE(fixture.emissions.take(), fixture.allEmissions());
    QCOMPARE(emissionsOfOther.take(), none);
}

void TestCommunicatorHostile::receiverClosesTheSerialPort()
{
    SerialCommunicator serial;
    QSignalSpy ready(&serial.communicator, qOverload<uint>(&Communicator::readyRead));
    QObject context;
    QObject::connect(&serial.communicator, qOverload<uint>(&Communicator::readyRead), &context,
                     [&serial] { serial.port.close(); });
    QVERIFY(serial.line.send("$A\r\n" + QByteArray(200, 'x') + "$B\r\n"));
    QVERIFY(ready.wait());
    QCOMPARE(ready.count(), 1);
    QCOMPARE(takePayloads(serial.communicator), QStringList{QStringLiteral("$A\r\n")});
    QVERIFY(!serial.port.isOpen());
}

void TestCommunicatorHostile::receiverClosesTheBuffer()
{
    QBuffer buffer; // a QBuffer, because it reports bytesAvailable() even after it is closed, unlike a port
    buffer.setData("$A\r\n" + QByteArray(300, 'x'));
    QVERIFY(buffer.open(QIODevice::ReadOnly));
    m_communicator->setIODevice(&buffer);
    QObject::connect(m_communicator.get(), qOverload<>(&Communicator::readyRead), &buffer, [&] { buffer.close(); });
    Q_EMIT buffer.readyRead();
    QCOMPARE(m_emissions->take(), arrivals(1));
    QCOMPARE(takePayloads(*m_communicator), QStringList{a});
    QCOMPARE(buffer.bytesAvailable(), qint64(304));
}

void TestCommunicatorHostile::nestedLoopBringsMoreData_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("readyRead of an id") << static_cast<int>(Signal::ReadyReadOfId);
    QTest::newRow("readyRead") << static_cast<int>(Signal::ReadyRead);
}

void TestCommunicatorHostile::nestedLoopBringsMoreData()
{
    SignalFixture fixture(fetchSignal());
    ScriptedDevice otherDevice;
    Communicator other;
    other.setIODevice(&otherDevice);
    SignalRecord emissionsOfOther(&other);
    fixture.onFirst([&] {
        runNested([&] {
            otherDevice.deliver("$O\r\n!half,"); // `other` also receives `b`, which waits in the shared buffer
            fixture.device->deliver("$D\r\n"); // arrives after the third payload, which still waits in the device
        });
    });
    fixture.provoke();
    QCOMPARE(emissionsOfOther.take(), arrivals(2));
    QCOMPARE(takePayloads(other), (QStringList{b, QStringLiteral("$O\r\n")}));
    QStringList emissions = fixture.emissions.take();
    // Sort, because the order differs. In the row "readyRead of an id", the nested signals are emitted before the first
    // payload's readyRead(). In the row "readyRead", they are emitted inside the first payload's readyRead().
    emissions.sort();
    QStringList expected = arrivals(3);
    expected.sort();
    QCOMPARE(emissions, expected);
    QCOMPARE(takePayloads(*fixture.communicator), (QStringList{a, c, QStringLiteral("$D\r\n")}));
}

void TestCommunicatorHostile::nestedLoopBringsMoreReports()
{
    SignalFixture fixture(Signal::Transferred);
    fixture.onFirst([&] {
        runNested([&] {
            fixture.communicator->writePayload(QStringLiteral("x"));
            fixture.device->reportWritten(8);
            fixture.device->announce();
        });
    });
    fixture.provoke();
    QCOMPARE(fixture.emissions.take(), transfers({1}) + transfers({1, 2, 3}) + arrivals(3) + transfers({2}));
}

void TestCommunicatorHostile::nestedLoopDeletesTheCommunicator_data()
{
    QTest::addColumn<int>("signal");
    QTest::addColumn<bool>("later");
    const QList<QPair<const char *, Signal>> rows = {{"transferred", Signal::Transferred},
                                                     {"readyRead of an id", Signal::ReadyReadOfId},
                                                     {"readyRead", Signal::ReadyRead}};
    for (const auto &row : rows) {
        QTest::addRow("%s, at once", row.first) << static_cast<int>(row.second) << false;
        QTest::addRow("%s, later", row.first) << static_cast<int>(row.second) << true;
    }
}

void TestCommunicatorHostile::nestedLoopDeletesTheCommunicator()
{
    QFETCH(bool, later);
    SignalFixture fixture(fetchSignal());
    fixture.onFirst([&] {
        QEventLoop loop;
        QObject::connect(fixture.communicator, &QObject::destroyed, &loop, &QEventLoop::quit);
        QTimer::singleShot(0, &loop, [&] {
            if (later)
                fixture.communicator->deleteLater();
            else
                delete fixture.communicator;
        });
        loop.exec();
    });
    fixture.provoke();
    QVERIFY(!fixture.communicator);
    QCOMPARE(fixture.emissions.take(), fixture.firstEmissions());
}

void TestCommunicatorHostile::nestedLoopDeletesTheDevice()
{
    SignalFixture fixture(fetchSignal());
    fixture.onFirst([&] {
        QEventLoop loop;
        QObject::connect(fixture.device.get(), &QObject::destroyed, &loop, &QEventLoop::quit);
        QTimer::singleShot(0, &loop, [&] { fixture.device.release()->deleteLater(); });
        loop.exec();
    });
    fixture.provoke();
    QVERIFY(!fixture.communicator->device());
    QCOMPARE(fixture.emissions.take(), fixture.receives() ? arrivals(2) : allTransfers);
    QCOMPARE(fixture.communicator->writePayload(QStringLiteral("x")), 3u);
}

void TestCommunicatorHostile::nestedLoopInTheParser()
{
    ScriptedParser parser;
    m_communicator->setParser(&parser);
    m_device->deliver("$A\r\n$B\r\n");
    QStringList parsed;
    SessionInit session;
    parser.onParse = [&](JwDevice::SessionAbstract *, const QString &sentence) {
        parsed << sentence;
        runNested([&] {
            m_device->deliver("$C\r\n");
            m_communicator->setParser(nullptr);
            parsed << takePayloads(*m_communicator);
        });
        return true;
    };
    QVERIFY(m_communicator->readPayload(&session));
    QCOMPARE(parsed, (QStringList{a, b, c}));
    QVERIFY(!m_communicator->readPayload(&session));
}

void TestCommunicatorHostile::deviceReportsInsideTheWrite()
{
    m_device->insideWrite = [this] { m_device->reportWritten(3); };
    QCOMPARE(m_communicator->writePayload(QStringLiteral("abc")), 1u);
    QCOMPARE(m_emissions->take(), transfers({})); // no signal, because the payload gets its id only after the write
    QCOMPARE(m_communicator->writePayload(QStringLiteral("abc")), 2u);
    QCOMPARE(m_emissions->take(), transfers({1}));
}

void TestCommunicatorHostile::deviceReportsInsideTheWriteToADeletingReceiver_data()
{
    QTest::addColumn<bool>("session");
    QTest::newRow("text") << false;
    QTest::newRow("session") << true;
}

void TestCommunicatorHostile::deviceReportsInsideTheWriteToADeletingReceiver()
{
    QFETCH(bool, session);
    SignalFixture fixture(Signal::Transferred);
    Nmea::ParserInit parser;
    parser.init();
    fixture.communicator->setParser(&parser);
    fixture.onFirst([&] { delete fixture.communicator; });
    fixture.device->insideWrite = [&fixture] { fixture.device->reportWritten(3); };
    SessionInit query;
    query.sentenceId = 1;
    QCOMPARE(session ? fixture.communicator->writePayload(&query)
                     : fixture.communicator->writePayload(QStringLiteral("abc")),
             0u);
    QVERIFY(!fixture.communicator);
}

void TestCommunicatorHostile::deviceReportsInsideTheWriteToAReceiverThatDeletesTheText()
{
    const LogCapture log;
    SignalFixture fixture(Signal::Transferred);
    auto text = std::make_unique<QString>(QString::fromLatin1("$PJWVER*0c\r\n"));
    fixture.onFirst([&] { text.reset(); });
    fixture.device->insideWrite = [&fixture] { fixture.device->reportWritten(3); };
    QCOMPARE(fixture.communicator->writePayload(*text), 3u);
    QVERIFY(!text);
    QCOMPARE(log.sink->records.last().text, QStringLiteral("->  \"$PJWVER*0c\""));
}

void TestCommunicatorHostile::deviceReportsInsideTheWriteToAWritingReceiver()
{
    SignalFixture fixture(Signal::Transferred);
    uint inner = 0;
    fixture.onFirst([&] { inner = fixture.communicator->writePayload(QStringLiteral("inner")); });
    fixture.device->insideWrite = [&fixture] {
        fixture.device->insideWrite = nullptr;
        fixture.device->reportWritten(3);
    };
    QCOMPARE(fixture.communicator->writePayload(QStringLiteral("outer")), 4u);
    QCOMPARE(inner, 3u);
    fixture.emissions.take();
    fixture.device->reportWritten(3 + 4 + 5 + 5);
    QCOMPARE(fixture.emissions.take(), transfers({1, 2, 3, 4}));
}

void TestCommunicatorHostile::deviceReportsInsideTheWriteToAnUnbindingReceiver()
{
    SignalFixture fixture(Signal::Transferred);
    fixture.onFirst([&] { fixture.communicator->setIODevice(nullptr); });
    fixture.device->insideWrite = [&fixture] { fixture.device->reportWritten(7); };
    QCOMPARE(fixture.communicator->writePayload(QStringLiteral("abc")), 3u);
    QCOMPARE(fixture.emissions.take(), allTransfers);
    QVERIFY(!fixture.communicator->device());
}

void TestCommunicatorHostile::deviceAnswersInsideTheWriteToADeletingReceiver()
{
    SignalFixture fixture(Signal::ReadyRead);
    fixture.onFirst([&] { delete fixture.communicator; });
    fixture.device->insideWrite = [&fixture] { fixture.device->announce(); };
    QCOMPARE(fixture.communicator->writePayload(QStringLiteral("abc")), 0u);
    QVERIFY(!fixture.communicator);
    QCOMPARE(fixture.emissions.take(), fixture.firstEmissions());
}

void TestCommunicatorHostile::deviceAnnouncesInsideTheRead()
{
    SignalFixture fixture(Signal::ReadyRead);
    fixture.device->insideRead = [&fixture] {
        fixture.device->insideRead = nullptr;
        // This call reads a second time inside the first read. The second read ends first, so its payload `c` is
        // received first.
        fixture.device->announce();
    };
    fixture.provoke();
    QCOMPARE(fixture.emissions.take(), arrivals(3));
    QCOMPARE(takePayloads(*fixture.communicator), (QStringList{c, a, b}));
}

void TestCommunicatorHostile::deviceAnnouncesInsideTheReadToADeletingReceiver()
{
    SignalFixture fixture(Signal::ReadyRead);
    fixture.onFirst([&] { delete fixture.communicator; });
    fixture.device->insideRead = [&fixture] {
        fixture.device->insideRead = nullptr;
        fixture.device->announce();
    };
    fixture.provoke();
    QVERIFY(!fixture.communicator);
    QCOMPARE(fixture.emissions.take(), fixture.firstEmissions());

    Communicator next; // gets the bytes of the first read, because they are in the shared buffer
    next.setIODevice(fixture.device.get());
    fixture.device->deliver("\r\n");
    QCOMPARE(takePayloads(next), (QStringList{a, b}));
}

void TestCommunicatorHostile::deviceIsDeletedBeforeTheCommunicator()
{
    auto device = std::make_unique<ScriptedDevice>();
    const auto communicator = std::make_unique<Communicator>();
    communicator->setIODevice(device.get());
    device->queueRead("$A\r\n");
    device.reset();
    QVERIFY(!communicator->device());
    QCOMPARE(communicator->writePayload(QStringLiteral("abc")), 1u);
    QString payload;
    QVERIFY(!communicator->readPayload(payload));
    QVERIFY(communicator->setIODevice(nullptr));
}

void TestCommunicatorHostile::deviceOwnsItsCommunicator()
{
    auto device = std::make_unique<ScriptedDevice>();
    const QPointer<Communicator> communicator = new Communicator(device.get());
    communicator->setIODevice(device.get());
    device->deliver("$A\r\n");
    communicator->writePayload(QStringLiteral("abc"));
    device.reset();
    QVERIFY(!communicator);
}

void TestCommunicatorHostile::parserIsDeletedAfterItWasDetached()
{
    auto parser = std::make_unique<Nmea::ParserInit>();
    parser->init();
    m_communicator->setParser(parser.get());
    m_communicator->setParser(nullptr);
    parser.reset();
    m_device->deliver("$A\r\n");
    SessionInit session;
    session.sentenceId = 1;
    QCOMPARE(m_communicator->writePayload(&session), 0u);
    QVERIFY(m_communicator->readPayload(&session));
    QCOMPARE(takeLog(*m_log).constLast(), QStringLiteral("4 [] communicator.cpp No parser attached"));
}

void TestCommunicatorHostile::parserIsDeletedAfterTheCommunicator()
{
    auto parser = std::make_unique<Nmea::ParserInit>();
    parser->init();
    auto communicator = std::make_unique<Communicator>();
    communicator->setParser(parser.get());
    communicator.reset();
    parser.reset();
}

QTEST_GUILESS_MAIN(TestCommunicatorHostile)
#include "tst_communicator_hostile.moc"

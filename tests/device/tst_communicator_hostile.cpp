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

/// One Communicator with two written payloads, and three payloads that wait in the device: two in its first read and
/// one in its second.
class Scene
{
public:
    explicit Scene(Signal signal)
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
    ~Scene() { delete communicator; }
    Scene(const Scene &) = delete;
    Scene &operator=(const Scene &) = delete;

    /// Calls `receiver` in each emission of the signal.
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
    /// Takes away what onEach connected.
    void stopReceiving() { communicator->disconnect(&m_context); }

    /// Lets the device say what makes the Communicator emit the signal.
    void provoke()
    {
        if (m_signal == Signal::Transferred)
            device->reportWritten(7);
        else
            device->announce();
    }

    /// All that the Communicator emits when nobody interferes.
    QStringList allEmissions() const { return m_signal == Signal::Transferred ? allTransfers : arrivals(3); }
    /// The emissions through the first one of the signal.
    QStringList firstEmissions() const { return allEmissions().mid(0, m_signal == Signal::ReadyRead ? 2 : 1); }
    /// Whether the signal is one of the receiving side.
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

/// Receivers that do to the Communicator, inside its signals, whatever an application may do. Most of what could go
/// wrong shows under AddressSanitizer only.
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
    Scene scene(fetchSignal());
    scene.onEach([&] { delete scene.communicator; });
    scene.provoke();
    QVERIFY(!scene.communicator);
    QCOMPARE(scene.emissions.take(), scene.firstEmissions());
    QCOMPARE(scene.device->connectionsOf(SIGNAL(readyRead())), 0);
    QCOMPARE(scene.device->connectionsOf(SIGNAL(bytesWritten(qint64))), 0);

    // What was not handed out yet is not lost: it waits in the buffer and in the device.
    Communicator next;
    next.setIODevice(scene.device.get());
    scene.device->announce();
    QCOMPARE(takePayloads(next), scene.receives() ? (QStringList{b, c}) : (QStringList{a, b, c}));
}

void TestCommunicatorHostile::receiverDeletesItAmongOtherReceivers()
{
    Scene scene(fetchSignal());
    int before = 0;
    int after = 0;
    scene.onEach([&] { ++before; });
    scene.onEach([&] { delete scene.communicator; });
    scene.onEach([&] { ++after; });
    scene.provoke();
    QVERIFY(!scene.communicator);
    QCOMPARE(before, 1);
    QCOMPARE(after, 0);
}

void TestCommunicatorHostile::receiverBindsAnotherDevice()
{
    Scene scene(fetchSignal());
    ScriptedDevice other;
    other.queueRead("$D\r\n");
    scene.onFirst([&] { scene.communicator->setIODevice(&other); });
    scene.provoke();
    QCOMPARE(scene.emissions.take(), scene.allEmissions());
    QCOMPARE(scene.communicator->device(), &other);
    QCOMPARE(scene.device->connectionsOf(SIGNAL(readyRead())), 0);
    QCOMPARE(other.connectionsOf(SIGNAL(readyRead())), 1);
    if (scene.receives()) { // the rest of the buffer, and then what the new device holds
        QCOMPARE(takePayloads(*scene.communicator), (QStringList{a, b, QStringLiteral("$D\r\n")}));
        QCOMPARE(other.bytesAvailable(), qint64(0));
        QCOMPARE(scene.device->bytesAvailable(), qint64(4));
    }
    scene.communicator->writePayload(QStringLiteral("x"));
    QCOMPARE(other.written, QList<QByteArray>{"x"});
}

void TestCommunicatorHostile::receiverBindsNoDevice()
{
    Scene scene(fetchSignal());
    scene.onFirst([&] { scene.communicator->setIODevice(nullptr); });
    scene.provoke();
    QVERIFY(!scene.communicator->device());
    QCOMPARE(scene.emissions.take(), scene.receives() ? arrivals(2) : allTransfers);
    QCOMPARE(takePayloads(*scene.communicator), scene.receives() ? (QStringList{a, b}) : none);
    scene.provoke();
    QCOMPARE(scene.emissions.take(), none);
}

void TestCommunicatorHostile::receiverBindsTheSameDevice()
{
    Scene scene(fetchSignal());
    scene.onEach([&] { scene.communicator->setIODevice(scene.device.get()); });
    scene.provoke();
    QCOMPARE(scene.emissions.take(), scene.allEmissions());
    QCOMPARE(scene.device->connectionsOf(SIGNAL(readyRead())), 1);
    QCOMPARE(scene.device->connectionsOf(SIGNAL(bytesWritten(qint64))), 1);
}

void TestCommunicatorHostile::receiverWrites()
{
    Scene scene(fetchSignal());
    QList<uint> ids;
    scene.onEach([&] { ids << scene.communicator->writePayload(QStringLiteral("x")); });
    scene.provoke();
    QCOMPARE(scene.emissions.take(), scene.allEmissions());
    QCOMPARE(ids, scene.receives() ? (QList<uint>{3, 4, 5}) : (QList<uint>{3, 4}));
    QCOMPARE(scene.device->written.size(), 2 + ids.size());
}

void TestCommunicatorHostile::receiverReads()
{
    Scene scene(fetchSignal());
    QStringList payloads;
    scene.onEach([&] { payloads << takePayloads(*scene.communicator); });
    scene.provoke();
    QCOMPARE(scene.emissions.take(), scene.allEmissions());
    QCOMPARE(payloads, scene.receives() ? (QStringList{a, b, c}) : none);
}

void TestCommunicatorHostile::receiverAttachesAParser()
{
    Scene scene(fetchSignal());
    Nmea::ParserInit parser;
    parser.init();
    SessionInit query;
    query.sentenceId = 1;
    QList<uint> ids;
    scene.onEach([&] {
        scene.communicator->setParser(&parser);
        ids << scene.communicator->writePayload(&query);
        scene.communicator->setParser(nullptr);
        ids << scene.communicator->writePayload(&query);
    });
    scene.provoke();
    QCOMPARE(scene.emissions.take(), scene.allEmissions());
    QCOMPARE(ids.mid(0, 4), (QList<uint>{3, 0, 4, 0}));
    QCOMPARE(scene.device->written.at(2), QByteArray("$PJWVER*0c\r\n"));
}

void TestCommunicatorHostile::receiverConnectsAndDisconnects()
{
    Scene scene(fetchSignal());
    int calls = 0;
    int callsOfNext = 0;
    scene.onEach([&] {
        ++calls;
        scene.stopReceiving();
        scene.onEach([&callsOfNext] { ++callsOfNext; });
    });
    scene.provoke();
    QCOMPARE(scene.emissions.take(), scene.allEmissions());
    QCOMPARE(calls, 1);
    QCOMPARE(callsOfNext, scene.receives() ? 2 : 1);
}

void TestCommunicatorHostile::receiverDisconnectsEverything()
{
    Scene scene(fetchSignal());
    scene.onEach([&] { scene.communicator->disconnect(); });
    scene.provoke();
    QCOMPARE(scene.emissions.take(), scene.firstEmissions());
    QCOMPARE(takePayloads(*scene.communicator), scene.receives() ? (QStringList{a, b, c}) : none);
    QCOMPARE(scene.device->connectionsOf(SIGNAL(readyRead())), 1); // only what goes out is cut
}

void TestCommunicatorHostile::receiverDeletesAnotherCommunicatorOfTheDevice()
{
    Scene scene(fetchSignal());
    const QPointer<Communicator> other = new Communicator;
    other->setIODevice(scene.device.get());
    SignalRecord emissionsOfOther(other);
    scene.onEach([&] { delete other; });
    scene.provoke();
    QVERIFY(!other);
    QCOMPARE(scene.emissions.take(), scene.allEmissions());
    QCOMPARE(emissionsOfOther.take(), none);
}

void TestCommunicatorHostile::receiverClosesTheSerialPort()
{
    const SerialLine line;
    QSerialPort port(line.portName());
    QVERIFY2(port.open(QIODevice::ReadWrite), qPrintable(port.errorString()));
    Communicator communicator;
    communicator.setIODevice(&port);
    QSignalSpy ready(&communicator, qOverload<uint>(&Communicator::readyRead));
    QObject context;
    QObject::connect(&communicator, qOverload<uint>(&Communicator::readyRead), &context, [&port] { port.close(); });
    QVERIFY(line.send("$A\r\n" + QByteArray(200, 'x') + "$B\r\n"));
    QVERIFY(ready.wait());
    QCOMPARE(ready.count(), 1);
    QCOMPARE(takePayloads(communicator), QStringList{QStringLiteral("$A\r\n")});
    QVERIFY(!port.isOpen());
}

void TestCommunicatorHostile::receiverClosesTheBuffer()
{
    QBuffer buffer; // unlike a port it goes on to offer its bytes when it is closed
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
    Scene scene(fetchSignal());
    ScriptedDevice otherDevice;
    Communicator other;
    other.setIODevice(&otherDevice);
    SignalRecord emissionsOfOther(&other);
    scene.onFirst([&] {
        runNested([&] {
            otherDevice.deliver("$O\r\n!half,"); // completes what waits in the buffer as well
            scene.device->deliver("$D\r\n"); // behind the third payload, which was not read yet
        });
    });
    scene.provoke();
    QCOMPARE(emissionsOfOther.take(), arrivals(2));
    QCOMPARE(takePayloads(other), (QStringList{b, QStringLiteral("$O\r\n")}));
    QStringList emissions = scene.emissions.take();
    emissions.sort(); // those of the nested loop stand between the two of the first payload in one row
    QStringList expected = arrivals(3);
    expected.sort();
    QCOMPARE(emissions, expected);
    QCOMPARE(takePayloads(*scene.communicator), (QStringList{a, c, QStringLiteral("$D\r\n")}));
}

void TestCommunicatorHostile::nestedLoopBringsMoreReports()
{
    Scene scene(Signal::Transferred);
    scene.onFirst([&] {
        runNested([&] {
            scene.communicator->writePayload(QStringLiteral("x"));
            scene.device->reportWritten(8);
            scene.device->announce();
        });
    });
    scene.provoke();
    QCOMPARE(scene.emissions.take(), transfers({1}) + transfers({1, 2, 3}) + arrivals(3) + transfers({2}));
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
    Scene scene(fetchSignal());
    scene.onFirst([&] {
        QEventLoop loop;
        QObject::connect(scene.communicator, &QObject::destroyed, &loop, &QEventLoop::quit);
        QTimer::singleShot(0, &loop, [&] {
            if (later)
                scene.communicator->deleteLater();
            else
                delete scene.communicator;
        });
        loop.exec();
    });
    scene.provoke();
    QVERIFY(!scene.communicator);
    QCOMPARE(scene.emissions.take(), scene.firstEmissions());
}

void TestCommunicatorHostile::nestedLoopDeletesTheDevice()
{
    Scene scene(fetchSignal());
    scene.onFirst([&] {
        QEventLoop loop;
        QObject::connect(scene.device.get(), &QObject::destroyed, &loop, &QEventLoop::quit);
        QTimer::singleShot(0, &loop, [&] { scene.device.release()->deleteLater(); });
        loop.exec();
    });
    scene.provoke();
    QVERIFY(!scene.communicator->device());
    QCOMPARE(scene.emissions.take(), scene.receives() ? arrivals(2) : allTransfers);
    QCOMPARE(scene.communicator->writePayload(QStringLiteral("x")), 3u);
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
    QCOMPARE(m_emissions->take(), transfers({})); // the payload had no id yet
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
    Scene scene(Signal::Transferred);
    Nmea::ParserInit parser;
    parser.init();
    scene.communicator->setParser(&parser);
    scene.onFirst([&] { delete scene.communicator; });
    scene.device->insideWrite = [&scene] { scene.device->reportWritten(3); };
    SessionInit query;
    query.sentenceId = 1;
    QCOMPARE(session ? scene.communicator->writePayload(&query)
                     : scene.communicator->writePayload(QStringLiteral("abc")),
             0u);
    QVERIFY(!scene.communicator);
}

void TestCommunicatorHostile::deviceReportsInsideTheWriteToAReceiverThatDeletesTheText()
{
    const LogCapture log;
    Scene scene(Signal::Transferred);
    auto text = std::make_unique<QString>(QString::fromLatin1("$PJWVER*0c\r\n"));
    scene.onFirst([&] { text.reset(); });
    scene.device->insideWrite = [&scene] { scene.device->reportWritten(3); };
    QCOMPARE(scene.communicator->writePayload(*text), 3u);
    QVERIFY(!text);
    QCOMPARE(log.sink->records.last().text, QStringLiteral("->  \"$PJWVER*0c\""));
}

void TestCommunicatorHostile::deviceReportsInsideTheWriteToAWritingReceiver()
{
    Scene scene(Signal::Transferred);
    uint inner = 0;
    scene.onFirst([&] { inner = scene.communicator->writePayload(QStringLiteral("inner")); });
    scene.device->insideWrite = [&scene] {
        scene.device->insideWrite = nullptr;
        scene.device->reportWritten(3);
    };
    QCOMPARE(scene.communicator->writePayload(QStringLiteral("outer")), 4u);
    QCOMPARE(inner, 3u);
    scene.emissions.take();
    scene.device->reportWritten(3 + 4 + 5 + 5);
    QCOMPARE(scene.emissions.take(), transfers({1, 2, 3, 4}));
}

void TestCommunicatorHostile::deviceReportsInsideTheWriteToAnUnbindingReceiver()
{
    Scene scene(Signal::Transferred);
    scene.onFirst([&] { scene.communicator->setIODevice(nullptr); });
    scene.device->insideWrite = [&scene] { scene.device->reportWritten(7); };
    QCOMPARE(scene.communicator->writePayload(QStringLiteral("abc")), 3u);
    QCOMPARE(scene.emissions.take(), allTransfers);
    QVERIFY(!scene.communicator->device());
}

void TestCommunicatorHostile::deviceAnswersInsideTheWriteToADeletingReceiver()
{
    Scene scene(Signal::ReadyRead);
    scene.onFirst([&] { delete scene.communicator; });
    scene.device->insideWrite = [&scene] { scene.device->announce(); };
    QCOMPARE(scene.communicator->writePayload(QStringLiteral("abc")), 0u);
    QVERIFY(!scene.communicator);
    QCOMPARE(scene.emissions.take(), scene.firstEmissions());
}

void TestCommunicatorHostile::deviceAnnouncesInsideTheRead()
{
    Scene scene(Signal::ReadyRead);
    scene.device->insideRead = [&scene] {
        scene.device->insideRead = nullptr;
        scene.device->announce(); // the second read overtakes the first one, whose bytes are on their way
    };
    scene.provoke();
    QCOMPARE(scene.emissions.take(), arrivals(3));
    QCOMPARE(takePayloads(*scene.communicator), (QStringList{c, a, b}));
}

void TestCommunicatorHostile::deviceAnnouncesInsideTheReadToADeletingReceiver()
{
    Scene scene(Signal::ReadyRead);
    scene.onFirst([&] { delete scene.communicator; });
    scene.device->insideRead = [&scene] {
        scene.device->insideRead = nullptr;
        scene.device->announce();
    };
    scene.provoke();
    QVERIFY(!scene.communicator);
    QCOMPARE(scene.emissions.take(), scene.firstEmissions());

    Communicator next; // what was on its way in the first read is in the buffer
    next.setIODevice(scene.device.get());
    scene.device->deliver("\r\n");
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

// Tests several Communicators whose devices offer whole lines only. All Communicators share one receive buffer.
#include "support/device/communicatorwatch.h"
#include "support/device/linedevice.h"
#include "support/common/simulatedportsmain.h"

#include <device/communicator.h>

#include <QPointer>
#include <QRandomGenerator>
#include <QTest>

#include <functional>
#include <memory>
#include <vector>

using JwDevice::Communicator;

namespace {

const QString a = QStringLiteral("$A\r\n");
const QString b = QStringLiteral("$B\r\n");
// This payload shows whether the receive buffer was empty. If the buffer contains a "!" or "$" already, this payload is
// received together with the bytes before it, as one payload.
const QString marked = QStringLiteral("!M\r\n");
const QByteArray cut = "$PJWVER,73";
const QString truncation = QStringLiteral("3 [] communicator.cpp Payload input buffer too large - truncating ...");

/// A device with its Communicator. Each received payload is read at once and added to `payloads`.
struct Connection
{
    explicit Connection(std::unique_ptr<LineDevice> line)
        : link(std::move(line))
        , communicator(std::make_unique<Communicator>())
    {
        communicator->setIODevice(link->device());
        QObject::connect(communicator.get(), qOverload<uint>(&Communicator::readyRead), &context, [this](uint id) {
            QString payload;
            if (communicator->readPayload(payload, id))
                payloads << payload;
        });
    }

    std::unique_ptr<LineDevice> link;
    std::unique_ptr<Communicator> communicator;
    QStringList payloads;
    QObject context;
};

} // namespace

class TestCommunicatorWholeLines : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_log = std::make_unique<LogCapture>();
        drainReceiveBuffer();
        m_testbed = std::make_unique<JwSimulator::Testbed>();
        m_first = addConnection();
        m_second = addConnection();
        takeLog(*m_log);
    }
    void cleanup()
    {
        m_first.reset();
        m_second.reset();
        m_testbed.reset();
        m_log.reset();
    }

    void piecesOfManyBoardsReachTheirCommunicators_data();
    void piecesOfManyBoardsReachTheirCommunicators();
    void unfinishedLineStaysInTheDevice_data();
    void unfinishedLineStaysInTheDevice();
    void smallReadBufferStopsNothing_data();
    void smallReadBufferStopsNothing();
    void plainPortIsReadUntilItIsEmpty();
    void severalLinesComeInOrder();
    void switchedOffDeviceIsEmptied();

    void lineWithoutEndIsCutOnceItIsOffered();
    void payloadOf500CharactersInPieces();
    void longLinesEndAsOnAPlainDevice_data();
    void longLinesEndAsOnAPlainDevice();
    void nulByteEndsItsChunkOnly();

    void closedDeviceSpoilsNobody();
    void deletedDeviceSpoilsNobody();
    void pulledPortSpoilsNobody();
    void reboundCommunicatorLeavesWhatWasHeldBack();

    void receiverRunsAnEventLoop();
    void receiverDeletesTheCommunicator();
    void receiverBindsADeviceOfWholeLines();
    void receiverBindsAPlainDevice();
    void receiverBindsFromAPlainDevice();
    void receiverClosesTheDevice();
    void receiverDeletesTheDeviceLater();
    void receiverRunsAnEventLoopThatClosesTheDevice();
    void receiverReadsTheDevice();
    void receiverReadsIntoTheUnfinishedLine();
    void receiverReadsTheDeviceAndTheSameCountArrives();
    void receiverSwitchesWholeLinesOff();
    void receiverReadsTheRestOfALongLine();

private:
    std::unique_ptr<Connection> addConnection()
    {
        return std::make_unique<Connection>(std::make_unique<LineSerialPort>(*m_testbed));
    }
    /// Calls `receiver` once, after the first payload of m_first was read.
    void onFirst(const std::function<void()> &receiver)
    {
        QObject::connect(m_first->communicator.get(), qOverload<>(&Communicator::readyRead), &m_first->context,
                         [called = false, receiver]() mutable {
                             if (!std::exchange(called, true))
                                 receiver();
                         });
    }
    /// Returns whether the receive buffer contains no begun payload. To find out, sends `marked`: a begun payload and
    /// `marked` would be received as one payload.
    bool bufferIsEmpty()
    {
        ScriptedDevice device;
        Communicator communicator;
        communicator.setIODevice(&device);
        device.deliver(marked.toLatin1());
        return takePayloads(communicator) == QStringList{marked};
    }

    std::unique_ptr<LogCapture> m_log;
    std::unique_ptr<JwSimulator::Testbed> m_testbed;
    std::unique_ptr<Connection> m_first;
    std::unique_ptr<Connection> m_second;
};

void TestCommunicatorWholeLines::piecesOfManyBoardsReachTheirCommunicators_data()
{
    QTest::addColumn<DeviceKind>("kind");
    QTest::addColumn<int>("count");
    for (const auto &device : deviceKinds) {
        for (const int count : {2, 3, 8, 16})
            QTest::addRow("%d of %s", count, device.name) << device.kind << count;
    }
}

void TestCommunicatorWholeLines::piecesOfManyBoardsReachTheirCommunicators()
{
    QFETCH(DeviceKind, kind);
    QFETCH(int, count);
    constexpr int payloadCount = 8;
    QRandomGenerator random(static_cast<quint32>(count));
    struct Sender
    {
        std::unique_ptr<Connection> connection;
        QStringList payloads;
        QByteArray unsent;
    };
    std::vector<Sender> senders(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        Sender &sender = senders[static_cast<std::size_t>(i)];
        sender.connection = std::make_unique<Connection>(makeLineDevice(kind, *m_testbed));
        for (int number = 0; number < payloadCount; ++number) {
            // If the shared buffer wrongly keeps the beginning of another payload, a payload with "!" is appended to it
            // and arrives changed. A payload with "$" would arrive unchanged and hide the error, so only half of the
            // payloads start with "$".
            const QString filler(random.bounded(number == 0 ? 480 : 60), QLatin1Char(static_cast<char>('a' + i)));
            const QLatin1Char start(random.bounded(2) == 0 ? '!' : '$');
            sender.payloads << QStringLiteral("%1P%2,%3,%4\r\n").arg(start).arg(i).arg(number).arg(filler);
        }
        sender.unsent = sender.payloads.join(QString()).toLatin1();
    }
    for (int left = count; left > 0;) {
        Sender &sender = senders[static_cast<std::size_t>(random.bounded(count))];
        if (sender.unsent.isEmpty())
            continue;
        const int size = random.bounded(1, 60);
        sender.connection->link->send(sender.unsent.left(size));
        sender.unsent.remove(0, size);
        if (sender.unsent.isEmpty())
            --left;
        if (random.bounded(3) != 0)
            settle();
    }
    settle();
    for (const Sender &sender : senders)
        QCOMPARE(sender.connection->payloads, sender.payloads);
}

void TestCommunicatorWholeLines::unfinishedLineStaysInTheDevice_data()
{
    QTest::addColumn<DeviceKind>("kind");
    QTest::addColumn<QByteArray>("lines");
    for (const auto &device : deviceKinds) {
        QTest::addRow("%s, nothing before", device.name) << device.kind << QByteArray();
        QTest::addRow("%s, behind one line", device.name) << device.kind << QByteArray("$A\r\n");
        QTest::addRow("%s, behind ten lines", device.name) << device.kind << QByteArray("$A\r\n").repeated(10);
        QTest::addRow("%s, behind a line of 100", device.name) << device.kind << "$" + QByteArray(97, 'x') + "\r\n";
        QTest::addRow("%s, behind a line of 250", device.name) << device.kind << "$" + QByteArray(247, 'x') + "\r\n";
        QTest::addRow("%s, behind text", device.name) << device.kind << QByteArray("text\r\n");
        QTest::addRow("%s, behind a NUL byte", device.name) << device.kind << QByteArray("$A\0B\r\n\r\n", 8);
    }
}

void TestCommunicatorWholeLines::unfinishedLineStaysInTheDevice()
{
    QFETCH(DeviceKind, kind);
    QFETCH(QByteArray, lines);
    Connection connection(makeLineDevice(kind, *m_testbed));
    connection.link->deliver(lines + cut);
    QCOMPARE(connection.link->lines()->bytesReceived(), cut.size());
    QCOMPARE(connection.link->device()->bytesAvailable(), 0);
    connection.payloads.clear();
    m_second->link->deliver(marked.toLatin1());
    QCOMPARE(m_second->payloads.join(QString()).right(marked.size()), marked);
    connection.link->deliver(",1\r\n");
    QCOMPARE(connection.payloads, QStringList{QString::fromLatin1(cut) + QStringLiteral(",1\r\n")});
    QCOMPARE(connection.link->lines()->bytesReceived(), 0);
}

void TestCommunicatorWholeLines::smallReadBufferStopsNothing_data()
{
    QTest::addColumn<int>("limit");
    for (const int limit : {30, 64, 512})
        QTest::addRow("%d bytes", limit) << limit;
}

void TestCommunicatorWholeLines::smallReadBufferStopsNothing()
{
    QFETCH(int, limit);
    LineSerialPort link(*m_testbed);
    static_cast<QSerialPort *>(link.device())->setReadBufferSize(limit);
    Communicator communicator;
    communicator.setIODevice(link.device());
    int received = 0;
    QString last;
    connect(&communicator, qOverload<uint>(&Communicator::readyRead), this, [&](uint id) {
        ++received;
        communicator.readPayload(last, id);
    });
    const QByteArray line = "$PJWVER,7300022,1,4,0*0d\r\n";
    link.deliver(line.repeated(100));
    QTRY_COMPARE(received, 100);
    link.deliver("$" + QByteArray(700, 'x')); // a line without a line end
    link.deliver("\r\n" + line);
    QTRY_COMPARE(last, QString::fromLatin1(line));
}

void TestCommunicatorWholeLines::plainPortIsReadUntilItIsEmpty()
{
    ScriptedDevice plain;
    Communicator communicator;
    communicator.setIODevice(&plain);
    plain.deliver(QByteArray("$A\r\n").repeated(40) + cut);
    QCOMPARE(plain.requestedReads, (QList<qint64>{100, 100}));
    QCOMPARE(plain.bytesAvailable(), qint64(0));
    m_second->link->deliver(marked.toLatin1()); // is appended to `cut`, which still is in the shared buffer
    QCOMPARE(m_second->payloads, QStringList{QString::fromLatin1(cut) + marked});
}

void TestCommunicatorWholeLines::severalLinesComeInOrder()
{
    QByteArray bytes;
    QStringList payloads;
    for (int number = 0; number < 100; ++number) {
        payloads << QStringLiteral("$%1\r\n").arg(number);
        bytes += payloads.last().toLatin1();
    }
    SignalRecord emissions(m_first->communicator.get());
    m_first->link->deliver(bytes + cut);
    QCOMPARE(m_first->payloads, payloads);
    QCOMPARE(emissions.take(), arrivals(100));
}

void TestCommunicatorWholeLines::switchedOffDeviceIsEmptied()
{
    m_first->link->lines()->setWholeLines(false);
    m_first->link->deliver(a.toLatin1() + cut);
    QCOMPARE(m_first->payloads, QStringList{a});
    QCOMPARE(m_first->link->lines()->bytesReceived(), 0);
    m_first->link->deliver("\r\n");
    QCOMPARE(m_first->payloads, (QStringList{a, QString::fromLatin1(cut) + QStringLiteral("\r\n")}));
}

void TestCommunicatorWholeLines::lineWithoutEndIsCutOnceItIsOffered()
{
    m_first->link->deliver(QByteArray(511, 'x'));
    QCOMPARE(takeLog(*m_log).count(truncation), 0);
    QCOMPARE(m_first->link->lines()->bytesReceived(), 511);
    m_first->link->deliver("x");
    QCOMPARE(takeLog(*m_log).count(truncation), 1);
    QCOMPARE(m_first->link->lines()->bytesReceived(), 0);
    m_first->link->deliver("\r\n" + a.toLatin1());
    QCOMPARE(m_first->payloads, QStringList{a});
    QVERIFY(bufferIsEmpty());

    for (int i = 0; i < 30; ++i)
        m_first->link->deliver(QByteArray(512, 'x'));
    QVERIFY(takeLog(*m_log).count(truncation) >= 30);
    m_first->link->deliver("\r\n" + b.toLatin1());
    QCOMPARE(m_first->payloads, (QStringList{a, b}));
}

void TestCommunicatorWholeLines::payloadOf500CharactersInPieces()
{
    const QByteArray longest = "!" + QByteArray(497, 'x') + "\r\n";
    for (int at = 0; at < longest.size(); at += 7) {
        m_first->link->deliver(longest.mid(at, 7));
        m_second->link->deliver(cut + "\r\n");
    }
    QCOMPARE(m_first->payloads, QStringList{QString::fromLatin1(longest)});
    QCOMPARE(takeLog(*m_log).count(truncation), 0);
}

void TestCommunicatorWholeLines::longLinesEndAsOnAPlainDevice_data()
{
    QTest::addColumn<int>("size");
    for (const int size : {99, 100, 101, 200, 499, 500, 501, 510, 511, 512, 513, 600, 950, 951, 1500})
        QTest::addRow("%d", size) << size;
}

void TestCommunicatorWholeLines::longLinesEndAsOnAPlainDevice()
{
    QFETCH(int, size);
    // All characters of the line are start characters. So every character that is not dropped is part of the payload,
    // and the length of the payload shows how many characters were dropped.
    const QByteArray line = QByteArray(size - 2, '!') + "\r\n";
    ScriptedDevice plain;
    Communicator communicator;
    communicator.setIODevice(&plain);
    plain.deliver(line);
    const QStringList expected = takePayloads(communicator);
    const auto warnings = takeLog(*m_log).count(truncation);
    drainReceiveBuffer();

    m_first->link->deliver(line);
    QCOMPARE(m_first->payloads, expected);
    QCOMPARE(takeLog(*m_log).count(truncation), warnings);
    QVERIFY(bufferIsEmpty());
}

void TestCommunicatorWholeLines::nulByteEndsItsChunkOnly()
{
    m_first->link->deliver(QByteArray("$X\0Y\r\n", 6));
    m_first->link->deliver(a.toLatin1());
    QCOMPARE(m_first->payloads, QStringList{a});
}

void TestCommunicatorWholeLines::closedDeviceSpoilsNobody()
{
    m_first->link->deliver(cut);
    m_first->link->device()->close();
    m_second->link->deliver(marked.toLatin1());
    QCOMPARE(m_second->payloads, QStringList{marked});
    m_first->link->open();
    m_first->link->deliver(marked.toLatin1());
    QCOMPARE(m_first->payloads, QStringList{marked});
}

void TestCommunicatorWholeLines::deletedDeviceSpoilsNobody()
{
    m_first->link->deliver(cut);
    m_first->link.reset();
    QVERIFY(!m_first->communicator->device());
    m_second->link->deliver(marked.toLatin1());
    QCOMPARE(m_second->payloads, QStringList{marked});
}

void TestCommunicatorWholeLines::pulledPortSpoilsNobody()
{
    auto *const port = static_cast<QSerialPort *>(m_first->link->device());
    QObject::connect(port, &QSerialPort::errorOccurred, &m_first->context, [port] {
        if (port->isOpen())
            port->close();
    });
    m_first->link->deliver(cut);
    m_second->link->deliver("!M");
    m_testbed->boards().constFirst()->pull();
    QTRY_VERIFY(!port->isOpen());
    m_second->link->deliver("\r\n");
    QCOMPARE(m_second->payloads, QStringList{marked});
}

void TestCommunicatorWholeLines::reboundCommunicatorLeavesWhatWasHeldBack()
{
    m_first->link->deliver(cut);
    ScriptedDevice plain;
    m_first->communicator->setIODevice(&plain);
    plain.deliver(marked.toLatin1());
    QCOMPARE(m_first->payloads, QStringList{marked});
    m_first->communicator->setIODevice(m_first->link->device());
    m_first->link->deliver("\r\n");
    QCOMPARE(m_first->payloads, (QStringList{marked, QString::fromLatin1(cut) + QStringLiteral("\r\n")}));
}

void TestCommunicatorWholeLines::receiverRunsAnEventLoop()
{
    onFirst([this] {
        runNested([this] {
            m_second->link->deliver(marked.toLatin1() + cut);
            m_first->link->deliver(b.toLatin1() + cut);
        });
    });
    m_first->link->deliver(a.toLatin1().repeated(3));
    QCOMPARE(m_second->payloads, QStringList{marked});
    QCOMPARE(m_first->payloads, (QStringList{a, a, a, b}));
    for (Connection *const connection : {m_first.get(), m_second.get()}) {
        QCOMPARE(connection->link->lines()->bytesReceived(), cut.size());
        connection->link->deliver("\r\n");
        QCOMPARE(connection->payloads.last(), QString::fromLatin1(cut) + QStringLiteral("\r\n"));
    }
    QVERIFY(bufferIsEmpty());
}

void TestCommunicatorWholeLines::receiverDeletesTheCommunicator()
{
    onFirst([this] { m_first->communicator.reset(); });
    m_first->link->deliver(a.toLatin1() + b.toLatin1() + cut);
    QCOMPARE(m_first->payloads, QStringList{a});
    QVERIFY(bufferIsEmpty());
    // The lines after the first still wait in the device, so the next Communicator can read them.
    QCOMPARE(m_first->link->device()->bytesAvailable(), b.size());
    Communicator next;
    next.setIODevice(m_first->link->device());
    m_first->link->deliver("\r\n");
    QCOMPARE(takePayloads(next), (QStringList{b, QString::fromLatin1(cut) + QStringLiteral("\r\n")}));
}

void TestCommunicatorWholeLines::receiverBindsADeviceOfWholeLines()
{
    const auto third = addConnection();
    third->communicator.reset();
    third->link->deliver(marked.toLatin1() + cut);
    onFirst([&] { m_first->communicator->setIODevice(third->link->device()); });
    m_first->link->deliver(a.toLatin1() + b.toLatin1() + cut);
    QCOMPARE(m_first->payloads, (QStringList{a, marked}));
    QCOMPARE(third->link->lines()->bytesReceived(), cut.size());
    QCOMPARE(m_first->link->lines()->bytesReceived(), b.size() + cut.size());
    QVERIFY(bufferIsEmpty());
}

void TestCommunicatorWholeLines::receiverBindsAPlainDevice()
{
    ScriptedDevice plain;
    plain.queueRead(marked.toLatin1() + "!N");
    onFirst([&] { m_first->communicator->setIODevice(&plain); });
    m_first->link->deliver(a.toLatin1() + b.toLatin1() + cut);
    QCOMPARE(m_first->payloads, (QStringList{a, marked}));
    QCOMPARE(plain.requestedReads, QList<qint64>{100});
    QCOMPARE(plain.bytesAvailable(), qint64(0));
    QCOMPARE(m_first->link->lines()->bytesReceived(), b.size() + cut.size());
}

void TestCommunicatorWholeLines::receiverBindsFromAPlainDevice()
{
    m_second->communicator.reset();
    m_second->link->deliver(marked.toLatin1() + cut);
    ScriptedDevice plain;
    m_first->communicator->setIODevice(&plain);
    onFirst([&] { m_first->communicator->setIODevice(m_second->link->device()); });
    plain.deliver(a.toLatin1());
    QCOMPARE(m_first->payloads, (QStringList{a, marked}));
    QCOMPARE(m_second->link->lines()->bytesReceived(), cut.size());
}

void TestCommunicatorWholeLines::receiverClosesTheDevice()
{
    onFirst([this] { m_first->link->device()->close(); });
    m_first->link->deliver(a.toLatin1() + b.toLatin1() + cut);
    QCOMPARE(m_first->payloads, QStringList{a});
    QVERIFY(bufferIsEmpty());
    m_second->link->deliver(marked.toLatin1());
    QCOMPARE(m_second->payloads, QStringList{marked});
}

void TestCommunicatorWholeLines::receiverDeletesTheDeviceLater()
{
    // The port is on the heap, because deleteLater() deletes it.
    auto *const port = new JwDevice::WholeLines<QSerialPort>;
    const QPointer<QIODevice> guard(port);
    auto *const board = m_testbed->boards().constFirst();
    m_first->link->device()->close();
    port->setPortName(board->portName());
    QVERIFY(port->open(QIODevice::ReadWrite));
    m_first->communicator->setIODevice(port);
    onFirst([port] { port->deleteLater(); });
    QVERIFY(board->send(a.toLatin1() + b.toLatin1() + cut));
    settle();
    QVERIFY(!guard);
    QCOMPARE(m_first->payloads, (QStringList{a, b}));
    QVERIFY(bufferIsEmpty());
}

void TestCommunicatorWholeLines::receiverRunsAnEventLoopThatClosesTheDevice()
{
    onFirst([this] { runNested([this] { m_first->link->device()->close(); }); });
    m_first->link->deliver(a.toLatin1() + b.toLatin1() + cut);
    QVERIFY(!m_first->link->device()->isOpen());
    QCOMPARE(m_first->payloads, QStringList{a});
    QVERIFY(bufferIsEmpty());
}

void TestCommunicatorWholeLines::receiverReadsTheDevice()
{
    QByteArray read;
    onFirst([&] { read = m_first->link->device()->readLine(); });
    m_first->link->deliver(a.toLatin1() + "$taken\r\n" + b.toLatin1() + cut);
    QCOMPARE(read, QByteArray("$taken\r\n"));
    QCOMPARE(m_first->payloads, (QStringList{a, b}));
    QCOMPARE(m_first->link->lines()->bytesReceived(), cut.size());
}

void TestCommunicatorWholeLines::receiverReadsIntoTheUnfinishedLine()
{
    onFirst([this] { m_first->link->device()->read(8 + 3); });
    m_first->link->deliver(a.toLatin1() + "$taken\r\n" + cut);
    QCOMPARE(m_first->payloads, QStringList{a});
    QCOMPARE(m_first->link->lines()->bytesReceived(), cut.size() - 3);
    QVERIFY(bufferIsEmpty());
}

void TestCommunicatorWholeLines::receiverReadsTheDeviceAndTheSameCountArrives()
{
    onFirst([this] {
        m_first->link->device()->readAll();
        runNested([this] { m_first->link->deliver("!B,12345"); });
    });
    m_first->link->deliver(a.toLatin1() + "$taken\r\n");
    QCOMPARE(m_first->payloads, QStringList{a});
    QCOMPARE(m_first->link->lines()->bytesReceived(), 8);
    QVERIFY(bufferIsEmpty());
}

void TestCommunicatorWholeLines::receiverSwitchesWholeLinesOff()
{
    onFirst([this] { m_first->link->lines()->setWholeLines(false); });
    m_first->link->deliver(a.toLatin1() + b.toLatin1() + cut);
    QCOMPARE(m_first->payloads, (QStringList{a, b}));
    QCOMPARE(m_first->link->lines()->bytesReceived(), 0);
    m_first->link->deliver("\r\n");
    QCOMPARE(m_first->payloads.last(), QString::fromLatin1(cut) + QStringLiteral("\r\n"));
}

void TestCommunicatorWholeLines::receiverReadsTheRestOfALongLine()
{
    // The plain device's second payload `b` waits in the shared buffer. Then m_first's device gets a line of 253 bytes.
    // m_first's Communicator reads 100 bytes of this line, and finds and emits `b`. Inside that signal, the application
    // reads the other 153 bytes.
    ScriptedDevice plain;
    Communicator communicator;
    communicator.setIODevice(&plain);
    QObject context;
    QObject::connect(&communicator, qOverload<>(&Communicator::readyRead), &context,
                     [this] { m_first->link->deliver("$" + QByteArray(250, 'x') + "\r\n"); });
    onFirst([this] {
        QCOMPARE(m_first->link->device()->readAll().size(), 153);
        runNested([this] { m_first->link->deliver(cut); });
    });
    plain.deliver(a.toLatin1() + b.toLatin1());
    QCOMPARE(takePayloads(communicator), QStringList{a});
    QCOMPARE(m_first->payloads, QStringList{b});
    QCOMPARE(m_first->link->lines()->bytesReceived(), cut.size());
}

SIMULATED_PORTS_MAIN(TestCommunicatorWholeLines)
#include "tst_communicator_wholelines.moc"

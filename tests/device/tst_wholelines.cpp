#include "support/device/linedevice.h"
#include "support/common/simulatedportsmain.h"

#include <device/wholelines.h>

#include <QDataStream>
#include <QMetaMethod>
#include <QRandomGenerator>
#include <QSerialPortInfo>
#include <QSignalSpy>
#include <QTest>
#include <QTextStream>

#include <functional>
#include <type_traits>

using JwDevice::WholeLines;
using JwDevice::WholeLinesBase;

static_assert(std::is_base_of_v<QSerialPort, WholeLines<QSerialPort>>);
static_assert(std::is_base_of_v<WholeLinesBase, WholeLines<QSerialPort>>);
static_assert(std::is_convertible_v<WholeLines<QSerialPort> *, QSerialPort *>, "the bases are public");
static_assert(std::is_convertible_v<WholeLines<QSerialPort> *, WholeLinesBase *>, "the bases are public");
static_assert(std::has_virtual_destructor_v<WholeLinesBase> && std::is_abstract_v<WholeLinesBase>);
static_assert(
    !std::is_copy_constructible_v<WholeLines<QSerialPort>> && !std::is_copy_assignable_v<WholeLines<QSerialPort>>);
static_assert(std::is_default_constructible_v<WholeLines<QTcpSocket>>);
static_assert(!std::is_convertible_v<QObject *, WholeLines<QSerialPort>>, "a parent is not a port");
static_assert(WholeLinesBase::longestHeld == 512, "the bound that the documentation states");

using Read = std::function<QByteArray(QIODevice *)>;
Q_DECLARE_METATYPE(Read)

namespace {

const QByteArray versionReply = "$PJWVER,7300021,1,4,0*0e\r\n";
const QByteArray cut = "$PJWVER,73";

/// Returns the expected bytesAvailable() after `bytes` arrived and nothing was read.
qint64 offered(const QByteArray &bytes)
{
    const auto end = bytes.contains("\r\n") ? bytes.lastIndexOf("\r\n") + 2 : 0;
    return bytes.size() - end < 512 ? end : bytes.size();
}

void addKinds()
{
    QTest::addColumn<DeviceKind>("kind");
    for (const auto &device : deviceKinds)
        QTest::newRow(device.name) << device.kind;
}

} // namespace

class TestWholeLines : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_testbed = std::make_unique<JwSimulator::Testbed>(); }
    void cleanup() { m_testbed.reset(); }

    void countsThroughTheLastLineEnd_data();
    void countsThroughTheLastLineEnd();
    void bytesAvailableCountsAllWholeLines_data();
    void bytesAvailableCountsAllWholeLines();
    void lineOf512BytesIsNoLongerHeldBack_data();
    void lineOf512BytesIsNoLongerHeldBack();
    void restOfALongLineIsHeldBackAgain_data() { addKinds(); }
    void restOfALongLineIsHeldBackAgain();
    void everyByteCanBeRead_data();
    void everyByteCanBeRead();
    void atEndIsFalseWhileBytesAreHeldBack_data() { addKinds(); }
    void atEndIsFalseWhileBytesAreHeldBack();
    void canReadLineReportsAnyLineFeed_data() { addKinds(); }
    void canReadLineReportsAnyLineFeed();
    void waitForReadyReadReturnsForAPiece_data() { addKinds(); }
    void waitForReadyReadReturnsForAPiece();
    void rolledBackTransactionGivesBytesBack_data() { addKinds(); }
    void rolledBackTransactionGivesBytesBack();
    void readsBetweenArrivals_data() { addKinds(); }
    void readsBetweenArrivals();
    void bytesAvailableConsumesNothing_data() { addKinds(); }
    void bytesAvailableConsumesNothing();
    void switchedOffAndOn_data() { addKinds(); }
    void switchedOffAndOn();
    void randomPiecesAndReadsAgreeWithAByteArray_data() { addKinds(); }
    void randomPiecesAndReadsAgreeWithAByteArray();
    void readBufferOf512BytesDoesNotBlock();
    void closedDeviceLosesWhatWasHeldBack_data() { addKinds(); }
    void closedDeviceLosesWhatWasHeldBack();
    void destroyedWithBytesHeldBack_data() { addKinds(); }
    void destroyedWithBytesHeldBack();
    void deviceThatWasNeverOpenHasNothing();
    void metaObjectIsThatOfTheDevice();
    void signalsOfTheDeviceAreEmitted_data() { addKinds(); }
    void signalsOfTheDeviceAreEmitted();
    void everyConstructorOfTheDevice();
    void writesPassThrough();

private:
    std::unique_ptr<LineDevice> make()
    {
        QFETCH(DeviceKind, kind);
        return makeLineDevice(kind, *m_testbed);
    }

    std::unique_ptr<JwSimulator::Testbed> m_testbed;
};

void TestWholeLines::countsThroughTheLastLineEnd_data()
{
    QTest::addColumn<DeviceKind>("kind");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("available");
    for (const auto &device : deviceKinds) {
        const auto row = [&device](const char *name, const QByteArray &bytes, int available) {
            QTest::addRow("%s, %s", device.name, name) << device.kind << bytes << available;
        };
        row("one line", versionReply, 26);
        row("two lines", versionReply + versionReply, 52);
        row("unfinished line", cut, 0);
        row("line and unfinished line", versionReply + cut, 26);
        row("two lines and unfinished line", versionReply + "!B\r\n" + cut, 30);
        row("CR without LF", "$A\r", 0);
        row("CR without LF behind a line", "$A\r\n$B\r", 4);
        row("lone LF", "$A\nB", 0);
        row("lone LF behind a line", "$A\r\nB\nC", 4);
        row("lone CR", "$A\rB", 0);
        row("LF CR", "$A\n\r", 0);
        row("CR CR LF", "$A\r\r\n", 5);
        row("CR LF LF", "$A\r\n\n", 4);
        row("line end alone", "\r\n", 2);
        row("empty lines", "\r\n\r\n\r\n", 6);
        row("line end first", "\r\n$A", 2);
        row("LF first", "\n$A", 0);
        row("LF alone", "\n", 0);
        row("CR alone", "\r", 0);
        row("NUL bytes in a line", QByteArray("$A\0B\0\r\n", 7), 7);
        row("NUL between CR and LF", QByteArray("$A\r\0\n", 5), 0);
        row("NUL bytes behind a line", QByteArray("$A\r\n\0\0", 6), 4);
        row("bytes above 127", "\xff\xfe\r\n\xfd", 4);
    }
}

void TestWholeLines::countsThroughTheLastLineEnd()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, available);
    const auto link = make();

    link->deliver(bytes);
    QCOMPARE(link->device()->bytesAvailable(), available);
    QCOMPARE(link->lines()->bytesReceived(), bytes.size());
    QCOMPARE(link->device()->readAll(), bytes);

    for (int at = 1; at < bytes.size(); ++at) { // the bytes arrive in two pieces
        link->deliver(bytes.left(at));
        QCOMPARE(link->device()->bytesAvailable(), offered(bytes.left(at)));
        link->deliver(bytes.mid(at));
        QCOMPARE(link->device()->bytesAvailable(), available);
        QCOMPARE(link->device()->readAll(), bytes);
    }

    for (int end = 1; end <= bytes.size(); ++end) { // the bytes arrive one by one
        link->deliver(bytes.mid(end - 1, 1));
        QCOMPARE(link->device()->bytesAvailable(), offered(bytes.left(end)));
        QCOMPARE(link->lines()->bytesReceived(), end);
    }
    QCOMPARE(link->device()->readAll(), bytes);
}

void TestWholeLines::bytesAvailableCountsAllWholeLines_data()
{
    QTest::addColumn<DeviceKind>("kind");
    QTest::addColumn<int>("count");
    for (const auto &device : deviceKinds) {
        for (const int count : {2, 19, 20, 39, 400})
            QTest::addRow("%s, %d lines", device.name, count) << device.kind << count;
    }
}

void TestWholeLines::bytesAvailableCountsAllWholeLines()
{
    QFETCH(int, count);
    const auto link = make();
    QByteArray all;
    for (int line = 0; line < count; line += 10) { // ten at a time, because a port can hold only 4 kB of unread bytes
        const QByteArray lines = versionReply.repeated(qMin(10, count - line));
        link->deliver(lines);
        all += lines;
        QCOMPARE(link->device()->bytesAvailable(), all.size());
    }
    link->deliver(cut);
    QCOMPARE(link->device()->bytesAvailable(), all.size());
    for (int line = 0; line < count; ++line) {
        QCOMPARE(link->device()->readLine(), versionReply);
        QCOMPARE(link->device()->bytesAvailable(), all.size() - (line + 1) * versionReply.size());
    }
    link->deliver("\r\n");
    QCOMPARE(link->device()->bytesAvailable(), cut.size() + 2);
    QCOMPARE(link->device()->readAll(), cut + "\r\n");
}

void TestWholeLines::lineOf512BytesIsNoLongerHeldBack_data()
{
    QTest::addColumn<DeviceKind>("kind");
    QTest::addColumn<QByteArray>("before");
    for (const auto &device : deviceKinds) {
        QTest::addRow("%s, alone", device.name) << device.kind << QByteArray();
        QTest::addRow("%s, behind an empty line", device.name) << device.kind << QByteArray("\r\n");
        QTest::addRow("%s, behind a line", device.name) << device.kind << versionReply;
        QTest::addRow("%s, behind 40 lines", device.name) << device.kind << versionReply.repeated(40);
        QTest::addRow("%s, behind lone LF", device.name) << device.kind << QByteArray("$A\r\n");
    }
}

void TestWholeLines::lineOf512BytesIsNoLongerHeldBack()
{
    QFETCH(QByteArray, before);
    const auto link = make();
    link->deliver(before + QByteArray(510, 'x'));
    QCOMPARE(link->device()->bytesAvailable(), before.size());
    link->deliver("\n"); // does not end the line, because the carriage return before the line feed is missing
    QCOMPARE(link->device()->bytesAvailable(), before.size());
    link->deliver("y");
    QCOMPARE(link->device()->bytesAvailable(), before.size() + 512);
    link->deliver("z");
    QCOMPARE(link->device()->bytesAvailable(), before.size() + 513);
    link->deliver("\r\n");
    QCOMPARE(link->device()->bytesAvailable(), before.size() + 515);
    QCOMPARE(link->device()->readAll(), before + QByteArray(510, 'x') + "\nyz\r\n");
}

void TestWholeLines::restOfALongLineIsHeldBackAgain()
{
    const auto link = make();
    link->deliver(QByteArray(600, 'x'));
    QCOMPARE(link->device()->bytesAvailable(), 600);
    QCOMPARE(link->device()->read(100).size(), 100);
    QCOMPARE(link->device()->bytesAvailable(), 0);
    link->deliver(QByteArray(11, 'x'));
    QCOMPARE(link->device()->bytesAvailable(), 0);
    link->deliver("x");
    QCOMPARE(link->device()->bytesAvailable(), 512);
    QCOMPARE(link->device()->readAll(), QByteArray(512, 'x'));
}

void TestWholeLines::everyByteCanBeRead_data()
{
    QTest::addColumn<DeviceKind>("kind");
    QTest::addColumn<Read>("read");
    for (const auto &device : deviceKinds) {
        const auto row = [&device](const char *name, const Read &read) {
            QTest::addRow("%s, %s", device.name, name) << device.kind << read;
        };
        row("readAll", [](QIODevice *io) { return io->readAll(); });
        row("read of more", [](QIODevice *io) { return io->read(1000); });
        row("read byte by byte", [](QIODevice *io) {
            QByteArray all;
            for (QByteArray byte = io->read(1); !byte.isEmpty(); byte = io->read(1))
                all += byte;
            return all;
        });
        row("read into memory", [](QIODevice *io) {
            char bytes[1000];
            return QByteArray(bytes, static_cast<int>(io->read(bytes, sizeof bytes)));
        });
        row("getChar", [](QIODevice *io) {
            QByteArray all;
            for (char c = 0; io->getChar(&c);)
                all += c;
            return all;
        });
        row("ungetChar", [](QIODevice *io) {
            char c = 0;
            io->getChar(&c);
            io->ungetChar(c);
            return io->readAll();
        });
        row("readLine", [](QIODevice *io) {
            QByteArray all;
            for (QByteArray line = io->readLine(); !line.isEmpty(); line = io->readLine())
                all += line;
            return all;
        });
        row("readLine into memory", [](QIODevice *io) {
            QByteArray all;
            char line[8];
            for (qint64 count = io->readLine(line, sizeof line); count > 0; count = io->readLine(line, sizeof line))
                all += QByteArray(line, static_cast<int>(count));
            return all;
        });
        row("peek, then skip", [](QIODevice *io) {
            const QByteArray all = io->peek(1000);
            return io->skip(all.size()) == all.size() && io->readAll().isEmpty() ? all : QByteArray();
        });
        row("peek into memory, then skip", [](QIODevice *io) {
            char bytes[1000];
            const QByteArray all(bytes, static_cast<int>(io->peek(bytes, sizeof bytes)));
            return io->skip(1000) == all.size() ? all : QByteArray();
        });
        row("skip of a few", [](QIODevice *io) {
            const QByteArray start = io->peek(3);
            return io->skip(3) == 3 ? start + io->readAll() : QByteArray();
        });
        row("transaction", [](QIODevice *io) {
            io->startTransaction();
            const QByteArray all = io->readAll();
            io->commitTransaction();
            return all;
        });
        row("QTextStream", [](QIODevice *io) {
            QTextStream stream(io);
            return stream.readAll().toLatin1();
        });
        row("QDataStream", [](QIODevice *io) {
            QByteArray all(versionReply.size() + cut.size(), 0);
            QDataStream stream(io);
            return stream.readRawData(all.data(), static_cast<int>(all.size())) == all.size() ? all : QByteArray();
        });
    }
}

void TestWholeLines::everyByteCanBeRead()
{
    QFETCH(Read, read);
    const auto link = make();
    for (const QByteArray &bytes : {versionReply + cut, cut + versionReply}) {
        link->deliver(bytes);
        QCOMPARE(read(link->device()), bytes); // must work without an earlier call of bytesAvailable()
        QCOMPARE(link->lines()->bytesReceived(), 0);
        link->deliver(bytes.left(5));
        link->deliver(bytes.mid(5));
        QCOMPARE(link->device()->bytesAvailable(), offered(bytes));
        QCOMPARE(read(link->device()), bytes);
        QCOMPARE(link->lines()->bytesReceived(), 0);
        QCOMPARE(link->device()->bytesAvailable(), 0);
    }
}

void TestWholeLines::atEndIsFalseWhileBytesAreHeldBack()
{
    const auto link = make();
    QVERIFY(link->device()->atEnd());
    link->deliver(cut);
    QVERIFY(!link->device()->atEnd());
    QCOMPARE(link->device()->bytesAvailable(), 0);
    QVERIFY(!link->device()->atEnd());
    QCOMPARE(link->device()->readAll(), cut);
    QVERIFY(link->device()->atEnd());
}

void TestWholeLines::canReadLineReportsAnyLineFeed()
{
    const auto link = make();
    QVERIFY(!link->device()->canReadLine());
    link->deliver(cut);
    QVERIFY(!link->device()->canReadLine());
    link->deliver("\n");
    QVERIFY(link->device()->canReadLine());
    QCOMPARE(link->device()->bytesAvailable(), 0);
    QVERIFY(link->device()->canReadLine());
    QCOMPARE(link->device()->readLine(), cut + "\n");
    QVERIFY(!link->device()->canReadLine());
}

void TestWholeLines::waitForReadyReadReturnsForAPiece()
{
    const auto link = make();
    link->send(cut);
    QVERIFY(link->device()->waitForReadyRead(30000));
    QCOMPARE(link->device()->bytesAvailable(), 0);
    QCOMPARE(link->device()->readAll(), cut);
    link->send(versionReply);
    QVERIFY(link->device()->waitForReadyRead(30000));
    QCOMPARE(link->device()->bytesAvailable(), versionReply.size());
    QVERIFY(!link->device()->waitForReadyRead(1));
    QCOMPARE(link->device()->readAll(), versionReply);
}

void TestWholeLines::rolledBackTransactionGivesBytesBack()
{
    const auto link = make();
    link->deliver(versionReply + versionReply + cut);
    link->device()->startTransaction();
    QCOMPARE(link->device()->readLine(), versionReply);
    QCOMPARE(link->device()->bytesAvailable(), versionReply.size());
    QCOMPARE(link->device()->read(versionReply.size() + 3), versionReply + cut.left(3));
    QCOMPARE(link->device()->bytesAvailable(), 0);
    link->deliver("\r\n$");
    QCOMPARE(link->device()->bytesAvailable(), cut.size() - 3 + 2);
    link->device()->rollbackTransaction();
    QCOMPARE(link->device()->bytesAvailable(), 2 * versionReply.size() + cut.size() + 2);
    QCOMPARE(link->device()->readAll(), versionReply + versionReply + cut + "\r\n$");
}

void TestWholeLines::readsBetweenArrivals()
{
    const auto link = make();
    QIODevice *const device = link->device();
    link->deliver("$A,1\r\n$B,");
    QCOMPARE(device->read(3), QByteArray("$A,"));
    QCOMPARE(device->bytesAvailable(), 3);
    QCOMPARE(device->read(5), QByteArray("1\r\n$B")); // also reads a part of the unfinished line
    QCOMPARE(device->bytesAvailable(), 0);
    link->deliver("2\r");
    QCOMPARE(device->bytesAvailable(), 0);
    QCOMPARE(device->read(2), QByteArray(",2"));
    link->deliver("\n$C");
    QCOMPARE(device->bytesAvailable(), 2);
    QCOMPARE(device->read(1), QByteArray("\r")); // reads half of the line end; the other half alone does not end a line
    QCOMPARE(device->bytesAvailable(), 0);
    link->deliver("\r\n");
    QCOMPARE(device->bytesAvailable(), 5);
    QCOMPARE(device->readAll(), QByteArray("\n$C\r\n"));
}

void TestWholeLines::bytesAvailableConsumesNothing()
{
    const auto link = make();
    for (const QByteArray &bytes : {versionReply + cut, QByteArray(700, 'x'), versionReply.repeated(50) + cut}) {
        link->deliver(bytes);
        for (int i = 0; i < 5; ++i)
            QCOMPARE(link->device()->bytesAvailable(), offered(bytes));
        QCOMPARE(link->lines()->bytesReceived(), bytes.size());
        QCOMPARE(link->device()->readAll(), bytes);
    }
}

void TestWholeLines::switchedOffAndOn()
{
    const auto link = make();
    QVERIFY(link->lines()->wholeLines());
    link->deliver(versionReply + cut);
    QSignalSpy ready(link->device(), &QIODevice::readyRead);
    link->lines()->setWholeLines(false);
    QVERIFY(!link->lines()->wholeLines());
    QCOMPARE(link->device()->bytesAvailable(), versionReply.size() + cut.size());
    link->lines()->setWholeLines(true);
    QVERIFY(link->lines()->wholeLines());
    QCOMPARE(link->device()->bytesAvailable(), versionReply.size());
    settle();
    QCOMPARE(ready.count(), 0);

    link->lines()->setWholeLines(false);
    link->deliver("\x7f");
    QCOMPARE(link->device()->bytesAvailable(), versionReply.size() + cut.size() + 1);
    QCOMPARE(link->device()->readAll(), versionReply + cut + "\x7f");
    QCOMPARE(link->device()->bytesAvailable(), 0);
    link->deliver("\r");
    QCOMPARE(link->device()->bytesAvailable(), 1);
    link->lines()->setWholeLines(true);
    QCOMPARE(link->device()->bytesAvailable(), 0);
    link->deliver("\n");
    QCOMPARE(link->device()->bytesAvailable(), 2);
}

void TestWholeLines::randomPiecesAndReadsAgreeWithAByteArray()
{
    const auto link = make();
    QIODevice *const device = link->device();
    QRandomGenerator random(11);
    const QByteArray alphabet("\r\n\r\n$!A,\0", 9);
    QByteArray expected;
    for (int step = 0; step < 3000; ++step) {
        const int action = random.bounded(10);
        if (action < 5) {
            // Most pieces have fewer than 12 bytes. One in twenty may have up to 599 bytes, so that some unfinished
            // lines reach 512 bytes; such a line is no longer held back.
            const int size = random.bounded(random.bounded(20) == 0 ? 600 : 12);
            QByteArray bytes;
            for (int i = 0; i < size; ++i)
                bytes += size > 50 && i % 200 != 0 ? 'x' : alphabet[random.bounded(static_cast<int>(alphabet.size()))];
            link->deliver(bytes);
            expected += bytes;
        } else if (action < 8) {
            const int size = random.bounded(40);
            QCOMPARE(device->read(size), expected.left(size));
            expected.remove(0, size);
        } else if (action < 9) {
            QCOMPARE(device->read(device->bytesAvailable()), expected.left(static_cast<int>(offered(expected))));
            expected.remove(0, static_cast<int>(offered(expected)));
        } else {
            const QByteArray line = expected.contains('\n') ? expected.left(expected.indexOf('\n') + 1) : expected;
            QCOMPARE(device->readLine(), line);
            expected.remove(0, line.size());
        }
        QCOMPARE(device->bytesAvailable(), offered(expected));
        QCOMPARE(link->lines()->bytesReceived(), expected.size());
    }
    QCOMPARE(device->readAll(), expected);
}

void TestWholeLines::readBufferOf512BytesDoesNotBlock()
{
    LineSerialPort link(*m_testbed);
    static_cast<QSerialPort *>(link.device())->setReadBufferSize(512);
    link.deliver(QByteArray(700, 'x') + versionReply);
    QCOMPARE(link.device()->bytesAvailable(), 512);
    QCOMPARE(link.device()->readAll(), QByteArray(512, 'x'));
    settle();
    QCOMPARE(link.device()->bytesAvailable(), 188 + versionReply.size());
    QCOMPARE(link.device()->readAll(), QByteArray(188, 'x') + versionReply);
}

void TestWholeLines::closedDeviceLosesWhatWasHeldBack()
{
    const auto link = make();
    link->deliver(versionReply + cut);
    link->device()->close();
    QCOMPARE(link->device()->bytesAvailable(), 0);
    QCOMPARE(link->lines()->bytesReceived(), 0);
    settle();
    link->open();
    QCOMPARE(link->device()->bytesAvailable(), 0);
    link->deliver("$B\r\n");
    QCOMPARE(link->device()->bytesAvailable(), 4);
    QCOMPARE(link->device()->readAll(), QByteArray("$B\r\n"));
}

void TestWholeLines::destroyedWithBytesHeldBack()
{
    auto link = make();
    link->deliver(versionReply + cut);
    QSignalSpy destroyed(link->device(), &QObject::destroyed);
    link.reset();
    QCOMPARE(destroyed.count(), 1);
}

void TestWholeLines::deviceThatWasNeverOpenHasNothing()
{
    const WholeLines<QSerialPort> port;
    const WholeLines<QTcpSocket> tcpSocket;
    const WholeLines<QLocalSocket> localSocket;
    for (const QIODevice *device : {static_cast<const QIODevice *>(&port), static_cast<const QIODevice *>(&tcpSocket),
                                    static_cast<const QIODevice *>(&localSocket)}) {
        QCOMPARE(device->bytesAvailable(), 0);
        QVERIFY(!device->isOpen());
    }
}

void TestWholeLines::metaObjectIsThatOfTheDevice()
{
    WholeLines<QSerialPort> port;
    QCOMPARE(port.metaObject(), &QSerialPort::staticMetaObject);
    QCOMPARE(port.metaObject()->className(), "QSerialPort");
    QVERIFY(port.inherits("QSerialPort"));
    QObject *const object = &port;
    QCOMPARE(qobject_cast<QSerialPort *>(object), static_cast<QSerialPort *>(&port));
    QCOMPARE(dynamic_cast<WholeLinesBase *>(object), static_cast<WholeLinesBase *>(&port));
    QVERIFY(port.dynamicPropertyNames().isEmpty());
    QVERIFY(port.children().isEmpty());

    WholeLines<QTcpSocket> tcpSocket;
    QCOMPARE(tcpSocket.metaObject(), &QTcpSocket::staticMetaObject);
    QCOMPARE(qobject_cast<QTcpSocket *>(static_cast<QObject *>(&tcpSocket)), static_cast<QTcpSocket *>(&tcpSocket));
    WholeLines<QLocalSocket> localSocket;
    QCOMPARE(localSocket.metaObject(), &QLocalSocket::staticMetaObject);
}

void TestWholeLines::signalsOfTheDeviceAreEmitted()
{
    const auto link = make();
    QSignalSpy ready(link->device(), &QIODevice::readyRead);
    link->deliver(versionReply);
    QVERIFY(ready.count() >= 1);
    QSignalSpy closing(link->device(), &QIODevice::aboutToClose);
    link->device()->close();
    QVERIFY(closing.count() >= 1);
}

void TestWholeLines::everyConstructorOfTheDevice()
{
    QObject parent;
    LineSerialPort link(*m_testbed);
    const QString name = static_cast<QSerialPort *>(link.device())->portName();
    link.device()->close();

    const WholeLines<QSerialPort> plain;
    QVERIFY(!plain.parent() && plain.portName().isEmpty());
    auto *const withParent = new WholeLines<QSerialPort>(&parent);
    QCOMPARE(withParent->parent(), &parent);
    const WholeLines<QSerialPort> ofName(name);
    QCOMPARE(ofName.portName(), name);
    auto *const ofNameWithParent = new WholeLines<QSerialPort>(name, &parent);
    QCOMPARE(ofNameWithParent->parent(), &parent);
    QCOMPARE(ofNameWithParent->portName(), name);
    WholeLines<QSerialPort> ofInfo{QSerialPortInfo(name)};
    QCOMPARE(ofInfo.portName(), name);
    auto *const ofInfoWithParent = new WholeLines<QSerialPort>(QSerialPortInfo(name), &parent);
    QCOMPARE(ofInfoWithParent->parent(), &parent);
    QVERIFY(ofInfo.open(QIODevice::ReadWrite));
    QVERIFY(ofInfo.wholeLines());
}

void TestWholeLines::writesPassThrough()
{
    LineSerialPort link(*m_testbed);
    QByteArray received;
    QObject::connect(m_testbed->boards().constFirst(), &JwSimulator::Board::received, link.device(),
                     [&](const QByteArray &bytes) { received += bytes; });
    link.device()->write("unfinished");
    QTRY_COMPARE(received, QByteArray("unfinished"));
}

SIMULATED_PORTS_MAIN(TestWholeLines)
#include "tst_wholelines.moc"

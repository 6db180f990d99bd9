#include "support/common/eventloop.h"
#include "support/common/simulatedportsmain.h"
#include "support/watch/sleepyboard.h"
#include "support/watch/usbtree.h"
#include "support/watch/watchfixture.h"

#include <device/lockfile.h>

#include <QElapsedTimer>
#include <QFile>
#include <QLockFile>
#include <QScopeGuard>
#include <QSerialPortInfo>
#include <QTest>
#include <QTimer>

#include <sys/stat.h>

using JwDevice::PortReport;
using JwSimulator::Board;

Q_DECLARE_METATYPE(UsbTree::Level)

class TestBoardWatchPolite : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void excludedPortIsNeverOpened_data();
    void excludedPortIsNeverOpened();
    void exclusionNeedsAWholeEntry_data();
    void exclusionNeedsAWholeEntry();
    void ignoredPortIsNeverOpened_data();
    void ignoredPortIsNeverOpened();
    void ignorePropertyMustBeOne();
    void deviceWithSeveralPortsIsAskedUntilOneAnswers_data();
    void deviceWithSeveralPortsIsAskedUntilOneAnswers();
    void portThatAppearsBesideABoardOfItsDeviceIsNotOpened();
    void lookAgainDoesNotAskTheOtherPortsOfABoard();
    void otherPortsOfADeviceAreAskedWhenItsBoardFailed();
    void otherPortsOfADeviceAreAskedWhenThePortOfItsBoardIsGone_data();
    void otherPortsOfADeviceAreAskedWhenThePortOfItsBoardIsGone();
    void otherPortsOfAReleasedBoardStayClosed();
    void busyPortIsTriedAfterLongerAndLongerPauses();
    void freedPortIsTakenAtOnce();
    void portWithoutItsLockFileIsTakenAfterAPause();
    void namedPipeInPlaceOfALockFileDoesNotStopTheWatch_data();
    void namedPipeInPlaceOfALockFileDoesNotStopTheWatch();
    void portThatFailsAfterItIsOpenIsNotTriedInASpin();
    void busyPortIsTriedAtOnceByLookAgain();
    void busyPortThatGoesIsNotTriedAgain();
    void portIsTriedInTheMomentWhenItsPermissionsCome();
};

void TestBoardWatchPolite::excludedPortIsNeverOpened_data()
{
    QTest::addColumn<QString>("entry"); // NAME stands for the port name
    QTest::newRow("port name") << QStringLiteral("NAME");
    QTest::newRow("location") << QStringLiteral("/dev/NAME");
    QTest::newRow("serial number") << QStringLiteral("SECRET");
    QTest::newRow("vendor and product") << QStringLiteral("0483:a12b");
    QTest::newRow("vendor and product in capitals") << QStringLiteral("0483:A12B");
}

void TestBoardWatchPolite::excludedPortIsNeverOpened()
{
    QFETCH(QString, entry);
    WatchFixture fixture;
    Board *const excluded = fixture.attach("BoardA,product=a12b", QStringLiteral("SECRET"));
    const Board *const other = fixture.attach("BoardA");
    entry.replace(QStringLiteral("NAME"), excluded->portName());
    fixture.watch->setNeverOpened({QStringLiteral("ttyNONE"), entry});
    QCOMPARE(fixture.watch->neverOpened(), QStringList({QStringLiteral("ttyNONE"), entry}));
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boards().size(), 1);
    QCOMPARE(fixture.watch->boards().first().portName, other->portName());
    const auto isReported = [&] {
        const PortReport report = fixture.report(excluded);
        return report.verdict == PortReport::NotOpened && report.error == QSerialPort::NoError
            && report.errorText == QStringLiteral("not opened, because the application excludes \"%1\"").arg(entry);
    };
    QVERIFY2(isReported(), qPrintable(fixture.report(excluded).errorText));
    // Neither lookAgain() nor a replug makes the watch open the port.
    fixture.watch->lookAgain();
    excluded->pull();
    QVERIFY(excluded->plug());
    QTRY_VERIFY(isReported());
    settle();
    QCOMPARE(fixture.attempts(excluded), 0);
    QVERIFY(fixture.isAtRest());
    QCOMPARE(fixture.timeline.size(), 1);
}

void TestBoardWatchPolite::exclusionNeedsAWholeEntry_data()
{
    QTest::addColumn<QString>("entry");
    QTest::newRow("empty text") << QString();
    QTest::newRow("part of the serial number") << QStringLiteral("SEC");
    QTest::newRow("vendor only") << QStringLiteral("0483");
    QTest::newRow("another product") << QStringLiteral("0483:a12c");
}

void TestBoardWatchPolite::exclusionNeedsAWholeEntry()
{
    QFETCH(QString, entry);
    WatchFixture fixture;
    fixture.attach("BoardA,product=a12b", QStringLiteral("SECRET"));
    fixture.attach("BoardA,product=a12b", QStringLiteral("")); // a board without a serial number
    fixture.watch->setNeverOpened({entry});
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boards().size(), 2);
}

void TestBoardWatchPolite::ignoredPortIsNeverOpened_data()
{
    QTest::addColumn<UsbTree::Level>("level");
    QTest::newRow("property of the port") << UsbTree::Port;
    QTest::newRow("property of the USB interface") << UsbTree::Interface;
    QTest::newRow("property of the USB device") << UsbTree::Device;
}

void TestBoardWatchPolite::ignoredPortIsNeverOpened()
{
    QFETCH(UsbTree::Level, level);
    WatchFixture fixture;
    const Board *const ignored = fixture.attach("BoardA");
    const Board *const other = fixture.attach("BoardB");
    UsbTree::addProperty(ignored->portName(), level, "JWDEVICE_IGNORE=1");
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boards().size(), 1);
    QCOMPARE(fixture.watch->boards().first().portName, other->portName());
    const PortReport report = fixture.report(ignored);
    QCOMPARE(report.verdict, PortReport::NotOpened);
    QCOMPARE(report.error, QSerialPort::NoError);
    QCOMPARE(report.errorText, QStringLiteral("not opened, because the udev property JWDEVICE_IGNORE is set"));
    fixture.watch->lookAgain();
    settle();
    QCOMPARE(fixture.attempts(ignored), 0);
}

void TestBoardWatchPolite::ignorePropertyMustBeOne()
{
    WatchFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    UsbTree::addProperty(board->portName(), UsbTree::Port, "JWDEVICE_IGNORE=0");
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boards().size(), 1);
}

void TestBoardWatchPolite::deviceWithSeveralPortsIsAskedUntilOneAnswers_data()
{
    QTest::addColumn<QByteArray>("first");
    QTest::addColumn<QByteArray>("second");
    QTest::addColumn<int>("board"); // index of the port on which the board is found
    QTest::newRow("the first port answers") << QByteArray("BoardA") << QByteArray("silent") << 0;
    QTest::newRow("the second port answers") << QByteArray("silent") << QByteArray("BoardA") << 1;
    QTest::newRow("both would answer") << QByteArray("BoardA") << QByteArray("BoardA,delay=200") << 0;
}

void TestBoardWatchPolite::deviceWithSeveralPortsIsAskedUntilOneAnswers()
{
    QFETCH(QByteArray, first);
    QFETCH(QByteArray, second);
    QFETCH(int, board);
    WatchFixture fixture;
    const QList<const Board *> ports{fixture.attach(first), fixture.attach(second, QStringLiteral("SIM1"))};
    UsbTree::moveTo(ports[1]->portName(), ports[0]->portName(), QStringLiteral("1.2"));
    fixture.watch->start();
    const QString id = board == 0 ? QStringLiteral("SIM1:1.0") : QStringLiteral("SIM1:1.2");
    QTRY_COMPARE(fixture.timeline, QStringList{QStringLiteral("found ") + id});
    QVERIFY(!fixture.watch->boards().first().sharesSerialNumber);
    const Board *const other = ports[1 - board];
    QTRY_COMPARE(fixture.report(other).errorText,
                 QStringLiteral("not opened, because %1 of the same device is a board").arg(ports[board]->portName()));
    QVERIFY(canBeOpened(other));
    QVERIFY(fixture.attempts(other) <= 1);
    QTRY_VERIFY(fixture.isAtRest());
    QCOMPARE(fixture.timeline.size(), 1);
}

void TestBoardWatchPolite::portThatAppearsBesideABoardOfItsDeviceIsNotOpened()
{
    WatchFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    fixture.watch->start();
    QTRY_COMPARE(fixture.watch->boards().size(), 1);
    const Board *const late = fixture.attach("BoardA", QStringLiteral("SIM1"));
    // The port moves before the watch reads the event of the port. So the watch never sees it at the old place.
    UsbTree::moveTo(late->portName(), board->portName(), QStringLiteral("1.2"));
    QTRY_VERIFY(!fixture.report(late).portName.isEmpty());
    settle();
    QCOMPARE(fixture.attempts(late), 0);
    QCOMPARE(fixture.timeline.size(), 1);
    QCOMPARE(fixture.report(late).errorText,
             QStringLiteral("not opened, because %1 of the same device is a board").arg(board->portName()));
}

void TestBoardWatchPolite::lookAgainDoesNotAskTheOtherPortsOfABoard()
{
    WatchFixture fixture;
    const Board *const other = fixture.attach("silent");
    const Board *const board = fixture.attach("BoardA", QStringLiteral("SIM1"));
    UsbTree::moveTo(board->portName(), other->portName(), QStringLiteral("1.2"));
    // The board's port is busy at first, so that the watch has given up the other port before the board answers.
    QSerialPort holder{QSerialPortInfo(board->portName())};
    QVERIFY(holder.open(QIODevice::ReadWrite));
    fixture.watch->setMaxRetries(0);
    fixture.watch->start();
    QTRY_COMPARE(fixture.report(other).verdict, PortReport::TimedOut);
    holder.close();
    QTRY_COMPARE(fixture.timeline, QStringList{QStringLiteral("found SIM1:1.2")});
    fixture.watch->lookAgain();
    settle();
    QCOMPARE(fixture.attempts(other), 1);
    QVERIFY(fixture.isAtRest());
}

void TestBoardWatchPolite::otherPortsOfADeviceAreAskedWhenItsBoardFailed()
{
    WatchFixture fixture;
    SleepyBoard sleepy(fixture);
    const Board *const other = fixture.attach("BoardA,delay=100", QStringLiteral("SIM1"));
    UsbTree::moveTo(other->portName(), sleepy.board->portName(), QStringLiteral("1.2"));
    fixture.watch->setCheckInterval(50);
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{QStringLiteral("found SIM1:1.0")});
    const int before = fixture.attempts(other);
    sleepy.isAwake = false;
    QTRY_COMPARE(fixture.timeline.value(1), QStringLiteral("lost SIM1:1.0 noAnswer"));
    QTRY_VERIFY(fixture.attempts(other) > before);
    QTRY_COMPARE(fixture.watch->boards().size(), 1);
}

void TestBoardWatchPolite::otherPortsOfADeviceAreAskedWhenThePortOfItsBoardIsGone_data()
{
    QTest::addColumn<QString>("loss");
    QTest::newRow("pulled") << QStringLiteral("lost SIM1:1.2 cablePulled");
    QTest::newRow("released, then pulled") << QStringLiteral("lost SIM1:1.2 released");
}

void TestBoardWatchPolite::otherPortsOfADeviceAreAskedWhenThePortOfItsBoardIsGone()
{
    QFETCH(QString, loss);
    WatchFixture fixture;
    const Board *const other = fixture.attach("BoardA,delay=100");
    Board *const board = fixture.attach("BoardA", QStringLiteral("SIM1"));
    UsbTree::moveTo(board->portName(), other->portName(), QStringLiteral("1.2"));
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{QStringLiteral("found SIM1:1.2")});
    if (loss.endsWith(QLatin1String("released")))
        delete fixture.found(board).communicator;
    board->pull();
    QTRY_COMPARE(fixture.timeline,
                 QStringList({QStringLiteral("found SIM1:1.2"), loss, QStringLiteral("found SIM1:1.0")}));
    QCOMPARE(fixture.watch->boards().first().portName, other->portName());
}

void TestBoardWatchPolite::otherPortsOfAReleasedBoardStayClosed()
{
    WatchFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    const Board *const other = fixture.attach("BoardA,delay=100", QStringLiteral("SIM1"));
    UsbTree::moveTo(other->portName(), board->portName(), QStringLiteral("1.2"));
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{QStringLiteral("found SIM1:1.0")});
    const int before = fixture.attempts(other);
    delete fixture.found(board).communicator;
    QCOMPARE(fixture.timeline.size(), 2);
    fixture.watch->lookAgain();
    // If the watch asked the other port, it would do so after 500 ms.
    QVERIFY(!QTest::qWaitFor([&] { return fixture.attempts(other) != before; }, 800));
    QVERIFY(fixture.isAtRest());
    QVERIFY(fixture.watch->takeBack(QStringLiteral("SIM1:1.0")));
    QTRY_COMPARE(fixture.timeline.last(), QStringLiteral("back SIM1:1.0"));
}

void TestBoardWatchPolite::busyPortIsTriedAfterLongerAndLongerPauses()
{
    WatchFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    const Board *const other = fixture.attach("BoardB");
    const QSerialPortInfo info(board->portName());
    QSerialPort holder(info);
    QVERIFY(holder.open(QIODevice::ReadWrite));
    QElapsedTimer clock;
    clock.start();
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{QStringLiteral("found SIM2:1.0")});
    QTRY_COMPARE(fixture.report(board).error, QSerialPort::PermissionError);
    QCOMPARE(fixture.report(board).verdict, PortReport::NotOpened);
    QTRY_COMPARE(fixture.attempts(board), 4);
    // The pauses are 500, 1000 and 2000 ms. Coarse timers are up to 5 % early.
    QVERIFY2(clock.elapsed() >= 3500 * 95 / 100, QByteArray::number(clock.elapsed()));
    QCOMPARE(fixture.attempts(other), 1);
}

void TestBoardWatchPolite::freedPortIsTakenAtOnce()
{
    WatchFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    // Another program has the port open. It closes the port first, and removes its lock file a moment later.
    QLockFile lock(QStringLiteral("/var/lock/LCK..") + board->portName());
    QVERIFY(lock.tryLock());
    QFile port(QStringLiteral("/dev/") + board->portName());
    QVERIFY(port.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
    fixture.watch->start();
    QTRY_COMPARE(fixture.attempts(board), 3); // the next attempt without an event is due after 2 s
    QElapsedTimer clock;
    clock.start();
    port.close();
    QTimer::singleShot(5, Qt::PreciseTimer, fixture.watch, [&lock] { lock.unlock(); });
    QTRY_COMPARE(fixture.timeline, QStringList{QStringLiteral("found SIM1:1.0")});
    QVERIFY2(clock.elapsed() < 450, QByteArray::number(clock.elapsed()));
    QCOMPARE(fixture.attempts(board), 4);
}

void TestBoardWatchPolite::portWithoutItsLockFileIsTakenAfterAPause()
{
    WatchFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    // No program has the port open, so no event reports that the port is free.
    QLockFile lock(QStringLiteral("/var/lock/LCK..") + board->portName());
    QVERIFY(lock.tryLock());
    fixture.watch->start();
    QTRY_COMPARE(fixture.attempts(board), 1);
    lock.unlock();
    QTRY_COMPARE(fixture.timeline, QStringList{QStringLiteral("found SIM1:1.0")});
    QCOMPARE(fixture.attempts(board), 2);
}

void TestBoardWatchPolite::namedPipeInPlaceOfALockFileDoesNotStopTheWatch_data()
{
    QTest::addColumn<bool>("isHeldBefore");
    QTest::newRow("from the start") << false;
    QTest::newRow("after a program let the port go") << true;
}

void TestBoardWatchPolite::namedPipeInPlaceOfALockFileDoesNotStopTheWatch()
{
    QFETCH(const bool, isHeldBefore);
    WatchFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    fixture.attach("BoardB");
    const QString path = JwDevice::lockFilePath(board->portName());
    QLockFile lock(path);
    if (isHeldBefore) {
        QVERIFY(lock.tryLock());
        fixture.watch->start();
        QTRY_COMPARE(fixture.attempts(board), 1);
        lock.unlock();
    }
    QCOMPARE(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);
    auto removePipe = qScopeGuard([&path] { QFile::remove(path); });
    fixture.watch->start();
    QTRY_COMPARE(fixture.timeline, QStringList{QStringLiteral("found SIM2:1.0")});
    QTRY_COMPARE(fixture.report(board).errorText, path + QStringLiteral(" is a named pipe, no lock file"));
    QCOMPARE(fixture.report(board).verdict, PortReport::NotOpened);
    QVERIFY(QFile::remove(path));
    removePipe.dismiss();
    QTRY_COMPARE(fixture.timeline.last(), QStringLiteral("found SIM1:1.0"));
}

void TestBoardWatchPolite::portThatFailsAfterItIsOpenIsNotTriedInASpin()
{
    WatchFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    // The system can open this file. But the file is no serial port, so QSerialPort closes it again.
    const QString node = QFile::decodeName(qgetenv("UMOCKDEV_DIR")) + QStringLiteral("/dev/") + board->portName();
    const QString target = QFile::symLinkTarget(node);
    QVERIFY(QFile::remove(node));
    QFile file(node);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.close();
    QElapsedTimer clock;
    clock.start();
    fixture.watch->start();
    QTRY_COMPARE(fixture.attempts(board), 3);
    QVERIFY2(clock.elapsed() >= 1500 * 95 / 100, QByteArray::number(clock.elapsed()));
    QVERIFY(QFile::remove(node));
    QVERIFY(QFile::link(target, node));
    fixture.watch->lookAgain();
    QTRY_COMPARE(fixture.timeline, QStringList{QStringLiteral("found SIM1:1.0")});
}

void TestBoardWatchPolite::busyPortIsTriedAtOnceByLookAgain()
{
    WatchFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    QSerialPort holder{QSerialPortInfo(board->portName())};
    QVERIFY(holder.open(QIODevice::ReadWrite));
    fixture.watch->start();
    QTRY_COMPARE(fixture.attempts(board), 1);
    holder.close();
    fixture.watch->lookAgain();
    settle();
    QCOMPARE(fixture.attempts(board), 2);
    QTRY_COMPARE(fixture.watch->boards().size(), 1);
}

void TestBoardWatchPolite::busyPortThatGoesIsNotTriedAgain()
{
    WatchFixture fixture;
    Board *const board = fixture.attach("BoardA,open=busy");
    fixture.watch->start();
    QTRY_VERIFY(fixture.attempts(board) >= 2);
    board->pull();
    QTRY_VERIFY(fixture.watch->portReports().isEmpty());
    const int before = fixture.attempts(board);
    QTRY_VERIFY(fixture.isAtRest());
    QCOMPARE(fixture.attempts(board), before);
}

void TestBoardWatchPolite::portIsTriedInTheMomentWhenItsPermissionsCome()
{
    WatchFixture fixture;
    fixture.watch->start();
    settle();
    // The permissions come after 100 ms. Without their event, the watch would try the port again only after 500 ms.
    const Board *const board = fixture.attach("BoardA,late-permission=100");
    QElapsedTimer clock;
    clock.start();
    QTRY_COMPARE(fixture.report(board).error, QSerialPort::PermissionError);
    QTRY_COMPARE(fixture.timeline, QStringList{QStringLiteral("found SIM1:1.0")});
    QCOMPARE(fixture.attempts(board), 2);
    QVERIFY2(clock.elapsed() < 450, QByteArray::number(clock.elapsed()));
    QTRY_VERIFY(fixture.isAtRest());
}

SIMULATED_PORTS_MAIN(TestBoardWatchPolite)
#include "tst_boardwatch_polite.moc"

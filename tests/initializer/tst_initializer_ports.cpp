#include "support/initializer/probefixture.h"
#include "support/common/simulatedportsmain.h"

#include <QFile>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <limits>

using JwDevice::Initializer;
using JwDevice::Type;
using JwSimulator::Board;

namespace {

const TypeList boardA = {JwDevice::BoardA};
const TypeList boardC = {JwDevice::BoardC};

QString openedText(const Board *board)
{
    return QStringLiteral("Serial port opened for probing:  ") + quoted(board->portName());
}

QString refusedText(const QString &portName, int error)
{
    return QStringLiteral("Serial port not accessible:  %1  -  %2").arg(quoted(portName)).arg(error);
}

bool isTraceOfInitializer(const QVector<LogRecord> &records, const char *function)
{
    return records.size() == 1 && records.first().level == Logger::Trace && records.first().category.isEmpty()
        && records.first().file == "initializer.cpp" && records.first().function.contains(function);
}

} // namespace

class TestInitializerPorts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void emptyTypeListReturnsFalseLogsAnErrorAndDoesNothingElse();
    void emptyTypeListIsRefusedWithDelayAndPortNamesToo();
    void automaticSearchKeepsPortsByManufacturerOrVendorId_data();
    void automaticSearchKeepsPortsByManufacturerOrVendorId();
    void automaticSearchOpensTheCandidatesInTheOrderOfTheSystem();
    void automaticSearchForgetsThePortsOfAnEarlierProbe();
    void explicitNamesAreTriedInTheirOrderWithoutFilterAndNoOtherPortIs();
    void explicitNamesOfASecondProbeAddToThoseOfTheFirst();
    void portNamedTwiceIsOpenedOnce();
    void portThatCannotBeOpenedIsLoggedWithItsError_data();
    void portThatCannotBeOpenedIsLoggedWithItsError();
    void nameThatDoesNotExistIsTriedAndFailsAtOpen();
    void eachNameMeansThePortThatTheSystemKnowsByExactlyThatName_data();
    void eachNameMeansThePortThatTheSystemKnowsByExactlyThatName();
    void portThatCannotBeOpenedDoesNotStopTheNext();
    void openedPortIsLogged();
    void openedPortHas115200BaudAndTheDefaultsOtherwise();
    void noPortOpensAndEveryEntryIsReportedInOrderBeforeProbeReturns_data();
    void noPortOpensAndEveryEntryIsReportedInOrderBeforeProbeReturns();
    void noPortOpenedLeavesTheRetriesUntouched();
    void probeMayBeCalledAgainIfNoPortOpened();
    void secondProbeMayStartWhileTheFirstIsRunning();
    void delayWithBoardCWantedOpensNoPortBeforeItHasPassed();
    void delayedProbeReportsMissingPortsFromTheEventLoop();
    void delayIsIgnored_data();
    void delayIsIgnored();
    void everyOpenedPortGetsOneReplyTimerThatRunsBeforeItsQueryIsWritten();
    void queriesLeaveBeforeTheNextPortIsOpened();
    void portsAndCommunicatorsHaveNoParentAndTimersBelongToTheInitializer();
    void replyThatWaitsInThePortIsNotHandledBeforeProbeReturns();
    void setMaxRetriesReturnsThePreviousValue();
    void signalSpyRecordsTheSignalsOnceTheTypeIsRegistered();
};

void TestInitializerPorts::emptyTypeListReturnsFalseLogsAnErrorAndDoesNothingElse()
{
    ProbeFixture fixture;
    fixture.attach("BoardA");
    QVERIFY(!fixture.initializer->probe({}));
    settle();
    QCOMPARE(fixture.timeline, QStringList{QStringLiteral("No device types specified")});
    QCOMPARE(fixture.log.sink->records.size(), 1);
    const LogRecord record = fixture.log.sink->records.first();
    QCOMPARE(record.level, Logger::Error);
    QCOMPARE(record.category, QByteArray());
    QCOMPARE(record.file, QByteArray("initializer.cpp"));
    QVERIFY2(record.function.contains("Initializer::probe("), record.function);
    QVERIFY(!fixture.isTimerActive());
}

void TestInitializerPorts::emptyTypeListIsRefusedWithDelayAndPortNamesToo()
{
    ProbeFixture fixture;
    fixture.attach("BoardA");
    QVERIFY(!fixture.initializer->probe({}, 500, fixture.portNames()));
    QVERIFY(!fixture.isTimerActive());
    QVERIFY(replyTimers(*fixture.initializer).isEmpty());
}

void TestInitializerPorts::automaticSearchKeepsPortsByManufacturerOrVendorId_data()
{
    QTest::addColumn<QByteArray>("board");
    QTest::addColumn<bool>("kept");
    QTest::newRow("both") << QByteArray("BoardA") << true;
    QTest::newRow("manufacturer, other vendor id") << QByteArray("BoardA,vendor=1a86") << true;
    QTest::newRow("manufacturer, vendor id 0") << QByteArray("BoardA,vendor=0000") << true;
    QTest::newRow("vendor id, other manufacturer") << QByteArray("BoardA,manufacturer=Somebody") << true;
    QTest::newRow("vendor id, no manufacturer") << QByteArray("BoardA,manufacturer=") << true;
    QTest::newRow("neither") << QByteArray("BoardA,manufacturer=Somebody,vendor=1a86") << false;
    QTest::newRow("no full stop") << QByteArray("BoardA,manufacturer=STMicroelectronics,vendor=1a86") << false;
    QTest::newRow("lower case") << QByteArray("BoardA,manufacturer=stmicroelectronics.,vendor=1a86") << false;
    QTest::newRow("upper case") << QByteArray("BoardA,manufacturer=STMICROELECTRONICS.,vendor=1a86") << false;
    QTest::newRow("text behind it") << QByteArray("BoardA,manufacturer=STMicroelectronics. Inc,vendor=1a86") << false;
    QTest::newRow("vendor id one off") << QByteArray("BoardA,manufacturer=Somebody,vendor=0482") << false;
    QTest::newRow("vendor id written as its decimal")
        << QByteArray("BoardA,manufacturer=Somebody,vendor=1155") << false;
}

void TestInitializerPorts::automaticSearchKeepsPortsByManufacturerOrVendorId()
{
    QFETCH(QByteArray, board);
    QFETCH(bool, kept);
    ProbeFixture fixture;
    const Board *const attached = fixture.attach(board.constData());
    QVERIFY(fixture.initializer->probe(boardA));
    if (kept)
        QCOMPARE(fixture.timeline, QStringList{openedText(attached)});
    else
        QCOMPARE(fixture.timeline, QStringList{QStringLiteral("deviceNotFound BoardA")});
}

void TestInitializerPorts::automaticSearchOpensTheCandidatesInTheOrderOfTheSystem()
{
    ProbeFixture fixture;
    fixture.attach("silent");
    fixture.attach("silent,manufacturer=Somebody,vendor=1a86");
    fixture.attach("silent,vendor=1a86");
    fixture.attach("silent,manufacturer=Somebody");
    QStringList expected;
    const auto available = QSerialPortInfo::availablePorts();
    QCOMPARE(available.size(), 4);
    for (const QSerialPortInfo &info : available) {
        if (info.portName() != fixture.testbed.boards().at(1)->portName())
            expected << QStringLiteral("Serial port opened for probing:  ") + quoted(info.portName());
    }
    QVERIFY(fixture.initializer->probe(boardA));
    QCOMPARE(fixture.timeline, expected);
}

void TestInitializerPorts::automaticSearchForgetsThePortsOfAnEarlierProbe()
{
    ProbeFixture fixture;
    const Board *const candidate = fixture.attach("BoardA");
    QVERIFY(fixture.initializer->probe(boardA, 0, {QStringLiteral("ttyNONE1")}));
    fixture.timeline.clear();
    QVERIFY(fixture.initializer->probe(boardA));
    QCOMPARE(fixture.timeline, QStringList{openedText(candidate)});
}

void TestInitializerPorts::explicitNamesAreTriedInTheirOrderWithoutFilterAndNoOtherPortIs()
{
    ProbeFixture fixture;
    const Board *const first = fixture.attach("silent,manufacturer=Somebody,vendor=1a86");
    fixture.attach("silent");
    const Board *const third = fixture.attach("silent,manufacturer=,vendor=0000");
    QVERIFY(fixture.initializer->probe(boardA, 0, {third->portName(), first->portName()}));
    QCOMPARE(fixture.timeline, QStringList({openedText(third), openedText(first)}));
}

void TestInitializerPorts::explicitNamesOfASecondProbeAddToThoseOfTheFirst()
{
    ProbeFixture fixture;
    const Board *const first = fixture.attach("silent,open=denied");
    const Board *const second = fixture.attach("silent");
    QVERIFY(fixture.initializer->probe(boardA, 0, {first->portName()}));
    fixture.timeline.clear();
    QVERIFY(fixture.initializer->probe(boardA, 0, {second->portName()}));
    QCOMPARE(fixture.timeline, QStringList({refusedText(first->portName(), 2), openedText(second)}));
}

void TestInitializerPorts::portNamedTwiceIsOpenedOnce()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    QVERIFY(fixture.initializer->probe(boardA, 0, {board->portName(), board->portName()}));
    QCOMPARE(fixture.timeline, QStringList({openedText(board), refusedText(board->portName(), 2)}));
    QTRY_VERIFY(fixture.isOver());
    QCOMPARE(fixture.decisions().first(), QStringLiteral("deviceInitialized BoardA"));
}

void TestInitializerPorts::portThatCannotBeOpenedIsLoggedWithItsError_data()
{
    QTest::addColumn<QByteArray>("board");
    QTest::addColumn<QString>("file"); // the file that takes the place of the port's file in /dev; empty: none does
    QTest::addColumn<QSerialPort::SerialPortError>("error");
    QTest::addColumn<int>("numberInQt5");
    QTest::addColumn<int>("numberInQt6");
    const QByteArray board = "BoardA";
    QTest::newRow("held by another program")
        << QByteArray("BoardA,open=busy") << QString() << QSerialPort::PermissionError << 2 << 2;
    QTest::newRow("no permission") << QByteArray("BoardA,open=denied") << QString() << QSerialPort::PermissionError << 2
                                   << 2;
    QTest::newRow("no file") << board << QStringLiteral("/none") << QSerialPort::DeviceNotFoundError << 1 << 1;
    QTest::newRow("not a serial port") << board << QStringLiteral("/dev/null") << QSerialPort::UnsupportedOperationError
                                       << 10 << 7;
    QTest::newRow("folder") << board << QStringLiteral("/dev") << QSerialPort::UnknownError << 11 << 8;
}

void TestInitializerPorts::portThatCannotBeOpenedIsLoggedWithItsError()
{
    QFETCH(QByteArray, board);
    QFETCH(QString, file);
    QFETCH(QSerialPort::SerialPortError, error);
    QFETCH(int, numberInQt5);
    QFETCH(int, numberInQt6);
    ProbeFixture fixture;
    const Board *const attached = fixture.attach(board.constData());
    const QString node = QFile::decodeName(qgetenv("UMOCKDEV_DIR")) + QStringLiteral("/dev/") + attached->portName();
    if (!file.isEmpty())
        QVERIFY(QFile::remove(node) && QFile::link(file, node));
    fixture.probe(boardA);
    const QString text = refusedText(attached->portName(), QT_VERSION_MAJOR == 5 ? numberInQt5 : numberInQt6);
    QCOMPARE(fixture.timeline, QStringList({text, QStringLiteral("deviceNotFound BoardA")}));
    QVERIFY(isTraceOfInitializer(fixture.log.sink->withText(text), "probeStage2"));
    QCOMPARE(fixture.initializer->portReports().first().error, error);
    QVERIFY(received(attached).isEmpty());
}

void TestInitializerPorts::nameThatDoesNotExistIsTriedAndFailsAtOpen()
{
    ProbeFixture fixture;
    QVERIFY(fixture.initializer->probe(boardA, 0, {QStringLiteral("ttyNONE1")}));
    // The logged name is empty, because QSerialPortInfo returns an empty name for an unknown port.
    const QString text = refusedText(QString(), QSerialPort::DeviceNotFoundError);
    QCOMPARE(fixture.timeline, QStringList({text, QStringLiteral("deviceNotFound BoardA")}));
    QVERIFY(isTraceOfInitializer(fixture.log.sink->withText(text), "probeStage2"));
}

void TestInitializerPorts::eachNameMeansThePortThatTheSystemKnowsByExactlyThatName_data()
{
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<bool>("known");
    QTest::newRow("as the system names it") << QStringLiteral("%1") << true;
    QTest::newRow("with its folder") << QStringLiteral("/dev/%1") << false;
    QTest::newRow("with more behind") << QStringLiteral("%10") << false;
    QTest::newRow("blank behind") << QStringLiteral("%1 ") << false;
    QTest::newRow("empty") << QString() << false;
}

void TestInitializerPorts::eachNameMeansThePortThatTheSystemKnowsByExactlyThatName()
{
    QFETCH(QString, pattern);
    QFETCH(bool, known);
    ProbeFixture fixture;
    const Board *const board = fixture.attach("silent");
    const Board *const other = fixture.attach("silent");
    const QString name = QString(pattern).replace(QLatin1String("%1"), board->portName());
    QCOMPARE(QSerialPortInfo(name).portName(), known ? board->portName() : QString());

    QVERIFY(fixture.initializer->probe(boardA, 0, {name, other->portName(), name}));
    const QString refused =
        refusedText(known ? name : QString(), known ? QSerialPort::PermissionError : QSerialPort::DeviceNotFoundError);
    QCOMPARE(fixture.timeline, QStringList({known ? openedText(board) : refused, openedText(other), refused}));
    const auto reports = fixture.initializer->portReports();
    QCOMPARE(reports.first().portName, name);
    QCOMPARE(reports.first().location, QSerialPortInfo(name).systemLocation());
}

void TestInitializerPorts::portThatCannotBeOpenedDoesNotStopTheNext()
{
    ProbeFixture fixture;
    const Board *const denied = fixture.attach("BoardA,open=denied");
    const Board *const good = fixture.attach("BoardA");
    fixture.probe(boardA);
    QCOMPARE(fixture.timeline, QStringList({refusedText(denied->portName(), 2), openedText(good)}));
    QTRY_VERIFY(fixture.isOver());
    QCOMPARE(fixture.handOver(good).type, JwDevice::BoardA);
}

void TestInitializerPorts::openedPortIsLogged()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("silent");
    fixture.probe(boardA);
    QVERIFY(isTraceOfInitializer(fixture.log.sink->withText(openedText(board)), "probeStage2"));
}

void TestInitializerPorts::openedPortHas115200BaudAndTheDefaultsOtherwise()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("silent");
    fixture.probe(boardA);
    const QSerialPort *const port = fixture.port(board);
    QVERIFY(port->isOpen());
    QCOMPARE(port->openMode(), QIODevice::ReadWrite);
    QCOMPARE(port->baudRate(QSerialPort::Input), 115200);
    QCOMPARE(port->baudRate(QSerialPort::Output), 115200);
    QCOMPARE(port->dataBits(), QSerialPort::Data8);
    QCOMPARE(port->parity(), QSerialPort::NoParity);
    QCOMPARE(port->stopBits(), QSerialPort::OneStop);
    QCOMPARE(port->flowControl(), QSerialPort::NoFlowControl);
}

void TestInitializerPorts::noPortOpensAndEveryEntryIsReportedInOrderBeforeProbeReturns_data()
{
    QTest::addColumn<TypeList>("types");
    QTest::addColumn<QStringList>("reports");
    const QString a = QStringLiteral("deviceNotFound BoardA");
    const QString b = QStringLiteral("deviceNotFound BoardB");
    QTest::newRow("two types") << TypeList{JwDevice::BoardB, JwDevice::BoardA} << QStringList{b, a};
    QTest::newRow("the other way round") << TypeList{JwDevice::BoardA, JwDevice::BoardB} << QStringList{a, b};
    QTest::newRow("listed twice") << TypeList{JwDevice::BoardB, JwDevice::BoardA, JwDevice::BoardB}
                                  << QStringList{b, a, b};
    QTest::newRow("Unknown") << TypeList{JwDevice::Unknown} << QStringList{QStringLiteral("deviceNotFound Unknown")};
}

void TestInitializerPorts::noPortOpensAndEveryEntryIsReportedInOrderBeforeProbeReturns()
{
    QFETCH(TypeList, types);
    QFETCH(QStringList, reports);
    ProbeFixture fixture;
    QVERIFY(fixture.initializer->probe(types));
    QCOMPARE(fixture.timeline, reports); // no retry happens, and the end of the probe is not logged
    settle();
    QCOMPARE(fixture.timeline, reports);
    QVERIFY(!fixture.isTimerActive());
}

void TestInitializerPorts::noPortOpenedLeavesTheRetriesUntouched()
{
    ProbeFixture fixture;
    QVERIFY(fixture.initializer->probe(boardA));
    fixture.attach("silent");
    fixture.initializer->setMaxRetries(1);
    QVERIFY(fixture.initializer->probe(boardA));
    fixture.endReplyTimers();
    QTRY_VERIFY(fixture.timeline.contains(QStringLiteral("Retry probing")));
}

void TestInitializerPorts::probeMayBeCalledAgainIfNoPortOpened()
{
    ProbeFixture fixture;
    QVERIFY(fixture.initializer->probe(boardA));
    const Board *const board = fixture.attach("BoardA");
    QVERIFY(fixture.initializer->probe(boardA));
    QTRY_VERIFY(fixture.isOver());
    QCOMPARE(fixture.handOver(board).type, JwDevice::BoardA);
}

void TestInitializerPorts::secondProbeMayStartWhileTheFirstIsRunning()
{
    ProbeFixture fixture;
    const Board *const first = fixture.attach("BoardA");
    const Board *const second = fixture.attach("BoardB");
    QVERIFY(fixture.initializer->probe(boardA, 0, {first->portName()}));
    QVERIFY(fixture.initializer->probe({JwDevice::BoardA, JwDevice::BoardB}, 0, {second->portName()}));
    QTRY_VERIFY(fixture.isOver());
    QCOMPARE(fixture.handOver(first).type, JwDevice::BoardA);
    QCOMPARE(fixture.handOver(second).type, JwDevice::BoardB);
}

void TestInitializerPorts::delayWithBoardCWantedOpensNoPortBeforeItHasPassed()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("BoardC");
    const auto timers = fixture.initializer->findChildren<QTimer *>();
    QCOMPARE(timers.size(), 1);
    QTimer *const delayTimer = timers.first();
    QVERIFY(delayTimer->isSingleShot());
    QCOMPARE(delayTimer->timerType(), Qt::PreciseTimer); // a coarse timer could fire early
    bool openedBefore = false;
    QVERIFY(fixture.initializer->probe({JwDevice::BoardA, JwDevice::BoardC}, 500));
    QVERIFY(delayTimer->isActive());
    QCOMPARE(delayTimer->interval(), 500);
    fixture.onRecord = [&](const LogRecord &record) {
        if (record.text == openedText(board))
            openedBefore = delayTimer->isActive(); // still active, so the port was opened before the timer fired
    };
    QVERIFY(fixture.timeline.isEmpty());
    settle();
    QVERIFY(fixture.timeline.isEmpty());
    QTRY_VERIFY(fixture.timeline.contains(openedText(board)));
    QVERIFY(!openedBefore);
    QTRY_COMPARE(fixture.handOver(board).type, JwDevice::BoardC);
    fixture.onRecord = nullptr;
}

void TestInitializerPorts::delayedProbeReportsMissingPortsFromTheEventLoop()
{
    ProbeFixture fixture;
    QVERIFY(fixture.initializer->probe(boardC, 1));
    QVERIFY(fixture.timeline.isEmpty());
    QTRY_COMPARE(fixture.timeline, QStringList{QStringLiteral("deviceNotFound BoardC")});
}

void TestInitializerPorts::delayIsIgnored_data()
{
    QTest::addColumn<TypeList>("types");
    QTest::addColumn<int>("delay");
    QTest::newRow("BoardC not wanted") << TypeList{JwDevice::BoardA, JwDevice::BoardB} << 500;
    QTest::newRow("0") << boardC << 0;
    QTest::newRow("negative") << boardC << -1;
    QTest::newRow("the most negative") << boardC << std::numeric_limits<int>::min();
}

void TestInitializerPorts::delayIsIgnored()
{
    QFETCH(TypeList, types);
    QFETCH(int, delay);
    ProbeFixture fixture;
    const Board *const board = fixture.attach("silent");
    QVERIFY(fixture.initializer->probe(types, delay));
    QCOMPARE(fixture.timeline, QStringList{openedText(board)});
}

void TestInitializerPorts::everyOpenedPortGetsOneReplyTimerThatRunsBeforeItsQueryIsWritten()
{
    ProbeFixture fixture;
    fixture.attach("silent");
    fixture.attach("silent,open=denied");
    fixture.attach("silent");
    QVector<int> runningAtQuery;
    fixture.onRecord = [&](const LogRecord &record) {
        if (record.category != "Communication" || !record.text.startsWith(QLatin1String("-> ")))
            return;
        int running = 0;
        const auto timers = fixture.initializer->findChildren<QTimer *>();
        for (const QTimer *timer : timers)
            running += timer->isActive() && timer->isSingleShot() && timer->interval() == 400
                && timer->timerType() == Qt::PreciseTimer;
        runningAtQuery << running;
    };
    fixture.probe(boardA);
    fixture.onRecord = nullptr;
    QCOMPARE(runningAtQuery, QVector<int>({1, 2}));
    QCOMPARE(fixture.initializer->findChildren<QTimer *>().size(), 3); // two reply timers and the delay timer
}

void TestInitializerPorts::queriesLeaveBeforeTheNextPortIsOpened()
{
    ProbeFixture fixture;
    const Board *const first = fixture.attach("silent");
    const Board *const second = fixture.attach("silent");
    qint64 waiting = -1;
    fixture.onRecord = [&](const LogRecord &record) {
        if (record.text == openedText(second))
            waiting = fixture.port(first)->bytesToWrite();
    };
    fixture.probe({JwDevice::BoardA, JwDevice::BoardC});
    fixture.onRecord = nullptr;
    QCOMPARE(waiting, 0);
    QTRY_COMPARE(received(first), versionQuery + informationRequest);
}

void TestInitializerPorts::portsAndCommunicatorsHaveNoParentAndTimersBelongToTheInitializer()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("silent");
    fixture.probe(boardA);
    QCOMPARE(fixture.comm(board)->parent(), nullptr);
    QCOMPARE(fixture.port(board)->parent(), nullptr);
    QCOMPARE(fixture.replyTimer(board)->parent(), fixture.initializer.data());
}

void TestInitializerPorts::replyThatWaitsInThePortIsNotHandledBeforeProbeReturns()
{
    ProbeFixture fixture;
    Board *const board = fixture.attach("silent");
    QVERIFY(board->send(versionReply("7300022")));
    QTRY_COMPARE(sent(board), versionReply("7300022"));
    fixture.probe(boardA);
    QVERIFY(fixture.handOvers.isEmpty());
    QTRY_COMPARE(fixture.handOver(board).type, JwDevice::BoardA);
}

void TestInitializerPorts::setMaxRetriesReturnsThePreviousValue()
{
    Initializer initializer;
    QCOMPARE(initializer.setMaxRetries(5), 3U);
    QCOMPARE(initializer.setMaxRetries(0), 5U);
    QCOMPARE(initializer.setMaxRetries(std::numeric_limits<uint>::max()), 0U);
    QCOMPARE(initializer.setMaxRetries(3), std::numeric_limits<uint>::max());
}

void TestInitializerPorts::signalSpyRecordsTheSignalsOnceTheTypeIsRegistered()
{
    qRegisterMetaType<Type>("JwDevice::Type");
    ProbeFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    QSignalSpy initialized(fixture.initializer, &Initializer::deviceInitialized);
    QSignalSpy notFound(fixture.initializer, &Initializer::deviceNotFound);
    QVERIFY(initialized.isValid() && notFound.isValid());
    fixture.initializer->setMaxRetries(0);
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
    QVERIFY(notFound.count() == 1 || notFound.wait());
    QCOMPARE(initialized.count(), 1);
    QCOMPARE(initialized.first().first().value<Type>(), JwDevice::BoardA);
    QCOMPARE(initialized.first().at(1).value<JwDevice::Communicator *>(), fixture.handOver(board).comm.data());
    QCOMPARE(notFound.first().first().value<Type>(), JwDevice::BoardB);
}

SIMULATED_PORTS_MAIN(TestInitializerPorts)
#include "tst_initializer_ports.moc"

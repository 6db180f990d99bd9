#include "support/probebench.h"
#include "support/simulatedportsmain.h"

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

class InitializerPortsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void emptyTypeListReturnsFalseLogsAnErrorAndDoesNothingElse()
    {
        ProbeBench bench;
        bench.attach("BoardA");
        QVERIFY(!bench.initializer->probe({}));
        settle();
        QCOMPARE(bench.timeline, QStringList{QStringLiteral("No device types specified")});
        QCOMPARE(bench.log.sink->records.size(), 1);
        const LogRecord record = bench.log.sink->records.first();
        QCOMPARE(record.level, Logger::Error);
        QCOMPARE(record.category, QByteArray());
        QCOMPARE(record.file, QByteArray("initializer.cpp"));
        QVERIFY2(record.function.contains("Initializer::probe("), record.function);
        QVERIFY(!bench.isTimerActive());
    }

    void emptyTypeListIsRefusedWithDelayAndPortNamesToo()
    {
        ProbeBench bench;
        bench.attach("BoardA");
        QVERIFY(!bench.initializer->probe({}, 500, bench.portNames()));
        QVERIFY(!bench.isTimerActive());
        QVERIFY(replyTimers(*bench.initializer).isEmpty());
    }

    void automaticSearchKeepsPortsByManufacturerOrVendorId_data()
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
        QTest::newRow("text behind it") << QByteArray("BoardA,manufacturer=STMicroelectronics. Inc,vendor=1a86")
                                        << false;
        QTest::newRow("vendor id one off") << QByteArray("BoardA,manufacturer=Somebody,vendor=0482") << false;
        QTest::newRow("vendor id written as its decimal")
            << QByteArray("BoardA,manufacturer=Somebody,vendor=1155") << false;
    }
    void automaticSearchKeepsPortsByManufacturerOrVendorId()
    {
        QFETCH(QByteArray, board);
        QFETCH(bool, kept);
        ProbeBench bench;
        const Board *const attached = bench.attach(board.constData());
        QVERIFY(bench.initializer->probe(boardA));
        if (kept)
            QCOMPARE(bench.timeline, QStringList{openedText(attached)});
        else
            QCOMPARE(bench.timeline, QStringList{QStringLiteral("deviceNotFound BoardA")});
    }

    void automaticSearchOpensTheCandidatesInTheOrderOfTheSystem()
    {
        ProbeBench bench;
        bench.attach("silent");
        bench.attach("silent,manufacturer=Somebody,vendor=1a86");
        bench.attach("silent,vendor=1a86");
        bench.attach("silent,manufacturer=Somebody");
        QStringList expected;
        const auto available = QSerialPortInfo::availablePorts();
        QCOMPARE(available.size(), 4);
        for (const QSerialPortInfo &info : available) {
            if (info.portName() != bench.testbed.boards().at(1)->portName())
                expected << QStringLiteral("Serial port opened for probing:  ") + quoted(info.portName());
        }
        QVERIFY(bench.initializer->probe(boardA));
        QCOMPARE(bench.timeline, expected);
    }

    void automaticSearchForgetsThePortsOfAnEarlierProbe()
    {
        ProbeBench bench;
        const Board *const candidate = bench.attach("BoardA");
        QVERIFY(bench.initializer->probe(boardA, 0, {QStringLiteral("ttyNONE1")}));
        bench.timeline.clear();
        QVERIFY(bench.initializer->probe(boardA));
        QCOMPARE(bench.timeline, QStringList{openedText(candidate)});
    }

    void explicitNamesAreTriedInTheirOrderWithoutFilterAndNoOtherPortIs()
    {
        ProbeBench bench;
        const Board *const first = bench.attach("silent,manufacturer=Somebody,vendor=1a86");
        bench.attach("silent");
        const Board *const third = bench.attach("silent,manufacturer=,vendor=0000");
        QVERIFY(bench.initializer->probe(boardA, 0, {third->portName(), first->portName()}));
        QCOMPARE(bench.timeline, QStringList({openedText(third), openedText(first)}));
    }

    void explicitNamesOfASecondProbeAddToThoseOfTheFirst()
    {
        ProbeBench bench;
        const Board *const first = bench.attach("silent,open=denied");
        const Board *const second = bench.attach("silent");
        QVERIFY(bench.initializer->probe(boardA, 0, {first->portName()}));
        bench.timeline.clear();
        QVERIFY(bench.initializer->probe(boardA, 0, {second->portName()}));
        QCOMPARE(bench.timeline, QStringList({refusedText(first->portName(), 2), openedText(second)}));
    }

    void portNamedTwiceIsOpenedOnce()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("BoardA");
        QVERIFY(bench.initializer->probe(boardA, 0, {board->portName(), board->portName()}));
        QCOMPARE(bench.timeline, QStringList({openedText(board), refusedText(board->portName(), 2)}));
        QTRY_VERIFY(bench.isOver());
        QCOMPARE(bench.decisions().first(), QStringLiteral("deviceInitialized BoardA"));
    }

    void portThatCannotBeOpenedIsLoggedWithItsError_data()
    {
        QTest::addColumn<QByteArray>("board");
        QTest::newRow("held by another program") << QByteArray("BoardA,open=busy");
        QTest::newRow("no permission") << QByteArray("BoardA,open=denied");
    }
    void portThatCannotBeOpenedIsLoggedWithItsError()
    {
        QFETCH(QByteArray, board);
        ProbeBench bench;
        const Board *const attached = bench.attach(board.constData());
        bench.probe(boardA);
        const QString text = refusedText(attached->portName(), QSerialPort::PermissionError);
        QCOMPARE(bench.timeline, QStringList({text, QStringLiteral("deviceNotFound BoardA")}));
        QVERIFY(isTraceOfInitializer(bench.log.sink->withText(text), "probeStage2"));
        QVERIFY(received(attached).isEmpty());
    }

    void nameThatDoesNotExistIsTriedAndFailsAtOpen()
    {
        ProbeBench bench;
        QVERIFY(bench.initializer->probe(boardA, 0, {QStringLiteral("ttyNONE1")}));
        // The system knows no such port, so there is no name either.
        const QString text = refusedText(QString(), QSerialPort::DeviceNotFoundError);
        QCOMPARE(bench.timeline, QStringList({text, QStringLiteral("deviceNotFound BoardA")}));
        QVERIFY(isTraceOfInitializer(bench.log.sink->withText(text), "probeStage2"));
    }

    void eachNameMeansThePortThatTheSystemKnowsByExactlyThatName_data()
    {
        QTest::addColumn<QString>("pattern");
        QTest::addColumn<bool>("known");
        QTest::newRow("as the system names it") << QStringLiteral("%1") << true;
        QTest::newRow("with its folder") << QStringLiteral("/dev/%1") << false;
        QTest::newRow("with more behind") << QStringLiteral("%10") << false;
        QTest::newRow("blank behind") << QStringLiteral("%1 ") << false;
        QTest::newRow("empty") << QString() << false;
    }
    void eachNameMeansThePortThatTheSystemKnowsByExactlyThatName()
    {
        QFETCH(QString, pattern);
        QFETCH(bool, known);
        ProbeBench bench;
        const Board *const board = bench.attach("silent");
        const Board *const other = bench.attach("silent");
        const QString name = QString(pattern).replace(QLatin1String("%1"), board->portName());
        QCOMPARE(QSerialPortInfo(name).portName(), known ? board->portName() : QString());

        QVERIFY(bench.initializer->probe(boardA, 0, {name, other->portName(), name}));
        const QString refused = refusedText(known ? name : QString(),
                                            known ? QSerialPort::PermissionError : QSerialPort::DeviceNotFoundError);
        QCOMPARE(bench.timeline, QStringList({known ? openedText(board) : refused, openedText(other), refused}));
        const auto reports = bench.initializer->portReports();
        QCOMPARE(reports.first().portName, name);
        QCOMPARE(reports.first().location, QSerialPortInfo(name).systemLocation());
    }

    void portThatCannotBeOpenedDoesNotStopTheNext()
    {
        ProbeBench bench;
        const Board *const denied = bench.attach("BoardA,open=denied");
        const Board *const good = bench.attach("BoardA");
        bench.probe(boardA);
        QCOMPARE(bench.timeline, QStringList({refusedText(denied->portName(), 2), openedText(good)}));
        QTRY_VERIFY(bench.isOver());
        QCOMPARE(bench.handOver(good).type, JwDevice::BoardA);
    }

    void openedPortIsLogged()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("silent");
        bench.probe(boardA);
        QVERIFY(isTraceOfInitializer(bench.log.sink->withText(openedText(board)), "probeStage2"));
    }

    void openedPortHas115200BaudAndTheDefaultsOtherwise()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("silent");
        bench.probe(boardA);
        const QSerialPort *const port = bench.port(board);
        QVERIFY(port->isOpen());
        QCOMPARE(port->openMode(), QIODevice::ReadWrite);
        QCOMPARE(port->baudRate(QSerialPort::Input), 115200);
        QCOMPARE(port->baudRate(QSerialPort::Output), 115200);
        QCOMPARE(port->dataBits(), QSerialPort::Data8);
        QCOMPARE(port->parity(), QSerialPort::NoParity);
        QCOMPARE(port->stopBits(), QSerialPort::OneStop);
        QCOMPARE(port->flowControl(), QSerialPort::NoFlowControl);
    }

    void noPortOpensAndEveryEntryIsReportedInOrderBeforeProbeReturns_data()
    {
        QTest::addColumn<TypeList>("types");
        QTest::addColumn<QStringList>("reports");
        const QString a = QStringLiteral("deviceNotFound BoardA");
        const QString b = QStringLiteral("deviceNotFound BoardB");
        QTest::newRow("two types") << TypeList{JwDevice::BoardB, JwDevice::BoardA} << QStringList{b, a};
        QTest::newRow("the other way round") << TypeList{JwDevice::BoardA, JwDevice::BoardB} << QStringList{a, b};
        QTest::newRow("listed twice") << TypeList{JwDevice::BoardB, JwDevice::BoardA, JwDevice::BoardB}
                                      << QStringList{b, a, b};
        QTest::newRow("Unknown") << TypeList{JwDevice::Unknown}
                                 << QStringList{QStringLiteral("deviceNotFound Unknown")};
    }
    void noPortOpensAndEveryEntryIsReportedInOrderBeforeProbeReturns()
    {
        QFETCH(TypeList, types);
        QFETCH(QStringList, reports);
        ProbeBench bench;
        QVERIFY(bench.initializer->probe(types));
        QCOMPARE(bench.timeline, reports); // no retry, and no end either
        settle();
        QCOMPARE(bench.timeline, reports);
        QVERIFY(!bench.isTimerActive());
    }

    void noPortOpenedLeavesTheRetriesUntouched()
    {
        ProbeBench bench;
        QVERIFY(bench.initializer->probe(boardA));
        bench.attach("silent");
        bench.initializer->setMaxRetries(1);
        QVERIFY(bench.initializer->probe(boardA));
        bench.endReplyTimers();
        QTRY_VERIFY(bench.timeline.contains(QStringLiteral("Retry probing")));
    }

    void probeMayBeCalledAgainWhereNoPortOpened()
    {
        ProbeBench bench;
        QVERIFY(bench.initializer->probe(boardA));
        const Board *const board = bench.attach("BoardA");
        QVERIFY(bench.initializer->probe(boardA));
        QTRY_VERIFY(bench.isOver());
        QCOMPARE(bench.handOver(board).type, JwDevice::BoardA);
    }

    void secondProbeMayStartWhileTheFirstIsRunning()
    {
        ProbeBench bench;
        const Board *const first = bench.attach("BoardA");
        const Board *const second = bench.attach("BoardB");
        QVERIFY(bench.initializer->probe(boardA, 0, {first->portName()}));
        QVERIFY(bench.initializer->probe({JwDevice::BoardA, JwDevice::BoardB}, 0, {second->portName()}));
        QTRY_VERIFY(bench.isOver());
        QCOMPARE(bench.handOver(first).type, JwDevice::BoardA);
        QCOMPARE(bench.handOver(second).type, JwDevice::BoardB);
    }

    void delayWithBoardCWantedOpensNoPortBeforeItHasPassed()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("BoardC");
        const auto timers = bench.initializer->findChildren<QTimer *>();
        QCOMPARE(timers.size(), 1);
        QTimer *const delayTimer = timers.first();
        QVERIFY(delayTimer->isSingleShot());
        QCOMPARE(delayTimer->timerType(), Qt::PreciseTimer); // a coarse one may fire early
        bool openedBefore = false;
        QVERIFY(bench.initializer->probe({JwDevice::BoardA, JwDevice::BoardC}, 500));
        QVERIFY(delayTimer->isActive());
        QCOMPARE(delayTimer->interval(), 500);
        bench.onRecord = [&](const LogRecord &record) {
            if (record.text == openedText(board))
                openedBefore = delayTimer->isActive(); // a single shot is over when it fires
        };
        QVERIFY(bench.timeline.isEmpty());
        settle();
        QVERIFY(bench.timeline.isEmpty());
        QTRY_VERIFY(bench.timeline.contains(openedText(board)));
        QVERIFY(!openedBefore);
        QTRY_COMPARE(bench.handOver(board).type, JwDevice::BoardC);
        bench.onRecord = nullptr;
    }

    void delayedProbeReportsMissingPortsFromTheEventLoop()
    {
        ProbeBench bench;
        QVERIFY(bench.initializer->probe(boardC, 1));
        QVERIFY(bench.timeline.isEmpty());
        QTRY_COMPARE(bench.timeline, QStringList{QStringLiteral("deviceNotFound BoardC")});
    }

    void delayIsIgnored_data()
    {
        QTest::addColumn<TypeList>("types");
        QTest::addColumn<int>("delay");
        QTest::newRow("BoardC not wanted") << TypeList{JwDevice::BoardA, JwDevice::BoardB} << 500;
        QTest::newRow("0") << boardC << 0;
        QTest::newRow("negative") << boardC << -1;
        QTest::newRow("the most negative") << boardC << std::numeric_limits<int>::min();
    }
    void delayIsIgnored()
    {
        QFETCH(TypeList, types);
        QFETCH(int, delay);
        ProbeBench bench;
        const Board *const board = bench.attach("silent");
        QVERIFY(bench.initializer->probe(types, delay));
        QCOMPARE(bench.timeline, QStringList{openedText(board)});
    }

    void everyOpenedPortGetsOneReplyTimerThatRunsBeforeItsQueryIsWritten()
    {
        ProbeBench bench;
        bench.attach("silent");
        bench.attach("silent,open=denied");
        bench.attach("silent");
        QVector<int> runningAtQuery;
        bench.onRecord = [&](const LogRecord &record) {
            if (record.category != "Communication" || !record.text.startsWith(QLatin1String("-> ")))
                return;
            int running = 0;
            const auto timers = bench.initializer->findChildren<QTimer *>();
            for (const QTimer *timer : timers)
                running += timer->isActive() && timer->isSingleShot() && timer->interval() == 400
                    && timer->timerType() == Qt::PreciseTimer;
            runningAtQuery << running;
        };
        bench.probe(boardA);
        bench.onRecord = nullptr;
        QCOMPARE(runningAtQuery, QVector<int>({1, 2}));
        QCOMPARE(bench.initializer->findChildren<QTimer *>().size(), 3); // with the delay timer
    }

    void queriesLeaveBeforeTheNextPortIsOpened()
    {
        ProbeBench bench;
        const Board *const first = bench.attach("silent");
        const Board *const second = bench.attach("silent");
        qint64 waiting = -1;
        bench.onRecord = [&](const LogRecord &record) {
            if (record.text == openedText(second))
                waiting = bench.port(first)->bytesToWrite();
        };
        bench.probe({JwDevice::BoardA, JwDevice::BoardC});
        bench.onRecord = nullptr;
        QCOMPARE(waiting, 0);
        QTRY_COMPARE(received(first), versionQuery + informationRequest);
    }

    void portsAndCommunicatorsHaveNoParentAndTimersBelongToTheInitializer()
    {
        ProbeBench bench;
        const Board *const board = bench.attach("silent");
        bench.probe(boardA);
        QCOMPARE(bench.comm(board)->parent(), nullptr);
        QCOMPARE(bench.port(board)->parent(), nullptr);
        QCOMPARE(bench.replyTimer(board)->parent(), bench.initializer.data());
    }

    void replyThatWaitsInThePortIsNotHandledBeforeProbeReturns()
    {
        ProbeBench bench;
        Board *const board = bench.attach("silent");
        QVERIFY(board->send(versionReply("7300022")));
        QTRY_COMPARE(sent(board), versionReply("7300022"));
        bench.probe(boardA);
        QVERIFY(bench.handOvers.isEmpty());
        QTRY_COMPARE(bench.handOver(board).type, JwDevice::BoardA);
    }

    void setMaxRetriesReturnsThePreviousValue()
    {
        Initializer initializer;
        QCOMPARE(initializer.setMaxRetries(5), 3U);
        QCOMPARE(initializer.setMaxRetries(0), 5U);
        QCOMPARE(initializer.setMaxRetries(std::numeric_limits<uint>::max()), 0U);
        QCOMPARE(initializer.setMaxRetries(3), std::numeric_limits<uint>::max());
    }

    void signalSpyRecordsTheSignalsOnceTheTypeIsRegistered()
    {
        qRegisterMetaType<Type>("JwDevice::Type");
        ProbeBench bench;
        const Board *const board = bench.attach("BoardA");
        QSignalSpy initialized(bench.initializer, &Initializer::deviceInitialized);
        QSignalSpy notFound(bench.initializer, &Initializer::deviceNotFound);
        QVERIFY(initialized.isValid() && notFound.isValid());
        bench.initializer->setMaxRetries(0);
        bench.probe({JwDevice::BoardA, JwDevice::BoardB});
        QVERIFY(notFound.count() == 1 || notFound.wait());
        QCOMPARE(initialized.count(), 1);
        QCOMPARE(initialized.first().first().value<Type>(), JwDevice::BoardA);
        QCOMPARE(initialized.first().at(1).value<JwDevice::Communicator *>(), bench.handOver(board).comm.data());
        QCOMPARE(notFound.first().first().value<Type>(), JwDevice::BoardB);
    }
};

SIMULATED_PORTS_MAIN(InitializerPortsTest)
#include "tst_initializer_ports.moc"

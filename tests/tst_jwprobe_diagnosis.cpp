#include <jwprobe/diagnosis.h>
#include <jwprobe/probelog.h>

#include <logger/logger.h>

#include <QDir>
#include <QFile>
#include <QLockFile>
#include <QSerialPort>
#include <QTest>

#include <memory>

using namespace JwProbe;

// The states are words that programs read, the commands in the advice are copied by people: both are tested as they
// are.
class TstJwprobeDiagnosis : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void theLogTellsWhatEachPortDid();
    void payloadsAreTakenFromTheLogAsTheyWere_data();
    void payloadsAreTakenFromTheLogAsTheyWere();
    void onlyTheNewestPayloadsAreKept();
    void whatAPortAnsweredGivesItsState_data();
    void whatAPortAnsweredGivesItsState();
    void aPortThatIsGoneWasUnplugged();
    void aNameThatTheSystemDoesNotKnowIsNoSuchPort();
    void withoutPermissionGroupAndRuleAreTold();
    void aLivingLockHolderIsNamed();
    void aLockFileOfADeadProcessIsNamed();
};

namespace {

PortIdentity existingPort()
{
    PortIdentity port;
    port.name = QStringLiteral("null");
    port.location = QStringLiteral("/dev/null");
    port.vendorId = static_cast<quint16>(0x0483);
    port.isKnown = true;
    return port;
}

CuteMessageLogger initializerRecord()
{
    return CuteMessageLogger(loggerInstance(), Logger::Trace, "initializer.cpp", 1, "f()");
}

void logPayload(const QString &port, const QString &payload)
{
    CuteMessageLogger(loggerInstance(), Logger::Trace, "communicator.cpp", 1, "f()", "Communication").write()
        << " <- " << payload;
    initializerRecord().write() << "Read succes on port: " << port;
}

/// While it lives, the log goes to its ProbeLog.
class Recording
{
public:
    Recording()
        : log(std::make_shared<ProbeLog>())
    {
        loggerInstance()->clearSinks();
        loggerInstance()->addSink(log);
        loggerInstance()->setLevel(Logger::Trace);
    }
    ~Recording() { loggerInstance()->removeSink(log); }

    const std::shared_ptr<ProbeLog> log;
};

// The first of these folders that can be written to is where QSerialPort puts its lock files.
QString lockFileName(const QString &port)
{
    const QString folder =
        QFile::exists(QStringLiteral("/run/lock")) ? QStringLiteral("/run/lock") : QStringLiteral("/tmp");
    return folder + QLatin1String("/LCK..") + port;
}

PortIdentity portOfItsOwn()
{
    PortIdentity port = existingPort();
    port.location = QDir::tempPath(); // nothing that a process could have open as a device
    port.name = QStringLiteral("ttyTST%1").arg(QCoreApplication::applicationPid());
    return port;
}

} // namespace

void TstJwprobeDiagnosis::theLogTellsWhatEachPortDid()
{
    const Recording recording;
    initializerRecord().write() << "Serial port opened for probing: " << QStringLiteral("ttyACM0");
    initializerRecord().write() << "Serial port not accessible: " << QStringLiteral("ttyACM1") << " - " << 2;
    initializerRecord().write() << "Read timeout for: " << QStringLiteral("ttyACM0");
    initializerRecord().write() << "Read timeout for: " << QStringLiteral("ttyACM0");
    logPayload(QStringLiteral("ttyACM2"), QStringLiteral("$PJWVER,1,2,3,4*0c"));

    QVERIFY(recording.log->port(QStringLiteral("ttyACM0")).opened);
    QCOMPARE(recording.log->port(QStringLiteral("ttyACM0")).timeouts, 2);
    QVERIFY(!recording.log->port(QStringLiteral("ttyACM1")).opened);
    QCOMPARE(recording.log->port(QStringLiteral("ttyACM1")).openError, 2);
    QCOMPARE(recording.log->port(QStringLiteral("ttyACM2")).payloads,
             QStringList(QStringLiteral("$PJWVER,1,2,3,4*0c")));
    QVERIFY(recording.log->port(QStringLiteral("ttyACM0")).payloads.isEmpty());
    QVERIFY(!recording.log->port(QStringLiteral("ttyACM3")).opened);
}

void TstJwprobeDiagnosis::payloadsAreTakenFromTheLogAsTheyWere_data()
{
    QTest::addColumn<QString>("payload");
    QTest::newRow("plain") << QStringLiteral("$PJWVER,7300022,1,4,0*0d");
    QTest::newRow("quotes and backslashes") << QStringLiteral("$P\"a\\n\"\\\\*00");
    QTest::newRow("control characters") << QString::fromLatin1("$P\b\f\n\r\t\x01\x1b*00");
    QTest::newRow("beyond ASCII") << QString::fromLatin1("$P\x80\x9f\xad\xe4\xff*00");
    QTest::newRow("hexadecimal digits behind an escape") << QString::fromLatin1("$P\x01"
                                                                                "abc*00");
}

void TstJwprobeDiagnosis::payloadsAreTakenFromTheLogAsTheyWere()
{
    QFETCH(QString, payload);
    const Recording recording;
    logPayload(QStringLiteral("ttyACM0"), payload);
    QCOMPARE(recording.log->port(QStringLiteral("ttyACM0")).payloads, QStringList(payload));
}

void TstJwprobeDiagnosis::onlyTheNewestPayloadsAreKept()
{
    const Recording recording;
    for (int i = 0; i < 1000; ++i)
        logPayload(QStringLiteral("ttyACM0"), QString::number(i));
    const QStringList payloads = recording.log->port(QStringLiteral("ttyACM0")).payloads;
    QVERIFY(payloads.size() < 10);
    QCOMPARE(payloads.last(), QStringLiteral("999"));
}

void TstJwprobeDiagnosis::whatAPortAnsweredGivesItsState_data()
{
    QTest::addColumn<QStringList>("payloads");
    QTest::addColumn<int>("timeouts");
    QTest::addColumn<QString>("state");
    QTest::addColumn<QString>("told"); // in the summary
    const auto row = [](const char *name, const QStringList &payloads, int timeouts, const char *state,
                        const char *told) {
        QTest::newRow(name) << payloads << timeouts << QString::fromLatin1(state) << QString::fromLatin1(told);
    };
    const QString boardA = QStringLiteral("$PJWVER,7300022,1,4,0*0d");
    const QString boardB = QStringLiteral("$PJWVER,7300021,1,4,0*0e");
    const QString bothNumbers = QStringLiteral("$PJWVER,73000227300021,1,4,0");
    const QString boardC = QStringLiteral("$PTJWRD,INF,CTRL,3,17,2,1.04,7300022,1*5e");
    const QString unknown = QStringLiteral("$PJWVER,123,1,4,0");
    const QString foreign = QStringLiteral("$GPGLL,4916.45,N,12311.12,W,225444,A*31");
    const QString damaged = QStringLiteral("$PJWVER,7300022,1,4,0*0e");
    row("a type found elsewhere", {boardA}, 0, "duplicate", "second BoardA");
    row("a type found elsewhere, then timed out", {boardA}, 3, "duplicate", "second BoardA");
    row("a type that is not wanted", {boardB}, 0, "otherType", "BoardB");
    row("both hardware numbers", {bothNumbers}, 0, "otherType", "BoardB");
    row("the information reply", {boardC}, 0, "otherType", "BoardC");
    row("an unknown hardware version", {unknown}, 0, "unknownBoard", "$PJWVER,123");
    row("information with another sub-command", {QStringLiteral("$PTJWRD,inf,CTRL")}, 0, "unknownBoard", "inf");
    row("a sentence that is not a board's", {foreign}, 4, "unreadable", "GPGLL");
    row("a damaged sentence", {damaged}, 4, "unreadable", "CRC");
    row("a damaged sentence and a good one", {damaged, boardB, foreign}, 0, "otherType", "BoardB");
    row("nothing in four rounds", {}, 4, "silent", "4 rounds");
    row("nothing in one round", {}, 1, "silent", "400 ms");
    row("nothing before the end", {}, 0, "unheard", "before the search ended");
}

void TstJwprobeDiagnosis::whatAPortAnsweredGivesItsState()
{
    QFETCH(QStringList, payloads);
    QFETCH(int, timeouts);
    QFETCH(QString, told);
    PortRecord record;
    record.opened = true;
    record.payloads = payloads;
    record.timeouts = timeouts;
    const Diagnosis diagnosis = diagnose(existingPort(), record, {JwDevice::BoardA});
    QTEST(diagnosis.state, "state");
    QVERIFY2(diagnosis.summary.contains(told), qPrintable(diagnosis.summary));
}

void TstJwprobeDiagnosis::aPortThatIsGoneWasUnplugged()
{
    PortIdentity port = existingPort();
    port.location = QStringLiteral("/dev/no-such-port");
    PortRecord record;
    record.opened = true;
    record.timeouts = 4;
    QCOMPARE(diagnose(port, record, {}).state, QStringLiteral("unplugged"));
}

void TstJwprobeDiagnosis::aNameThatTheSystemDoesNotKnowIsNoSuchPort()
{
    PortIdentity port = existingPort();
    port.isKnown = false;
    const Diagnosis diagnosis = diagnose(port, PortRecord(), {});
    QCOMPARE(diagnosis.state, QStringLiteral("noSuchPort"));
    QVERIFY(diagnosis.advice.join(QString()).contains(QLatin1String("--list")));
}

void TstJwprobeDiagnosis::withoutPermissionGroupAndRuleAreTold()
{
    PortIdentity port = existingPort();
    port.location = QStringLiteral("/proc/sys/kernel/ostype"); // refuses writing, even to root
    PortRecord record;
    record.openError = QSerialPort::PermissionError;
    const Diagnosis diagnosis = diagnose(port, record, {});
    QCOMPARE(diagnosis.state, QStringLiteral("noPermission"));
    QVERIFY2(diagnosis.summary.contains(QLatin1String("/proc/sys/kernel/ostype is root:root, mode 0444")),
             qPrintable(diagnosis.summary));
    QVERIFY(diagnosis.advice.contains(
        QStringLiteral("    SUBSYSTEM==\"tty\", ATTRS{idVendor}==\"0483\", TAG+=\"uaccess\"")));
}

void TstJwprobeDiagnosis::aLivingLockHolderIsNamed()
{
    const PortIdentity port = portOfItsOwn();
    QLockFile lock(lockFileName(port.name));
    QVERIFY(lock.tryLock());
    PortRecord record;
    record.openError = QSerialPort::PermissionError;
    const Diagnosis diagnosis = diagnose(port, record, {});
    QCOMPARE(diagnosis.state, QStringLiteral("held"));
    QVERIFY2(diagnosis.summary.contains(QStringLiteral("pid %1").arg(QCoreApplication::applicationPid())),
             qPrintable(diagnosis.summary));
    QVERIFY2(diagnosis.summary.contains(QLatin1String("tst_jwprobe")), qPrintable(diagnosis.summary));
}

void TstJwprobeDiagnosis::aLockFileOfADeadProcessIsNamed()
{
    const PortIdentity port = portOfItsOwn();
    QFile file(lockFileName(port.name));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("999999999\n"); // more than any system's highest
    file.close();
    PortRecord record;
    record.openError = QSerialPort::PermissionError;
    const Diagnosis diagnosis = diagnose(port, record, {});
    QVERIFY(file.remove());
    QCOMPARE(diagnosis.state, QStringLiteral("held"));
    QVERIFY2(diagnosis.advice.contains(QLatin1String("    sudo rm ") + file.fileName()),
             qPrintable(diagnosis.advice.join(QLatin1Char('\n'))));
}

QTEST_GUILESS_MAIN(TstJwprobeDiagnosis)
#include "tst_jwprobe_diagnosis.moc"

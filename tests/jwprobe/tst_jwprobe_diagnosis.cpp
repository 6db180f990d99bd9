#include "support/common/withoutcapabilities.h"

#include <jwprobe/doctor/diagnosis.h>

#include <device/lockfile.h>

#include <QDir>
#include <QFile>
#include <QLockFile>
#include <QSerialPort>
#include <QTest>

#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

using namespace JwProbe;
using JwDevice::PortReport;

// Programs read the states in jwprobe's JSON, and people copy commands from the advice. So these tests compare states
// and advice exactly.
class TestJwprobeDiagnosis : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void eachVerdictHasItsStateCauseAndAdvice_data();
    void eachVerdictHasItsStateCauseAndAdvice();
    void aReplyIsNamedAsTheLibraryReadsIt_data();
    void aReplyIsNamedAsTheLibraryReadsIt();
    void noPortNeedBeAskedAlone_data();
    void noPortNeedBeAskedAlone();
    void aLostPortThatTheSystemRemovedLaterWasUnplugged_data();
    void aLostPortThatTheSystemRemovedLaterWasUnplugged();
    void aPortThatDoesNotOpenSaysWhy();
    void aPortThatOpensByNowKeepsItsError();
    void aLockTrapThatIsGoneIsStillTheReason();
    void aNameThatTheSystemDoesNotKnowIsNoSuchPort();
    void withoutPermissionGroupAndRuleAreTold();
    void aLivingLockHolderIsNamed();
    void aLockFileOfADeadProcessIsNamed();
    void aLockFileThatMayNotBeReadIsReadByRoot_data();
    void aLockFileThatMayNotBeReadIsReadByRoot();
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

const QString boardA = QStringLiteral("$PJWVER,7300022,1,4,0*0d");
const QString damaged = QStringLiteral("$PJWVER,7300022,1,4,0*0e");

PortReport verdict(PortReport::Verdict verdict)
{
    PortReport report;
    report.verdict = verdict;
    report.queries = verdict == PortReport::NotOpened ? 0 : 1;
    return report;
}

PortReport notOpened(QSerialPort::SerialPortError error)
{
    PortReport report = verdict(PortReport::NotOpened);
    report.error = error;
    return report;
}

PortReport silenced(const QString &reply)
{
    PortReport report = verdict(PortReport::Silenced);
    report.reply = reply;
    report.payloads = 1;
    return report;
}

PortReport unreadable(PortReport::Verdict silence, int payloads)
{
    PortReport report = verdict(silence);
    report.unreadable = damaged;
    report.payloads = payloads;
    return report;
}

PortReport asked(PortReport::Verdict silence, int queries)
{
    PortReport report = verdict(silence);
    report.queries = queries;
    return report;
}

PortReport duplicate()
{
    PortReport report = silenced(boardA);
    report.verdict = PortReport::Duplicate;
    report.type = JwDevice::BoardA;
    return report;
}

PortReport lost(QSerialPort::SerialPortError error, const QString &reply)
{
    PortReport report = silenced(reply);
    report.verdict = PortReport::Lost;
    report.error = error;
    report.errorText = QStringLiteral("Input/output error");
    return report;
}

// Returns the name of the port's lock file, in the folder that QSerialPort uses on this machine.
QString lockFileName(const QString &port)
{
    const QString folder =
        QFile::exists(QStringLiteral("/var/lock")) ? QStringLiteral("/var/lock") : QStringLiteral("/tmp");
    return folder + QLatin1String("/LCK..") + port;
}

PortIdentity portOfItsOwn()
{
    PortIdentity port = existingPort();
    port.location = QDir::tempPath(); // a folder is no device, so no process has the port open
    port.name = QStringLiteral("ttyTST%1").arg(QCoreApplication::applicationPid());
    return port;
}

} // namespace

Q_DECLARE_METATYPE(JwDevice::PortReport)

void TestJwprobeDiagnosis::eachVerdictHasItsStateCauseAndAdvice_data()
{
    QTest::addColumn<PortReport>("report");
    QTest::addColumn<QString>("state");
    QTest::addColumn<QString>("cause");
    QTest::addColumn<QString>("advice");
    const auto row = [](const char *name, const PortReport &report, const char *state, const char *cause,
                        const char *advice) {
        QTest::newRow(name) << report << QString::fromLatin1(state) << QString::fromLatin1(cause)
                            << QString::fromLatin1(advice);
    };
    row("not tried yet", verdict(PortReport::NotOpened), "notOpened", "not opened before the search ended",
        "--deadline");
    row("awaiting", asked(PortReport::Awaiting, 1), "unheard", "its query before the search ended", "--deadline");
    row("awaiting in a later round", asked(PortReport::Awaiting, 3), "unheard", "3 queries", "power");
    row("awaiting, unreadable", unreadable(PortReport::Awaiting, 1), "unreadable", "CRC", "115200");
    row("timed out", asked(PortReport::TimedOut, 1), "silent", "400 ms of its query", "power");
    row("timed out four times", asked(PortReport::TimedOut, 4), "silent", "4 queries", "power");
    row("timed out, unreadable", unreadable(PortReport::TimedOut, 1), "unreadable", "$PJWVER,7300022,1,4,0*0e",
        "115200");
    row("timed out, much unreadable", unreadable(PortReport::TimedOut, 90), "unreadable", "90 payloads", "115200");
    row("silenced by another type", silenced(boardA), "otherType", "answered as a BoardA", "--type BoardA");
    row("silenced by no type", silenced(QStringLiteral("$PJWVER,123,1,4,0")), "unknownBoard", "$PJWVER,123,1,4,0",
        "firmware");
    row("duplicate", duplicate(), "duplicate", "a second BoardA", "--port null --type BoardA");
    const auto gone = QSerialPort::ResourceError;
    row("device is gone", lost(gone, QString()), "unplugged", "cable was pulled", "Plug it in again");
    row("device is gone behind an answer", lost(gone, boardA), "unplugged", "answered $PJWVER,7300022,1,4,0*0d",
        "Plug it in again");
    const auto failed = QSerialPort::UnknownError;
    row("failed", lost(failed, QString()), "failed", "Input/output error", "cable");
    row("failed behind an answer", lost(failed, boardA), "failed", "answered $PJWVER,7300022,1,4,0*0d", "cable");
}

void TestJwprobeDiagnosis::eachVerdictHasItsStateCauseAndAdvice()
{
    QFETCH(PortReport, report);
    QFETCH(QString, cause);
    QFETCH(QString, advice);
    PortIdentity port = existingPort();
    port.isKnown = report.verdict != PortReport::Lost; // the system does not list this port, as if its cable was pulled
    const Diagnosis diagnosis = diagnose(port, report);
    QTEST(diagnosis.state, "state");
    QVERIFY2(diagnosis.summary.contains(cause), qPrintable(diagnosis.summary));
    const QString given = diagnosis.advice.join(QLatin1Char('\n'));
    QVERIFY2(given.contains(advice), qPrintable(given));
}

void TestJwprobeDiagnosis::aReplyIsNamedAsTheLibraryReadsIt_data()
{
    QTest::addColumn<QString>("reply");
    QTest::addColumn<QString>("named");
    const auto row = [](const char *name, const char *reply, const char *named) {
        QTest::newRow(name) << QString::fromLatin1(reply) << QString::fromLatin1(named);
    };
    row("hardware number of BoardB", "$PJWVER,7300021,1,4,0*0e", "as a BoardB");
    row("both hardware numbers", "$PJWVER,73000227300021,1,4,0", "as a BoardB");
    row("information", "$PTJWRD,INF,CTRL,3,17,2,1.04,7300022,1*5e", "as a BoardC");
    row("information in small letters", "$PTJWRD,inf,CTRL", "of no known type");
    row("information without checksum: the line end is part of it", "$PTJWRD,INF", "of no known type");
}

void TestJwprobeDiagnosis::aReplyIsNamedAsTheLibraryReadsIt()
{
    QFETCH(QString, reply);
    QFETCH(QString, named);
    const Diagnosis diagnosis = diagnose(existingPort(), silenced(reply));
    QVERIFY2(diagnosis.summary.contains(named), qPrintable(diagnosis.summary));
}

void TestJwprobeDiagnosis::noPortNeedBeAskedAlone_data()
{
    QTest::addColumn<PortReport>("report");
    QTest::newRow("silent") << asked(PortReport::TimedOut, 4);
    QTest::newRow("unheard") << asked(PortReport::Awaiting, 1);
    QTest::newRow("unreadable") << unreadable(PortReport::TimedOut, 3);
}

void TestJwprobeDiagnosis::noPortNeedBeAskedAlone()
{
    QFETCH(PortReport, report);
    const QString advice = diagnose(existingPort(), report).advice.join(QLatin1Char('\n'));
    QVERIFY2(!advice.isEmpty() && !advice.contains(QLatin1String("--port")), qPrintable(advice));
}

void TestJwprobeDiagnosis::aLostPortThatTheSystemRemovedLaterWasUnplugged_data()
{
    QTest::addColumn<bool>("isKnown");
    QTest::addColumn<QString>("location");
    QTest::newRow("after the ports were listed") << true << existingPort().location;
    QTest::newRow("before the ports were listed") << false << QStringLiteral("/dev/ttyREMOVED0");
}

void TestJwprobeDiagnosis::aLostPortThatTheSystemRemovedLaterWasUnplugged()
{
    QFETCH(bool, isKnown);
    QFETCH(QString, location);
    PortIdentity port = existingPort(); // the system does not list it now
    port.isKnown = isKnown;
    port.location = location;
    const Diagnosis diagnosis = diagnose(port, lost(QSerialPort::UnknownError, QString()));
    QCOMPARE(diagnosis.state, QStringLiteral("unplugged"));
    QVERIFY2(diagnosis.summary.contains(QLatin1String("cable was pulled")), qPrintable(diagnosis.summary));
}

void TestJwprobeDiagnosis::aPortThatDoesNotOpenSaysWhy()
{
    const Diagnosis diagnosis = diagnose(portOfItsOwn(), notOpened(QSerialPort::UnknownError));
    QCOMPARE(diagnosis.state, QStringLiteral("openFailed"));
    QVERIFY2(diagnosis.summary.contains(QLatin1String("Is a directory")), qPrintable(diagnosis.summary));
    QVERIFY(!diagnosis.advice.isEmpty());
}

void TestJwprobeDiagnosis::aPortThatOpensByNowKeepsItsError()
{
    const int master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    QVERIFY(::grantpt(master) == 0 && ::unlockpt(master) == 0);
    PortIdentity port = portOfItsOwn();
    port.location = QString::fromLocal8Bit(::ptsname(master));
    const Diagnosis diagnosis = diagnose(port, notOpened(QSerialPort::UnsupportedOperationError));
    ::close(master);
    QCOMPARE(diagnosis.state, QStringLiteral("openFailed"));
    QCOMPARE(diagnosis.summary, QStringLiteral("does not open: UnsupportedOperationError"));
    QCOMPARE(diagnosis.advice.last(), QStringLiteral("    sudo dmesg | tail"));
}

void TestJwprobeDiagnosis::aLockTrapThatIsGoneIsStillTheReason()
{
    PortReport report = notOpened(QSerialPort::PermissionError);
    report.portName = existingPort().name;
    report.errorText = JwDevice::lockFilePath(report.portName) + QStringLiteral(" is a named pipe, no lock file");
    const Diagnosis diagnosis = diagnose(existingPort(), report);
    QCOMPARE(diagnosis.state, QStringLiteral("openFailed"));
    QCOMPARE(diagnosis.summary, report.errorText);
    QVERIFY2(diagnosis.advice.join(QLatin1Char('\n')).contains(QLatin1String("Run jwprobe again")),
             qPrintable(diagnosis.advice.join(QLatin1Char('\n'))));
}

void TestJwprobeDiagnosis::aNameThatTheSystemDoesNotKnowIsNoSuchPort()
{
    PortIdentity port = existingPort();
    port.isKnown = false;
    const Diagnosis diagnosis = diagnose(port, notOpened(QSerialPort::DeviceNotFoundError));
    QCOMPARE(diagnosis.state, QStringLiteral("noSuchPort"));
    QVERIFY(diagnosis.advice.join(QString()).contains(QLatin1String("--list")));
}

void TestJwprobeDiagnosis::withoutPermissionGroupAndRuleAreTold()
{
    PortIdentity port = existingPort();
    port.location = QStringLiteral("/proc/sys/kernel/ostype"); // nobody may write to this file, not even root
    port.vendorId = static_cast<quint16>(0x0abc); // the system has no udev rule for this vendor id
    const Diagnosis diagnosis = diagnose(port, notOpened(QSerialPort::PermissionError));
    QCOMPARE(diagnosis.state, QStringLiteral("noPermission"));
    QVERIFY2(diagnosis.summary.contains(QLatin1String("/proc/sys/kernel/ostype is root:root, mode 0444")),
             qPrintable(diagnosis.summary));
    const QString advice = diagnosis.advice.join(QLatin1Char('\n'));
    for (const char *text : {"SUBSYSTEM==\"tty\", ATTRS{idVendor}==\"0abc\", TAG+=\"uaccess\"", "/etc/udev/rules.d/"})
        QVERIFY2(advice.contains(QLatin1String(text)), qPrintable(advice));
}

void TestJwprobeDiagnosis::aLivingLockHolderIsNamed()
{
    const PortIdentity port = portOfItsOwn();
    QLockFile lock(lockFileName(port.name));
    QVERIFY(lock.tryLock());
    const Diagnosis diagnosis = diagnose(port, notOpened(QSerialPort::PermissionError));
    QCOMPARE(diagnosis.state, QStringLiteral("held"));
    QVERIFY2(diagnosis.summary.contains(QStringLiteral("pid %1").arg(QCoreApplication::applicationPid())),
             qPrintable(diagnosis.summary));
    QVERIFY2(diagnosis.summary.contains(QLatin1String("tst_jwprobe")), qPrintable(diagnosis.summary));
}

// The lock file names a dead process. The test calls flock() on the file, as if a child of that process still ran.
// Without flock(), QSerialPort would remove the file.
void TestJwprobeDiagnosis::aLockFileOfADeadProcessIsNamed()
{
    const PortIdentity port = portOfItsOwn();
    QFile file(lockFileName(port.name));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("999999999\n"); // higher than any process id, so no such process exists
    file.flush();
    QCOMPARE(::flock(file.handle(), LOCK_EX), 0);
    const Diagnosis diagnosis = diagnose(port, notOpened(QSerialPort::PermissionError));
    file.close();
    QVERIFY(file.remove());
    QCOMPARE(diagnosis.state, QStringLiteral("held"));
    QVERIFY2(diagnosis.advice.contains(QLatin1String("    sudo rm ") + file.fileName()),
             qPrintable(diagnosis.advice.join(QLatin1Char('\n'))));
}

void TestJwprobeDiagnosis::aLockFileThatMayNotBeReadIsReadByRoot_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("its process lives") << QByteArray::number(QCoreApplication::applicationPid()) + '\n';
    QTest::newRow("its process is gone") << QByteArray("4294967295\n");
}

void TestJwprobeDiagnosis::aLockFileThatMayNotBeReadIsReadByRoot()
{
    QFETCH(QByteArray, text);
    const PortIdentity port = portOfItsOwn();
    QFile file(lockFileName(port.name));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(text);
    file.close();
    QVERIFY(file.setPermissions({}));
    Diagnosis diagnosis;
    {
        const WithoutCapabilities restricted({CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH}); // root may read every file
        diagnosis = diagnose(port, notOpened(QSerialPort::PermissionError));
    }
    QVERIFY(file.remove());
    QCOMPARE(diagnosis.state, QStringLiteral("held"));
    QCOMPARE(diagnosis.summary, QStringLiteral("locked by %1, which this user may not read").arg(file.fileName()));
    QCOMPARE(diagnosis.advice.last(), QStringLiteral("    sudo cat ") + file.fileName());
    QVERIFY(!diagnosis.advice.join(QString()).contains(QLatin1String("sudo rm")));
}

QTEST_GUILESS_MAIN(TestJwprobeDiagnosis)
#include "tst_jwprobe_diagnosis.moc"

#include "support/common/withoutcapabilities.h"
#include "support/programs/asnobody.h"
#include "support/programs/sandbox.h"

#include <jwprobe/doctor/doctor.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSerialPort>
#include <QTemporaryDir>
#include <QTest>

#include <cstdlib>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

/// Tests jwprobe --doctor. Each test causes a problem, and checks that the doctor shows the command that helps.
class TestJwprobeDoctor : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_port = uniquePortName(); }

    SANDBOXED void healthyPortIsSaidInOneLine();
    SANDBOXED void everyCandidateIsExamined();
    SANDBOXED void namedPortIsExaminedAlone();
    void noCandidateSaysWhatToLookAt();
    void unknownPortIsSaid();

    AS_ROOT void userOutsideTheGroupIsToldToJoin();
    SANDBOXED_USERS void memberWhoseSessionIsOlderIsToldToLogInAgain();
    void groupWithoutAccessGetsAnotherWay();
    SANDBOXED void refusalInSpiteOfRightsPointsAtTheContainer();
    SANDBOXED void commandOfAProgramWithAQuoteInItsPathRuns();
    void missingRuleIsInstalled_data();
    SANDBOXED void missingRuleIsInstalled();
    SANDBOXED void ruleThatIsThereIsApplied();
    SANDBOXED void appliedRuleNamesItsLimit();

    void brokenDeviceFileIsToBePluggedInAgain_data();
    SANDBOXED void brokenDeviceFileIsToBePluggedInAgain();

    void processThatHasThePortOpenIsNamed_data();
    void processThatHasThePortOpenIsNamed();
    void ownerOfALockFileIsNamed_data();
    SANDBOXED void ownerOfALockFileIsNamed();
    void numberInALockFileIsNoReasonToEndAProcess_data();
    SANDBOXED void numberInALockFileIsNoReasonToEndAProcess();
    void lockFileOfALivingProcessIsNotRemoved_data();
    SANDBOXED void lockFileOfALivingProcessIsNotRemoved();
    void whatIsNoLockFileIsNotOpened_data();
    SANDBOXED void whatIsNoLockFileIsNotOpened();
    SANDBOXED void otherPortsAreSearchedBesideWhatIsNoLockFile();
    SANDBOXED void watchOpensNoPortBesideWhatIsNoLockFile();
    SANDBOXED void lockFileLeftBehindIsRemoved();
    SANDBOXED void lockFileWithoutAnOwnerIsRemoved();
    void lockFileCountsWhenItStopsTheSearch_data();
    SANDBOXED void lockFileCountsWhenItStopsTheSearch();
    void lockFileOfAUserCountsWhenItStopsTheSearch_data();
    SANDBOXED_USERS void lockFileOfAUserCountsWhenItStopsTheSearch();
    SANDBOXED void holderThatCantBeSeenIsLookedForByRoot();

    SANDBOXED void modemManagerThatMayTakeThePortIsNamed();
    SANDBOXED void modemManagerRuleThatIsThereIsApplied();
    void modemManagerThatKeepsOffIsNoTrouble_data();
    SANDBOXED void modemManagerThatKeepsOffIsNoTrouble();
    SANDBOXED void severalTroublesAreShownTogether();

    SANDBOXED void jsonHasEveryTrouble();
    void jsonOfNoCandidateHasTheAdvice();
    void noBoardIsAsked_data();
    void noBoardIsAsked();
    void udevRulesAreThoseOfThePackage();

private:
    Outcome examine(const QString &keys, const QString &prepare, const QStringList &options = {}) const;
    Outcome examineAsNobody(const QString &prepare) const;
    Outcome examineAndSearch(const QString &prepare, bool asAnother = false) const;

    QString m_port;
};

namespace {

const QString doctor = QStringLiteral("--doctor");
const QString json = QStringLiteral("--json");

const QString fakeModemManager = QStringLiteral("cp \"$(command -v sleep)\" /run/ModemManager; /run/ModemManager 600 & "
                                                "until grep -q ModemManager /proc/$!/comm; do :; done; ");

const QString installRules = QStringLiteral("cp \"%1\" /run/udev/rules.d/; ")
                                 .arg(QStringLiteral(PROJECT_FOLDER "/packaging/udev/60-jwdevice.rules"));

void verifyHas(const Outcome &outcome, const QStringList &texts)
{
    for (const QString &text : texts)
        QVERIFY2(outcome.output.contains(text.toUtf8()),
                 qPrintable(QStringLiteral("\"%1\" is missing in:\n%2%3")
                                .arg(text, QString::fromUtf8(outcome.output), QString::fromUtf8(outcome.error))));
}

/// Checks that the doctor says `said`, and that the search agrees with the doctor.
void verifyAgreed(const Outcome &outcome, const QString &said)
{
    const bool isWell = said.startsWith(QLatin1String("nothing"));
    verifyHas(
        outcome,
        {said, QStringLiteral("doctor %1\n").arg(isWell ? 0 : 1), QStringLiteral("search %1\n").arg(isWell ? 0 : 1)});
}

bool isRoot()
{
    return ::geteuid() == 0;
}

bool sandboxHasOtherUsers()
{
    return Sandbox::allowed().kind == Sandbox::OfAllUsers;
}

/// A pseudo terminal, used instead of a simulated port. For a simulated port, the file in /dev and a descriptor that a
/// program has open have different device numbers. So the doctor could not see which program has the port open.
class Terminal
{
public:
    Terminal()
        : m_master(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        if (::grantpt(m_master) == 0 && ::unlockpt(m_master) == 0)
            m_location = QString::fromLocal8Bit(::ptsname(m_master));
    }
    ~Terminal() { ::close(m_master); }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    JwProbe::PortIdentity port(const QString &name) const
    {
        JwProbe::PortIdentity port;
        port.name = name;
        port.location = m_location;
        port.isKnown = true;
        return port;
    }
    bool isFree() const
    {
        QSerialPort port(m_location);
        return port.open(QIODevice::ReadWrite);
    }
    /// Sets exclusive mode, so that nobody without the right CAP_SYS_ADMIN can open the terminal.
    void refuseOthers() const
    {
        const int descriptor = ::open(QFile::encodeName(m_location).constData(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        QCOMPARE(::ioctl(descriptor, TIOCEXCL), 0);
        ::close(descriptor);
    }

private:
    const int m_master;
    QString m_location;
};

} // namespace

Outcome TestJwprobeDoctor::examine(const QString &keys, const QString &prepare, const QStringList &options) const
{
    return runSandboxed({boardOn("BoardB", m_port, keys.toLatin1().constData())}, prepare + QStringLiteral("\"$@\""),
                        QStringList{jwprobeProgram(), doctor} + options);
}

// Runs the doctor as a user who may not open the port. If this test runs as root, who may open every file, this is the
// user nobody. Otherwise it is the user of the test: before the run, the test removes this user's right to open the
// port's file.
Outcome TestJwprobeDoctor::examineAsNobody(const QString &prepare) const
{
    const QString run =
        isRoot() ? prepare + asNobody : QStringLiteral("chmod 0000 \"$UMOCKDEV_DIR/dev/%1\"; exec \"$@\"").arg(m_port);
    return runProgram(
        jwsimProgram(),
        simulated({boardOn("BoardB", m_port)},
                  {QStringLiteral("sh"), QStringLiteral("-c"), run, QStringLiteral("sh"), jwprobeProgram(), doctor}));
}

// Runs the doctor, then a search; both must agree. The search runs second, because a search removes a stale lock file.
Outcome TestJwprobeDoctor::examineAndSearch(const QString &prepare, bool asAnother) const
{
    const QString run = asAnother ? QStringLiteral("( %1 )").arg(asNobody) : QStringLiteral("\"$@\"");
    return runSandboxed({boardOn("BoardB", m_port)},
                        QStringLiteral("sleep 600 & user=$!; until grep -q sleep /proc/$user/comm; do :; done; "
                                       "lock=/var/lock/LCK..%1; %2 set -- \"$1\" --doctor; %3; echo doctor $?; "
                                       "set -- \"$1\" --type BoardB --json; %3; echo search $?")
                            .arg(m_port, prepare, run),
                        {jwprobeProgram()});
}

void TestJwprobeDoctor::healthyPortIsSaidInOneLine()
{
    const Outcome outcome = examine(QString(), QString());
    QCOMPARE(outcome.error, QByteArray());
    QCOMPARE(outcome.output, m_port.toLatin1() + "  nothing keeps it from opening\n");
    QCOMPARE(outcome.status, 0);
}

void TestJwprobeDoctor::everyCandidateIsExamined()
{
    const QString denied = uniquePortName();
    const QString other = uniquePortName();
    const Outcome outcome = runSandboxed({boardOn("BoardA", m_port), boardOn("BoardB", denied, "open=denied"),
                                          boardOn("BoardC", other, "vendor=1234,manufacturer=Acme")},
                                         QStringLiteral("\"$@\""), {jwprobeProgram(), doctor});
    QCOMPARE(outcome.status, 1);
    verifyHas(outcome, {m_port + QStringLiteral("  nothing keeps"), denied + QStringLiteral("  no permission")});
    QVERIFY2(!outcome.output.contains(other.toLatin1()), outcome.output.constData());
}

void TestJwprobeDoctor::namedPortIsExaminedAlone()
{
    const QString named = uniquePortName();
    const Outcome outcome = runSandboxed(
        {boardOn("BoardA", m_port, "open=denied"), boardOn("BoardC", named, "manufacturer=Acme,vendor=1234")},
        QStringLiteral("\"$@\""), {jwprobeProgram(), doctor, QStringLiteral("--port"), named});
    QCOMPARE(outcome.output, named.toLatin1() + "  nothing keeps it from opening\n");
    QCOMPARE(outcome.status, 0);
}

void TestJwprobeDoctor::noCandidateSaysWhatToLookAt()
{
    const Outcome outcome = runJwprobe({boardOn("BoardA", m_port, "vendor=1234,manufacturer=Acme")}, {doctor});
    QCOMPARE(outcome.status, 3);
    verifyHas(outcome,
              {QStringLiteral("No candidate port"), QStringLiteral("cable"), QStringLiteral("\n    lsusb\n"),
               QStringLiteral("dmesg"), QStringLiteral("jwprobe --list"), QStringLiteral("--port")});
}

void TestJwprobeDoctor::unknownPortIsSaid()
{
    const Outcome outcome = runJwprobe({}, {doctor, QStringLiteral("--port"), m_port});
    QCOMPARE(outcome.status, 1);
    verifyHas(outcome, {m_port + QStringLiteral("  no such port"), QStringLiteral("jwprobe --list")});
}

void TestJwprobeDoctor::userOutsideTheGroupIsToldToJoin()
{
    const Outcome outcome = examineAsNobody(QString());
    QCOMPARE(outcome.status, 1);
    verifyHas(outcome,
              {QStringLiteral("no permission"), QStringLiteral("root:dialout, mode 0660"),
               QStringLiteral("    sudo usermod -aG dialout $USER\n")});
}

void TestJwprobeDoctor::memberWhoseSessionIsOlderIsToldToLogInAgain()
{
    const QString join = QStringLiteral("sed 's/^dialout:.*:/&nobody/' /etc/group > /run/group; "
                                        "mount --bind /run/group /etc/group; ");
    const Outcome outcome = runSandboxed({boardOn("BoardB", m_port)}, join + asNobody, {jwprobeProgram(), doctor});
    QCOMPARE(outcome.status, 1);
    verifyHas(outcome,
              {QStringLiteral("no permission"), QStringLiteral("log out and in again"),
               QStringLiteral("    newgrp dialout\n")});
    QVERIFY2(!outcome.output.contains("usermod"), outcome.output.constData());
}

void TestJwprobeDoctor::groupWithoutAccessGetsAnotherWay()
{
    const Outcome outcome = examineAsNobody(QStringLiteral("chmod 0600 \"$UMOCKDEV_DIR/dev/%1\"; ").arg(m_port));
    QCOMPARE(outcome.status, 1);
    verifyHas(outcome, {QStringLiteral("    sudo chown $USER /dev/%1\n").arg(m_port)});
    QVERIFY2(!outcome.output.contains("usermod"), outcome.output.constData());
}

void TestJwprobeDoctor::refusalInSpiteOfRightsPointsAtTheContainer()
{
    const Outcome outcome = examine(QStringLiteral("open=denied"), QString());
    QCOMPARE(outcome.status, 1);
    verifyHas(outcome,
              {QStringLiteral("no permission"), QStringLiteral("container"),
               QStringLiteral("    --device=/dev/%1\n").arg(m_port)});
}

void TestJwprobeDoctor::commandOfAProgramWithAQuoteInItsPathRuns()
{
    const QTemporaryDir folder;
    const QString program = folder.filePath(QStringLiteral("it's \"$HOME\""));
    QVERIFY(QFile::link(jwprobeProgram(), program));
    const Outcome outcome =
        runSandboxed({boardOn("BoardB", m_port, "open=denied")}, QStringLiteral("\"$@\""), {program, doctor});
    const QString command = QRegularExpression(QStringLiteral("    (.* --udev-rules) \\| sudo tee"))
                                .match(QString::fromLocal8Bit(outcome.output))
                                .captured(1);
    const Outcome rules = runProgram(QStringLiteral("sh"), {QStringLiteral("-c"), command});
    QVERIFY2(rules.status == 0, rules.error.constData());
    QVERIFY(rules.output.contains("SUBSYSTEM"));
}

void TestJwprobeDoctor::missingRuleIsInstalled_data()
{
    QTest::addColumn<QString>("keys");
    QTest::addColumn<QString>("rule");
    QTest::addColumn<QString>("command");
    const QString ours =
        QStringLiteral("    %1 --udev-rules | sudo tee /etc/udev/rules.d/60-jwdevice.rules\n").arg(jwprobeProgram());
    const QString access = QStringLiteral("SUBSYSTEM==\"tty\", ATTRS{idVendor}==\"%1\", TAG+=\"uaccess\"");
    QTest::newRow("no rule") << QString() << QString() << ours;
    QTest::newRow("a rule for another vendor") << QString() << access.arg(QStringLiteral("1234")) << ours;
    QTest::newRow("a rule that is a comment")
        << QString() << QLatin1Char('#') + access.arg(QStringLiteral("0483")) << ours;
    QTest::newRow("a rule without access")
        << QString() << QStringLiteral("ATTRS{idVendor}==\"0483\", SYMLINK+=\"board\"") << ours;
    QTest::newRow("board by its manufacturer alone") << QStringLiteral("vendor=1234") << QString() << ours;
    QTest::newRow("another device")
        << QStringLiteral("vendor=0abc,manufacturer=Acme") << QString()
        << QStringLiteral(
               "    echo '%1, ENV{ID_MM_PORT_IGNORE}=\"1\"' | sudo tee /etc/udev/rules.d/60-jwdevice-0abc.rules\n")
               .arg(access.arg(QStringLiteral("0abc")));
}

void TestJwprobeDoctor::missingRuleIsInstalled()
{
    QFETCH(QString, keys);
    QFETCH(QString, rule);
    QFETCH(QString, command);
    const QString denied = keys.isEmpty() ? QStringLiteral("open=denied") : QStringLiteral("open=denied,") + keys;
    const Outcome outcome = examine(denied, QStringLiteral("echo '%1' > /run/udev/rules.d/99-some.rules; ").arg(rule),
                                    {QStringLiteral("--port"), m_port});
    QCOMPARE(outcome.status, 1);
    verifyHas(outcome, {command, QStringLiteral("    sudo udevadm control --reload && sudo udevadm trigger\n")});
}

void TestJwprobeDoctor::ruleThatIsThereIsApplied()
{
    const Outcome outcome = examine(QStringLiteral("open=denied"), installRules);
    QCOMPARE(outcome.status, 1);
    verifyHas(outcome,
              {QStringLiteral("/run/udev/rules.d/60-jwdevice.rules"),
               QStringLiteral("    sudo udevadm control --reload && sudo udevadm trigger\n")});
    QVERIFY2(!outcome.output.contains("sudo tee"), outcome.output.constData());
}

void TestJwprobeDoctor::appliedRuleNamesItsLimit()
{
    const Outcome outcome = examine(QStringLiteral("open=denied"), installRules + applyUdevRules(m_port));
    QCOMPARE(outcome.status, 1);
    verifyHas(outcome, {QStringLiteral("the user at this machine")});
    QVERIFY2(!outcome.output.contains("udevadm"), outcome.output.constData());
}

void TestJwprobeDoctor::brokenDeviceFileIsToBePluggedInAgain_data()
{
    QTest::addColumn<QString>("prepare");
    QTest::addColumn<QString>("summary");
    QTest::newRow("missing") << QStringLiteral("rm \"$node\"; ")
                             << QStringLiteral("/dev/%1: No such file or directory");
    QTest::newRow("no device file") << QStringLiteral("rm \"$node\"; : > \"$node\"; ")
                                    << QStringLiteral("does not open: Inappropriate ioctl for device");
    QTest::newRow("does not open") << QStringLiteral("rm \"$node\"; mkdir \"$node\"; ")
                                   << QStringLiteral("does not open: Is a directory");
}

void TestJwprobeDoctor::brokenDeviceFileIsToBePluggedInAgain()
{
    QFETCH(QString, prepare);
    QFETCH(QString, summary);
    if (summary.contains(QLatin1String("%1")))
        summary = summary.arg(m_port);
    const Outcome outcome = examineAndSearch(QStringLiteral("node=$UMOCKDEV_DIR/dev/%1; ").arg(m_port) + prepare);
    verifyHas(
        outcome,
        {QStringLiteral("%1  %2\n"
                        "    Unplug the board, plug it in again and run jwprobe again. This shows what the kernel "
                        "says:\n"
                        "        sudo dmesg | tail\n"
                        "doctor 1\n")
             .arg(m_port, summary),
         QStringLiteral("\"state\": \"openFailed\""), summary + QLatin1Char('"'), QStringLiteral("search 1")});
}

void TestJwprobeDoctor::processThatHasThePortOpenIsNamed_data()
{
    QTest::addColumn<bool>("forItself");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("summary");
    QTest::newRow("for itself") << true << QStringLiteral("held")
                                << QStringLiteral("held by another program: sleep (pid %1)");
    QTest::newRow("beside others") << false << QStringLiteral("shared")
                                   << QStringLiteral("also open in sleep (pid %1): both will lose bytes");
}

void TestJwprobeDoctor::processThatHasThePortOpenIsNamed()
{
    QFETCH(bool, forItself);
    QFETCH(QString, summary);
    const Terminal terminal;
    const JwProbe::PortIdentity port = terminal.port(m_port);
    QCOMPARE(JwProbe::examine(port).size(), 0);
    QProcess other;
    other.setStandardInputFile(port.location);
    other.start(QStringLiteral("sleep"), {QStringLiteral("600")});
    QVERIFY(other.waitForStarted());
    const qint64 pid = other.processId();
    if (forItself)
        terminal.refuseOthers();

    const WithoutCapabilities restricted({CAP_SYS_ADMIN}); // with this right, root may open the terminal all the same
    QCOMPARE(terminal.isFree(), !forItself);
    const QList<JwProbe::Trouble> troubles = JwProbe::examine(port);
    QCOMPARE(troubles.size(), 1);
    QTEST(troubles.first().kind, "kind");
    QCOMPARE(troubles.first().summary, summary.arg(pid));
    QCOMPARE(troubles.first().advice.last(), QStringLiteral("    kill %1").arg(pid));
    other.kill();
    QVERIFY(other.waitForFinished());
}

void TestJwprobeDoctor::ownerOfALockFileIsNamed_data()
{
    QTest::addColumn<QString>("format");
    QTest::newRow("as QLockFile writes it") << QStringLiteral("%d\\nsleep\\n");
    QTest::newRow("as other serial programs write it") << QStringLiteral("%10d sleep root\\n");
    QTest::newRow("with a NUL behind the number") << QStringLiteral("%d\\000root\\nsleep\\n");
}

void TestJwprobeDoctor::ownerOfALockFileIsNamed()
{
    QFETCH(QString, format);
    const Outcome outcome = examineAndSearch(QStringLiteral("sleep 600 < /dev/%1 & user=$!; "
                                                            "until grep -q sleep /proc/$user/comm; do :; done; "
                                                            "echo \"owner $user\"; printf '%2' $user > $lock; ")
                                                 .arg(m_port, format));
    const QString owner =
        QRegularExpression(QStringLiteral("owner (\\d+)")).match(QString::fromLatin1(outcome.output)).captured(1);
    verifyHas(outcome,
              {QStringLiteral("%1  held by another program: sleep (pid %2)").arg(m_port, owner),
               QStringLiteral("    kill %1\ndoctor 1\n").arg(owner), QStringLiteral("\"state\": \"held\""),
               QStringLiteral("search 1")});
}

void TestJwprobeDoctor::numberInALockFileIsNoReasonToEndAProcess_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("said");
    const QString nobody = QStringLiteral("which names no process of this machine");
    const auto row = [](const char *name, const char *text, const QString &said) {
        QTest::newRow(name) << QString::fromLatin1(text) << said;
    };
    row("all processes", "4294967295 minicom root\\n", nobody);
    row("all processes, as QLockFile writes it", "4294967295\\n", nobody);
    row("all processes, by its sign", "-1 minicom root\\n", nobody);
    row("hides the first process", "4294967297 minicom root\\n", nobody);
    row("hides the first process, as QLockFile writes it", "4294967297\\n", nobody);
    row("no number of 64 bits", "18446744073709551617 minicom root\\n", nobody);
    row("the own group", "0 minicom root\\n", nobody);
    row("beyond the highest", "'$(($(cat /proc/sys/kernel/pid_max) + 1))' minicom root\\n", nobody);
    row("beyond the highest, as QLockFile writes it", "'$(($(cat /proc/sys/kernel/pid_max) + 1))'\\n", nobody);
    row("the first process", "1 minicom root\\n", QStringLiteral("which names sh (pid 1)"));
    row("the first process, as QLockFile writes it", "1\\n'$(basename $(readlink /proc/1/exe))'\\n",
        QStringLiteral("which names sh (pid 1)"));
    row("a process without the port", "'$user' minicom root\\n", QStringLiteral("which names sleep (pid "));
}

// The script makes the folder of the lock files read-only, so QSerialPort cannot remove the lock file.
void TestJwprobeDoctor::numberInALockFileIsNoReasonToEndAProcess()
{
    QFETCH(QString, text);
    QFETCH(QString, said);
    const Outcome outcome = examineAndSearch(
        QStringLiteral("mount -t tmpfs tmpfs /run/lock; printf -- '%1' > $lock; mount -o remount,bind,ro /run/lock; ")
            .arg(text));
    verifyHas(outcome, {said, QStringLiteral("doctor 1\n"), QStringLiteral("search 1\n")});
    QVERIFY2(!outcome.output.contains("kill"), outcome.output.constData());
}

void TestJwprobeDoctor::lockFileOfALivingProcessIsNotRemoved_data()
{
    QTest::addColumn<QString>("prepare");
    QTest::addColumn<bool>("isGone");
    const QString readOnly =
        QStringLiteral("mount -t tmpfs tmpfs /run/lock; printf '%1' %2 > $lock; mount -o remount,bind,ro /run/lock; ");
    const QString written = QStringLiteral("printf '%1' %2 > $lock; ");
    const auto row = [](const char *name, const QString &prepare, const char *format, bool isGone) {
        const QString pid = isGone ? QStringLiteral("$(sh -c 'echo $$')") : QStringLiteral("$user");
        QTest::newRow(name) << prepare.arg(QString::fromLatin1(format), pid) << isGone;
    };
    row("number alone, living", readOnly, "%10d\\n", false);
    row("number alone, gone", readOnly, "%10d\\n", true);
    row("number alone without a line end, living", readOnly, "%d", false);
    row("name and user, living", written, "%10d minicom root\\n", false);
    row("name and user, gone", written, "%10d minicom root\\n", true);
    row("name and user, living, folder that can't be written", readOnly, "%10d sleep root\\n", false);
    row("as QLockFile writes it, living, folder that can't be written", readOnly, "%d\\nsleep\\n", false);
}

void TestJwprobeDoctor::lockFileOfALivingProcessIsNotRemoved()
{
    QFETCH(QString, prepare);
    QFETCH(bool, isGone);
    const Outcome outcome = examineAndSearch(prepare);
    verifyHas(outcome,
              {isGone ? QStringLiteral("left behind") : QStringLiteral("which names sleep (pid "),
               QStringLiteral("doctor 1\n"), QStringLiteral("search 1\n")});
    QCOMPARE(outcome.output.contains("sudo rm"), isGone);
}

void TestJwprobeDoctor::whatIsNoLockFileIsNotOpened_data()
{
    QTest::addColumn<QString>("prepare");
    QTest::addColumn<QString>("said");
    const auto row = [](const char *name, const char *prepare, const char *said) {
        QTest::newRow(name) << QString::fromLatin1(prepare)
                            << QStringLiteral("/var/lock/LCK..%1") + QLatin1String(said) + QLatin1String(", no lock");
    };
    row("named pipe", "mkfifo $lock; ", " is a named pipe");
    row("named pipe behind a symbolic link", "mkfifo /run/pipe; ln -s ../pipe $lock; ", " is a symbolic link");
    row("symbolic link that ends nowhere", "ln -s nowhere $lock; ", " is a symbolic link");
    row("folder", "mkdir $lock; ", " is a folder");
    row("device without end", ": > $lock; mount --bind /dev/zero $lock; ", " is a device");
    row("socket", ": > $lock; mount --bind \"$socket\" $lock; ", " is a socket");
    row("file without end", "truncate -s 1T $lock; ", " is a file of 1099511627776 bytes");
    row("named pipe where QLockFile writes to remove a stale one",
        "sh -c 'printf \"%d\\n\" $$' > $lock; mkfifo $lock.rmlock; ", ".rmlock is a named pipe");
}

void TestJwprobeDoctor::whatIsNoLockFileIsNotOpened()
{
    QFETCH(QString, prepare);
    QFETCH(QString, said);
    const QTemporaryDir folder;
    const QByteArray socketPath = QFile::encodeName(folder.filePath(QStringLiteral("socket")));
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    qstrncpy(address.sun_path, socketPath.constData(), sizeof address.sun_path);
    QCOMPARE(::bind(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);

    const Outcome outcome = examineAndSearch(
        QStringLiteral("socket='%1'; %2\"$1\" --list; ").arg(QString::fromLocal8Bit(socketPath), prepare));
    ::close(socket);
    said = said.arg(m_port);
    QCOMPARE(outcome.output.count(said.toLatin1()), 4); // once from --list, once from --doctor, twice from the search
    verifyHas(outcome,
              {QStringLiteral("        sudo rm -d ") + said.left(said.indexOf(QLatin1Char(' '))),
               QStringLiteral("doctor 1\n"), QStringLiteral("\"state\": \"held\""), QStringLiteral("search 1\n")});
}

void TestJwprobeDoctor::otherPortsAreSearchedBesideWhatIsNoLockFile()
{
    const QString other = uniquePortName();
    const Outcome outcome = runSandboxed({boardOn("BoardA", m_port), boardOn("BoardB", other)},
                                         QStringLiteral("mkfifo /run/lock/LCK..%1; \"$@\"").arg(m_port),
                                         {jwprobeProgram(), json, QStringLiteral("--type"), QStringLiteral("BoardA"),
                                          QStringLiteral("--type"), QStringLiteral("BoardB"),
                                          QStringLiteral("--retries"), QStringLiteral("0")});
    QCOMPARE(outcome.status, 1);
    const QJsonObject document = QJsonDocument::fromJson(outcome.output).object();
    const QJsonArray boards = document[QLatin1String("boards")].toArray();
    QCOMPARE(boards.size(), 1);
    QCOMPARE(boards[0].toObject()[QLatin1String("port")].toString(), other);
    const QJsonArray ports = document[QLatin1String("ports")].toArray();
    QCOMPARE(ports.size(), 1);
    QCOMPARE(ports[0].toObject()[QLatin1String("port")].toString(), m_port);
    QCOMPARE(ports[0].toObject()[QLatin1String("error")].toString(), QStringLiteral("PermissionError"));
    QVERIFY(ports[0].toObject()[QLatin1String("errorText")].toString().contains(QLatin1String("named pipe")));
}

void TestJwprobeDoctor::watchOpensNoPortBesideWhatIsNoLockFile()
{
    const QString other = uniquePortName();
    const Outcome outcome = runSandboxed(
        {boardOn("BoardA", m_port), boardOn("BoardB", other, "pull-after=3000")},
        QStringLiteral("mkfifo /run/lock/LCK..%1; \"$@\"").arg(m_port),
        {jwprobeProgram(), json, QStringLiteral("--watch"), QStringLiteral("--deadline"), QStringLiteral("8000")});
    QCOMPARE(outcome.status, 0);
    QStringList events;
    for (const QByteArray &line : linesOf(outcome.output)) {
        const QJsonObject event = QJsonDocument::fromJson(line).object();
        if (event[QLatin1String("event")] == QLatin1String("payload"))
            continue; // if somebody sets the machine's clock, jwprobe asks its boards
        events.append(event[QLatin1String("event")].toString() + QLatin1Char(' ')
                      + event[QLatin1String("port")].toString());
        if (events.last().startsWith(QLatin1String("refused")))
            QVERIFY(event[QLatin1String("summary")].toString().contains(QLatin1String("named pipe")));
    }
    events.sort();
    QCOMPARE(events,
             (QStringList{QStringLiteral("found ") + other, QStringLiteral("lost ") + other,
                          QStringLiteral("refused ") + m_port}));
}

// QSerialPort removes a stale lock file if the folder is writable. So this test makes the folder read-only.
void TestJwprobeDoctor::lockFileLeftBehindIsRemoved()
{
    const QString file = QStringLiteral("/var/lock/LCK..%1").arg(m_port);
    const QString lock =
        QStringLiteral("mount -t tmpfs tmpfs /run/lock; sh -c 'echo $$' > $lock; mount -o remount,bind,ro /run/lock; ");
    verifyHas(examineAndSearch(lock),
              {QStringLiteral("%1  locked by %2, which process").arg(m_port, file),
               QStringLiteral("    sudo rm %1\ndoctor 1\n").arg(file), QStringLiteral("sudo rm %1\"").arg(file),
               QStringLiteral("search 1")});
    verifyHas(
        examineAndSearch(lock
                         + QStringLiteral("mount -o remount,bind,rw /run/lock; rm $lock; "
                                          "mount -o remount,bind,ro /run/lock; ")),
        {QStringLiteral("%1  nothing keeps it from opening\ndoctor 0\n").arg(m_port), QStringLiteral("search 0")});
}

void TestJwprobeDoctor::lockFileWithoutAnOwnerIsRemoved()
{
    const QString file = QStringLiteral("/var/lock/LCK..%1").arg(m_port);
    verifyHas(examineAndSearch(QStringLiteral("echo taken > $lock; ")),
              {QStringLiteral("locked by %1, which names no process of this machine").arg(file),
               QStringLiteral("    sudo rm %1\ndoctor 1\n").arg(file), QStringLiteral("search 1")});
}

void TestJwprobeDoctor::lockFileCountsWhenItStopsTheSearch_data()
{
    QTest::addColumn<QString>("prepare");
    QTest::addColumn<QString>("said");
    const auto row = [](const char *name, const char *prepare, const char *said) {
        QTest::newRow(name) << QString::fromLatin1(prepare) << QString::fromLatin1(said);
    };
    const char *const well = "nothing keeps it from opening";
    const char *const noProcess = "names no process of this machine";
    row("of a process that is gone", "sh -c 'printf \"%10d\\n\" $$' > $lock; ", well);
    row("its number is another program's by now", "printf '%d\\nminicom\\n' $user > $lock; ", well);
    row("its number stands alone", "printf '%10d\\n' $user > $lock; ", well);
    row("a minute old", "echo taken > $lock; touch -d '1 minute ago' $lock; ", well);
    row("in a folder that is looked at later",
        "mkdir /run/lock/lockdev; printf '%d\\nsleep\\n' $user > /run/lock/lockdev/${lock##*/}; ", well);
    row("just made, and empty", ": > $lock; ", noProcess);
    row("of another machine", "printf '%d\\nsleep\\nelsewhere\\n' $user > $lock; ", noProcess);
    row("a minute old, and its user keeps hold of it",
        "printf '%d\\nsleep\\n' $user > $lock; touch -d '1 minute ago' $lock; exec 9< $lock; flock 9; ",
        "which names sleep (pid");
    const char *const left = "left behind";
    row("its number is another program's by now, in a folder that can't be written",
        "mount -t tmpfs tmpfs /run/lock; printf '%d\\nminicom\\n' $user > $lock; mount -o remount,bind,ro /run/lock; ",
        left);
    row("its number stands alone, in a folder that can't be written",
        "mount -t tmpfs tmpfs /run/lock; echo $user > $lock; mount -o remount,bind,ro /run/lock; ",
        "which names sleep (pid");
}

void TestJwprobeDoctor::lockFileCountsWhenItStopsTheSearch()
{
    QFETCH(QString, prepare);
    QFETCH(QString, said);
    verifyAgreed(examineAndSearch(prepare), said);
}

void TestJwprobeDoctor::lockFileOfAUserCountsWhenItStopsTheSearch_data()
{
    QTest::addColumn<QString>("prepare");
    QTest::addColumn<QString>("said");
    const auto row = [](const char *name, const char *prepare, const char *said) {
        QTest::newRow(name) << QString::fromLatin1(prepare) << QString::fromLatin1(said);
    };
    const char *const well = "nothing keeps it from opening";
    const char *const left = "left behind";
    row("another user's, in a folder where all may remove their own",
        "chmod 1777 /run/lock; sh -c 'echo $$' > $lock; chmod 0666 $lock; ", left);
    row("one's own, in such a folder", "chmod 1777 /run/lock; sh -c 'echo $$' > $lock; chown nobody $lock; ", well);
    row("one's own, in a folder that is another user's", "sh -c 'echo $$' > $lock; chown nobody $lock; ", left);
    row("another user's, in a folder where all may remove any",
        "chmod 0777 /run/lock; sh -c 'echo $$' > $lock; chmod 0666 $lock; ", well);
    row("another user's that only he can write to", "chmod 0777 /run/lock; sh -c 'echo $$' > $lock; chmod 0644 $lock; ",
        left);
    row("one's own, its number another user's program by now",
        "echo $user > $lock; chown nobody $lock; chmod 1777 /run/lock; ", well);
    row("another user's that is in use", "chmod 1777 /run/lock; printf '%d\\nsleep\\n' $user > $lock; ",
        "sudo fuser -v");
}

void TestJwprobeDoctor::lockFileOfAUserCountsWhenItStopsTheSearch()
{
    QFETCH(QString, prepare);
    QFETCH(QString, said);
    verifyAgreed(examineAndSearch(QStringLiteral("chmod 0666 \"$UMOCKDEV_DIR/dev/%1\"; ").arg(m_port) + prepare, true),
                 said);
}

void TestJwprobeDoctor::holderThatCantBeSeenIsLookedForByRoot()
{
    // A port in exclusive mode refuses everybody except root, so run jwprobe as the user nobody if possible. The
    // sandbox hides the lock file of the program that holds the port, so the doctor cannot name this program.
    const QString command = sandboxHasOtherUsers()
        ? QStringLiteral("chmod 0666 \"$UMOCKDEV_DIR/dev/%1\"; ").arg(m_port) + asNobody
        : QStringLiteral("exec \"$@\"");
    const Outcome outcome = runSandboxed({boardOn("BoardB", m_port, "open=busy")}, command, {jwprobeProgram(), doctor});
    QCOMPARE(outcome.status, 1);
    verifyHas(outcome,
              {QStringLiteral("held by another program"), QStringLiteral("    sudo fuser -v /dev/%1\n").arg(m_port)});
}

void TestJwprobeDoctor::modemManagerThatMayTakeThePortIsNamed()
{
    const Outcome outcome = examine(QString(), fakeModemManager + QStringLiteral("echo \"manager $!\"; "));
    QCOMPARE(outcome.status, 1);
    const QString manager =
        QRegularExpression(QStringLiteral("manager (\\d+)")).match(QString::fromLatin1(outcome.output)).captured(1);
    verifyHas(
        outcome,
        {QStringLiteral("%1  ModemManager (pid %2)").arg(m_port, manager),
         QStringLiteral("    %1 --udev-rules | sudo tee /etc/udev/rules.d/60-jwdevice.rules\n").arg(jwprobeProgram()),
         QStringLiteral("    sudo udevadm control --reload && sudo udevadm trigger\n"),
         QStringLiteral("    sudo systemctl disable --now ModemManager\n")});
}

void TestJwprobeDoctor::modemManagerRuleThatIsThereIsApplied()
{
    const Outcome outcome = examine(QString(), installRules + fakeModemManager);
    QCOMPARE(outcome.status, 1);
    verifyHas(outcome,
              {QStringLiteral("/run/udev/rules.d/60-jwdevice.rules"),
               QStringLiteral("    sudo udevadm control --reload && sudo udevadm trigger\n")});
    QVERIFY2(!outcome.output.contains("sudo tee"), outcome.output.constData());
}

void TestJwprobeDoctor::modemManagerThatKeepsOffIsNoTrouble_data()
{
    QTest::addColumn<QString>("rules");
    const QString rule = QStringLiteral("echo '%1' > /run/udev/rules.d/60-some.rules; ");
    QTest::newRow("by the rules of the package") << installRules;
    QTest::newRow("by a mark on the USB device")
        << rule.arg(QStringLiteral("SUBSYSTEM==\"usb\", ENV{ID_MM_DEVICE_IGNORE}=\"1\""));
    QTest::newRow("by a mark on the port")
        << rule.arg(QStringLiteral("SUBSYSTEM==\"tty\", ENV{ID_MM_PORT_IGNORE}=\"1\""));
}

void TestJwprobeDoctor::modemManagerThatKeepsOffIsNoTrouble()
{
    QFETCH(QString, rules);
    const Outcome outcome = examine(QString(), fakeModemManager + rules + applyUdevRules(m_port));
    QCOMPARE(outcome.output, m_port.toLatin1() + "  nothing keeps it from opening\n");
    QCOMPARE(outcome.status, 0);
}

void TestJwprobeDoctor::severalTroublesAreShownTogether()
{
    const Outcome outcome = examine(
        QStringLiteral("open=denied"),
        fakeModemManager + QStringLiteral("printf '%d\\nModemManager\\n' $! > /run/lock/LCK..%1; ").arg(m_port));
    QCOMPARE(outcome.status, 1);
    verifyHas(outcome,
              {QStringLiteral("no permission"), QStringLiteral("which names ModemManager (pid "),
               QStringLiteral("is not told to leave this port alone")});
}

void TestJwprobeDoctor::jsonHasEveryTrouble()
{
    const QString well = uniquePortName();
    const Outcome outcome = runSandboxed({boardOn("BoardB", m_port, "open=denied,serial=S-9"), boardOn("BoardA", well)},
                                         QStringLiteral("echo taken > /run/lock/LCK..%1; \"$@\"").arg(m_port),
                                         {jwprobeProgram(), doctor, json});
    QCOMPARE(outcome.status, 1);
    const QJsonObject document = QJsonDocument::fromJson(outcome.output).object();
    QCOMPARE(document[QLatin1String("exitStatus")].toInt(), 1);
    QCOMPARE(document[QLatin1String("version")].toString(), QStringLiteral(PROJECT_VERSION));
    const QJsonArray ports = document[QLatin1String("ports")].toArray();
    QCOMPARE(ports.size(), 2);
    const QJsonObject sick = ports[0].toObject();
    QCOMPARE(sick[QLatin1String("port")].toString(), m_port);
    QCOMPARE(sick[QLatin1String("serialNumber")].toString(), QStringLiteral("S-9"));
    const QJsonArray troubles = sick[QLatin1String("troubles")].toArray();
    QCOMPARE(troubles.size(), 2);
    QCOMPARE(troubles[0].toObject()[QLatin1String("kind")].toString(), QStringLiteral("noPermission"));
    QCOMPARE(troubles[1].toObject()[QLatin1String("kind")].toString(), QStringLiteral("held"));
    for (const QJsonValue trouble : troubles) {
        QVERIFY(!trouble.toObject()[QLatin1String("summary")].toString().isEmpty());
        QVERIFY(!trouble.toObject()[QLatin1String("advice")].toArray().isEmpty());
    }
    QCOMPARE(ports[1].toObject()[QLatin1String("troubles")], QJsonValue(QJsonArray()));
}

void TestJwprobeDoctor::jsonOfNoCandidateHasTheAdvice()
{
    const Outcome outcome = runJwprobe({}, {doctor, json});
    QCOMPARE(outcome.status, 3);
    const QJsonObject document = QJsonDocument::fromJson(outcome.output).object();
    QCOMPARE(document[QLatin1String("exitStatus")].toInt(), 3);
    QCOMPARE(document[QLatin1String("ports")], QJsonValue(QJsonArray()));
    QVERIFY(!document[QLatin1String("advice")].toArray().isEmpty());
}

void TestJwprobeDoctor::noBoardIsAsked_data()
{
    QTest::addColumn<QString>("option");
    QTest::newRow("--doctor") << doctor;
    QTest::newRow("--list") << QStringLiteral("--list");
}

void TestJwprobeDoctor::noBoardIsAsked()
{
    QFETCH(QString, option);
    const QTemporaryDir folder;
    const QString report = folder.filePath(QStringLiteral("report"));
    const Outcome outcome =
        runProgram(jwsimProgram(),
                   QStringList{QStringLiteral("--report"), report} + jwprobe({boardOn("BoardA", m_port)}, {option}));
    QCOMPARE(outcome.error, QByteArray());
    QFile file(report);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QJsonArray boards = QJsonDocument::fromJson(file.readAll()).object()[QLatin1String("boards")].toArray();
    QCOMPARE(boards.size(), 1);
    QCOMPARE(boards[0].toObject()[QLatin1String("received")], QJsonValue(QJsonArray()));
}

void TestJwprobeDoctor::udevRulesAreThoseOfThePackage()
{
    QFile file(QStringLiteral(PROJECT_FOLDER "/packaging/udev/60-jwdevice.rules"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    const Outcome outcome = runProgram(jwprobeProgram(), {QStringLiteral("--udev-rules")});
    QCOMPARE(outcome.output, file.readAll());
    QCOMPARE(outcome.status, 0);
}

SANDBOX_TEST_MAIN(TestJwprobeDoctor)
#include "tst_jwprobe_doctor.moc"

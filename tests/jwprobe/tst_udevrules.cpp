#include "support/programs/sandbox.h"

#include <QFile>
#include <QTest>

#include <grp.h>

/// Tests the rules in packaging/udev. udev's own tool applies the rules to simulated devices.
class TestUdevRules : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init() { m_port = uniquePortName(); }

    void boardGetsAccessAndIsKeptFromModemManager_data();
    SANDBOXED void boardGetsAccessAndIsKeptFromModemManager();
    SANDBOXED void otherDeviceIsLeftAlone();
    SANDBOXED void rulesAreReadWithoutAComplaint();
    SANDBOXED void wrongRuleWouldBeComplainedAbout();

private:
    Outcome plugIn(const char *keys, const QByteArray &moreRules = QByteArray()) const;
    QByteArray complaints(const Outcome &outcome) const;

    QString m_port;
};

namespace {

const QString usbMark = QStringLiteral("--- the USB device, then the port ---");

QList<QByteArray> rulesApplied(const QByteArray &output)
{
    QList<QByteArray> lines;
    for (const QByteArray &line : linesOf(output)) {
        if (line.contains(": /run/udev/rules.d/60-jwdevice.rules:"))
            lines.append(line.mid(line.lastIndexOf(".rules:") + 7).split(' ').mid(1).join(' '));
    }
    return lines;
}

QByteArray dialout()
{
    const group *entry = ::getgrnam("dialout");
    return entry ? QByteArray::number(entry->gr_gid) : QByteArray("of dialout");
}

QByteArray ofUsbDevice(const Outcome &outcome)
{
    return outcome.output.left(outcome.output.indexOf(usbMark.toLatin1()));
}

QByteArray ofPort(const Outcome &outcome)
{
    return outcome.output.mid(outcome.output.indexOf(usbMark.toLatin1()));
}

} // namespace

void TestUdevRules::initTestCase()
{
    NEEDS_PROGRAM("udevadm", "udev");
    NEEDS_PROGRAM("setserial", "setserial");
    const QString access = QStringLiteral("/udev/rules.d/73-seat-late.rules");
    QVERIFY2(QFile::exists(QStringLiteral("/lib") + access) || QFile::exists(QStringLiteral("/usr/lib") + access),
             "the rule that gives access to the user at the machine is missing: install the package systemd "
             "(scripts/test does)");
}

// Applies the rules to a new simulated board, and returns the log of udev. Also applies the system's own rules, because
// our rules must work together with them.
Outcome TestUdevRules::plugIn(const char *keys, const QByteArray &moreRules) const
{
    const QString script =
        QStringLiteral("{ cat \"$1\"; printf '%s\\n' \"$2\"; } > /run/udev/rules.d/60-jwdevice.rules; ")
        + applyUdevRules(m_port)
        + QStringLiteral("cat /run/%1-usb.log; echo '%2'; cat /run/%1.log").arg(m_port, usbMark);
    return runSandboxed(
        {boardOn("silent", m_port, keys)}, script,
        {QStringLiteral(PROJECT_FOLDER "/packaging/udev/60-jwdevice.rules"), QString::fromLatin1(moreRules)}, true);
}

// Returns udev's errors about our rules. Only a line with an error begins with the name of the rules file.
QByteArray TestUdevRules::complaints(const Outcome &outcome) const
{
    QByteArray lines;
    for (const QByteArray &line : linesOf(outcome.output)) {
        if (line.startsWith("/run/udev/rules.d/60-jwdevice.rules:"))
            lines += line + '\n';
    }
    return lines;
}

void TestUdevRules::boardGetsAccessAndIsKeptFromModemManager_data()
{
    QTest::addColumn<QByteArray>("keys");
    QTest::newRow("by its vendor id") << QByteArray("manufacturer=Acme");
    QTest::newRow("by its manufacturer") << QByteArray("vendor=1234");
    QTest::newRow("by both") << QByteArray();
}

void TestUdevRules::boardGetsAccessAndIsKeptFromModemManager()
{
    QFETCH(QByteArray, keys);
    const Outcome outcome = plugIn(keys.constData());
    QVERIFY2(outcome.status == 0, outcome.output + outcome.error);

    const QList<QByteArray> applied = rulesApplied(ofPort(outcome));
    QVERIFY2(applied.contains("MODE 0660"), ofPort(outcome).constData());
    QVERIFY2(applied.contains("GROUP " + dialout()), ofPort(outcome).constData());
    const QList<QByteArray> port = linesOf(ofPort(outcome));
    QVERIFY2(port.contains("ID_MM_DEVICE_IGNORE=1"), ofPort(outcome).constData());
    QVERIFY2(port.contains("ID_MM_PORT_IGNORE=1"), ofPort(outcome).constData());
    // With this setting, close() of the port does not wait for a board that does not read.
    const QByteArray noWait = "run: '/bin/setserial /dev/" + m_port.toLatin1() + " closing_wait none'";
    QVERIFY2(port.contains(noWait), ofPort(outcome).constData());
    // Our rules give the port a tag. udev's own 73-seat-late.rules read this tag, and give access to the user at the
    // machine.
    QVERIFY2(port.contains("run: 'uaccess'"), ofPort(outcome).constData());
    QVERIFY2(linesOf(ofUsbDevice(outcome)).contains("ID_MM_DEVICE_IGNORE=1"), ofUsbDevice(outcome).constData());
}

void TestUdevRules::otherDeviceIsLeftAlone()
{
    const Outcome outcome = plugIn("vendor=1234,manufacturer=Acme");
    QVERIFY2(outcome.status == 0, outcome.output + outcome.error);
    QVERIFY2(outcome.output.contains("60-jwdevice.rules"), outcome.output.constData());
    QVERIFY2(rulesApplied(outcome.output).isEmpty(), outcome.output.constData());
    QVERIFY2(!outcome.output.contains("_IGNORE="), outcome.output.constData());
    QVERIFY2(!outcome.output.contains("run: 'uaccess'"), outcome.output.constData());
}

void TestUdevRules::rulesAreReadWithoutAComplaint()
{
    const Outcome outcome = plugIn("");
    QVERIFY2(outcome.output.contains("Reading rules file: /run/udev/rules.d/60-jwdevice.rules"),
             outcome.output + outcome.error);
    QCOMPARE(complaints(outcome), QByteArray());
}

void TestUdevRules::wrongRuleWouldBeComplainedAbout()
{
    for (const char *rule : {"SUBSYSTEM==\"tty\", TAGG+=\"uaccess\"", "SUBSYSTEM==\"tty\" TAG+=\"uaccess", "SUBSYSTEM"})
        QVERIFY2(!complaints(plugIn("", rule)).isEmpty(), rule);
}

SANDBOX_TEST_MAIN(TestUdevRules)
#include "tst_udevrules.moc"

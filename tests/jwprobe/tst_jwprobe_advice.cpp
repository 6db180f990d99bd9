#include "support/programs/asnobody.h"
#include "support/programs/jwsimrun.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <unistd.h>

namespace {

QJsonObject listed(const Outcome &outcome, const QString &port)
{
    const QJsonArray ports = QJsonDocument::fromJson(outcome.output).object().value(QLatin1String("ports")).toArray();
    for (const QJsonValue value : ports) {
        if (value.toObject().value(QLatin1String("port")).toString() == port)
            return value.toObject();
    }
    return {};
}

const QString one = QStringLiteral("--type=BoardB");
const QString once = QStringLiteral("--retries=0");
const QString beforeTheTimeout = QStringLiteral("--deadline=300");
const QString afterTheAnswer = QStringLiteral("--deadline=2000"); // long, because a busy machine delays the answer

} // namespace

/// Tests the texts about a port, and the advice for a missing board.
class TestJwprobeAdvice : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_port = uniquePortName(); }

    void noCandidateSaysWhatWasLookedFor();
    void deniedPortNamesItsFileAndARule();
    void deniedPortNamesItsGroup();
    void heldPortNamesItsHolder();
    void portInUseNamesItsUser();
    void silentPortGetsAdvice();
    void unwantedTypeIsNamed();
    void unknownHardwareVersionIsShown();
    void unreadableSentenceIsShown();
    void sentencesOfAnotherDeviceAreNoSilence();
    void portsAskedTogetherNeedNotBeAskedAlone();
    void endBeforeTheAnswerIsSaid();
    void pulledCableIsSaid();
    void pulledCableOfAnUnwantedBoardExplainsTheWait();
    void secondBoardOfATypeIsNamed();
    void adviceIsLeftOutWhenAllAreFound();

    void listTellsWhichPortsWouldBeProbed();
    void listTellsWhyAPortWouldNotOpen();
    void listHasAllOfAPort();
    void listOfNoPort();
    void listFollowsPort();

private:
    QString m_port;
};

void TestJwprobeAdvice::noCandidateSaysWhatWasLookedFor()
{
    const Outcome outcome = runJwprobe({boardOn("BoardB", m_port, "vendor=1234,manufacturer=Acme")}, {one});
    QCOMPARE(outcome.status, 3);
    for (const char *text : {"STMicroelectronics.", "0483", "jwprobe --list", "--port"})
        QVERIFY2(outcome.output.contains(text), outcome.output.constData());
}

void TestJwprobeAdvice::deniedPortNamesItsFileAndARule()
{
    const Outcome outcome = runJwprobe({boardOn("BoardB", m_port, "open=denied,manufacturer=Acme,vendor=0abc")},
                                       {one, QStringLiteral("--port"), m_port});
    QCOMPARE(outcome.status, 1);
    const QByteArray file = "/dev/" + m_port.toLatin1();
    for (const char *text : {"no permission", file.constData(), "/etc/udev/rules.d/",
                             "SUBSYSTEM==\"tty\", ATTRS{idVendor}==\"0abc\", TAG+=\"uaccess\""})
        QVERIFY2(outcome.output.contains(text), outcome.output.constData());
}

void TestJwprobeAdvice::deniedPortNamesItsGroup()
{
    // If this test runs as root, who may open every file, it starts jwprobe as the user nobody; then a group helps.
    // Otherwise the user owns the port's file, so the test removes the owner's right to open it. Then no group helps,
    // so the advice names no group.
    const bool isRoot = ::geteuid() == 0;
    const QString script = isRoot ? QStringLiteral("chmod 0660 \"$UMOCKDEV_DIR/dev/%1\"; ").arg(m_port) + asNobody
                                  : QStringLiteral("chmod 0060 \"$UMOCKDEV_DIR/dev/%1\" && exec \"$@\"").arg(m_port);
    const Outcome outcome = runProgram(
        jwsimProgram(),
        simulated({boardOn("BoardB", m_port)},
                  {QStringLiteral("sh"), QStringLiteral("-c"), script, QStringLiteral("sh"), jwprobeProgram(), one}));
    QCOMPARE(outcome.status, 1);
    QVERIFY2(outcome.output.contains("no permission"), outcome.output.constData());
    QVERIFY2(outcome.output.contains("--udev-rules"), outcome.output.constData());
    if (isRoot) {
        QVERIFY2(outcome.output.contains("the group "), outcome.output.constData());
        QVERIFY2(outcome.output.contains("sudo usermod -aG dialout $USER"), outcome.output.constData());
        QVERIFY2(outcome.output.contains("root:dialout, mode 0660"), outcome.output.constData());
    }
}

void TestJwprobeAdvice::heldPortNamesItsHolder()
{
    const Outcome outcome = runJwprobe({boardOn("BoardB", m_port, "open=busy")}, {one});
    QCOMPARE(outcome.status, 1);
    for (const char *text : {"held by another program", "jwsim", "pid "})
        QVERIFY2(outcome.output.contains(text), outcome.output.constData());
}

void TestJwprobeAdvice::portInUseNamesItsUser()
{
    const QString script =
        QStringLiteral("\"$0\" \"$@\" --monitor > \"$UMOCKDEV_DIR/output\" & "
                       "while ! test -s \"$UMOCKDEV_DIR/output\"; do :; done; \"$0\" \"$@\"; echo status $?; "
                       "echo user $!; kill $!; wait");
    const Outcome outcome =
        runProgram(jwsimProgram(),
                   simulated({boardOn("BoardB", m_port)},
                             {QStringLiteral("sh"), QStringLiteral("-c"), script, jwprobeProgram(), one}));
    QVERIFY2(outcome.output.contains("status 1"), outcome.output.constData());
    const QByteArray user = outcome.output.mid(outcome.output.indexOf("user ") + 5).trimmed();
    QVERIFY2(outcome.output.contains("held by another program: jwprobe (pid " + user + ")"),
             outcome.output.constData());
}

void TestJwprobeAdvice::silentPortGetsAdvice()
{
    const Outcome outcome = runJwprobe({boardOn("silent", m_port)}, {one, once});
    QCOMPARE(outcome.status, 1);
    for (const char *text : {"no sentence", "power", "firmware", "baud"})
        QVERIFY2(outcome.output.contains(text), outcome.output.constData());
}

void TestJwprobeAdvice::unwantedTypeIsNamed()
{
    const Outcome outcome = runJwprobe({boardOn("BoardA", m_port)}, {one, afterTheAnswer});
    QCOMPARE(outcome.status, 1);
    for (const char *text : {"answered as a BoardA", "$PJWVER,7300022,1,4,0*0d", "--type BoardA"})
        QVERIFY2(outcome.output.contains(text), outcome.output.constData());
}

void TestJwprobeAdvice::unknownHardwareVersionIsShown()
{
    const Outcome outcome = runJwprobe({boardOn("BoardB", m_port, "hwversion=1234567")}, {one, afterTheAnswer});
    QCOMPARE(outcome.status, 1);
    QVERIFY2(outcome.output.contains("$PJWVER,1234567,1,4,0*"), outcome.output.constData());
}

void TestJwprobeAdvice::unreadableSentenceIsShown()
{
    const Outcome outcome = runJwprobe({boardOn("BoardB", m_port, "checksum=wrong")}, {one, once});
    QCOMPARE(outcome.status, 1);
    QVERIFY2(outcome.output.contains("$PJWVER,7300021,1,4,0*"), outcome.output.constData());
}

void TestJwprobeAdvice::sentencesOfAnotherDeviceAreNoSilence()
{
    const Outcome outcome = runJwprobe({boardOn("other", m_port, "interval=50")}, {one, once});
    QCOMPARE(outcome.status, 1);
    QVERIFY2(!outcome.output.contains("no sentence"), outcome.output.constData());
    for (const char *text : {"payloads that can't be read", "Undefined sentence ID", "another kind of device"})
        QVERIFY2(outcome.output.contains(text), outcome.output.constData());
}

void TestJwprobeAdvice::portsAskedTogetherNeedNotBeAskedAlone()
{
    const Outcome outcome = runJwprobe({boardOn("silent", m_port), boardOn("BoardC", uniquePortName())},
                                       {one, QStringLiteral("--type=BoardC"), once});
    QCOMPARE(outcome.status, 1);
    QVERIFY2(outcome.output.contains("baud rate"), outcome.output.constData());
    QVERIFY2(!outcome.output.contains("--port"), outcome.output.constData());
}

void TestJwprobeAdvice::endBeforeTheAnswerIsSaid()
{
    const Outcome outcome = runJwprobe({boardOn("silent", m_port)}, {one, beforeTheTimeout});
    QCOMPARE(outcome.status, 1);
    for (const char *text : {"no answer to its query before the search ended", "--deadline", "power"})
        QVERIFY2(outcome.output.contains(text), outcome.output.constData());
}

void TestJwprobeAdvice::pulledCableIsSaid()
{
    const Outcome outcome = runJwprobe({boardOn("BoardB", m_port, "pull-after-bytes=3")}, {one, once});
    QCOMPARE(outcome.status, 1);
    QVERIFY2(outcome.output.contains("cable was pulled"), outcome.output.constData());
}

void TestJwprobeAdvice::pulledCableOfAnUnwantedBoardExplainsTheWait()
{
    // The first answer of 26 bytes arrives complete. The cable is pulled during the second answer.
    const Outcome outcome = runJwprobe({boardOn("BoardA", m_port, "replies=2,chunk=26,gap=100,pull-after-bytes=30")},
                                       {one, QStringLiteral("--deadline=1000")});
    QCOMPARE(outcome.status, 1);
    for (const char *text : {"cable was pulled", "after it had answered $PJWVER,7300022,1,4,0*0d",
                             "The search waited until its deadline, because a port answered"})
        QVERIFY2(outcome.output.contains(text), outcome.output.constData());
}

void TestJwprobeAdvice::secondBoardOfATypeIsNamed()
{
    const QString second = uniquePortName();
    const Outcome outcome = runJwprobe({boardOn("BoardB", m_port), boardOn("BoardB", second, "delay=100")},
                                       {one, QStringLiteral("--type=BoardC"), once});
    QCOMPARE(outcome.status, 1);
    QVERIFY2(outcome.output.contains("a second BoardB"), outcome.output.constData());
    QVERIFY2(outcome.output.contains("--port " + second.toLatin1()), outcome.output.constData());
}

void TestJwprobeAdvice::adviceIsLeftOutWhenAllAreFound()
{
    const Outcome outcome = runJwprobe({boardOn("BoardB", m_port)}, {one});
    QCOMPARE(outcome.status, 0);
    QCOMPARE(linesOf(outcome.output).size(), 2);
}

void TestJwprobeAdvice::listTellsWhichPortsWouldBeProbed()
{
    const QString byVendor = uniquePortName();
    const QString other = uniquePortName();
    const QStringList boards{boardOn("BoardA", m_port, "vendor=1234"), boardOn("BoardA", byVendor, "manufacturer=Acme"),
                             boardOn("BoardA", other, "manufacturer=Acme,vendor=1234")};
    const Outcome outcome = runJwprobe(boards, {QStringLiteral("--list"), QStringLiteral("--json")});
    QCOMPARE(outcome.status, 0);
    QCOMPARE(listed(outcome, m_port)[QLatin1String("probed")], QJsonValue(true));
    QVERIFY(listed(outcome, m_port)[QLatin1String("reason")].toString().contains(QLatin1String("manufacturer")));
    QCOMPARE(listed(outcome, byVendor)[QLatin1String("probed")], QJsonValue(true));
    QVERIFY(listed(outcome, byVendor)[QLatin1String("reason")].toString().contains(QLatin1String("vendor")));
    QCOMPARE(listed(outcome, other)[QLatin1String("probed")], QJsonValue(false));
    QVERIFY(!listed(outcome, other)[QLatin1String("reason")].toString().isEmpty());

    const Outcome text = runJwprobe(boards, {QStringLiteral("--list")});
    QCOMPARE(text.status, 0);
    for (const QString &port : {m_port, byVendor, other})
        QVERIFY2(text.output.contains(port.toLatin1()), text.output.constData());
    QVERIFY2(text.output.contains(listed(outcome, other)[QLatin1String("reason")].toString().toLatin1()),
             text.output.constData());
}

void TestJwprobeAdvice::listTellsWhyAPortWouldNotOpen()
{
    const QString busy = uniquePortName();
    const QStringList boards{boardOn("BoardA", m_port, "open=denied"), boardOn("BoardA", busy, "open=busy")};
    const Outcome outcome = runJwprobe(boards, {QStringLiteral("--list"), QStringLiteral("--json")});
    QVERIFY(listed(outcome, m_port)[QLatin1String("obstacle")].toString().contains(QLatin1String("no permission")));
    QVERIFY(listed(outcome, busy)[QLatin1String("obstacle")].toString().contains(QLatin1String("jwsim")));
    const Outcome text = runJwprobe(boards, {QStringLiteral("--list")});
    QVERIFY(text.output.contains("no permission"));
    QVERIFY(text.output.contains("held by another program: jwsim"));
}

void TestJwprobeAdvice::listHasAllOfAPort()
{
    const Outcome outcome = runJwprobe({boardOn("silent", m_port, "serial=S-9,product=1a2b")},
                                       {QStringLiteral("--list"), QStringLiteral("--json")});
    QJsonObject port = listed(outcome, m_port);
    QVERIFY(!port.take(QLatin1String("reason")).toString().isEmpty());
    QCOMPARE(port,
             (QJsonObject{{QStringLiteral("port"), m_port},
                          {QStringLiteral("location"), QStringLiteral("/dev/") + m_port},
                          {QStringLiteral("manufacturer"), QStringLiteral("STMicroelectronics.")},
                          {QStringLiteral("serialNumber"), QStringLiteral("S-9")},
                          {QStringLiteral("id"), QStringLiteral("S-9:1.0")},
                          {QStringLiteral("vendorId"), QStringLiteral("0483")},
                          {QStringLiteral("productId"), QStringLiteral("1a2b")},
                          {QStringLiteral("probed"), true},
                          {QStringLiteral("obstacle"), QJsonValue::Null}}));
    const Outcome text = runJwprobe({boardOn("silent", m_port, "serial=S-9,product=1a2b")}, {QStringLiteral("--list")});
    for (const char *cell : {"0483:1a2b", "STMicroelectronics.", "S-9 ", "S-9:1.0"})
        QVERIFY2(text.output.contains(cell), text.output.constData());
}

void TestJwprobeAdvice::listOfNoPort()
{
    const Outcome text = runJwprobe({}, {QStringLiteral("--list")});
    QCOMPARE(text.status, 0);
    QCOMPARE(linesOf(text.output).size(), 1);
    const Outcome json = runJwprobe({}, {QStringLiteral("--list"), QStringLiteral("--json")});
    QCOMPARE(json.status, 0);
    QVERIFY(QJsonDocument::fromJson(json.output).object().value(QLatin1String("ports")).isArray());
}

void TestJwprobeAdvice::listFollowsPort()
{
    const QString other = uniquePortName();
    const Outcome outcome =
        runJwprobe({boardOn("BoardA", m_port, "manufacturer=Acme,vendor=1234"), boardOn("BoardA", other)},
                   {QStringLiteral("--list"), QStringLiteral("--json"), QStringLiteral("--port"), m_port});
    QCOMPARE(listed(outcome, m_port)[QLatin1String("probed")], QJsonValue(true));
    QCOMPARE(listed(outcome, other)[QLatin1String("probed")], QJsonValue(false));
}

QTEST_GUILESS_MAIN(TestJwprobeAdvice)
#include "tst_jwprobe_advice.moc"

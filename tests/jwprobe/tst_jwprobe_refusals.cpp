#include <jwprobe/watch/refusals.h>

#include <QTest>

using namespace JwProbe;
using JwDevice::PortReport;

namespace {

PortReport report(PortReport::Verdict verdict, const char *port = "ttyNONE0")
{
    PortReport result;
    result.portName = QLatin1String(port);
    result.location = QStringLiteral("/dev/") + result.portName;
    result.verdict = verdict;
    result.queries = 1;
    return result;
}

PortReport excluded(const char *why)
{
    PortReport result = report(PortReport::NotOpened);
    result.errorText = QLatin1String(why);
    return result;
}

} // namespace

/// Tests which ports jwprobe --watch reports as refused, and when.
class TestJwprobeRefusals : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void portThatIsStillProbedIsNotRefused();
    void refusalIsNewOnce();
    void otherReasonIsNew();
    void refusalIsForgottenWithItsPort();
    void refusalIsForgottenWithABoard();
    void laterProbeKeepsTheRefusal();
    void talkingPortIsNotNewAtEachAttempt();
    void excludedPortHasTheTextOfTheWatch();
    void skippedStateIsNotNew();
};

void TestJwprobeRefusals::portThatIsStillProbedIsNotRefused()
{
    Refusals refusals;
    QVERIFY(refusals.update({report(PortReport::Awaiting)}).isEmpty());
    // NotOpened without an error text: the watch did not try the port yet.
    QVERIFY(refusals.update({report(PortReport::NotOpened)}).isEmpty());
    QVERIFY(refusals.update({report(PortReport::HandedOver)}).isEmpty());
    QVERIFY(refusals.all().isEmpty());
}

void TestJwprobeRefusals::refusalIsNewOnce()
{
    Refusals refusals;
    const QList<Refusal> fresh = refusals.update({report(PortReport::TimedOut)});
    QCOMPARE(fresh.size(), 1);
    QCOMPARE(fresh[0].reason, QStringLiteral("silent"));
    QCOMPARE(fresh[0].port.name, QStringLiteral("ttyNONE0"));
    QVERIFY(refusals.update({report(PortReport::TimedOut)}).isEmpty());
    QCOMPARE(refusals.all().size(), 1);
}

void TestJwprobeRefusals::otherReasonIsNew()
{
    Refusals refusals;
    refusals.update({report(PortReport::TimedOut)});
    PortReport answered = report(PortReport::Silenced);
    answered.reply = QStringLiteral("$PJWVER,7300021,1,4,0*0e");
    const QList<Refusal> fresh = refusals.update({answered});
    QCOMPARE(fresh.size(), 1);
    QCOMPARE(fresh[0].reason, QStringLiteral("otherType"));
    QCOMPARE(refusals.all().size(), 1);
}

void TestJwprobeRefusals::refusalIsForgottenWithItsPort()
{
    Refusals refusals;
    refusals.update({report(PortReport::TimedOut)});
    QVERIFY(refusals.update({}).isEmpty());
    QVERIFY(refusals.all().isEmpty());
    QCOMPARE(refusals.update({report(PortReport::TimedOut)}).size(), 1);
}

void TestJwprobeRefusals::refusalIsForgottenWithABoard()
{
    Refusals refusals;
    refusals.update({report(PortReport::TimedOut)});
    refusals.update({report(PortReport::HandedOver)});
    QVERIFY(refusals.all().isEmpty());
    QCOMPARE(refusals.update({report(PortReport::TimedOut)}).size(), 1);
}

void TestJwprobeRefusals::laterProbeKeepsTheRefusal()
{
    Refusals refusals;
    refusals.update({report(PortReport::TimedOut)});
    refusals.update({report(PortReport::Awaiting)});
    QCOMPARE(refusals.all().size(), 1);
    QVERIFY(refusals.update({report(PortReport::TimedOut)}).isEmpty());
}

void TestJwprobeRefusals::talkingPortIsNotNewAtEachAttempt()
{
    Refusals refusals;
    PortReport talking = report(PortReport::TimedOut);
    talking.payloads = 1;
    talking.unreadable = QStringLiteral("$A*00");
    QCOMPARE(refusals.update({talking}).value(0).reason, QStringLiteral("unreadable"));
    talking.payloads = 2;
    talking.unreadable = QStringLiteral("$B*00");
    QVERIFY(refusals.update({talking}).isEmpty());
}

void TestJwprobeRefusals::excludedPortHasTheTextOfTheWatch()
{
    Refusals refusals;
    const QList<Refusal> fresh = refusals.update({excluded("not opened, because ...")});
    QCOMPARE(fresh.size(), 1);
    QCOMPARE(fresh[0].reason, QStringLiteral("excluded"));
    QCOMPARE(fresh[0].summary, QStringLiteral("not opened, because ..."));
}

void TestJwprobeRefusals::skippedStateIsNotNew()
{
    Refusals refusals;
    refusals.skip(report(PortReport::Lost));
    QVERIFY(refusals.update({report(PortReport::Lost)}).isEmpty());
    QVERIFY(refusals.all().isEmpty());
    QCOMPARE(refusals.update({report(PortReport::TimedOut)}).size(), 1);
}

QTEST_GUILESS_MAIN(TestJwprobeRefusals)
#include "tst_jwprobe_refusals.moc"

#include "support/programs/jwsimrun.h"
#include "support/programs/neededprogram.h"
#include "support/programs/terminalrun.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <cerrno>

#include <unistd.h>

namespace {

const char *const versionQuery = "$PJWVER*0c";
const char *const informationRequest = "$PTJWWR,INF*71";
const QByteArray versionReply = "$PJWVER,7300022,1,4,0*0d\r\n";

QStringList shell(const QString &script)
{
    return {QStringLiteral("sh"), QStringLiteral("-c"), script};
}

// Returns a command that writes the query to the port `times` times, and prints the first `count` bytes of the answer.
QStringList ask(const QString &port, QByteArray::size_type count, int times = 1, const char *query = versionQuery)
{
    return shell(QStringLiteral("exec 3<>/dev/%1; printf '%2' >&3; head -c %3 <&3")
                     .arg(port, (QLatin1String(query) + QStringLiteral("\\r\\n")).repeated(times))
                     .arg(count));
}

// Returns a command that calls signal() with `signalHandling`, prints its process id, and waits.
QStringList waiting(const char *signalHandling)
{
    return {QStringLiteral("python3"), QStringLiteral("-c"),
            QStringLiteral("import os, signal, time\n"
                           "signal.signal(%1)\n"
                           "print(os.getpid(), flush=True)\n"
                           "time.sleep(1000)")
                .arg(QLatin1String(signalHandling))};
}

// Returns the line of text as the report of jwsim shows it.
QString escaped(const QByteArray &line)
{
    return QString::fromLatin1(line.trimmed()) + QStringLiteral("\\r\\n");
}

using Keys = QJsonObject;

QString textOf(const QJsonValue &value)
{
    return value.isString() ? value.toString() : QString::number(value.toInt());
}

QByteArray readFile(const QString &name)
{
    QFile file(name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString &name, const QByteArray &text)
{
    QFile file(name);
    return file.open(QIODevice::WriteOnly) && file.write(text) == text.size();
}

QJsonObject boardReport(const QByteArray &document, int index = 0)
{
    return QJsonDocument::fromJson(document).object().value(QLatin1String("boards")).toArray().at(index).toObject();
}

struct Exchange
{
    QStringList received;
    QList<int> receivedAt; // milliseconds
    QStringList sent;
    QList<int> sentAt;
};

Exchange exchangeOf(const QJsonObject &board)
{
    Exchange exchange;
    const auto collect = [&board](const char *name, QStringList &texts, QList<int> &times) {
        const QJsonArray entries = board.value(QLatin1String(name)).toArray();
        for (const QJsonValue entry : entries) {
            texts.append(entry.toObject().value(QLatin1String("text")).toString());
            times.append(entry.toObject().value(QLatin1String("ms")).toInt());
        }
    };
    collect("received", exchange.received, exchange.receivedAt);
    collect("sent", exchange.sent, exchange.sentAt);
    return exchange;
}

bool isGone(pid_t process)
{
    return ::kill(process, 0) != 0 && errno == ESRCH;
}

// Returns the name of the lock file that serial programs use for the port on this machine.
QString lockFile(const QString &port)
{
    const bool isRoom = ::access("/var/lock", R_OK | W_OK) == 0;
    return QStringLiteral("%1/LCK..%2").arg(QLatin1String(isRoom ? "/var/lock" : "/tmp"), port);
}

// Returns the process id as serial programs write it into a lock file: right-aligned in ten columns.
QByteArray tenColumns(qint64 process)
{
    return QByteArray::number(process).rightJustified(10);
}

QStringList lockFiles(const QString &port)
{
    QStringList files;
    for (const char *folder : {"/var/lock", "/etc/locks", "/var/spool/locks", "/var/spool/uucp", "/tmp"}) {
        const QString file = QStringLiteral("%1/LCK..%2").arg(QLatin1String(folder), port);
        if (QFile::exists(file))
            files.append(file);
    }
    return files;
}

} // namespace

class TestJwsim : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void commandTalksToABoard_data();
    void commandTalksToABoard();
    void onlySimulatedPortsAreSeen();
    void portKeyNamesThePort();
    void unnamedPortsGetDifferentNames();
    void simulationsSideBySideGetDifferentNames();
    void hwversionIsInTheReply();
    void wrongChecksumIsSent();
    void noiseComesBeforeTheReply();
    void repliesAreRepeated();
    void replyIsCutInChunksWithGaps();
    void replyComesAfterTheDelay();
    void speedPacesTheLine();
    void usbDeliversTheReplyInPieces_data();
    void usbDeliversTheReplyInPieces();
    void firstQueriesAreIgnored();
    void cableIsPulledAfterATime();
    void cableIsPulledAfterBytes();
    void busyPortIsLocked();
    void deniedPortDoesNotOpen();
    void portHasTheGivenUsbIdentity();
    void otherSendsSentencesAtItsInterval();
    void babbleRepeatsWithItsSeed();
    void silentBoardOnlyListens();
    void scenarioAndBoardOptionsCombine();

    void wrongUseIsRefused_data();
    void wrongUseIsRefused();
    void wrongScenarioIsRefused_data();
    void wrongScenarioIsRefused();
    void tooManyBoardsAreRefused();
    void unwritableReportIsRefused();
    void reportStaysUnchangedIfNothingRan_data();
    void reportStaysUnchangedIfNothingRan();
    void reportReplacesAnOldReport();
    void failureToWriteTheReportIsReported_data();
    void failureToWriteTheReportIsReported();
    void helpNamesOptionsKindsAndKeysIn80Columns();
    void failureToPrintTextGives125_data();
    void failureToPrintTextGives125();
    void versionIsTheProjectsVersion();

    void commandsStatusIsPassedOn();
    void commandKilledByASignalGivesItsNumber();
    void missingCommandGives127_data();
    void missingCommandGives127();
    void commandThatCannotRunGives126();
    void commandHasTheStandardStreams();
    void argumentsAfterCommandBelongToIt();
    void doubleDashEndsTheOptions();
    void runsWithoutABoard();
    void runsWithSigchldIgnored();
    void runsWithAnInheritedRestartVariable();
    void manyLongRepliesTakeLittleMemory();

    void reportHasAllBytes();
    void reportIsWrittenWhenTheCommandIsKilled();
    void signalEndsTheCommandAndCleansUp_data();
    void signalEndsTheCommandAndCleansUp();
    void commandThatCatchesTheSignalGivesItsStatus();
    void commandThatDoesNotEndIsKilled();
    void ctrlCReachesTheCommandOnce();
    void lockOfAKilledHostIsRemoved();
    void lockOfALivingProgramStays_data();
    void lockOfALivingProgramStays();
    void lockOfAnEndedProgramIsRemoved();

    void socatTalksToABoard();
    void pythonTalksToABoard();

private:
    QString file(const char *name) const { return m_folder->filePath(QLatin1String(name)); }
    struct Result
    {
        Outcome outcome;
        QJsonObject report;
        Exchange exchange;
    };
    /// Runs jwsim twice with a report and a board on m_port, and returns both results. The first run gets the keys on
    /// the command line, the second run gets the same keys in a scenario file.
    QList<Result> inBothForms(const char *kind, Keys keys, const QStringList &command) const;
    Outcome jwsim(const QStringList &arguments, const QByteArray &input = QByteArray()) const;
    void prepare(ProgramRun &run) const;
    QStringList leftovers() const
    {
        return QDir(m_temporary->path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
    }

    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<QTemporaryDir> m_temporary; // folder that jwsim gets as TMPDIR
    QString m_port;
};

void TestJwsim::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
    m_temporary = std::make_unique<QTemporaryDir>();
    m_port = uniquePortName();
}

void TestJwsim::cleanup()
{
    QCOMPARE(leftovers(), QStringList());
    QCOMPARE(lockFiles(m_port) + lockFiles(QStringLiteral("jwsim.") + m_port), QStringList());
}

void TestJwsim::prepare(ProgramRun &run) const
{
    run.setEnvironment(QStringLiteral("TMPDIR"), m_temporary->path());
    // Keep only the folders of PATH that the user may enter. Otherwise a missing program gives "permission denied", not
    // "not found".
    QStringList path = qEnvironmentVariable("PATH").split(QLatin1Char(':'));
    path.erase(std::remove_if(path.begin(), path.end(),
                              [](const QString &folder) { return ::access(QFile::encodeName(folder), X_OK) != 0; }),
               path.end());
    run.setEnvironment(QStringLiteral("PATH"), path.join(QLatin1Char(':')));
}

Outcome TestJwsim::jwsim(const QStringList &arguments, const QByteArray &input) const
{
    ProgramRun run(jwsimProgram(), arguments);
    prepare(run);
    run.start();
    run.write(input);
    run.closeInput();
    const bool ended = run.finish();
    return {ended ? run.status() : -1, run.output(), run.error()};
}

QList<TestJwsim::Result> TestJwsim::inBothForms(const char *kind, Keys keys, const QStringList &command) const
{
    if (!keys.contains(QLatin1String("port")))
        keys[QLatin1String("port")] = m_port;
    QString text = QLatin1String(kind);
    for (auto it = keys.begin(); it != keys.end(); ++it)
        text += QStringLiteral(",%1=%2").arg(it.key(), textOf(it.value()));
    keys[QLatin1String("kind")] = QLatin1String(kind);
    const QJsonObject scenario{{QStringLiteral("boards"), QJsonArray{keys}}};
    const QString scenarioFile = file("scenario.json");
    if (!writeFile(scenarioFile, QJsonDocument(scenario).toJson()))
        return {};

    QList<Result> results;
    const QStringList forms[] = {{QStringLiteral("--board"), text}, {QStringLiteral("--scenario"), scenarioFile}};
    for (const QStringList &form : forms) {
        const QString reportFile = file("report.json");
        QFile::remove(reportFile);
        const Outcome outcome =
            jwsim(form + QStringList{QStringLiteral("--report"), reportFile, QStringLiteral("--")} + command);
        const QJsonObject board = boardReport(readFile(reportFile));
        results.append({outcome, board, exchangeOf(board)});
    }
    return results;
}

void TestJwsim::commandTalksToABoard_data()
{
    QTest::addColumn<QByteArray>("kind");
    QTest::addColumn<QByteArray>("query");
    QTest::addColumn<QByteArray>("reply");

    QTest::newRow("BoardA") << QByteArray("BoardA") << QByteArray(versionQuery) << versionReply;
    QTest::newRow("BoardB") << QByteArray("BoardB") << QByteArray(versionQuery)
                            << QByteArray("$PJWVER,7300021,1,4,0*0e\r\n");
    QTest::newRow("BoardC") << QByteArray("BoardC") << QByteArray(informationRequest)
                            << QByteArray("$PTJWRD,INF,CTRL,3,17,2,1.04,7300030,1*5d\r\n");
}

void TestJwsim::commandTalksToABoard()
{
    QFETCH(QByteArray, kind);
    QFETCH(QByteArray, query);
    QFETCH(QByteArray, reply);

    const auto results = inBothForms(kind.constData(), {}, ask(m_port, reply.size(), 1, query.constData()));
    for (const Result &result : results) {
        QCOMPARE(result.outcome.error, QByteArray());
        QCOMPARE(result.outcome.status, 0);
        QCOMPARE(result.outcome.output, reply);
    }
}

void TestJwsim::onlySimulatedPortsAreSeen()
{
    const Outcome outcome = jwsim(simulated({boardOn("silent", m_port)}, shell(QStringLiteral("ls /sys/class/tty"))));
    QCOMPARE(outcome.output.trimmed(), m_port.toLatin1());
    QCOMPARE(outcome.status, 0);
}

void TestJwsim::portKeyNamesThePort()
{
    const auto results =
        inBothForms("silent", {{QStringLiteral("port"), m_port}}, shell(QStringLiteral("test -c /dev/") + m_port));
    for (const Result &result : results) {
        QCOMPARE(result.outcome.status, 0);
        QCOMPARE(result.report.value(QLatin1String("port")).toString(), m_port);
    }
}

void TestJwsim::unnamedPortsGetDifferentNames()
{
    const QString silent = QStringLiteral("silent");
    const QStringList list = shell(QStringLiteral("ls /sys/class/tty"));
    // jwsim chooses this name first for a board without a name. Below, the third board asks for this name, so the first
    // board without a name must get another one.
    const QByteArray first = jwsim(simulated({silent}, list)).output.trimmed();
    const QString named = boardOn("silent", QString::fromLatin1(first));
    const QList<QByteArray> names = linesOf(jwsim(simulated({silent, silent, named}, list)).output);
    QCOMPARE(names.size(), 3);
    QVERIFY2(names.contains(first), first.constData());
    for (const QByteArray &name : names) {
        QVERIFY2(name.startsWith("ttyACM"), name.constData());
        QCOMPARE(names.count(name), 1);
    }
}

void TestJwsim::simulationsSideBySideGetDifferentNames()
{
    const QString silent = QStringLiteral("silent");
    ProgramRun run(jwsimProgram(), simulated({silent, silent}, shell(QStringLiteral("ls /sys/class/tty; read line"))));
    prepare(run);
    run.start();
    WAIT_FOR(run.output().count('\n') == 2);
    const QList<QByteArray> names = linesOf(run.output());
    const QList<QByteArray> others =
        linesOf(jwsim(simulated({silent, silent}, shell(QStringLiteral("ls /sys/class/tty")))).output);
    QCOMPARE(others.size(), 2);
    for (const QByteArray &name : others)
        QVERIFY2(!names.contains(name), name.constData());
}

void TestJwsim::hwversionIsInTheReply()
{
    const auto results = inBothForms("BoardB", {{QStringLiteral("hwversion"), QStringLiteral("rev-7300021-X")}},
                                     ask(m_port, versionReply.size() + 6));
    for (const Result &result : results)
        QVERIFY2(result.outcome.output.startsWith("$PJWVER,rev-7300021-X,1,4,0*"), result.outcome.output.constData());
}

void TestJwsim::wrongChecksumIsSent()
{
    const auto results = inBothForms("BoardA", {{QStringLiteral("checksum"), QStringLiteral("wrong")}},
                                     ask(m_port, versionReply.size()));
    const QRegularExpression wrong(QStringLiteral(R"(^\$PJWVER,7300022,1,4,0\*(?!0d)[0-9a-f]{2}\r\n$)"));
    for (const Result &result : results)
        QVERIFY2(wrong.match(QString::fromLatin1(result.outcome.output)).hasMatch(), result.outcome.output.constData());
}

void TestJwsim::noiseComesBeforeTheReply()
{
    const int noise = 40;
    const auto results =
        inBothForms("BoardA", {{QStringLiteral("noise"), noise}}, ask(m_port, noise + versionReply.size()));
    for (const Result &result : results) {
        QCOMPARE(result.outcome.output.size(), noise + versionReply.size());
        QVERIFY(result.outcome.output.endsWith(versionReply));
        QVERIFY(!result.outcome.output.contains('\0'));
        QVERIFY(!result.outcome.output.startsWith(result.outcome.output.left(1).repeated(noise)));
    }
}

void TestJwsim::repliesAreRepeated()
{
    const auto results = inBothForms("BoardA", {{QStringLiteral("replies"), 3}}, ask(m_port, 3 * versionReply.size()));
    for (const Result &result : results) {
        QCOMPARE(result.outcome.output, versionReply.repeated(3));
        QCOMPARE(result.report.value(QLatin1String("queries")).toInt(), 1);
    }
}

void TestJwsim::replyIsCutInChunksWithGaps()
{
    const int gap = 15;
    const auto results = inBothForms("BoardA", {{QStringLiteral("chunk"), 10}, {QStringLiteral("gap"), gap}},
                                     ask(m_port, versionReply.size()));
    for (const Result &result : results) {
        QCOMPARE(result.outcome.output, versionReply);
        QCOMPARE(
            result.exchange.sent,
            (QStringList{QStringLiteral("$PJWVER,73"), QStringLiteral("00022,1,4,"), QStringLiteral("0*0d\\r\\n")}));
        // The report rounds times down to whole milliseconds, so a difference may be 1 ms too small.
        QVERIFY(result.exchange.sentAt.at(1) - result.exchange.sentAt.at(0) >= gap - 1);
        QVERIFY(result.exchange.sentAt.at(2) - result.exchange.sentAt.at(1) >= gap - 1);
    }
}

void TestJwsim::replyComesAfterTheDelay()
{
    const int delay = 80;
    const auto results = inBothForms("BoardA", {{QStringLiteral("delay"), delay}}, ask(m_port, versionReply.size()));
    for (const Result &result : results) {
        QCOMPARE(result.outcome.output, versionReply);
        QVERIFY(result.exchange.sentAt.at(0) - result.exchange.receivedAt.at(0) >= delay - 1);
    }
}

void TestJwsim::speedPacesTheLine()
{
    // A byte takes 10 bit times, so the reply's 26 bytes take 108 ms at 2400 baud.
    const auto results = inBothForms("BoardA", {{QStringLiteral("speed"), 2400}}, ask(m_port, versionReply.size()));
    for (const Result &result : results) {
        QCOMPARE(result.outcome.output, versionReply);
        QVERIFY(result.exchange.sentAt.at(0) - result.exchange.receivedAt.at(0) >= 107);
    }
}

void TestJwsim::usbDeliversTheReplyInPieces_data()
{
    QTest::addColumn<QString>("usb");
    QTest::addColumn<int>("noise");
    QTest::addColumn<int>("leastTime"); // milliseconds
    QTest::newRow("frames of a UART at 115200 baud") << QStringLiteral("bridge") << 2000 << 173;
    QTest::newRow("packets, 19 in a frame") << QStringLiteral("cdc") << 50000 << 35;
}

void TestJwsim::usbDeliversTheReplyInPieces()
{
    QFETCH(QString, usb);
    QFETCH(int, noise);
    QFETCH(int, leastTime);

    const QString script = QStringLiteral("import os, sys, tty\n"
                                          "port = os.open('/dev/' + sys.argv[1], os.O_RDWR | os.O_NOCTTY)\n"
                                          "tty.setraw(port)\n"
                                          "os.write(port, b'$PJWVER*0c\\r\\n')\n"
                                          "reads, reply = 0, b''\n"
                                          "while len(reply) < int(sys.argv[2]):\n"
                                          "    reply += os.read(port, 65536)\n"
                                          "    reads += 1\n"
                                          "print(reads, reply[-26:])\n");
    const auto results = inBothForms("BoardA", {{QStringLiteral("usb"), usb}, {QStringLiteral("noise"), noise}},
                                     {QStringLiteral("python3"), QStringLiteral("-c"), script, m_port,
                                      QString::number(noise + versionReply.size())});
    for (const Result &result : results) {
        QCOMPARE(result.outcome.error, QByteArray());
        const QList<QByteArray> words = result.outcome.output.split(' ');
        // A piece arrives each millisecond, but a busy machine may read many pieces together. The time below shows that
        // the pieces were paced.
        QVERIFY2(words.first().toInt() >= 3, result.outcome.output.constData());
        QCOMPARE(words.last(), QByteArray("b'$PJWVER,7300022,1,4,0*0d\\r\\n'\n"));
        QVERIFY(result.exchange.sentAt.at(0) - result.exchange.receivedAt.at(0) >= leastTime);
    }
}

void TestJwsim::firstQueriesAreIgnored()
{
    const auto results = inBothForms("BoardA", {{QStringLiteral("ignore"), 2}}, ask(m_port, versionReply.size(), 3));
    for (const Result &result : results) {
        QCOMPARE(result.outcome.output, versionReply);
        QCOMPARE(result.report.value(QLatin1String("queries")).toInt(), 3);
        QCOMPARE(result.exchange.sent.size(), 1);
    }
}

void TestJwsim::cableIsPulledAfterATime()
{
    const int time = 200;
    const QString script = QStringLiteral("exec 3<>/dev/%1 && echo open; cat <&3; echo ended").arg(m_port);
    const auto results = inBothForms("silent", {{QStringLiteral("pull-after"), time}}, shell(script));
    for (const Result &result : results) {
        QCOMPARE(result.outcome.output, QByteArray("open\nended\n"));
        QVERIFY(result.report.value(QLatin1String("pulled")).toInt() >= time - 1);
    }
    const QString wait = QStringLiteral("while test -e /sys/class/tty/%1; do :; done; test -e /dev/%1").arg(m_port);
    const auto gone = inBothForms("silent", {{QStringLiteral("pull-after"), 0}}, shell(wait));
    for (const Result &result : gone)
        QCOMPARE(result.outcome.status, 1);
}

void TestJwsim::cableIsPulledAfterBytes()
{
    const auto results = inBothForms("BoardA", {{QStringLiteral("pull-after-bytes"), 5}}, ask(m_port, 100));
    for (const Result &result : results) {
        QCOMPARE(result.outcome.output, QByteArray("$PJWV"));
        QCOMPARE(result.exchange.sent, QStringList(QStringLiteral("$PJWV")));
        QVERIFY(result.report.value(QLatin1String("pulled")).isDouble());
    }
}

void TestJwsim::busyPortIsLocked()
{
    const QString script = QStringLiteral("for f in /var/lock /etc/locks /var/spool/locks /var/spool/uucp /tmp; do "
                                          "test -e $f/LCK..%1 && head -n1 $f/LCK..%1 && echo $PPID; done; true")
                               .arg(m_port);
    const auto results = inBothForms("BoardA", {{QStringLiteral("open"), QStringLiteral("busy")}}, shell(script));
    for (const Result &result : results) {
        const QList<QByteArray> lines = linesOf(result.outcome.output);
        QCOMPARE(lines.size(), 2);
        QCOMPARE(lines.at(0).trimmed(), lines.at(1)); // the lock file names jwsim, which is the parent of the shell
    }
}

void TestJwsim::deniedPortDoesNotOpen()
{
    const auto results = inBothForms("BoardA", {{QStringLiteral("open"), QStringLiteral("denied")}}, ask(m_port, 1));
    for (const Result &result : results) {
        QVERIFY2(result.outcome.error.contains("Permission denied"), result.outcome.error.constData());
        QCOMPARE(result.outcome.output, QByteArray());
        QCOMPARE(result.exchange.received, QStringList());
    }
}

void TestJwsim::portHasTheGivenUsbIdentity()
{
    const Keys keys{{QStringLiteral("manufacturer"), QStringLiteral("Acme Boards Ltd.")},
                    {QStringLiteral("vendor"), QStringLiteral("12aB")},
                    {QStringLiteral("product"), QStringLiteral("00fe")},
                    {QStringLiteral("serial"), QStringLiteral("S-0042")}};
    const auto results =
        inBothForms("silent", keys, {jwprobeProgram(), QStringLiteral("--list"), QStringLiteral("--json")});
    for (const Result &result : results) {
        const QJsonArray ports =
            QJsonDocument::fromJson(result.outcome.output).object().value(QLatin1String("ports")).toArray();
        QCOMPARE(ports.size(), 1);
        const QJsonObject port = ports.first().toObject();
        QCOMPARE(port.value(QLatin1String("port")).toString(), m_port);
        QCOMPARE(port.value(QLatin1String("manufacturer")).toString(), QStringLiteral("Acme Boards Ltd."));
        QCOMPARE(port.value(QLatin1String("vendorId")).toString(), QStringLiteral("12ab"));
        QCOMPARE(port.value(QLatin1String("productId")).toString(), QStringLiteral("00fe"));
        QCOMPARE(port.value(QLatin1String("serialNumber")).toString(), QStringLiteral("S-0042"));
    }
}

void TestJwsim::otherSendsSentencesAtItsInterval()
{
    const int interval = 20;
    const auto results = inBothForms("other", {{QStringLiteral("interval"), interval}}, ask(m_port, 150));
    for (const Result &result : results) {
        QVERIFY(result.exchange.sent.size() >= 3);
        const QRegularExpression sentence(QStringLiteral(R"(^\$[A-Z]{5}(,[0-9A-Z.]*)+\*[0-9a-f]{2}\\r\\n$)"));
        for (const QString &text : result.exchange.sent)
            QVERIFY2(sentence.match(text).hasMatch(), qPrintable(text));
        const auto last = result.exchange.sent.size() - 1;
        QVERIFY(result.exchange.sentAt.at(last) >= (last + 1) * (interval - 1));
        QCOMPARE(result.report.value(QLatin1String("queries")).toInt(), 0);
    }
}

void TestJwsim::babbleRepeatsWithItsSeed()
{
    const QString interval = QStringLiteral("interval");
    const QString seed = QStringLiteral("seed");
    QSet<QByteArray> seven;
    const auto results = inBothForms("babble", {{interval, 5}, {seed, 7}}, ask(m_port, 64));
    for (const Result &result : results)
        seven.insert(result.exchange.sent.first().toLatin1());
    QCOMPARE(seven.size(), 1);
    const auto others = inBothForms("babble", {{interval, 5}, {seed, 8}}, ask(m_port, 64));
    QVERIFY(others.first().exchange.sent.first().toLatin1() != *seven.begin());
}

void TestJwsim::silentBoardOnlyListens()
{
    const auto results =
        inBothForms("silent", {}, shell(QStringLiteral("printf '$PJWVER*0c\\r\\n' > /dev/%1").arg(m_port)));
    for (const Result &result : results) {
        QCOMPARE(result.exchange.received, QStringList(QStringLiteral("$PJWVER*0c\\r\\n")));
        QCOMPARE(result.exchange.sent, QStringList());
    }
}

void TestJwsim::scenarioAndBoardOptionsCombine()
{
    const QString second = uniquePortName();
    QVERIFY(writeFile(file("scenario.json"),
                      QStringLiteral(R"({"boards": [{"kind": "silent", "port": "%1"}]})").arg(m_port).toLatin1()));
    const Outcome outcome = jwsim({QStringLiteral("--scenario=") + file("scenario.json"),
                                   QStringLiteral("--board=") + boardOn("BoardA", second), QStringLiteral("--report"),
                                   file("report.json"), QStringLiteral("ls"), QStringLiteral("/sys/class/tty")});
    QCOMPARE(outcome.status, 0);
    const QByteArray report = readFile(file("report.json"));
    QCOMPARE(boardReport(report, 0).value(QLatin1String("kind")).toString(), QStringLiteral("silent"));
    QCOMPARE(boardReport(report, 1).value(QLatin1String("port")).toString(), second);
}

void TestJwsim::wrongUseIsRefused_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QStringList>("says");

    const auto board = [](const char *row, const char *text, const QStringList &says) {
        QTest::newRow(row) << QStringList{QStringLiteral("--board"), QLatin1String(text)} << says;
    };
    const QString kinds = QStringLiteral("silent, babble, other");
    board("unknown kind", "Toaster", {QStringLiteral("Toaster"), QStringLiteral("BoardA, BoardB, BoardC"), kinds});
    board("kind in other letter case", "boarda", {QStringLiteral("boarda"), kinds});
    board("no kind", "", {kinds});
    board("kind left out", "delay=3", {kinds});
    board("unknown key", "BoardA,dealy=3", {QStringLiteral("dealy"), QStringLiteral("delay"), QStringLiteral("seed")});
    board("no value", "BoardA,delay", {QStringLiteral("delay"), QStringLiteral("key=value")});
    board("empty value", "BoardA,delay=", {QStringLiteral("delay"), QStringLiteral("milliseconds")});
    board("trailing comma", "BoardA,", {QStringLiteral("key=value")});
    board("delay below 0", "BoardA,delay=-1", {QStringLiteral("-1"), QStringLiteral("from 0")});
    board("delay no number", "BoardA,delay=soon", {QStringLiteral("soon"), QStringLiteral("milliseconds")});
    board("delay beyond int", "BoardA,delay=99999999999", {QStringLiteral("milliseconds")});
    board("speed a fraction", "BoardA,speed=9600.5", {QStringLiteral("baud")});
    board("usb a word", "BoardA,usb=fast", {QStringLiteral("none, cdc, bridge")});
    board("speed of a board without a line", "BoardA,speed=9600,usb=cdc",
          {QStringLiteral("speed"), QStringLiteral("usb=bridge")});
    board("chunk below 0", "BoardA,chunk=-5", {QStringLiteral("bytes")});
    board("gap a word", "BoardA,gap=x", {QStringLiteral("milliseconds")});
    board("noise below 0", "BoardA,noise=-2", {QStringLiteral("bytes")});
    board("checksum a word", "BoardA,checksum=bad", {QStringLiteral("good, wrong")});
    board("hwversion with a star", "BoardA,hwversion=7*3", {QStringLiteral("hwversion"), QStringLiteral("printable")});
    board("ignore a word", "BoardA,ignore=all", {QStringLiteral("ignore"), QStringLiteral("whole number")});
    board("replies 0", "BoardA,replies=0", {QStringLiteral("from 1")});
    board("pull-after a word", "BoardA,pull-after=x", {QStringLiteral("milliseconds")});
    board("pull-after-bytes below 0", "BoardA,pull-after-bytes=-1", {QStringLiteral("bytes")});
    board("open a word", "BoardA,open=no", {QStringLiteral("ok, busy, denied")});
    board("vendor of 3 digits", "BoardA,vendor=483", {QStringLiteral("4 hexadecimal digits")});
    board("vendor no hexadecimal", "BoardA,vendor=0x48", {QStringLiteral("4 hexadecimal digits")});
    board("product of 5 digits", "BoardA,product=12345", {QStringLiteral("4 hexadecimal digits")});
    board("manufacturer not ASCII", "BoardA,manufacturer=M\xfcller", {QStringLiteral("printable ASCII")});
    board("product-name not ASCII", "BoardA,product-name=\xfc", {QStringLiteral("printable ASCII")});
    board("serial not ASCII", "BoardA,serial=\xfc", {QStringLiteral("printable ASCII")});
    board("port with folder", "BoardA,port=/dev/ttyACM0", {QStringLiteral("ttyACM0")});
    board("port leading out", "BoardA,port=../x", {QStringLiteral("ttyACM0")});
    board("interval 0", "other,interval=0", {QStringLiteral("from 1")});
    board("seed below 0", "babble,seed=-1", {QStringLiteral("4294967295")});
    board("line break", "BoardA,serial=a\nb", {QStringLiteral("printable ASCII")});
    QTest::newRow("same port twice") << QStringList{QStringLiteral("--board"), QStringLiteral("BoardA,port=ttyQQ7"),
                                                    QStringLiteral("--board"), QStringLiteral("silent,port=ttyQQ7")}
                                     << QStringList{QStringLiteral("ttyQQ7"), QStringLiteral("own")};
    QTest::newRow("unknown option") << QStringList{QStringLiteral("--bord"), QStringLiteral("BoardA")}
                                    << QStringList{QStringLiteral("--bord"), QStringLiteral("--board")};
    QTest::newRow("empty report") << QStringList{QStringLiteral("--report"), QString()}
                                  << QStringList{QStringLiteral("--report"), QStringLiteral("file")};
}

void TestJwsim::wrongUseIsRefused()
{
    QFETCH(QStringList, options);
    QFETCH(QStringList, says);

    const Outcome outcome =
        jwsim(options + QStringList{QStringLiteral("--"), QStringLiteral("touch"), file("started")});
    QCOMPARE(outcome.status, 2);
    QCOMPARE(outcome.output, QByteArray());
    QCOMPARE(linesOf(outcome.error).size(), 1);
    QVERIFY2(outcome.error.startsWith("jwsim: "), outcome.error.constData());
    for (const QString &text : says)
        QVERIFY2(QString::fromLocal8Bit(outcome.error).contains(text), outcome.error.constData());
    QVERIFY(!QFile::exists(file("started")));
}

void TestJwsim::wrongScenarioIsRefused_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("says");

    QTest::newRow("not JSON") << QByteArray("boards: BoardA") << QStringLiteral("JSON");
    QTest::newRow("empty") << QByteArray() << QStringLiteral("JSON");
    QTest::newRow("an array") << QByteArray(R"([{"kind": "BoardA"}])") << QStringLiteral("\"boards\"");
    QTest::newRow("other member") << QByteArray(R"({"boards": [], "speed": 3})") << QStringLiteral("\"boards\"");
    QTest::newRow("boards no array") << QByteArray(R"({"boards": {}})") << QStringLiteral("\"boards\"");
    QTest::newRow("board no object") << QByteArray(R"({"boards": ["BoardA"]})") << QStringLiteral("board 1");
    QTest::newRow("no kind") << QByteArray(R"({"boards": [{"delay": 3}]})") << QStringLiteral("BoardA, BoardB");
    QTest::newRow("unknown kind") << QByteArray(R"({"boards": [{"kind": "Toaster"}]})") << QStringLiteral("Toaster");
    QTest::newRow("fault in the second") << QByteArray(R"({"boards": [{"kind": "BoardA"}, {"kind": "other", "x": 1}]})")
                                         << QStringLiteral("board 2");
    QTest::newRow("wrong value") << QByteArray(R"({"boards": [{"kind": "BoardA", "delay": -1}]})")
                                 << QStringLiteral("milliseconds");
    QTest::newRow("fraction") << QByteArray(R"({"boards": [{"kind": "BoardA", "delay": 1.5}]})")
                              << QStringLiteral("whole number");
    QTest::newRow("speed of a board without a line")
        << QByteArray(R"({"boards": [{"kind": "BoardA", "usb": "cdc", "speed": 9600}]})")
        << QStringLiteral("usb=bridge");
    QTest::newRow("truth value") << QByteArray(R"({"boards": [{"kind": "BoardA", "delay": true}]})")
                                 << QStringLiteral("delay");
    QTest::newRow("list as value") << QByteArray(R"({"boards": [{"kind": "BoardA", "delay": [1]}]})")
                                   << QStringLiteral("delay");
}

void TestJwsim::wrongScenarioIsRefused()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, says);

    const QString scenario = file("scenario.json");
    QVERIFY(writeFile(scenario, text));
    for (const QString &name : {scenario, file("missing.json")}) {
        const Outcome outcome = jwsim({QStringLiteral("--scenario"), name, QStringLiteral("touch"), file("started")});
        QCOMPARE(outcome.status, 2);
        QCOMPARE(linesOf(outcome.error).size(), 1);
        QVERIFY2(outcome.error.contains(name.toLocal8Bit()), outcome.error.constData());
        if (name == scenario)
            QVERIFY2(QString::fromLocal8Bit(outcome.error).contains(says), outcome.error.constData());
        QVERIFY(!QFile::exists(file("started")));
    }
}

void TestJwsim::tooManyBoardsAreRefused()
{
    QStringList boards;
    for (int i = 0; i < 49; ++i)
        boards.append(QStringLiteral("silent"));
    const QStringList command{QStringLiteral("touch"), file("started")};
    const Outcome outcome = jwsim(simulated(boards, command));
    QCOMPARE(outcome.status, 2);
    QVERIFY2(outcome.error.contains("48"), outcome.error.constData());
    QVERIFY(!QFile::exists(file("started")));

    boards.removeLast();
    const Outcome most = jwsim(simulated(boards, command));
    QCOMPARE(most.status, 0);
    QVERIFY(QFile::exists(file("started")));
}

void TestJwsim::unwritableReportIsRefused()
{
    QVERIFY(writeFile(file("file"), QByteArray()));
    for (const QString &name : {file("no/such/folder/report.json"), m_folder->path(), file("file/report.json")}) {
        const Outcome outcome = jwsim({QStringLiteral("--report"), name, QStringLiteral("touch"), file("started")});
        QCOMPARE(outcome.status, 2);
        QCOMPARE(linesOf(outcome.error).size(), 1);
        QVERIFY2(outcome.error.contains(name.toLocal8Bit()), outcome.error.constData());
        QVERIFY(!QFile::exists(file("started")));
    }
}

void TestJwsim::reportStaysUnchangedIfNothingRan_data()
{
    QTest::addColumn<QString>("board");
    QTest::addColumn<QString>("command");
    QTest::addColumn<int>("status");

    const QString none = QStringLiteral("silent");
    QTest::newRow("wrong board") << QStringLiteral("BoardA,delay=x") << QStringLiteral("true") << 2;
    QTest::newRow("board that the system refuses")
        << QStringLiteral("silent,port=ttyQQ8,open=busy") << QStringLiteral("true") << 2;
    QTest::newRow("no COMMAND") << none << QString() << 2;
    QTest::newRow("COMMAND is not there") << none << QStringLiteral("no-such-program-anywhere") << 127;
    QTest::newRow("COMMAND is no program") << none << QStringLiteral("/etc/passwd") << 126;
}

void TestJwsim::reportStaysUnchangedIfNothingRan()
{
    QFETCH(QString, board);
    QFETCH(QString, command);
    QFETCH(int, status);

    QString lock;
    if (board.contains(QLatin1String("open=busy"))) {
        board = boardOn("silent", m_port, "open=busy");
        lock = lockFile(m_port);
        QVERIFY(writeFile(lock, tenColumns(::getpid()) + '\n'));
    }
    QVERIFY(writeFile(file("report.json"), "former"));
    for (const QString &name : {file("report.json"), file("new.json")}) {
        QStringList arguments{QStringLiteral("--report"), name, QStringLiteral("--board"), board};
        if (!command.isEmpty())
            arguments.append(command);
        const Outcome outcome = jwsim(arguments);
        QCOMPARE(outcome.status, status);
        QCOMPARE(linesOf(outcome.error).size(), 1);
    }
    if (!lock.isEmpty())
        QVERIFY(QFile::remove(lock));
    QCOMPARE(readFile(file("report.json")), QByteArray("former"));
    QVERIFY(!QFile::exists(file("new.json")));
}

void TestJwsim::reportReplacesAnOldReport()
{
    const QString name = file("report.json");
    QVERIFY(writeFile(name, QByteArray(100000, 'x')));
    // COMMAND prints the old file, because jwsim replaces the file after COMMAND ended.
    const Outcome outcome = jwsim(QStringList{QStringLiteral("--report"), name}
                                  + simulated({boardOn("silent", m_port)}, {QStringLiteral("cat"), name}));
    QCOMPARE(outcome.status, 0);
    QCOMPARE(outcome.output, QByteArray(100000, 'x'));
    QCOMPARE(boardReport(readFile(name)).value(QLatin1String("port")).toString(), m_port);
}

void TestJwsim::failureToWriteTheReportIsReported_data()
{
    QTest::addColumn<int>("command");
    QTest::addColumn<int>("status");
    QTest::newRow("COMMAND was successful") << 0 << 125;
    QTest::newRow("COMMAND had failed") << 3 << 3;
}

void TestJwsim::failureToWriteTheReportIsReported()
{
    QFETCH(int, command);
    QFETCH(int, status);

    const Outcome outcome =
        jwsim(QStringList{QStringLiteral("--report"), QStringLiteral("/dev/full")}
              + simulated({boardOn("silent", m_port)}, shell(QStringLiteral("exit %1").arg(command))));
    QCOMPARE(outcome.status, status);
    QCOMPARE(linesOf(outcome.error).size(), 1);
    QVERIFY2(outcome.error.contains("/dev/full"), outcome.error.constData());
    QVERIFY2(outcome.error.contains("No space left"), outcome.error.constData());
}

void TestJwsim::helpNamesOptionsKindsAndKeysIn80Columns()
{
    const Outcome outcome = jwsim({QStringLiteral("--help")});
    QCOMPARE(outcome.status, 0);
    QCOMPARE(outcome.error, QByteArray());
    for (const QByteArray &line : linesOf(outcome.output))
        QVERIFY2(line.size() <= 80, line.constData());
    for (const char *text : {"--scenario",
                             "--board",
                             "--report",
                             "--help",
                             "--version",
                             "BoardA",
                             "BoardB",
                             "BoardC",
                             "silent",
                             "babble",
                             "other",
                             "  delay ",
                             "  speed ",
                             "  usb ",
                             "  chunk ",
                             "  gap ",
                             "  noise ",
                             "  checksum ",
                             "  hwversion ",
                             "  ignore ",
                             "  replies ",
                             "  pull-after ",
                             "  pull-after-bytes ",
                             "  open ",
                             "  manufacturer ",
                             "  vendor ",
                             "  product ",
                             "  product-name ",
                             "  serial ",
                             "  port ",
                             "  interval ",
                             "  seed "})
        QVERIFY2(outcome.output.contains(text), text);
}

void TestJwsim::failureToPrintTextGives125_data()
{
    QTest::addColumn<QString>("call");
    for (const char *option : {"--help", "--version"}) {
        QTest::addRow("%s to a full device", option)
            << QStringLiteral("\"$0\" %1 > /dev/full").arg(QLatin1String(option));
        QTest::addRow("%s to nowhere", option) << QStringLiteral("\"$0\" %1 >&-").arg(QLatin1String(option));
    }
}

void TestJwsim::failureToPrintTextGives125()
{
    QFETCH(QString, call);
    const Outcome outcome = runProgram(QStringLiteral("sh"), {QStringLiteral("-c"), call, jwsimProgram()});
    QCOMPARE(outcome.status, 125);
    QCOMPARE(linesOf(outcome.error).size(), 1);
    QVERIFY2(outcome.error.startsWith("jwsim: cannot write to standard output: "), outcome.error.constData());
}

void TestJwsim::versionIsTheProjectsVersion()
{
    const Outcome outcome = jwsim({QStringLiteral("--version")});
    QCOMPARE(outcome.status, 0);
    QCOMPARE(outcome.output, QByteArray("jwsim " PROJECT_VERSION "\n"));
}

void TestJwsim::commandsStatusIsPassedOn()
{
    const QStringList boards{boardOn("BoardA", m_port)};
    QCOMPARE(jwsim(simulated(boards, {QStringLiteral("true")})).status, 0);
    QCOMPARE(jwsim(simulated(boards, {QStringLiteral("false")})).status, 1);
    QCOMPARE(jwsim(simulated(boards, shell(QStringLiteral("exit 77")))).status, 77);
}

void TestJwsim::commandKilledByASignalGivesItsNumber()
{
    const Outcome outcome = jwsim(simulated({boardOn("BoardA", m_port)}, shell(QStringLiteral("kill -9 $$"))));
    QCOMPARE(outcome.status, 128 + SIGKILL);
}

void TestJwsim::missingCommandGives127_data()
{
    QTest::addColumn<QString>("command");
    QTest::newRow("name") << QStringLiteral("no-such-program-anywhere");
    QTest::newRow("path") << QStringLiteral("/no/such/program");
    QTest::newRow("empty") << QString();
}

void TestJwsim::missingCommandGives127()
{
    QFETCH(QString, command);
    const Outcome outcome = jwsim(simulated({boardOn("BoardA", m_port)}, {command}));
    QCOMPARE(outcome.status, 127);
    QCOMPARE(linesOf(outcome.error).size(), 1);
    QVERIFY2(outcome.error.contains(command.toLatin1()), outcome.error.constData());
}

void TestJwsim::commandThatCannotRunGives126()
{
    QVERIFY(writeFile(file("text"), "just a text\n"));
    for (const QString &command : {file("text"), m_folder->path()}) {
        const Outcome outcome = jwsim(simulated({boardOn("BoardA", m_port)}, {command}));
        QCOMPARE(outcome.status, 126);
        QCOMPARE(linesOf(outcome.error).size(), 1);
        QVERIFY2(outcome.error.contains(command.toLatin1()), outcome.error.constData());
    }
}

void TestJwsim::commandHasTheStandardStreams()
{
    const Outcome outcome =
        jwsim(simulated({boardOn("BoardA", m_port)}, shell(QStringLiteral("cat; echo problem >&2"))), "some\n\nlines");
    QCOMPARE(outcome.output, QByteArray("some\n\nlines"));
    QCOMPARE(outcome.error, QByteArray("problem\n"));
    QCOMPARE(outcome.status, 0);
}

void TestJwsim::argumentsAfterCommandBelongToIt()
{
    const Outcome outcome = jwsim({QStringLiteral("--board"), boardOn("BoardA", m_port), QStringLiteral("echo"),
                                   QStringLiteral("--board"), QStringLiteral("nonsense"), QStringLiteral("--"),
                                   QStringLiteral("--help"), QString(), QStringLiteral("-platform")});
    QCOMPARE(outcome.output, QByteArray("--board nonsense -- --help  -platform\n"));
    QCOMPARE(outcome.status, 0);
}

void TestJwsim::doubleDashEndsTheOptions()
{
    QCOMPARE(jwsim({QStringLiteral("--"), QStringLiteral("echo"), QStringLiteral("--")}).output, QByteArray("--\n"));

    const Outcome dashed = jwsim({QStringLiteral("--"), QStringLiteral("--version")});
    QCOMPARE(dashed.status, 127);
    for (const QStringList &arguments : {QStringList(), QStringList{QStringLiteral("--")}}) {
        const Outcome outcome = jwsim(arguments);
        QCOMPARE(outcome.status, 2);
        QCOMPARE(linesOf(outcome.error).size(), 1);
        QVERIFY2(outcome.error.contains("COMMAND"), outcome.error.constData());
    }
    for (const char *option : {"--board", "--scenario", "--report"}) {
        const Outcome outcome = jwsim({QLatin1String(option)});
        QCOMPARE(outcome.status, 2);
        QCOMPARE(linesOf(outcome.error).size(), 1);
        QVERIFY2(outcome.error.contains(option), outcome.error.constData());
    }
}

void TestJwsim::runsWithoutABoard()
{
    const Outcome outcome = jwsim(QStringList{QStringLiteral("--report"), file("report.json")}
                                  + shell(QStringLiteral("ls /sys/class/tty 2> /dev/null; true")));
    QCOMPARE(outcome.output, QByteArray());
    const QJsonDocument report = QJsonDocument::fromJson(readFile(file("report.json")));
    QCOMPARE(report.object().keys(), QStringList(QStringLiteral("boards")));
    QVERIFY(report.object().value(QLatin1String("boards")).toArray().isEmpty());
    QCOMPARE(outcome.error, QByteArray("jwsim: no board is simulated; add one, for example --board BoardA\n"));
    QCOMPARE(outcome.status, 0);
}

void TestJwsim::runsWithSigchldIgnored()
{
    const QString call = QStringLiteral("import os, signal, sys\n"
                                        "signal.signal(signal.SIGCHLD, signal.SIG_IGN)\n"
                                        "os.execv(sys.argv[1], sys.argv[1:])\n");
    const QString command = QStringLiteral("import signal, sys\n"
                                           "print(signal.getsignal(signal.SIGCHLD) == signal.SIG_IGN)\n"
                                           "sys.exit(7)\n");
    const QString python = QStringLiteral("python3");
    const Outcome outcome =
        runProgram(python,
                   QStringList{QStringLiteral("-c"), call, jwsimProgram()}
                       + simulated({boardOn("silent", m_port)}, {python, QStringLiteral("-c"), command}));
    QCOMPARE(outcome.status, 7);
    // True: SIGCHLD was ignored when jwsim started, and COMMAND inherited this.
    QCOMPARE(outcome.output, QByteArray("True\n"));
}

void TestJwsim::runsWithAnInheritedRestartVariable()
{
    ProgramRun run(jwsimProgram(), simulated({boardOn("silent", m_port)}, shell(QStringLiteral("ls /sys/class/tty"))));
    prepare(run);
    run.setEnvironment(QStringLiteral("JWSIM_PRELOAD_TRIED"), QStringLiteral("1"));
    run.start();
    QVERIFY(run.finish());
    QCOMPARE(run.error(), QByteArray());
    QCOMPARE(run.output().trimmed(), m_port.toLatin1());
    QCOMPARE(run.status(), 0);
}

void TestJwsim::manyLongRepliesTakeLittleMemory()
{
    // The board must send 1 GB of replies, but the program reads only 20 MB of them. If the board
    // made all replies at once, jwsim would need 1 GB of memory.
    const QString read = QStringLiteral("import os, sys\n"
                                        "port = os.open('/dev/' + sys.argv[1], os.O_RDWR | os.O_NOCTTY)\n"
                                        "os.write(port, b'$PJWVER*0c\\r\\n')\n"
                                        "count = 0\n"
                                        "while count < 20000000:\n"
                                        "    count += len(os.read(port, 65536))\n");
    const QString measure = QStringLiteral("import resource, subprocess, sys\n"
                                           "status = subprocess.call(sys.argv[1:])\n"
                                           "print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)\n"
                                           "sys.exit(status)\n");
    ProgramRun run(
        QStringLiteral("python3"),
        QStringList{QStringLiteral("-c"), measure, jwsimProgram(), QStringLiteral("--report"), file("report.json")}
            + simulated({boardOn("BoardA", m_port, "replies=1000,noise=1000000")},
                        {QStringLiteral("python3"), QStringLiteral("-c"), read, m_port}));
    // By default AddressSanitizer keeps 256 MB of freed memory, which would exceed the limit below.
    run.setEnvironment(QStringLiteral("ASAN_OPTIONS"), QStringLiteral("quarantine_size_mb=8"));
    run.start();
    QVERIFY(run.finish());
    QCOMPARE(run.error(), QByteArray());
    QCOMPARE(run.status(), 0);
    // The output is the largest memory use of jwsim or COMMAND, in kilobytes.
    QVERIFY2(run.output().toInt() < 400000, run.output().constData());
    QVERIFY(!exchangeOf(boardReport(readFile(file("report.json")))).sent.isEmpty());
}

void TestJwsim::reportHasAllBytes()
{
    const QString silent = uniquePortName();
    const QString script =
        QStringLiteral("printf 'tab\\tback\\\\slash\\r\\nrest\\377' > /dev/%1; exec \"$@\"").arg(silent);
    const Outcome outcome =
        jwsim(QStringList{QStringLiteral("--report"), file("report.json")}
              + simulated({boardOn("BoardA", m_port), boardOn("silent", silent)},
                          shell(script) + QStringList{QStringLiteral("sh")} + ask(m_port, versionReply.size())));
    QCOMPARE(outcome.error, QByteArray());

    const QByteArray report = readFile(file("report.json"));
    const QJsonObject board = boardReport(report);
    QCOMPARE(board.value(QLatin1String("port")).toString(), m_port);
    QCOMPARE(board.value(QLatin1String("kind")).toString(), QStringLiteral("BoardA"));
    QCOMPARE(board.value(QLatin1String("queries")).toInt(), 1);
    QVERIFY(board.value(QLatin1String("pulled")).isNull());
    const Exchange exchange = exchangeOf(board);
    QCOMPARE(exchange.received, QStringList(QStringLiteral("$PJWVER*0c\\r\\n")));
    QCOMPARE(exchange.sent, QStringList(escaped(versionReply)));
    QVERIFY(exchange.receivedAt.first() >= 0);
    QVERIFY(exchange.sentAt.first() >= exchange.receivedAt.first());

    const QJsonObject listener = boardReport(report, 1);
    QCOMPARE(listener.value(QLatin1String("queries")).toInt(), 0);
    QCOMPARE(exchangeOf(listener).received,
             (QStringList{QStringLiteral("tab\\x09back\\\\slash\\r\\n"), QStringLiteral("rest\\xff")}));
}

void TestJwsim::reportIsWrittenWhenTheCommandIsKilled()
{
    const auto results =
        inBothForms("BoardA", {}, shell(QStringLiteral("printf '$PJWVER*0c\\r\\n' > /dev/%1; kill -9 $$").arg(m_port)));
    for (const Result &result : results) {
        QCOMPARE(result.outcome.status, 128 + SIGKILL);
        QCOMPARE(result.exchange.received.size(), 1);
    }
}

void TestJwsim::signalEndsTheCommandAndCleansUp_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGHUP") << SIGHUP;
}

void TestJwsim::signalEndsTheCommandAndCleansUp()
{
    NEEDS_PROGRAM("python3", "python3");
    QFETCH(int, number);

    ProgramRun run(jwsimProgram(),
                   QStringList{QStringLiteral("--report"), file("report.json")}
                       + simulated({boardOn("BoardA", m_port), boardOn("BoardB", uniquePortName(), "open=busy")},
                                   // Reset SIGINT, because a program that was started in the background may ignore
                                   // SIGINT.
                                   waiting("signal.SIGINT, signal.SIG_DFL")));
    prepare(run);
    run.start();
    WAIT_FOR(run.output().endsWith('\n'));
    const pid_t command = run.output().trimmed().toInt();
    QVERIFY(!leftovers().isEmpty()); // now cleanup() can check that jwsim removed these files
    QVERIFY(!lockFiles(QStringLiteral("jwsim.") + m_port).isEmpty()); // jwsim also reserves a name that the user chose
    run.sendSignal(number);
    QVERIFY(run.finish());
    QCOMPARE(run.status(), 128 + number);
    QVERIFY(isGone(command));
    QCOMPARE(boardReport(readFile(file("report.json"))).value(QLatin1String("port")).toString(), m_port);
}

void TestJwsim::commandThatCatchesTheSignalGivesItsStatus()
{
    ProgramRun run(jwsimProgram(),
                   simulated({boardOn("BoardA", m_port)},
                             shell(QStringLiteral("trap 'echo caught; exit 5' TERM; echo ready; "
                                                  "while :; do sleep 0.01; done"))));
    prepare(run);
    run.start();
    WAIT_FOR(run.output() == "ready\n");
    run.sendSignal(SIGTERM);
    QVERIFY(run.finish());
    QCOMPARE(run.output(), QByteArray("ready\ncaught\n"));
    QCOMPARE(run.status(), 5);
}

void TestJwsim::commandThatDoesNotEndIsKilled()
{
    NEEDS_PROGRAM("python3", "python3");
    ProgramRun run(jwsimProgram(), simulated({boardOn("BoardA", m_port)}, waiting("signal.SIGTERM, signal.SIG_IGN")));
    prepare(run);
    run.start();
    WAIT_FOR(run.output().endsWith('\n'));
    const pid_t command = run.output().trimmed().toInt();
    run.sendSignal(SIGTERM);
    QVERIFY(run.finish());
    QCOMPARE(run.status(), 128 + SIGKILL);
    QVERIFY(isGone(command));
}

void TestJwsim::ctrlCReachesTheCommandOnce()
{
    NEEDS_PROGRAM("python3", "python3");
    TerminalRun run(jwsimProgram(),
                    simulated({boardOn("BoardA", m_port)},
                              {QStringLiteral("python3"), QStringLiteral("-c"),
                               QStringLiteral("import signal, sys\n"
                                              "signal.pthread_sigmask(signal.SIG_BLOCK, {2, 15})\n"
                                              "print('terminal', sys.stdin.isatty(), flush=True)\n"
                                              "signal.sigwait({2})\n"
                                              "print('interrupted', flush=True)\n"
                                              "signal.sigwait({15})\n"
                                              "print('pending', len(signal.sigpending()), flush=True)")}));
    WAIT_FOR(run.screen().contains("terminal True"));
    // Ctrl+C sends SIGINT to jwsim and to the command. SIGSTOP stops jwsim until the command has handled its SIGINT. If
    // jwsim then passed its own SIGINT on, the command would have a second SIGINT pending.
    run.sendSignal(SIGSTOP);
    QVERIFY(run.type("\x03"));
    WAIT_FOR(run.screen().contains("interrupted"));
    run.sendSignal(SIGTERM);
    run.sendSignal(SIGCONT);
    WAIT_FOR(run.isOver());
    QVERIFY2(run.screen().contains("pending 0"), run.screen().constData());
    QCOMPARE(run.status(), 0);
}

void TestJwsim::lockOfAKilledHostIsRemoved()
{
    // jwprobe keeps the port open until the script kills jwprobe, so jwprobe's lock file stays behind.
    const QString script = QStringLiteral("\"$@\" > %1 & while ! test -s %1; do :; done; kill -9 $!; wait $!; "
                                          "ls /var/lock/LCK..%2 /tmp/LCK..%2 2>/dev/null | wc -l")
                               .arg(file("output"), m_port);
    const Outcome outcome =
        jwsim(simulated({boardOn("BoardA", m_port)},
                        {QStringLiteral("sh"), QStringLiteral("-c"), script, QStringLiteral("sh"), jwprobeProgram(),
                         QStringLiteral("--monitor"), QStringLiteral("--type"), QStringLiteral("BoardA")}));
    // One lock file, that of jwprobe. cleanup() checks that jwsim removed it.
    QCOMPARE(outcome.output.trimmed(), QByteArray("1"));
    QCOMPARE(outcome.status, 0);
}

void TestJwsim::lockOfALivingProgramStays_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("keys");
    QTest::addColumn<int>("status");

    const QByteArray process = tenColumns(::getpid());
    QTest::newRow("process id") << process + '\n' << QByteArray() << 0;
    QTest::newRow("without a line end") << process << QByteArray() << 0;
    QTest::newRow("process id, name, user") << process + " minicom root\n" << QByteArray() << 0;
    QTest::newRow("process of somebody else") << tenColumns(1) + '\n' << QByteArray() << 0;
    QTest::newRow("port that jwsim holds itself") << process + '\n' << QByteArray("open=busy") << 2;
}

void TestJwsim::lockOfALivingProgramStays()
{
    QFETCH(QByteArray, text);
    QFETCH(QByteArray, keys);
    QFETCH(int, status);

    const QString lock = lockFile(m_port);
    QVERIFY(writeFile(lock, text));
    const Outcome outcome = jwsim(simulated({boardOn("silent", m_port, keys.constData())}, {QStringLiteral("true")}));
    const QByteArray after = readFile(lock);
    QFile::remove(lock);
    QCOMPARE(after, text);
    QCOMPARE(outcome.status, status);
    QCOMPARE(outcome.error.contains(lock.toLocal8Bit()), status != 0);
}

void TestJwsim::lockOfAnEndedProgramIsRemoved()
{
    QProcess ended;
    ended.start(QStringLiteral("true"), QStringList());
    QVERIFY(ended.waitForStarted());
    const qint64 process = ended.processId();
    QVERIFY(ended.waitForFinished(programPatience));
    QVERIFY(writeFile(lockFile(m_port), tenColumns(process) + '\n'));
    QCOMPARE(jwsim(simulated({boardOn("silent", m_port)}, {QStringLiteral("true")})).status, 0);
    // cleanup() checks that jwsim removed the lock file.
}

void TestJwsim::socatTalksToABoard()
{
    NEEDS_PROGRAM("socat", "socat");
    ProgramRun run(jwsimProgram(),
                   simulated({boardOn("BoardB", m_port)},
                             {QStringLiteral("socat"), QStringLiteral("-"),
                              QStringLiteral("/dev/%1,b115200,raw,echo=0").arg(m_port)}));
    prepare(run);
    run.start();
    run.write("$PJWVER*0c\r\n");
    WAIT_FOR(run.output() == "$PJWVER,7300021,1,4,0*0e\r\n");
    run.closeInput();
    QVERIFY(run.finish());
    QCOMPARE(run.status(), 0);
}

void TestJwsim::pythonTalksToABoard()
{
    NEEDS_PROGRAM("python3", "python3");
    const QString script = QStringLiteral("import os, sys, tty\n"
                                          "port = os.open('/dev/' + sys.argv[1], os.O_RDWR | os.O_NOCTTY)\n"
                                          "tty.setraw(port)\n"
                                          "os.write(port, b'$PTJWWR,INF*71\\r\\n')\n"
                                          "print(os.read(port, 1))\n");
    const Outcome outcome = jwsim(
        simulated({boardOn("BoardC", m_port)}, {QStringLiteral("python3"), QStringLiteral("-c"), script, m_port}));
    QCOMPARE(outcome.error, QByteArray());
    QCOMPARE(outcome.output, QByteArray("b'$'\n"));
}

QTEST_GUILESS_MAIN(TestJwsim)
#include "tst_jwsim.moc"

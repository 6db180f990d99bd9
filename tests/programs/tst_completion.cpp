#include "support/programs/jwsimrun.h"
#include "support/programs/neededprogram.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

/// Tests packaging/completion in a real bash without other completions.
class TestCompletion : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { NEEDS_PROGRAM("bash", "bash"); }

    void jwprobe_data();
    void jwprobe();
    void jwprobePortsAreThoseOfTheSystem();
    void jwprobeIdsAreThoseOfTheSystem_data();
    void jwprobeIdsAreThoseOfTheSystem();
    void jwsim_data();
    void jwsim();
    void jwsimCompletesScenarioFiles();
    void jwsimCompletesCommands();
    void jwsimLeavesTheCommandsWordsToIt();
#ifdef JWMONITOR_PROGRAM
    void jwmonitor_data();
    void jwmonitor();
    void jwmonitorRunsNothingThatJwprobeSays();
#endif
    void optionsAreThoseOfTheHelp_data();
    void optionsAreThoseOfTheHelp();
    void kindsAreThoseOfTheHelp();
    void keysAreThoseOfTheHelp();
};

namespace {

// Splits a line of text into words like bash: at blanks, and around each "=" or ":". Text in quotes and a character
// after a
// "\\" stay in their word.
QStringList wordsOf(const QString &line)
{
    const QRegularExpression word(QStringLiteral("[=:]|(?:'[^']*(?:'|$)|\\\\.|[^ '=:\\\\])+"));
    QStringList words;
    QRegularExpressionMatchIterator matches = word.globalMatch(line);
    while (matches.hasNext())
        words.append(matches.next().captured());
    if (line.endsWith(QLatin1Char(' ')))
        words.append(QString());
    return words;
}

// Returns the part of the last word that bash replaces with a completed word. bash keeps an opening quote, a "=" or a
// ":".
QString replacedPart(const QString &word)
{
    if (word == QLatin1String("=") || word == QLatin1String(":"))
        return QString();
    return word.startsWith(QLatin1Char('\'')) ? word.mid(1) : word;
}

// Returns the words that the completion offers for `line`, while the simulated `boards` are attached. `program` is a
// path or a name in PATH.
QByteArray completed(const QString &program, const QString &line, const QStringList &boards = {})
{
    const QStringList words = wordsOf(line).mid(1);
    const QString script = QStringLiteral("source \"$1\" && replaced=$2 && shift 2 && "
                                          "COMP_WORDS=(\"$@\") && COMP_CWORD=$(($# - 1)) && "
                                          "function=$(complete -p \"${0##*/}\") && function=${function#*-F } && "
                                          "${function%% *} \"$0\" \"$replaced\"; "
                                          "printf '%s\\n' \"${COMPREPLY[@]}\"");
    const QString file =
        QStringLiteral(PROJECT_FOLDER "/packaging/completion/") + program.section(QLatin1Char('/'), -1);
    const QStringList command = QStringList{QStringLiteral("bash"),
                                            QStringLiteral("--norc"),
                                            QStringLiteral("--noprofile"),
                                            QStringLiteral("-c"),
                                            script,
                                            program,
                                            file,
                                            replacedPart(words.last()),
                                            program}
        + words;
    const Outcome outcome = boards.isEmpty() ? runProgram(command.first(), command.mid(1))
                                             : runProgram(jwsimProgram(), simulated(boards, command));
    QList<QByteArray> replies = linesOf(outcome.output);
    std::sort(replies.begin(), replies.end());
    return outcome.error + replies.join(' ');
}

QString folder(const QTemporaryDir &dir, const char *name)
{
    return dir.filePath(QLatin1String(name));
}

void create(const QString &name)
{
    QFile file(name);
    QVERIFY(file.open(QIODevice::WriteOnly));
}

} // namespace

void TestCompletion::jwprobe_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QByteArray>("replies");
    const auto row = [](const char *line, const char *replies) {
        QTest::newRow(line) << QString::fromLatin1(line) << QByteArray(replies);
    };
    row("jwprobe --d", "--deadline --delay --doctor");
    row("jwprobe --json --ra", "--raw-traffic");
    row("jwprobe --type ", "BoardA BoardB BoardC");
    row("jwprobe --type BoardB --type BoardC", "BoardC");
    row("jwprobe --type=", "BoardA BoardB BoardC");
    row("jwprobe --type=BoardA", "BoardA");
    row("jwprobe --log e", "error");
    row("jwprobe --delay ", "");
    row("jwprobe --deadline=", "");
    row("jwprobe --type=BoardA --j", "--json");
    // After these options, the completion offers only options that jwprobe accepts together with them.
    row("jwprobe --list --", "--help --id --json --port --version");
    row("jwprobe --port=ttyACM0 --doctor --", "--help --id --json --port --version");
    row("jwprobe --udev-rules --", "--help --version");
    row("jwprobe --monitor --",
        "--ca --certificate --deadline --delay --fleet --help --id --json --key --log --login --port --prefix "
        "--raw-traffic --retries --traffic --type --version");
    row("jwprobe --watch --",
        "--deadline --delay --help --id --json --log --port --raw-traffic --retries --traffic --type --version");
    row("jwprobe --type BoardA --",
        "--ca --certificate --deadline --delay --fleet --help --id --json --key --log --login --monitor --port "
        "--prefix "
        "--raw-traffic --retries --send --traffic --type --version --watch");
    row("jwprobe --fleet mqtt://x --",
        "--ca --certificate --deadline --help --id --json --key --login --monitor --prefix --send --type --version");
    row("jwprobe --fleet mqtt://x --send SIM1:1.0 PJWVER --",
        "--ca --certificate --deadline --help --id --json --key --login --prefix --type --version");
    row("jwprobe --fleet m", "mqtt mqtts");
}

void TestCompletion::jwprobe()
{
    QFETCH(QString, line);
    QFETCH(QByteArray, replies);
    QCOMPARE(completed(jwprobeProgram(), line), replies);
}

void TestCompletion::jwprobePortsAreThoseOfTheSystem()
{
    const QString first = uniquePortName();
    const QString second = uniquePortName();
    const QStringList boards{boardOn("BoardA", first), boardOn("silent", second, "vendor=1234,manufacturer=Acme")};
    const QByteArray both = QStringLiteral("%1 %2").arg(first, second).toLatin1();
    QCOMPARE(completed(jwprobeProgram(), QStringLiteral("jwprobe --port "), boards), both);
    QCOMPARE(completed(jwprobeProgram(), QStringLiteral("jwprobe --port=") + second, boards), second.toLatin1());
    QCOMPARE(completed(jwprobeProgram(), QStringLiteral("jwprobe --port /dev/") + first, boards),
             "/dev/" + first.toLatin1());
}

void TestCompletion::jwprobeIdsAreThoseOfTheSystem_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QByteArray>("replies");
    const auto row = [](const char *line, const char *replies) {
        QTest::newRow(line) << QString::fromLatin1(line) << QByteArray(replies);
    };
    row("jwprobe --id ", "ONE:1.0 TWO:1.0 \\$\\(id\\>\\&2\\):1.0");
    row("jwprobe --id T", "TWO:1.0");
    row("jwprobe --id=T", "TWO:1.0");
    // bash replaces only the part after the ":".
    row("jwprobe --id TWO:", "1.0");
    row("jwprobe --id TWO:1", "1.0");
    row("jwprobe --id=TWO:1", "1.0");
    row("jwprobe --id THREE:1", "");
}

void TestCompletion::jwprobeIdsAreThoseOfTheSystem()
{
    QFETCH(QString, line);
    QFETCH(QByteArray, replies);
    const QStringList boards{boardOn("BoardA", uniquePortName(), "serial=ONE"),
                             boardOn("silent", uniquePortName(), "serial=TWO"),
                             boardOn("silent", uniquePortName(), "serial=$(id>&2)")};
    QCOMPARE(completed(jwprobeProgram(), line, boards), replies);
}

void TestCompletion::jwsim_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QByteArray>("replies");
    const auto row = [](const char *line, const char *replies) {
        QTest::newRow(line) << QString::fromLatin1(line) << QByteArray(replies);
    };
    row("jwsim --", "--board --help --report --scenario --version");
    row("jwsim --board BoardA --re", "--report");
    row("jwsim --board s", "silent");
    row("jwsim --board=s", "silent");
    row("jwsim --board BoardA,pull", "BoardA,pull-after-bytes= BoardA,pull-after=");
    // bash replaces only the part after the last "=", so the offered words begin after that "=".
    row("jwsim --board BoardA,delay=20,spee", "20,speed=");
    row("jwsim --board=BoardA,delay=20,spee", "20,speed=");
    row("jwsim --board BoardA,open=", "busy denied ok");
    row("jwsim --board BoardA,delay=20,open=d", "denied");
    row("jwsim --board BoardA,checksum=w", "wrong");
    row("jwsim --board BoardA,usb=", "bridge cdc none");
    row("jwsim --board BoardA,delay=", "");
    row("jwsim --board BoardA,manufacturer=A\\ B,spee", "A\\ B,speed=");
    row("jwsim --board BoardA,serial=x*,spee", "x*,speed=");
    row("jwsim --board 'BoardA,manufacturer=A B,spee", "BoardA,manufacturer=A B,speed=");
    row("jwsim --board='BoardA,manufacturer=A B,spee", "BoardA,manufacturer=A B,speed=");
    // The completion must not run commands that the text contains.
    row("jwsim --board 'BoardA,serial=$(echo x),spee", "BoardA,serial=$(echo x),speed=");
    row("jwsim --board 'BoardA,serial=`echo x`,spee", "BoardA,serial=`echo x`,speed=");
}

void TestCompletion::jwsim()
{
    QFETCH(QString, line);
    QFETCH(QByteArray, replies);
    QCOMPARE(completed(jwsimProgram(), line), replies);
}

void TestCompletion::jwsimCompletesScenarioFiles()
{
    const QTemporaryDir dir;
    create(folder(dir, "one.json"));
    create(folder(dir, "other.txt"));
    QVERIFY(QDir(dir.path()).mkdir(QStringLiteral("oven")));
    const QString start = folder(dir, "o");
    const QByteArray found = QStringLiteral("%1 %2").arg(folder(dir, "one.json"), folder(dir, "oven")).toLocal8Bit();
    QCOMPARE(completed(jwsimProgram(), QStringLiteral("jwsim --scenario ") + start), found);
    QCOMPARE(completed(jwsimProgram(), QStringLiteral("jwsim --board BoardA --scenario=") + start), found);
    QVERIFY(completed(jwsimProgram(), QStringLiteral("jwsim --report ") + start).contains("other.txt"));
}

void TestCompletion::jwsimCompletesCommands()
{
    QVERIFY(completed(jwsimProgram(), QStringLiteral("jwsim --board BoardA setpri")).contains("setpriv"));
    QVERIFY(completed(jwsimProgram(), QStringLiteral("jwsim --board BoardA -- setpri")).contains("setpriv"));
}

void TestCompletion::jwsimLeavesTheCommandsWordsToIt()
{
    const QTemporaryDir dir;
    create(folder(dir, "one.txt"));
    const QString start = folder(dir, "o");
    for (const char *line : {"jwsim --board BoardA cat ", "jwsim --board BoardA -- cat --report=x --board "})
        QCOMPARE(completed(jwsimProgram(), QLatin1String(line) + start), folder(dir, "one.txt").toLocal8Bit());
}

#ifdef JWMONITOR_PROGRAM
void TestCompletion::jwmonitor_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QByteArray>("replies");
    const auto row = [](const char *line, const char *replies) {
        QTest::newRow(line) << QString::fromLatin1(line) << QByteArray(replies);
    };
    row("jwmonitor --p", "--palette --port --prefix");
    row("jwmonitor --fleet m", "mqtt mqtts");
    row("jwmonitor --fleet mqtt://x --", "--ca --certificate --help --key --login --palette --prefix --version");
    row("jwmonitor --port=ttyACM0 --", "--delay --help --palette --port --retries --type --version");
    row("jwmonitor --login x --", "--ca --certificate --fleet --help --key --login --palette --prefix --version");
    row("jwmonitor --type ", "BoardA BoardB BoardC");
    row("jwmonitor --type=BoardB", "BoardB");
    row("jwmonitor --type=", "BoardA BoardB BoardC");
    row("jwmonitor --palette l", "light");
    row("jwmonitor --delay ", "");
}

void TestCompletion::jwmonitor()
{
    QFETCH(QString, line);
    QFETCH(QByteArray, replies);
    QCOMPARE(completed(QStringLiteral(JWMONITOR_PROGRAM), line), replies);
}

void TestCompletion::jwmonitorRunsNothingThatJwprobeSays()
{
    const QTemporaryDir dir;
    QFile program(folder(dir, "jwprobe"));
    QVERIFY(program.open(QIODevice::WriteOnly));
    program.write(
        "#!/bin/sh\nprintf '%s\\n' '  \"port\": \"ttyA$(echo ran >&2)`echo ran >&2`\",' '  \"port\": \"ttyB\"'\n");
    program.close();
    QVERIFY(program.setPermissions(QFile::ReadOwner | QFile::ExeOwner));
    const QByteArray path = qgetenv("PATH");
    qputenv("PATH", dir.path().toLocal8Bit() + ':' + path);
    const QByteArray replies = completed(QStringLiteral(JWMONITOR_PROGRAM), QStringLiteral("jwmonitor --port tty"));
    qputenv("PATH", path);
    QCOMPARE(replies, QByteArray("ttyA\\$\\(echo\\ ran\\ \\>\\&2\\)\\`echo\\ ran\\ \\>\\&2\\` ttyB"));
}
#endif

void TestCompletion::optionsAreThoseOfTheHelp_data()
{
    QTest::addColumn<QString>("program");
    QTest::newRow("jwprobe") << jwprobeProgram();
    QTest::newRow("jwsim") << jwsimProgram();
#ifdef JWMONITOR_PROGRAM
    QTest::newRow("jwmonitor") << QStringLiteral(JWMONITOR_PROGRAM);
#endif
#ifdef JWBRIDGE_PROGRAM
    QTest::newRow("jwbridge") << QStringLiteral(JWBRIDGE_PROGRAM);
#endif
}

void TestCompletion::optionsAreThoseOfTheHelp()
{
    QFETCH(QString, program);
    QList<QByteArray> options;
    const QList<QByteArray> lines = linesOf(runProgram(program, {QStringLiteral("--help")}).output);
    for (const QByteArray &line : lines) {
        if (!line.startsWith("  -"))
            continue;
        const QString names = QString::fromUtf8(line).mid(2).section(QLatin1String("  "), 0, 0);
        const QRegularExpression option(QStringLiteral("--[a-z-]+"));
        QRegularExpressionMatchIterator matches = option.globalMatch(names);
        while (matches.hasNext())
            options.append(matches.next().captured().toLatin1());
    }
    std::sort(options.begin(), options.end());
    QVERIFY(options.size() >= 5);
    QCOMPARE(completed(program, QStringLiteral("program --")), options.join(' '));
}

void TestCompletion::kindsAreThoseOfTheHelp()
{
    const QString help = QString::fromUtf8(runProgram(jwsimProgram(), {QStringLiteral("--help")}).output);
    QStringList kinds =
        QRegularExpression(QStringLiteral("\\nKinds: (.*)\\n")).match(help).captured(1).split(QStringLiteral(", "));
    QVERIFY(kinds.contains(QStringLiteral("BoardC")));
    kinds.sort();
    const QByteArray all = kinds.join(QLatin1Char(' ')).toLatin1();
    QCOMPARE(completed(jwsimProgram(), QStringLiteral("jwsim --board ")), all);
    QCOMPARE(completed(jwsimProgram(), QStringLiteral("jwsim --board=")), all);
}

void TestCompletion::keysAreThoseOfTheHelp()
{
    const QString help = QString::fromUtf8(runProgram(jwsimProgram(), {QStringLiteral("--help")}).output);
    const QStringList lines =
        help.section(QLatin1String("Keys:\n"), 1).section(QLatin1String("\n\n"), 0, 0).split(QLatin1Char('\n'));
    QList<QByteArray> keys;
    for (const QString &line : lines) {
        // A line that begins with four blanks continues the description of a key.
        if (!line.startsWith(QLatin1String("    ")))
            keys.append("BoardA," + line.simplified().section(QLatin1Char(' '), 0, 0).toLatin1() + '=');
    }
    std::sort(keys.begin(), keys.end());
    QCOMPARE(completed(jwsimProgram(), QStringLiteral("jwsim --board BoardA,")), keys.join(' '));
}

QTEST_GUILESS_MAIN(TestCompletion)
#include "tst_completion.moc"

#include "support/programs/jwsimrun.h"
#include "support/programs/neededprogram.h"

#include <QFile>
#include <QRegularExpression>
#include <QSet>
#include <QTest>

#include <utility>

/// Compares the manual pages with the help of the programs.
class TestManual : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pageIsFormattedWithoutAWarning_data() { programs(); }
    void pageIsFormattedWithoutAWarning();
    void pageHasTheUsualSections_data() { programs(); }
    void pageHasTheUsualSections();
    void pageAndHelpHaveTheSameOptions_data() { programs(); }
    void pageAndHelpHaveTheSameOptions();
    void jwsimPageAndHelpHaveTheSameKinds();
    void jwsimPageAndHelpHaveTheSameKeys();
    void jwsimPageHasTheNumbersOfTheHelp();
    void jwprobePageAndHelpHaveTheSameJsonKeys();
    void jwprobePageHasTheWordsOfTheHelp();

private:
    void programs();
};

namespace {

QString pageFile(const QString &program)
{
    return QStringLiteral(PROJECT_FOLDER "/docs/man/%1.1").arg(program);
}

// Returns the source of the page. Replaces "\-" with "-", and "\(dq" with a quotation mark.
QString page(const QString &program)
{
    QFile file(pageFile(program));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll())
        .replace(QLatin1String("\\-"), QLatin1String("-"))
        .replace(QLatin1String("\\(dq"), QLatin1String("\""));
}

QString help(const QString &program)
{
    QString path = program == QLatin1String("jwsim") ? jwsimProgram() : jwprobeProgram();
#ifdef JWMONITOR_PROGRAM
    if (program == QLatin1String("jwmonitor"))
        path = QStringLiteral(JWMONITOR_PROGRAM);
#endif
#ifdef JWBRIDGE_PROGRAM
    if (program == QLatin1String("jwbridge"))
        path = QStringLiteral(JWBRIDGE_PROGRAM);
#endif
    return QString::fromUtf8(runProgram(path, {QStringLiteral("--help")}).output);
}

QString section(const QString &text, const QString &name)
{
    const QRegularExpression expression(QStringLiteral("^\\.SH %1\\n(.*?)(?=^\\.SH|\\z)").arg(name),
                                        QRegularExpression::MultilineOption
                                            | QRegularExpression::DotMatchesEverythingOption);
    return expression.match(text).captured(1);
}

// Searches for `expression` in all lines of text that match `line`. Returns what the first group of `expression`
// captured, for each match.
QSet<QString> captured(const QString &text, const char *line, const char *expression)
{
    QSet<QString> found;
    const QRegularExpression lineExpression{QLatin1String(line)};
    const QStringList lines = text.split(QLatin1Char('\n')).filter(lineExpression);
    QRegularExpressionMatchIterator matches =
        QRegularExpression(QLatin1String(expression), QRegularExpression::MultilineOption)
            .globalMatch(lines.join(QLatin1Char('\n')));
    while (matches.hasNext())
        found.insert(matches.next().captured(1));
    return found;
}

QString sorted(const QSet<QString> &set)
{
    QStringList list = set.values();
    list.sort();
    return list.join(QLatin1Char(' '));
}

// Returns the part of the help between "Keys:" and the next blank line, with one line for each key.
QString keysOfHelp()
{
    return help(QStringLiteral("jwsim"))
        .section(QLatin1String("Keys:\n"), 1)
        .section(QLatin1String("\n\n"), 0, 0)
        .replace(QRegularExpression(QStringLiteral("\n {3,}")), QStringLiteral(" "));
}

} // namespace

void TestManual::programs()
{
    QTest::addColumn<QString>("program");
    QTest::newRow("jwprobe") << QStringLiteral("jwprobe");
    QTest::newRow("jwsim") << QStringLiteral("jwsim");
#ifdef JWMONITOR_PROGRAM
    QTest::newRow("jwmonitor") << QStringLiteral("jwmonitor");
#endif
#ifdef JWBRIDGE_PROGRAM
    QTest::newRow("jwbridge") << QStringLiteral("jwbridge");
#endif
}

void TestManual::pageIsFormattedWithoutAWarning()
{
    QFETCH(QString, program);
    NEEDS_PROGRAM("groff", "groff-base");
    NEEDS_PROGRAM("mandoc", "mandoc");
    const Outcome groff = runProgram(QStringLiteral("groff"),
                                     {QStringLiteral("-man"), QStringLiteral("-Tutf8"), QStringLiteral("-ww"),
                                      QStringLiteral("-z"), pageFile(program)});
    QCOMPARE(groff.output + groff.error, QByteArray());
    QCOMPARE(groff.status, 0);
    const Outcome lint = runProgram(QStringLiteral("mandoc"),
                                    {QStringLiteral("-T"), QStringLiteral("lint"), QStringLiteral("-W"),
                                     QStringLiteral("warning"), pageFile(program)});
    QCOMPARE(lint.output + lint.error, QByteArray());
    QCOMPARE(lint.status, 0);
}

void TestManual::pageHasTheUsualSections()
{
    QFETCH(QString, program);
    for (const char *name :
         {"NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "EXIT STATUS", "EXAMPLES", "FILES", "SEE ALSO"})
        QVERIFY2(!section(page(program), QLatin1String(name)).isEmpty(), name);
}

void TestManual::pageAndHelpHaveTheSameOptions()
{
    QFETCH(QString, program);
    QSet<QString> helpOptions;
    const QStringList lines = help(program).split(QLatin1Char('\n')).filter(QRegularExpression(QStringLiteral("^  -")));
    for (const QString &line : lines) {
        const QString names = line.mid(2).section(QLatin1String("  "), 0, 0);
        helpOptions += captured(names, "", "(--?[a-z][a-z-]*)");
    }
    QVERIFY(helpOptions.size() >= 5);
    const QSet<QString> pageOptions =
        captured(section(page(program), QStringLiteral("OPTIONS")), "^\\.BR? -", "(--?[a-z][a-z-]*)");
    QCOMPARE(sorted(pageOptions), sorted(helpOptions));
}

void TestManual::jwsimPageAndHelpHaveTheSameKinds()
{
    const QSet<QString> kinds = captured(help(QStringLiteral("jwsim")), "^Kinds: ", "(\\w+)(?=,|$)");
    QVERIFY(kinds.contains(QStringLiteral("babble")));
    QCOMPARE(
        sorted(captured(section(page(QStringLiteral("jwsim")), QStringLiteral("BOARDS")), "^\\.B ", "^\\.B (\\w+)$")),
        sorted(kinds));
}

void TestManual::jwsimPageAndHelpHaveTheSameKeys()
{
    const QSet<QString> keys = captured(keysOfHelp(), "", "(?:^|\\n)  ([a-z-]+) ");
    QVERIFY(keys.contains(QStringLiteral("pull-after")));
    const QString text = section(page(QStringLiteral("jwsim")), QStringLiteral("KEYS"));
    QCOMPARE(sorted(captured(text, "", "\\.TP\\n\\.B ([a-z-]+)\\n")), sorted(keys));
}

void TestManual::jwsimPageHasTheNumbersOfTheHelp()
{
    const QString text = section(page(QStringLiteral("jwsim")), QStringLiteral("KEYS"));
    const QStringList lines = keysOfHelp().split(QLatin1Char('\n'));
    for (const QString &line : lines) {
        const QString key = line.simplified().section(QLatin1Char(' '), 0, 0);
        const QString entry = text.section(QStringLiteral(".B %1\n").arg(key), 1).section(QLatin1String(".TP"), 0, 0);
        const QRegularExpressionMatch limits = QRegularExpression(QStringLiteral("from (\\d+) to (\\d+)")).match(line);
        for (int i = 1; i <= limits.lastCapturedIndex(); ++i)
            QVERIFY2(entry.contains(limits.captured(i)), qPrintable(line));
    }
}

void TestManual::jwprobePageAndHelpHaveTheSameJsonKeys()
{
    // The keys of the JSON objects in the help. The expression also finds "payload" and "lost", which are values of the
    // key "event", so the test removes them.
    const QSet<QString> keys =
        captured(help(QStringLiteral("jwprobe")), "^ {4,}[{\" ]", "[{, ] ?\"([a-z][A-Za-z]+)\"(?=[,:}\\]]|$)")
        - QSet<QString>{QStringLiteral("payload"), QStringLiteral("lost")};
    QVERIFY(keys.contains(QStringLiteral("deadlineReached")));
    QSet<QString> inPage = captured(section(page(QStringLiteral("jwprobe")), QStringLiteral("JSON")), "^\\.BR? \"",
                                    "\"([a-z][A-Za-z]+)\"");
    inPage.remove(QStringLiteral("event"));
    QCOMPARE(sorted(inPage), sorted(keys - QSet<QString>{QStringLiteral("event")}));
}

void TestManual::jwprobePageHasTheWordsOfTheHelp()
{
    // The help lists states, verdicts and kinds as "one of A, B, C". Each of these words must also be in the page.
    QString text = help(QStringLiteral("jwprobe"));
    text.replace(QRegularExpression(QStringLiteral("\\s+")), QStringLiteral(" "));
    QSet<QString> words;
    QRegularExpressionMatchIterator lists =
        QRegularExpression(QStringLiteral("(?:is|are) one of ([A-Za-z, ]+)[.;]")).globalMatch(text);
    while (lists.hasNext())
        words += captured(lists.next().captured(1), "", "([A-Za-z]+)");
    QVERIFY(words.contains(QStringLiteral("modemManager")) && words.contains(QStringLiteral("unheard")));
    const QString json = section(page(QStringLiteral("jwprobe")), QStringLiteral("JSON"));
    for (const QString &word : std::as_const(words))
        QVERIFY2(json.contains(QRegularExpression(QStringLiteral("\\b%1\\b").arg(word))), qPrintable(word));
}

QTEST_GUILESS_MAIN(TestManual)
#include "tst_manual.moc"

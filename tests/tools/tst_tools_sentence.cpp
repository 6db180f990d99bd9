#include <common/sentenceframe.h>

#include <QTest>

using JwTools::SentenceFrame;

/// Tests how a typed line becomes a sentence.
class TestSentenceFrame : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void whatIsMissingIsAdded_data();
    void whatIsMissingIsAdded();
    void aLineThatMakesNoSentenceIsRefused_data();
    void aLineThatMakesNoSentenceIsRefused();
    void theLongestSentenceIsTaken();
};

void TestSentenceFrame::whatIsMissingIsAdded_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("sentence");
    const auto row = [](const char *name, const char *line, const char *sentence) {
        QTest::newRow(name) << QString::fromLatin1(line) << QString::fromLatin1(sentence);
    };
    row("identifier alone", "PJWVER", "$PJWVER*0c\r\n");
    row("with fields", "PTJWWR,INF", "$PTJWWR,INF*71\r\n");
    row("with start flag", "$PJWVER", "$PJWVER*0c\r\n");
    row("with the other start flag", "!PJWVER", "!PJWVER*0c\r\n");
    row("with checksum", "PJWVER*0c", "$PJWVER*0c\r\n");
    row("with checksum in capitals", "$PJWVER*0C", "$PJWVER*0C\r\n");
    row("checksum of one digit, as the library reads it", "PJWVER*c", "$PJWVER*c\r\n");
    row("whole sentence", "$PTJWWR,INF*71\r", "$PTJWWR,INF*71\r\n");
    row("between blanks", "  PJWVER\t", "$PJWVER*0c\r\n");
    row("checksum below 16 has two digits", "AA", "$AA*00\r\n");
    row("checksum of 0x7f", "P/", "$P/*7f\r\n");
    row("checksum beyond 0x7f, as the library writes it", "P\xe9", "$P\xe9*ffffffffffffffb9\r\n");
    row("that checksum typed", "P\xe9*FFFFFFFFFFFFFFB9", "$P\xe9*FFFFFFFFFFFFFFB9\r\n");
    row("that checksum typed as the library reads it", "P\xe9*b9", "$P\xe9*b9\r\n");
}

void TestSentenceFrame::whatIsMissingIsAdded()
{
    QFETCH(QString, line);
    const SentenceFrame frame(line);
    QCOMPARE(frame.fault(), QString());
    QTEST(frame.sentence(), "sentence");
}

void TestSentenceFrame::aLineThatMakesNoSentenceIsRefused_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("fault");
    const auto row = [](const char *name, const QString &line, const char *fault) {
        QTest::newRow(name) << line << QString::fromUtf8(fault);
    };
    row("empty", QString(), "Type a sentence, such as PJWVER.");
    row("blanks", QStringLiteral("  "), "Type a sentence, such as PJWVER.");
    row("start flag alone", QStringLiteral("$"), "Type an identifier after the start flag, such as $PJWVER.");
    row("checksum alone", QStringLiteral("*00"), "Type an identifier after the start flag, such as $PJWVER.");
    row("wrong checksum", QStringLiteral("PJWVER*0d"), "The checksum is *0c, not *0d: leave it out and it is added.");
    row("checksum without digits", QStringLiteral("$PJWVER*"),
        "The checksum is *0c, not *: leave it out and it is added.");
    row("two checksums", QStringLiteral("PJWVER*0c*0c"),
        "The checksum is *0c, not *0c*0c: leave it out and it is added.");
    row("text after the checksum", QStringLiteral("$PJWVER*0cX"),
        "The checksum is *0c, not *0cX: leave it out and it is added.");
    row("wrong checksum beyond 0x7f", QStringLiteral("P\u00e9*ba"),
        "The checksum is *ffffffffffffffb9, not *ba: leave it out and it is added.");
    row("second start flag", QStringLiteral("PJW$VER"),
        "Take the \"$\" out of the text: it can only stand at the start.");
    row("control character", QStringLiteral("PJW\x01VER"), "Take out the control character \\x01.");
    row("line end within", QStringLiteral("PJW\r\nVER"), "Take out the control character \\r.");
    row("beyond Latin-1", QStringLiteral("PJWVER,\u0142"),
        "Take out \"\xc5\x82\": boards take Latin-1 characters only.");
    row("one too long", QString(69, QLatin1Char('A')),
        "Make it shorter: the sentence has 75 characters, and boards take at most 74.");
}

void TestSentenceFrame::aLineThatMakesNoSentenceIsRefused()
{
    QFETCH(QString, line);
    QTEST(SentenceFrame(line).fault(), "fault");
}

void TestSentenceFrame::theLongestSentenceIsTaken()
{
    // The frame adds 6 characters: 1 start flag, 3 for the checksum, 2 for the line end.
    const SentenceFrame frame(QString(68, QLatin1Char('A')));
    QCOMPARE(frame.fault(), QString());
    QCOMPARE(frame.sentence().size(), 74);
}

QTEST_GUILESS_MAIN(TestSentenceFrame)
#include "tst_tools_sentence.moc"

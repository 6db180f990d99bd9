#include <jwprobe/monitor/sentence.h>

#include <QTest>

using namespace JwProbe;

class TestJwprobeSentence : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void whatIsMissingIsAdded_data();
    void whatIsMissingIsAdded();
    void aLineThatMakesNoSentenceIsRefused_data();
    void aLineThatMakesNoSentenceIsRefused();
};

void TestJwprobeSentence::whatIsMissingIsAdded_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("sentence");
    const auto row = [](const char *name, const char *line, const char *sentence) {
        QTest::newRow(name) << QString::fromLatin1(line) << QString::fromLatin1(sentence);
    };
    row("bare identifier", "PJWVER", "$PJWVER*0c\r\n");
    row("with fields", "PTJWWR,INF", "$PTJWWR,INF*71\r\n");
    row("start flag typed", "$PJWVER", "$PJWVER*0c\r\n");
    row("other start flag typed", "!PJWVER", "!PJWVER*0c\r\n");
    row("checksum typed", "PJWVER*0c", "$PJWVER*0c\r\n");
    row("checksum in capitals", "$PJWVER*0C", "$PJWVER*0C\r\n");
    row("whole sentence", "$PTJWWR,INF*71\r", "$PTJWWR,INF*71\r\n");
    row("blanks around", "  PJWVER\t", "$PJWVER*0c\r\n");
    row("checksum below 16 has two digits", "AA", "$AA*00\r\n");
}

void TestJwprobeSentence::whatIsMissingIsAdded()
{
    QFETCH(QString, line);
    QFETCH(QString, sentence);
    QString error;
    const std::optional<QString> framed = frameSentence(line, &error);
    QVERIFY2(framed, qPrintable(error));
    QCOMPARE(*framed, sentence);
}

void TestJwprobeSentence::aLineThatMakesNoSentenceIsRefused_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("hint");
    const auto row = [](const char *name, const char *line, const char *hint) {
        QTest::newRow(name) << QString::fromUtf8(line) << QString::fromLatin1(hint);
    };
    row("wrong checksum", "$PJWVER*0d", "must be *0c, not *0d");
    row("checksum of one digit", "$PJWVER*c", "must be *0c");
    row("checksum missing after the star", "$PJWVER*", "must be *0c");
    row("two checksums", "$PJWVER*0c*0c", "must be *0c");
    row("start flag only", "$", "no text");
    row("checksum only", "*00", "no text");
    row("start flag within", "PJW$VER", "\"$\"");
    row("control character", "PJW\x01VER", "ASCII");
    row("beyond ASCII", "PJWVER,\xc3\xa4", "ASCII");
}

void TestJwprobeSentence::aLineThatMakesNoSentenceIsRefused()
{
    QFETCH(QString, line);
    QFETCH(QString, hint);
    QString error;
    QVERIFY(!frameSentence(line, &error));
    QVERIFY2(error.contains(hint), qPrintable(error));
}

QTEST_GUILESS_MAIN(TestJwprobeSentence)
#include "tst_jwprobe_sentence.moc"

#include <jwmonitor/traffic/sentencedecoder.h>
#include <jwmonitor/send/sentenceframe.h>
#include <jwmonitor/traffic/traffictext.h>

#include <QTest>

using namespace JwMonitor;

/// How the desktop program takes sentences apart and puts them together.
class TestSentence : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void takesPayloadsApart_data();
    void takesPayloadsApart();
    void namesFieldsByDirection();
    void findsIdentifierAndFieldAlone_data();
    void findsIdentifierAndFieldAlone();
    void tellsWhatTheParserFindsWrong();
    void showsControlCharacters();

    void addsWhatIsMissing_data();
    void addsWhatIsMissing();
    void refusesWhatMakesNoSentence_data();
    void refusesWhatMakesNoSentence();
    void takesTheLongestSentence();
};

void TestSentence::takesPayloadsApart_data()
{
    QTest::addColumn<QString>("payload");
    QTest::addColumn<QString>("identifier");
    QTest::addColumn<QString>("fields");
    QTest::addColumn<QString>("checksum");
    const auto row = [](const char *name, const char *payload, const char *identifier, const char *fields,
                        const char *checksum) {
        QTest::newRow(name) << QString::fromLatin1(payload) << QString::fromLatin1(identifier)
                            << QString::fromLatin1(fields) << QString::fromLatin1(checksum);
    };
    row("version reply", "$PJWVER,7300021,1,4,0*0e\r\n", "PJWVER", "hwversion=7300021  v1=1  v2=4  v3=0", "ok");
    row("information reply", "$PTJWRD,INF,CTRL,3,17,2,1.04,7300022,1*5e\r\n", "PTJWRD",
        "subcommand=INF  name=CTRL  devtype=3  boardid=17  rev=2  version=1.04  hwversion=7300022  appmode=1", "ok");
    row("unknown kind", "$GPXYZ,a,,c*67\r\n", "GPXYZ", "1=a  2=  3=c", "bad");
    row("more fields than names", "$PJWVER,7300021,1,4,0,9*1b\r\n", "PJWVER",
        "hwversion=7300021  v1=1  v2=4  v3=0  5=9", "ok");
    row("no checksum", "$PJWVER,7300021\r\n", "PJWVER", "hwversion=7300021", "none");
    row("checksum in capitals", "$PJWVER,7300021,1,4,0*0E\r\n", "PJWVER", "hwversion=7300021  v1=1  v2=4  v3=0", "ok");
    row("checksum without digits", "$PJWVER*\r\n", "PJWVER", "", "bad");
    row("two checksums", "$PJWVER*0c*0c\r\n", "PJWVER", "", "bad");
    row("no fields", "$PJWVER*0c\r\n", "PJWVER", "", "ok");
    row("other start flag", "!PJWVER*0c\r\n", "PJWVER", "", "ok");
    row("no sentence", "hello,1\r\n", "", "", "none");
    row("nothing", "", "", "", "none");
    row("start flag only", "$\r\n", "", "", "none");
}

void TestSentence::takesPayloadsApart()
{
    QFETCH(QString, payload);
    const Sentence sentence = SentenceDecoder().decode(payload, Direction::Received);
    QTEST(sentence.identifier, "identifier");
    QTEST(TrafficText::fields(sentence), "fields");
    QTEST(TrafficText::checksum(sentence.checksum), "checksum");
}

void TestSentence::namesFieldsByDirection()
{
    const SentenceDecoder decoder;
    const QString request = QStringLiteral("$PTJWWR,INF*71\r\n");
    QCOMPARE(TrafficText::fields(decoder.decode(request, Direction::Sent)), QStringLiteral("subcommand=INF"));
    QCOMPARE(TrafficText::fields(decoder.decode(request, Direction::Received)), QStringLiteral("1=INF"));
}

void TestSentence::findsIdentifierAndFieldAlone_data()
{
    QTest::addColumn<QString>("payload");
    QTest::addColumn<QString>("identifier");
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("field"); // null: there is none
    const QString reply = QStringLiteral("$PJWVER,7300021,1,,0*0e\r\n");
    const QString identifier = QStringLiteral("PJWVER");
    QTest::newRow("first field") << reply << identifier << 0 << QStringLiteral("7300021");
    QTest::newRow("empty field") << reply << identifier << 2 << QStringLiteral("");
    QTest::newRow("last field") << reply << identifier << 3 << QStringLiteral("0");
    QTest::newRow("behind the last field") << reply << identifier << 4 << QString();
    QTest::newRow("without fields") << QStringLiteral("$PJWVER*0c\r\n") << identifier << 0 << QString();
    QTest::newRow("without checksum") << QStringLiteral("$PJWVER,5\r\n") << identifier << 0 << QStringLiteral("5");
    QTest::newRow("no sentence") << QStringLiteral("hello,5") << QString() << 0 << QString();
}

void TestSentence::findsIdentifierAndFieldAlone()
{
    QFETCH(QString, payload);
    QFETCH(int, index);
    QFETCH(QString, field);
    QTEST(SentenceDecoder::identifier(payload).toString(), "identifier");
    QCOMPARE(SentenceDecoder::field(payload, index).toString(), field);
    QCOMPARE(SentenceDecoder::field(payload, index).isNull(), field.isNull());
}

void TestSentence::tellsWhatTheParserFindsWrong()
{
    const SentenceDecoder decoder;
    QCOMPARE(decoder.fault(QStringLiteral("$PJWVER,7300021,1,4,0*0e\r\n")), QString());
    QCOMPARE(decoder.fault(QStringLiteral("$PJWVER,7300021,1,4,0*0f\r\n")), QStringLiteral("CRC calculation failed"));
}

void TestSentence::showsControlCharacters()
{
    QCOMPARE(TrafficText::raw(QStringLiteral("$A\x01,\u00e9\u0085*00\r\n")),
             QStringLiteral("$A\\x01,\u00e9\\x85*00\\r\\n"));
}

void TestSentence::addsWhatIsMissing_data()
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
    row("with checksum in capitals", "PJWVER*0C", "$PJWVER*0C\r\n");
    row("between blanks", "  PJWVER\t", "$PJWVER*0c\r\n");
    row("checksum of 0x7f", "P/", "$P/*7f\r\n");
    row("checksum beyond 0x7f, as the library writes it", "P\xe9", "$P\xe9*ffffffffffffffb9\r\n");
    row("that checksum typed", "P\xe9*FFFFFFFFFFFFFFB9", "$P\xe9*FFFFFFFFFFFFFFB9\r\n");
    row("that checksum typed as the library reads it", "P\xe9*b9", "$P\xe9*b9\r\n");
}

void TestSentence::addsWhatIsMissing()
{
    QFETCH(QString, line);
    const SentenceFrame frame(line);
    QCOMPARE(frame.fault(), QString());
    QTEST(frame.sentence(), "sentence");
}

void TestSentence::refusesWhatMakesNoSentence_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("hint");
    const auto row = [](const char *name, const QString &line, const char *hint) {
        QTest::newRow(name) << line << QString::fromLatin1(hint);
    };
    row("empty", QString(), "Type a sentence, such as");
    row("blanks", QStringLiteral("  "), "Type a sentence, such as");
    row("start flag alone", QStringLiteral("$"), "Type an identifier");
    row("checksum alone", QStringLiteral("*00"), "Type an identifier");
    row("wrong checksum", QStringLiteral("PJWVER*0d"), "The checksum is *0c, not *0d: leave it away");
    row("two checksums", QStringLiteral("PJWVER*0c*0c"), "leave it away");
    row("wrong checksum beyond 0x7f", QStringLiteral("P\u00e9*ba"),
        "The checksum is *ffffffffffffffb9, not *ba: leave it away");
    row("second start flag", QStringLiteral("PJW$VER"), "take it out");
    row("control character", QStringLiteral("PJW\x01VER"), "Take out the control character \\x01");
    row("line end within", QStringLiteral("PJW\r\nVER"), "Take out the control character \\r");
    row("beyond Latin-1", QStringLiteral("PJWVER,\u20ac"), "can't be sent");
    row("beyond Latin-1 says which are allowed", QStringLiteral("PJWVER,\u20ac"), "Latin-1 characters only");
    row("one too long", QString(70, QLatin1Char('A')), "Too long by 2 character(s): boards take 74");
}

void TestSentence::refusesWhatMakesNoSentence()
{
    QFETCH(QString, line);
    QFETCH(QString, hint);
    const SentenceFrame frame(line);
    QVERIFY2(frame.fault().contains(hint), qPrintable(frame.fault()));
}

void TestSentence::takesTheLongestSentence()
{
    const SentenceFrame frame(QString(68, QLatin1Char('A'))); // and 1 start flag, 3 of the checksum, 2 of the line end
    QCOMPARE(frame.fault(), QString());
    QCOMPARE(frame.sentence().size(), 74);
}

QTEST_GUILESS_MAIN(TestSentence)
#include "tst_jwmonitor_sentence.moc"

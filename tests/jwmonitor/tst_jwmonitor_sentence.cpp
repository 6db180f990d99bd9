#include <jwmonitor/traffic/sentencedecoder.h>
#include <jwmonitor/traffic/traffictext.h>

#include <QTest>

using namespace JwMonitor;

/// Tests how jwmonitor decodes sentences.
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
    QTest::addColumn<QString>("field"); // expected text of the field; null if the payload has no such field
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

QTEST_GUILESS_MAIN(TestSentence)
#include "tst_jwmonitor_sentence.moc"

#include <nmea/checksum.h>

#include <QtTest>

#include <limits>
#include <type_traits>

using Nmea::calculateCrc;

static_assert(std::is_same_v<decltype(&calculateCrc), int (*)(const QString &, int)>);

class TestChecksum : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void isTheXorOfTheLatin1Bytes_data();
    void isTheXorOfTheLatin1Bytes();
    void lengthZeroMeansTheWholeText();
    void lengthTakesTheFirstCharacters_data();
    void lengthTakesTheFirstCharacters();
    void eachLatin1CharacterCountsAsItsCode();
    void staysWithinOneByte();
    void isTheSameForAView_data();
    void isTheSameForAView();
    void isReadAsANumberOfBase16();
    void isWrittenAsASignedNumberOf64Bits();
};

void TestChecksum::isTheXorOfTheLatin1Bytes_data()
{
    // The library did not compute these checksums, so they also show its errors. Another program computed them, or they
    // are in published sentences.
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("checksum");
    QTest::newRow("empty") << QString() << 0x00;
    QTest::newRow("one character") << QStringLiteral("A") << 0x41;
    QTest::newRow("equal characters cancel out") << QStringLiteral("aa") << 0x00;
    QTest::newRow("worked example") << QStringLiteral("PJWVER,INF") << 0x61;
    QTest::newRow("version query") << QStringLiteral("PJWVER") << 0x0c;
    QTest::newRow("information request") << QStringLiteral("PTJWWR,INF") << 0x71;
    QTest::newRow("version reply") << QStringLiteral("PJWVER,7300021,1,4,0") << 0x0e;
    QTest::newRow("information reply") << QStringLiteral("PTJWRD,INF,CTRL,3,17,2,1.04,7300022,1") << 0x5e;
    QTest::newRow("published GPGGA") << QStringLiteral("GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,")
                                     << 0x47;
    QTest::newRow("published GPGLL") << QStringLiteral("GPGLL,5057.970,N,00146.110,E,142451,A") << 0x27;
    QTest::newRow("published GPVTG") << QStringLiteral("GPVTG,089.0,T,,,15.2,N,,") << 0x7f;
    QTest::newRow("delimiters count like any other") << QStringLiteral("*") << 0x2a;
    QTest::newRow("character above 0x7f") << QStringLiteral("PJWVER,\u00e4") << 0xc4;
    QTest::newRow("highest Latin-1 character") << QStringLiteral("\u00ff\u0001") << 0xfe;
    QTest::newRow("outside Latin-1 counts as a question mark") << QStringLiteral("PJWVER,\u20ac") << 0x1f;
    QTest::newRow("mixed") << QStringLiteral("A\u00c4\u20ac") << 0xba;
    QTest::newRow("control characters count") << QStringLiteral("\r\n") << 0x07;
}

void TestChecksum::isTheXorOfTheLatin1Bytes()
{
    QFETCH(QString, text);
    QFETCH(int, checksum);
    QCOMPARE(calculateCrc(text, 0), checksum);
}

void TestChecksum::lengthZeroMeansTheWholeText()
{
    const QString text = QStringLiteral("PJWVER,INF");
    QCOMPARE(calculateCrc(text, 0), calculateCrc(text, 10));
    QCOMPARE(calculateCrc(text, 0), 0x61);
}

void TestChecksum::lengthTakesTheFirstCharacters_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("length");
    QTest::addColumn<int>("checksum");
    QTest::newRow("first of several") << QStringLiteral("PJWVER,INF") << 1 << 0x50;
    QTest::newRow("identifier only") << QStringLiteral("PJWVER,INF") << 6 << 0x0c;
    QTest::newRow("all but the delimiter") << QStringLiteral("PJWVER,INF*") << 10 << 0x61;
    QTest::newRow("exactly all") << QStringLiteral("PJWVER,INF") << 10 << 0x61;
    QTest::newRow("beyond the end counts as 0") << QStringLiteral("PJWVER,INF") << 11 << 0x61;
    QTest::newRow("far beyond the end") << QStringLiteral("PJWVER,INF") << 100000000 << 0x61;
    QTest::newRow("beyond the end of an empty text") << QString() << 5 << 0x00;
    QTest::newRow("negative takes none") << QStringLiteral("PJWVER,INF") << -1 << 0x00;
    QTest::newRow("most negative takes none") << QStringLiteral("PJWVER,INF") << std::numeric_limits<int>::min() << 0;
}

void TestChecksum::lengthTakesTheFirstCharacters()
{
    QFETCH(QString, text);
    QFETCH(int, length);
    QFETCH(int, checksum);
    QCOMPARE(calculateCrc(text, length), checksum);
}

void TestChecksum::eachLatin1CharacterCountsAsItsCode()
{
    for (int code = 0; code <= 0xff; ++code)
        QCOMPARE(calculateCrc(QString(QChar(code)), 0), code);
}

void TestChecksum::staysWithinOneByte()
{
    QString all;
    for (int code = 0; code < 0x400; ++code) {
        all += QChar(code);
        const int checksum = calculateCrc(all, 0);
        QVERIFY2(checksum >= 0 && checksum <= 0xff, qPrintable(QString::number(checksum)));
    }
}

void TestChecksum::isTheSameForAView_data()
{
    isTheXorOfTheLatin1Bytes_data();
}

void TestChecksum::isTheSameForAView()
{
    QFETCH(QString, text);
    QFETCH(int, checksum);
    QCOMPARE(Nmea::xorOf(text), checksum);
}

void TestChecksum::isReadAsANumberOfBase16()
{
    const QRegularExpression form(QStringLiteral("^\\s*([-+\u2212]?(0x)?[0-9a-f]{1,8})\\s*\\z"),
                                  QRegularExpression::UseUnicodePropertiesOption
                                      | QRegularExpression::CaseInsensitiveOption);
    const auto verify = [&form](const QString &text) {
        QString number = form.match(text).captured(1); // empty if the text is no number
        bool expectedOk = false;
        const int expected = number.replace(QChar(0x2212), QLatin1Char('-')).toInt(&expectedOk, 16);
        bool ok = !expectedOk;
        QCOMPARE(Nmea::readChecksum(text, &ok), expected);
        QCOMPARE(ok, expectedOk);
    };
    for (const char *const end : {"", "\r\n", "\n", "0\r\n"}) {
        for (ushort first = 0; first < 0x100; ++first) {
            for (ushort second = 0; second < 0x100; ++second)
                verify(QString(QChar(first)) + QChar(second) + QLatin1String(end));
        }
    }
    for (const char *const text :
         {"", " ", "6", "0x61", "161", "+61", "-61", "7fffffff", "80000000", "ffffffffffffffa5"})
        verify(QLatin1String(text) + QLatin1String("\r\n"));
    for (const ushort code : QVector<ushort>{0x85, 0xa0, 0x1680, 0x2003, 0x2028, 0x2212, 0x3000, 0})
        verify(QChar(code) + QStringLiteral("61") + QChar(code) + QLatin1String("\r\n"));
    verify(QStringLiteral("\u221261\r\n"));
    verify(QString());
    verify(QStringLiteral("\u0666\u0661\r\n")); // Unicode digits that are not ASCII
}

void TestChecksum::isWrittenAsASignedNumberOf64Bits()
{
    for (int checksum = 0; checksum <= 0xff; ++checksum) {
        QString sentence = QStringLiteral("$A*");
        Nmea::appendChecksum(sentence, checksum);
        const auto written = static_cast<qulonglong>(static_cast<qint8>(checksum));
        QCOMPARE(sentence, QStringLiteral("$A*%1").arg(written, 2, 16, QLatin1Char('0')));
    }
}

QTEST_APPLESS_MAIN(TestChecksum)
#include "tst_checksum.moc"

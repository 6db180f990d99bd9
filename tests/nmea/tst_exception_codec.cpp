#include <nmea/exception.h>

#include <QTextCodec>
#include <QtTest>

using Nmea::Exception;

/// Tests of what() with other codecs. Only for Qt 5: in Qt 6, the local 8-bit encoding is always UTF-8 on Linux.
class TestExceptionCodec : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { QTextCodec::setCodecForLocale(m_before); }

    void whatUsesTheCodecOfTheLocale();
    void whatConvertsAtEachCall();

private:
    QTextCodec *const m_before = QTextCodec::codecForLocale();
};

void TestExceptionCodec::whatUsesTheCodecOfTheLocale()
{
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1"));
    const Exception exception(QStringLiteral("Gr\u00fc\u00dfe"));
    QCOMPARE(QByteArray(exception.what()),
             QByteArray("Gr\xfc\xdf"
                        "e"));
}

void TestExceptionCodec::whatConvertsAtEachCall()
{
    const Exception exception(QStringLiteral("\u00e4"));
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1"));
    const QByteArray latin1 = exception.what();
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    const QByteArray utf8 = exception.what();
    QCOMPARE(latin1, QByteArray("\xe4"));
    QCOMPARE(utf8, QByteArray("\xc3\xa4"));
}

QTEST_APPLESS_MAIN(TestExceptionCodec)
#include "tst_exception_codec.moc"

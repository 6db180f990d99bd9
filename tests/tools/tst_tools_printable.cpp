#include <common/printable.h>

#include <QTest>

using namespace JwTools;

class TestPrintable : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void whatATerminalObeysIsEscaped_data();
    void whatATerminalObeysIsEscaped();
};

void TestPrintable::whatATerminalObeysIsEscaped_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("shown");
    QTest::newRow("nothing") << QString() << QString();
    QTest::newRow("plain") << QStringLiteral("$PJWVER*0c") << QStringLiteral("$PJWVER*0c");
    QTest::newRow("line end") << QStringLiteral("A\r\n") << QStringLiteral("A\\r\\n");
    QTest::newRow("control characters") << QStringLiteral("\x01\x1b[2J\x7f") << QStringLiteral("\\x01\\x1b[2J\\x7f");
    QTest::newRow("NUL") << QString(QChar()) << QStringLiteral("\\x00");
    QTest::newRow("Latin-1") << QStringLiteral("\u00e9\u0085") << QStringLiteral("\u00e9\\x85");
    QTest::newRow("direction of text") << QStringLiteral("\u202e") << QStringLiteral("\\u202e");
    QTest::newRow("beyond 16 bits") << QStringLiteral("\U0001f600") << QStringLiteral("\U0001f600");
}

void TestPrintable::whatATerminalObeysIsEscaped()
{
    QFETCH(QString, text);
    QTEST(printable(text), "shown");
}

QTEST_GUILESS_MAIN(TestPrintable)
#include "tst_tools_printable.moc"

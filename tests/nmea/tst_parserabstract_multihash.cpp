#include <nmea/parserabstract.h>

#include <QtTest>

namespace {

enum Key { Own = 1, Other = 2 };

/// A session that keeps the field that the parser stored last.
struct Record
{
    QString name;
    QString value;
};

bool store(Record *record, const QString &value, const QString &name)
{
    *record = {name, value};
    return true;
}

QString load(const Record *, const QString &name)
{
    return QStringLiteral("value of ") + name;
}

/// A parser whose tables of formats contain a key several times.
class TestParser : public Nmea::ParserAbstract<Record>
{
protected:
    QHash<int, QString> initSentenceIdentifiers() override { return {{Own, QStringLiteral("OWN")}}; }
    QHash<int, QString> initSentenceFormatsParse() override { return formats(); }
    QHash<int, QString> initSentenceFormatsBuild() override { return formats(); }
    QHash<QString, ParserDelegate> initParserDelegates() override
    {
        return {{QStringLiteral("a"), store}, {QStringLiteral("b"), store}, {QStringLiteral("c"), store}};
    }
    QHash<QString, BuilderDelegate> initBuilderDelegates() override
    {
        return {{QStringLiteral("a"), load}, {QStringLiteral("b"), load}, {QStringLiteral("c"), load}};
    }

private:
    static QMultiHash<int, QString> formats()
    {
        return {{Own, QStringLiteral("a")},
                {Other, QStringLiteral("a")},
                {Own, QStringLiteral("b")},
                {Own, QStringLiteral("c")}};
    }
};

} // namespace

/// Only for Qt 5: there a hook of ParserAbstract can return a QMultiHash, because QMultiHash is a QHash.
class TestParserAbstractMultiHash : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void newestFormatOfAKeyIsUsed();
};

void TestParserAbstractMultiHash::newestFormatOfAKeyIsUsed()
{
    TestParser parser;
    parser.init();
    Record record;
    QString out;
    parser.buildSentence(&record, Own, out);
    QVERIFY2(out.startsWith(QLatin1String("$OWN,value of c*")), qPrintable(out));
    parser.parseTrimmed(&record, QStringLiteral("OWN,1"));
    QCOMPARE(record.name, QStringLiteral("c"));
    QCOMPARE(record.value, QStringLiteral("1"));
}

QTEST_APPLESS_MAIN(TestParserAbstractMultiHash)
#include "tst_parserabstract_multihash.moc"

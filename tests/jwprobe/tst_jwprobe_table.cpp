#include <jwprobe/output/table.h>

#include <QTest>

using namespace JwProbe;

class TestJwprobeTable : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void columnsAreAsWideAsTheirWidestCell();
    void aNoteStandsBelowItsRow();
    void theShrinkableColumnGivesWay();
    void nothingShrinksWithoutALimit();
    void textIsWrappedAtBlanks_data();
    void textIsWrappedAtBlanks();
};

namespace {

Table makeTable()
{
    Table table({QStringLiteral("A"), QStringLiteral("B"), QStringLiteral("C")});
    table.setShrinkable(1);
    table.setRightAligned(2);
    table.addRow({QStringLiteral("long cell"), QStringLiteral("manufacturer"), QStringLiteral("12")},
                 QStringLiteral("a note on it"));
    table.addRow({QStringLiteral("x")});
    return table;
}

} // namespace

void TestJwprobeTable::columnsAreAsWideAsTheirWidestCell()
{
    const QStringList lines = makeTable().toText(80).split(QLatin1Char('\n'));
    QCOMPARE(lines.value(0), QStringLiteral("A          B              C"));
    QCOMPARE(lines.value(1), QStringLiteral("long cell  manufacturer  12"));
    QCOMPARE(lines.value(3), QStringLiteral("x"));
}

void TestJwprobeTable::aNoteStandsBelowItsRow()
{
    const QStringList lines = makeTable().toText(80).split(QLatin1Char('\n'));
    QCOMPARE(lines.value(2), QStringLiteral("           a note on it"));
}

void TestJwprobeTable::theShrinkableColumnGivesWay()
{
    const QStringList lines = makeTable().toText(25).split(QLatin1Char('\n'));
    QCOMPARE(lines.value(0), QStringLiteral("A          B            C"));
    QCOMPARE(lines.value(1), QStringLiteral("long cell  manufact..  12"));
}

void TestJwprobeTable::nothingShrinksWithoutALimit()
{
    QVERIFY(makeTable().toText(0).contains(QLatin1String("manufacturer")));
}

void TestJwprobeTable::textIsWrappedAtBlanks_data()
{
    QTest::addColumn<int>("indent");
    QTest::addColumn<int>("width");
    QTest::addColumn<QString>("wrappedText");
    QTest::newRow("no limit") << 0 << 0 << QStringLiteral("one two three");
    QTest::newRow("fits") << 0 << 13 << QStringLiteral("one two three");
    QTest::newRow("one too long") << 0 << 12 << QStringLiteral("one two\nthree");
    QTest::newRow("indented") << 4 << 12 << QStringLiteral("one two\n    three");
    QTest::newRow("words wider than the terminal") << 0 << 2 << QStringLiteral("one\ntwo\nthree");
}

void TestJwprobeTable::textIsWrappedAtBlanks()
{
    QFETCH(int, indent);
    QFETCH(int, width);
    QTEST(wrapped(QStringLiteral("one two three"), indent, width), "wrappedText");
}

QTEST_GUILESS_MAIN(TestJwprobeTable)
#include "tst_jwprobe_table.moc"

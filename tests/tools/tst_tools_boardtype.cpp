#include <common/boardtype.h>

#include <device/boardrules.h>

#include <QTest>

using namespace JwTools;

Q_DECLARE_METATYPE(JwDevice::Type)

class TestBoardType : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void eachNameLeadsBackToItsType();
    void unknownTypeHasNoName();
    void unknownNameHasNoType_data();
    void unknownNameHasNoType();
    void namesAreJoined_data();
    void namesAreJoined();
};

void TestBoardType::eachNameLeadsBackToItsType()
{
    const QList<JwDevice::Type> types = JwDevice::boardTypes();
    for (const JwDevice::Type type : types) {
        const QString name = boardName(type);
        QVERIFY(!name.isEmpty());
        QVERIFY(boardType(name) == type);
        QVERIFY(boardType(name.toUpper()) == type);
        QVERIFY(boardType(name.toLower()) == type);
    }
    QCOMPARE(boardName(JwDevice::BoardB), QStringLiteral("BoardB"));
}

void TestBoardType::unknownTypeHasNoName()
{
    QCOMPARE(boardName(JwDevice::Unknown), QString());
}

void TestBoardType::unknownNameHasNoType_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("empty") << QString();
    QTest::newRow("no board") << QStringLiteral("Toaster");
    QTest::newRow("the library's word for no type") << QStringLiteral("Unknown");
    QTest::newRow("blank after it") << QStringLiteral("BoardA ");
}

void TestBoardType::unknownNameHasNoType()
{
    QFETCH(QString, name);
    QVERIFY(!boardType(name));
}

void TestBoardType::namesAreJoined_data()
{
    QTest::addColumn<QList<JwDevice::Type>>("types");
    QTest::addColumn<QString>("text");
    QTest::newRow("none") << QList<JwDevice::Type>() << QString();
    QTest::newRow("one") << QList<JwDevice::Type>{JwDevice::BoardC} << QStringLiteral("BoardC");
    QTest::newRow("two") << QList<JwDevice::Type>{JwDevice::BoardC, JwDevice::BoardA}
                         << QStringLiteral("BoardC or BoardA");
    QTest::newRow("three") << QList<JwDevice::Type>{JwDevice::BoardA, JwDevice::BoardB, JwDevice::BoardC}
                           << QStringLiteral("BoardA, BoardB or BoardC");
}

void TestBoardType::namesAreJoined()
{
    QFETCH(QList<JwDevice::Type>, types);
    QTEST(boardNames(types, QStringLiteral("or")), "text");
}

QTEST_GUILESS_MAIN(TestBoardType)
#include "tst_tools_boardtype.moc"

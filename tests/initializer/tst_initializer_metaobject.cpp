#include <device/initializer.h>

#include <QMetaMethod>
#include <QTest>

#include <type_traits>

using JwDevice::Communicator;
using JwDevice::Initializer;

static_assert(std::is_base_of_v<QObject, Initializer> && std::is_convertible_v<Initializer *, QObject *>);
static_assert(std::has_virtual_destructor_v<Initializer>);
static_assert(!std::is_copy_constructible_v<Initializer> && !std::is_copy_assignable_v<Initializer>);
static_assert(std::is_default_constructible_v<Initializer> && std::is_constructible_v<Initializer, QObject *>);
static_assert(!std::is_convertible_v<QObject *, Initializer>, "the constructor is explicit");
static_assert(std::is_same_v<decltype(&Initializer::probe),
                             bool (Initializer::*)(const QList<JwDevice::Type> &, int, const QList<QString> &)>);
static_assert(std::is_same_v<decltype(std::declval<Initializer &>().probe({})), bool>, "delay and names have defaults");
static_assert(std::is_same_v<decltype(std::declval<Initializer &>().probe({}, 0)), bool>, "names have a default");
static_assert(std::is_same_v<decltype(&Initializer::setMaxRetries), uint (Initializer::*)(uint)>);
static_assert(std::is_same_v<decltype(&Initializer::queryBoardVersion), void (Initializer::*)(Communicator *)>);
static_assert(std::is_same_v<decltype(&Initializer::sendProtocol),
                             bool (Initializer::*)(Communicator *, JwDevice::SessionInit *)>);

class TestInitializerMetaObject : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void communicatorPointerIsAMetaType();
    void methodsStandInTheirOrder_data();
    void methodsStandInTheirOrder();
    void metaObjectHasNothingElse();
    void classNameIsTheQualifiedOne();
    void signalsConnectByTheirText();
    void deviceNotFoundReachesAReceiverByText();

public Q_SLOTS:
    void countReport() { ++m_reports; }

private:
    int m_reports = 0;
};

void TestInitializerMetaObject::communicatorPointerIsAMetaType()
{
    const QMetaMethod initialized = QMetaMethod::fromSignal(&Initializer::deviceInitialized);
    const QMetaType type(initialized.parameterType(1));
    QVERIFY(type.isRegistered());
    QCOMPARE(QByteArray(type.name()), QByteArray("JwDevice::Communicator*"));
    QVERIFY(type.flags().testFlag(QMetaType::PointerToQObject));
    QCOMPARE(type.metaObject(), &Communicator::staticMetaObject);
}

void TestInitializerMetaObject::methodsStandInTheirOrder_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<QByteArray>("signature");
    QTest::addColumn<bool>("isSignal");
    QTest::addColumn<QList<QByteArray>>("parameterTypes");
    QTest::addColumn<QList<QByteArray>>("parameterNames");
    const QList<QByteArray> none;
    QTest::newRow("deviceInitialized") << 0 << QByteArray("deviceInitialized(JwDevice::Type,JwDevice::Communicator*)")
                                       << true << QList<QByteArray>{"JwDevice::Type", "JwDevice::Communicator*"}
                                       << QList<QByteArray>{"type", "comm"};
    QTest::newRow("deviceNotFound") << 1 << QByteArray("deviceNotFound(JwDevice::Type)") << true
                                    << QList<QByteArray>{"JwDevice::Type"} << QList<QByteArray>{"type"};
    QTest::newRow("boardReadyRead") << 2 << QByteArray("boardReadyRead(QObject*)") << false
                                    << QList<QByteArray>{"QObject*"} << none;
    QTest::newRow("readTimeout") << 3 << QByteArray("readTimeout(QObject*)") << false << QList<QByteArray>{"QObject*"}
                                 << none;
    QTest::newRow("probeStage2") << 4 << QByteArray("probeStage2()") << false << none << none;
}

void TestInitializerMetaObject::methodsStandInTheirOrder()
{
    QFETCH(int, index);
    QFETCH(QByteArray, signature);
    QFETCH(bool, isSignal);
    QFETCH(QList<QByteArray>, parameterTypes);
    QFETCH(QList<QByteArray>, parameterNames);
    const QMetaObject &meta = Initializer::staticMetaObject;
    const QMetaMethod method = meta.method(meta.methodOffset() + index);
    QCOMPARE(method.methodSignature(), signature);
    QCOMPARE(method.methodType(), isSignal ? QMetaMethod::Signal : QMetaMethod::Slot);
    QCOMPARE(method.access(), QMetaMethod::Public);
    QCOMPARE(QByteArray(method.typeName()), QByteArray("void"));
    QCOMPARE(method.parameterTypes(), parameterTypes);
    if (!parameterNames.isEmpty())
        QCOMPARE(method.parameterNames(), parameterNames);
}

void TestInitializerMetaObject::metaObjectHasNothingElse()
{
    const QMetaObject &meta = Initializer::staticMetaObject;
    QCOMPARE(meta.methodCount() - meta.methodOffset(), 5);
    QCOMPARE(meta.propertyCount() - meta.propertyOffset(), 0);
    QCOMPARE(meta.enumeratorCount() - meta.enumeratorOffset(), 0);
    QCOMPARE(meta.classInfoCount() - meta.classInfoOffset(), 0);
    QCOMPARE(meta.constructorCount(), 0);
    QCOMPARE(meta.superClass(), &QObject::staticMetaObject);
}

void TestInitializerMetaObject::classNameIsTheQualifiedOne()
{
    Initializer initializer;
    QCOMPARE(QByteArray(initializer.metaObject()->className()), QByteArray("JwDevice::Initializer"));
    QCOMPARE(initializer.qt_metacast("JwDevice::Initializer"), static_cast<void *>(&initializer));
    QCOMPARE(initializer.qt_metacast("QObject"), static_cast<void *>(&initializer));
    QCOMPARE(initializer.qt_metacast("Initializer"), nullptr);
    QCOMPARE(qobject_cast<Initializer *>(static_cast<QObject *>(&initializer)), &initializer);
}

void TestInitializerMetaObject::signalsConnectByTheirText()
{
    Initializer initializer;
    QVERIFY(connect(&initializer, SIGNAL(deviceInitialized(JwDevice::Type, JwDevice::Communicator *)), this,
                    SLOT(countReport())));
    QVERIFY(connect(&initializer, SIGNAL(deviceNotFound(JwDevice::Type)), this, SLOT(countReport())));
}

void TestInitializerMetaObject::deviceNotFoundReachesAReceiverByText()
{
    Initializer initializer;
    connect(&initializer, SIGNAL(deviceNotFound(JwDevice::Type)), this, SLOT(countReport()));
    QVERIFY(initializer.probe({JwDevice::BoardA, JwDevice::BoardB}, 0, {QStringLiteral("ttyNONE1")}));
    QCOMPARE(m_reports, 2);
}

QTEST_GUILESS_MAIN(TestInitializerMetaObject)
#include "tst_initializer_metaobject.moc"

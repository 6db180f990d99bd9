#include <device/initializer.h>

#include <QMetaMethod>
#include <QTest>

using JwDevice::Initializer;

/// Tests when the types of the signals' arguments are registered. tst_initializer_metatypes_qt6.cpp is the test for
/// Qt 6.
class TestInitializerMetaTypes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void askingForTheArgumentTypesRegistersOnlyTheCommunicatorPointer();
};

void TestInitializerMetaTypes::askingForTheArgumentTypesRegistersOnlyTheCommunicatorPointer()
{
    QCOMPARE(QMetaType::type("JwDevice::Communicator*"), int(QMetaType::UnknownType));
    const QMetaMethod initialized = QMetaMethod::fromSignal(&Initializer::deviceInitialized);
    const int type = initialized.parameterType(1);
    QVERIFY(type != QMetaType::UnknownType);
    QCOMPARE(QMetaType::type("JwDevice::Communicator*"), type);

    QCOMPARE(initialized.parameterType(0), int(QMetaType::UnknownType));
    QCOMPARE(QMetaMethod::fromSignal(&Initializer::deviceNotFound).parameterType(0), int(QMetaType::UnknownType));
    QCOMPARE(QMetaType::type("JwDevice::Type"), int(QMetaType::UnknownType));
}

QTEST_GUILESS_MAIN(TestInitializerMetaTypes)
#include "tst_initializer_metatypes_qt5.moc"

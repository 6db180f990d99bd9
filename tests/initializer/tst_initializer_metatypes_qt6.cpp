#include <device/communicator.h>
#include <device/initializer.h>

#include <QSignalSpy>
#include <QTest>

using JwDevice::Initializer;

/// Tests that Qt 6 registers the types of the signals' arguments by itself. tst_initializer_metatypes_qt5.cpp is the
/// test for Qt 5.
class TestInitializerMetaTypes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void queuedDeviceNotFoundArrivesWithoutRegistration();
    void queuedDeviceInitializedArrivesWithoutRegistration();
    void signalSpyRecordsWithoutRegistration();
};

void TestInitializerMetaTypes::queuedDeviceNotFoundArrivesWithoutRegistration()
{
    Initializer initializer;
    QList<JwDevice::Type> missing;
    connect(
        &initializer, &Initializer::deviceNotFound, this, [&missing](JwDevice::Type type) { missing.append(type); },
        Qt::QueuedConnection);
    initializer.probe({JwDevice::BoardC}, 0, {QStringLiteral("ttyNONE1")});
    QVERIFY(missing.isEmpty());
    QTRY_COMPARE(missing, QList<JwDevice::Type>{JwDevice::BoardC});
}

void TestInitializerMetaTypes::queuedDeviceInitializedArrivesWithoutRegistration()
{
    Initializer initializer;
    JwDevice::Communicator communicator;
    QList<JwDevice::Type> types;
    QList<JwDevice::Communicator *> communicators;
    connect(
        &initializer, &Initializer::deviceInitialized, this,
        [&types, &communicators](JwDevice::Type type, JwDevice::Communicator *comm) {
            types.append(type);
            communicators.append(comm);
        },
        Qt::QueuedConnection);
    Q_EMIT initializer.deviceInitialized(JwDevice::BoardB, &communicator);
    QVERIFY(types.isEmpty());
    QTRY_COMPARE(types, QList<JwDevice::Type>{JwDevice::BoardB});
    QCOMPARE(communicators, QList<JwDevice::Communicator *>{&communicator});
}

void TestInitializerMetaTypes::signalSpyRecordsWithoutRegistration()
{
    Initializer initializer;
    const QSignalSpy spy(&initializer, &Initializer::deviceNotFound);
    initializer.probe({JwDevice::BoardC}, 0, {QStringLiteral("ttyNONE1")});
    QCOMPARE(spy.size(), 1);
    QCOMPARE(spy.first().first().value<JwDevice::Type>(), JwDevice::BoardC);
}

QTEST_GUILESS_MAIN(TestInitializerMetaTypes)
#include "tst_initializer_metatypes_qt6.moc"

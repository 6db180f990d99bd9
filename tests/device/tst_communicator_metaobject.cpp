#include <device/communicator.h>

#include <QMetaMethod>
#include <QSignalSpy>
#include <QTest>

#include <type_traits>

using JwDevice::Communicator;

/// Applications may connect by name or by index, so the order of methods in the meta-object is part of the interface.
class TestCommunicatorMetaObject : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void className();
    void metacastAnswersToTheClassName();
    void methodTable_data();
    void methodTable();
    void methodIsFoundByItsDeclaredSignature();
    void methodTableHasNothingElse();
    void signalsAreFoundByPointer();
    void signalCanBeEmittedByName();
    void copyingIsImpossible();
};

void TestCommunicatorMetaObject::className()
{
    const Communicator communicator;
    QCOMPARE(Communicator::staticMetaObject.className(), "JwDevice::Communicator");
    QCOMPARE(communicator.metaObject(), &Communicator::staticMetaObject);
    QCOMPARE(communicator.metaObject()->superClass(), &QObject::staticMetaObject);
}

void TestCommunicatorMetaObject::metacastAnswersToTheClassName()
{
    Communicator communicator;
    QCOMPARE(communicator.qt_metacast("JwDevice::Communicator"), static_cast<void *>(&communicator));
    QCOMPARE(communicator.qt_metacast("QObject"), static_cast<void *>(static_cast<QObject *>(&communicator)));
    QVERIFY(!communicator.qt_metacast("Communicator"));
    QVERIFY(!communicator.qt_metacast("JwDevice::Initializer"));
    QVERIFY(!communicator.qt_metacast(nullptr));
    QVERIFY(communicator.inherits("JwDevice::Communicator"));
    QObject *object = &communicator;
    QCOMPARE(qobject_cast<Communicator *>(object), &communicator);
}

void TestCommunicatorMetaObject::methodTable_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("kind");
    QTest::addColumn<QByteArray>("signature");
    QTest::addColumn<QList<QByteArray>>("types");
    QTest::addColumn<QList<QByteArray>>("names");
    const int signal = QMetaMethod::Signal;
    const int slot = QMetaMethod::Slot;
    using List = QList<QByteArray>;
    QTest::newRow("transferred") << 0 << signal << QByteArray("transferred(uint)") << List{"uint"} << List{"id"};
    QTest::newRow("transferFailed") << 1 << signal << QByteArray("transferFailed(uint)") << List{"uint"} << List{"id"};
    QTest::newRow("readyRead of an id") << 2 << signal << QByteArray("readyRead(uint)") << List{"uint"} << List{"id"};
    QTest::newRow("readyRead") << 3 << signal << QByteArray("readyRead()") << List{} << List{};
    QTest::newRow("readFailed") << 4 << signal << QByteArray("readFailed()") << List{} << List{};
    QTest::newRow("ioReadyRead") << 5 << slot << QByteArray("ioReadyRead()") << List{} << List{};
    QTest::newRow("ioBytesWritten") << 6 << slot << QByteArray("ioBytesWritten(qlonglong)") << List{"qlonglong"}
                                    << List{"bytes"};
}

void TestCommunicatorMetaObject::methodTable()
{
    QFETCH(int, index);
    QFETCH(int, kind);
    QFETCH(QByteArray, signature);
    QFETCH(QList<QByteArray>, types);
    QFETCH(QList<QByteArray>, names);
    const QMetaObject &meta = Communicator::staticMetaObject;
    const QMetaMethod method = meta.method(meta.methodOffset() + index);
    QCOMPARE(method.methodSignature(), signature);
    QCOMPARE(static_cast<int>(method.methodType()), kind);
    QCOMPARE(method.parameterTypes(), types);
    QCOMPARE(method.parameterNames(), names);
    QCOMPARE(method.typeName(), "void");
}

void TestCommunicatorMetaObject::methodIsFoundByItsDeclaredSignature()
{
    const QMetaObject &meta = Communicator::staticMetaObject;
    const QList<QByteArray> signatures{"transferred(uint)",     "transferFailed(uint)", "readyRead(uint)",
                                       "readyRead()",           "readFailed()",         "ioReadyRead()",
                                       "ioBytesWritten(qint64)"};
    for (const QByteArray &signature : signatures)
        QCOMPARE(meta.indexOfMethod(signature.constData()), meta.methodOffset() + signatures.indexOf(signature));
}

void TestCommunicatorMetaObject::methodTableHasNothingElse()
{
    const QMetaObject &meta = Communicator::staticMetaObject;
    QCOMPARE(meta.methodCount() - meta.methodOffset(), 7);
    QCOMPARE(meta.propertyCount() - meta.propertyOffset(), 0);
    QCOMPARE(meta.enumeratorCount() - meta.enumeratorOffset(), 0);
    QCOMPARE(meta.constructorCount(), 0);
    QCOMPARE(meta.classInfoCount() - meta.classInfoOffset(), 0);
}

void TestCommunicatorMetaObject::signalsAreFoundByPointer()
{
    const int offset = Communicator::staticMetaObject.methodOffset();
    QCOMPARE(QMetaMethod::fromSignal(&Communicator::transferred).methodIndex(), offset);
    QCOMPARE(QMetaMethod::fromSignal(&Communicator::transferFailed).methodIndex(), offset + 1);
    QCOMPARE(QMetaMethod::fromSignal(qOverload<uint>(&Communicator::readyRead)).methodIndex(), offset + 2);
    QCOMPARE(QMetaMethod::fromSignal(qOverload<>(&Communicator::readyRead)).methodIndex(), offset + 3);
    QCOMPARE(QMetaMethod::fromSignal(&Communicator::readFailed).methodIndex(), offset + 4);
}

void TestCommunicatorMetaObject::signalCanBeEmittedByName()
{
    Communicator communicator;
    QSignalSpy failed(&communicator, SIGNAL(transferFailed(uint)));
    QSignalSpy readFailed(&communicator, SIGNAL(readFailed()));
    QVERIFY(failed.isValid());
    QVERIFY(readFailed.isValid());
    QVERIFY(QMetaObject::invokeMethod(&communicator, "transferFailed", Q_ARG(uint, 4294967295u)));
    QVERIFY(QMetaObject::invokeMethod(&communicator, "readFailed"));
    QCOMPARE(failed.count(), 1);
    QCOMPARE(failed.at(0).at(0).toUInt(), 4294967295u);
    QCOMPARE(readFailed.count(), 1);
}

void TestCommunicatorMetaObject::copyingIsImpossible()
{
    static_assert(!std::is_copy_constructible_v<Communicator> && !std::is_copy_assignable_v<Communicator>);
    static_assert(std::has_virtual_destructor_v<Communicator>);
    static_assert(std::is_default_constructible_v<Communicator>);
    static_assert(!std::is_convertible_v<QObject *, Communicator>, "a parent is not a Communicator");
}

QTEST_GUILESS_MAIN(TestCommunicatorMetaObject)
#include "tst_communicator_metaobject.moc"

#include <nmea/exception.h>

#include <QtTest>

#include <exception>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

using Nmea::Exception;

static_assert(std::is_base_of_v<std::exception, Exception>);
static_assert(std::is_convertible_v<Exception *, std::exception *>, "the base is public");
static_assert(std::has_virtual_destructor_v<Exception>);
static_assert(std::is_constructible_v<Exception, const QString &>);
static_assert(std::is_nothrow_copy_constructible_v<Exception>, "a copy made while it is thrown must not throw itself");
static_assert(std::is_copy_assignable_v<Exception>);
static_assert(std::is_same_v<decltype(&Exception::message), QString (Exception::*)() const>);
static_assert(noexcept(std::declval<const Exception &>().what()));
static_assert(sizeof(Exception) == sizeof(std::exception) + sizeof(QString), "an exception keeps only its text");

namespace {

/// Returns a long text. After this text is freed, malloc uses its memory for other blocks (see blocksInFreedMemory()).
QString longText()
{
    return QString(5000, QLatin1Char('x'));
}

/// Returns new blocks. malloc places them in memory that was just freed, so they overwrite the old content. A pointer
/// to a freed text then shows "#" characters, which the tests notice.
QVector<QByteArray> blocksInFreedMemory()
{
    QVector<QByteArray> blocks;
    for (int i = 0; i < 20; ++i)
        blocks.append(QByteArray(2000, '#'));
    return blocks;
}

} // namespace

class TestException : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void messageIsTheTextGiven_data();
    void messageIsTheTextGiven();
    void keepsACopyOfTheText();
    void copiesCarryTheMessage();
    void isThrownByValueAndCaughtByReference();
    void isCaughtAsStdException();
    void whatIsTheMessageInLocal8Bit();
    void whatIsReadableRightAfterTheCall();
    void whatIsReplacedAtTheNextCall();
    void whatIsKeptPerThread();
};

void TestException::messageIsTheTextGiven_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("plain") << QStringLiteral("Bad end");
    QTest::newRow("empty") << QString();
    QTest::newRow("beyond ASCII") << QStringLiteral("Undefined sentence ID: \u00c4\u20ac");
    QTest::newRow("placeholder") << QStringLiteral("Undefined sentence ID: %1");
    QTest::newRow("long") << QString(100000, QLatin1Char('x'));
}

void TestException::messageIsTheTextGiven()
{
    QFETCH(QString, text);
    QCOMPARE(Exception(text).message(), text);
}

void TestException::keepsACopyOfTheText()
{
    QString text = QStringLiteral("Bad end");
    const Exception exception(text);
    text[0] = QLatin1Char('M');
    QCOMPARE(exception.message(), QStringLiteral("Bad end"));
}

void TestException::copiesCarryTheMessage()
{
    const Exception original(QStringLiteral("Bad end"));
    const Exception copy(original);
    Exception assigned(QStringLiteral("Sentence too long"));
    assigned = original;
    QCOMPARE(copy.message(), QStringLiteral("Bad end"));
    QCOMPARE(assigned.message(), QStringLiteral("Bad end"));
    QCOMPARE(original.message(), QStringLiteral("Bad end"));
}

void TestException::isThrownByValueAndCaughtByReference()
{
    try {
        throw Exception(QStringLiteral("Checksum field"));
    } catch (const Exception &exception) {
        QCOMPARE(exception.message(), QStringLiteral("Checksum field"));
        return;
    }
}

void TestException::isCaughtAsStdException()
{
    try {
        throw Exception(QStringLiteral("Checksum field"));
    } catch (const std::exception &exception) {
        QCOMPARE(exception.what(), "Checksum field");
        QVERIFY(dynamic_cast<const Exception *>(&exception));
        return;
    }
}

void TestException::whatIsTheMessageInLocal8Bit()
{
    const QString text = QStringLiteral("Gr\u00fc\u00dfe");
    QCOMPARE(QByteArray(Exception(text).what()), text.toLocal8Bit());
}

void TestException::whatIsReadableRightAfterTheCall()
{
    const char *text = nullptr;
    {
        const Exception exception(longText());
        text = exception.what();
    }
    const QVector<QByteArray> blocks = blocksInFreedMemory();
    QCOMPARE(QByteArray(text), longText().toLatin1());
    QVERIFY(!blocks.isEmpty());
}

void TestException::whatIsReplacedAtTheNextCall()
{
    const Exception first(QStringLiteral("Bad end"));
    const Exception second(QStringLiteral("Wrong sentence description length"));
    QCOMPARE(first.what(), "Bad end");
    QCOMPARE(second.what(), "Wrong sentence description length");
    QCOMPARE(first.what(), "Bad end");
    QCOMPARE(Exception(QString()).what(), "");
}

void TestException::whatIsKeptPerThread()
{
    const Exception here(longText());
    const char *text = here.what();
    std::string other;
    std::thread([&other] { other = Exception(QStringLiteral("from the second thread")).what(); }).join();
    const QVector<QByteArray> blocks = blocksInFreedMemory();
    QCOMPARE(QByteArray(text), longText().toLatin1());
    QCOMPARE(other, std::string("from the second thread"));
    QVERIFY(!blocks.isEmpty());
}

QTEST_APPLESS_MAIN(TestException)
#include "tst_exception.moc"

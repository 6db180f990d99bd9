#include <device/ipayloadparser.h>
#include <device/sessionabstract.h>
#include <device/sessioninit.h>
#include <device/type.h>

#include <QtTest>

#include <type_traits>

using JwDevice::IPayloadParser;
using JwDevice::SessionAbstract;
using JwDevice::SessionInit;

static_assert(std::is_enum_v<JwDevice::Type>);
static_assert(std::is_same_v<std::underlying_type_t<JwDevice::Type>, int>);
static_assert(std::is_convertible_v<JwDevice::Type, int>, "unscoped");
static_assert(JwDevice::Unknown == 0 && JwDevice::Type::Unknown == 0);
static_assert(JwDevice::BoardA == 1 && JwDevice::Type::BoardA == 1);
static_assert(JwDevice::BoardB == 2 && JwDevice::Type::BoardB == 2);
static_assert(JwDevice::BoardC == 3 && JwDevice::Type::BoardC == 3);

static_assert(std::is_polymorphic_v<SessionAbstract>);
static_assert(!std::is_abstract_v<SessionAbstract>);
static_assert(!std::has_virtual_destructor_v<SessionAbstract>);
static_assert(sizeof(SessionAbstract) == sizeof(void *), "no data members");
static_assert(std::is_copy_constructible_v<SessionAbstract> && std::is_copy_assignable_v<SessionAbstract>);
static_assert(std::is_same_v<decltype(&SessionAbstract::clear), void (SessionAbstract::*)()>);

static_assert(std::is_convertible_v<SessionInit *, SessionAbstract *>, "the base is public");
static_assert(!std::has_virtual_destructor_v<SessionInit>);
static_assert(std::is_default_constructible_v<SessionInit>);
static_assert(std::is_copy_constructible_v<SessionInit> && std::is_copy_assignable_v<SessionInit>);
static_assert(std::is_same_v<decltype(SessionInit::sentenceId), int>);
static_assert(std::is_same_v<decltype(SessionInit::fields), QHash<QString, QVariant>>);

static_assert(std::is_abstract_v<IPayloadParser>);
static_assert(std::has_virtual_destructor_v<IPayloadParser>);
static_assert(sizeof(IPayloadParser) == sizeof(void *), "no data members");
static_assert(
    std::is_same_v<decltype(&IPayloadParser::parse), bool (IPayloadParser::*)(SessionAbstract *, const QString &)>);
static_assert(
    std::is_same_v<decltype(&IPayloadParser::build), bool (IPayloadParser::*)(const SessionAbstract *, QString &)>);

namespace {

/// A session of an application. It does not override clear(), so clear() must leave `value` unchanged.
class PlainSession : public SessionAbstract
{
public:
    int value = 7;
};

SessionInit filledSession()
{
    SessionInit session;
    session.sentenceId = 3;
    session.fields.insert(QStringLiteral("subcommand"), QStringLiteral("INF"));
    session.fields.insert(QStringLiteral("v1"), 4);
    return session;
}

class CountingParser : public IPayloadParser
{
public:
    explicit CountingParser(int *destroyed)
        : m_destroyed(destroyed)
    {
    }
    ~CountingParser() override { ++*m_destroyed; }
    bool parse(SessionAbstract *, const QString &) override { return true; }
    bool build(const SessionAbstract *, QString &) override { return true; }

private:
    int *m_destroyed;
};

} // namespace

class TestSessions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void typeIsAKeyOfCollections();
    void newSessionHasNoFields();
    void newSessionAfterClearIsEmpty();
    void clearEmptiesAFilledSession();
    void clearThroughTheBaseClearsTheSession();
    void clearOfAnotherSessionChangesNothing();
    void clearedSessionIsUsedAgain();
    void missingFieldIsAnInvalidVariant();
    void lookingUpAFieldAddsNoField();
    void copyIsIndependent();
    void parserIsDestroyedThroughTheInterface();
};

void TestSessions::typeIsAKeyOfCollections()
{
    const QList<JwDevice::Type> types{JwDevice::BoardA, JwDevice::Type::BoardC};
    QVERIFY(types.contains(JwDevice::BoardC));
    QVERIFY(!types.contains(JwDevice::BoardB));
    QHash<JwDevice::Type, int> counts;
    counts[JwDevice::BoardB] = 2;
    QCOMPARE(counts.value(JwDevice::Type::BoardB), 2);
}

void TestSessions::newSessionHasNoFields()
{
    QVERIFY(SessionInit().fields.isEmpty());
}

void TestSessions::newSessionAfterClearIsEmpty()
{
    SessionInit session;
    session.clear();
    QCOMPARE(session.sentenceId, 0);
    QVERIFY(session.fields.isEmpty());
}

void TestSessions::clearEmptiesAFilledSession()
{
    SessionInit session = filledSession();
    session.clear();
    QCOMPARE(session.sentenceId, 0);
    QVERIFY(session.fields.isEmpty());
}

void TestSessions::clearThroughTheBaseClearsTheSession()
{
    SessionInit session = filledSession();
    SessionAbstract &base = session;
    base.clear();
    QCOMPARE(session.sentenceId, 0);
    QVERIFY(session.fields.isEmpty());
}

void TestSessions::clearOfAnotherSessionChangesNothing()
{
    PlainSession session;
    SessionAbstract &base = session;
    base.clear();
    QCOMPARE(session.value, 7);
    SessionAbstract plain;
    plain.clear();
}

void TestSessions::clearedSessionIsUsedAgain()
{
    SessionInit session = filledSession();
    session.clear();
    session.sentenceId = 2;
    session.fields.insert(QStringLiteral("hwversion"), QStringLiteral("7300021"));
    QCOMPARE(session.sentenceId, 2);
    QCOMPARE(session.fields.keys(), QStringList{QStringLiteral("hwversion")});
}

void TestSessions::missingFieldIsAnInvalidVariant()
{
    const SessionInit session = filledSession();
    const QVariant value = session.fields.value(QStringLiteral("hwversion"));
    QVERIFY(!value.isValid());
    QCOMPARE(value.toString(), QString());
}

void TestSessions::lookingUpAFieldAddsNoField()
{
    const SessionInit session = filledSession();
    session.fields.value(QStringLiteral("hwversion"));
    QCOMPARE(session.fields.size(), 2);
}

void TestSessions::copyIsIndependent()
{
    const SessionInit original = filledSession();
    SessionInit copy = original;
    QCOMPARE(copy.sentenceId, 3);
    QCOMPARE(copy.fields, original.fields);
    copy.fields[QStringLiteral("v1")] = 5;
    copy.sentenceId = 1;
    QCOMPARE(original.fields.value(QStringLiteral("v1")).toInt(), 4);
    copy.clear();
    QCOMPARE(original.sentenceId, 3);
    QCOMPARE(original.fields.size(), 2);
}

void TestSessions::parserIsDestroyedThroughTheInterface()
{
    int destroyed = 0;
    IPayloadParser *parser = new CountingParser(&destroyed);
    delete parser;
    QCOMPARE(destroyed, 1);
}

QTEST_APPLESS_MAIN(TestSessions)
#include "tst_sessions.moc"

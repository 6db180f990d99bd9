#include <nmea/parserabstract.h>

#include <QtTest>

#include <stdexcept>
#include <type_traits>
#include <utility>

#include "support/common/throws.h"
#include "support/nmea/thrownmessage.h"

namespace {

/// A session that records what the parser does with the session, in order.
struct Record
{
    QStringList events;
    QHash<QString, QString> values;
};

using Base = Nmea::ParserAbstract<Record>;
using Table = QHash<int, QString>;

bool store(Record *record, const QString &value, const QString &name)
{
    record->events.append(name + QLatin1Char('=') + value);
    record->values[name] = value;
    return true;
}

bool storeAndReturnFalse(Record *record, const QString &value, const QString &name)
{
    store(record, value, name);
    return false;
}

bool refuse(Record *, const QString &, const QString &name)
{
    throw Nmea::Exception(QStringLiteral("Refused: %1").arg(name));
}

bool failOtherwise(Record *, const QString &, const QString &)
{
    throw std::runtime_error("not the codec's");
}

QString load(const Record *record, const QString &name)
{
    return record->values.value(name);
}

QString refuseToLoad(const Record *, const QString &name)
{
    throw Nmea::Exception(QStringLiteral("Refused: %1").arg(name));
}

/// Keys of the test sentences. A format names the fields of a sentence; each comment quotes the format of its key. A
/// delegate is the function that parses or builds one field.
enum Key {
    Three = 1, // "a,b,c" to parse and to build
    Gap = 2, // "a,,b" to parse and to build: the second field has no name
    OneWay = 3, // "a" to parse, "b,c" to build
    Empty = 4, // empty formats: the sentence has no fields
    Unread = 5, // no format to parse; "a" to build
    Unwritten = 6, // "a" to parse; no format to build
    Nameless = 7, // "a" to parse, "x" to build; but the table of identifiers does not contain the key
    Unknown = 8, // the second field is "x", which has no delegate
    Refusing = 9, // the delegate of the second field, "refuse", throws Nmea::Exception
    Failing = 10, // the delegate of the second field, "fail", throws an exception of another class
    Undefined = -9999, // all tables contain this key, but the parser must treat the key as unknown
};

/// A parser with entries in all its tables. Makes the protected members public, so that tests can call them.
class TestParser : public Base
{
public:
    using Base::m_builderDelegates;
    using Base::m_checksumDelimiter;
    using Base::m_fieldSeparator;
    using Base::m_formatsBuild;
    using Base::m_formatSeparator;
    using Base::m_formatsParse;
    using Base::m_initialized;
    using Base::m_lineEnd;
    using Base::m_maxLength;
    using Base::m_parserDelegates;
    using Base::m_reservedId;
    using Base::m_reversed;
    using Base::m_sentenceIds;
    using Base::m_startFlag;
    using Base::m_startFlagAlt;
    using Base::m_undefinedId;

    Table ids{{Three, QStringLiteral("THREE")},     {Gap, QStringLiteral("GAP")},
              {OneWay, QStringLiteral("ONEWAY")},   {Empty, QStringLiteral("EMPTY")},
              {Unread, QStringLiteral("UNREAD")},   {Unwritten, QStringLiteral("UNWRITTEN")},
              {Unknown, QStringLiteral("UNKNOWN")}, {Refusing, QStringLiteral("REFUSING")},
              {Failing, QStringLiteral("FAILING")}, {Undefined, QStringLiteral("UNDEFINED")}};
    Table formatsParse{{Three, QStringLiteral("a,b,c")},      {Gap, QStringLiteral("a,,b")},
                       {OneWay, QStringLiteral("a")},         {Empty, QString()},
                       {Unwritten, QStringLiteral("a")},      {Nameless, QStringLiteral("a")},
                       {Unknown, QStringLiteral("a,x,b")},    {Refusing, QStringLiteral("a,refuse,b")},
                       {Failing, QStringLiteral("a,fail,b")}, {Undefined, QStringLiteral("a")}};
    Table formatsBuild{{Three, QStringLiteral("a,b,c")},        {Gap, QStringLiteral("a,,b")},
                       {OneWay, QStringLiteral("b,c")},         {Empty, QString()},
                       {Unread, QStringLiteral("a")},           {Nameless, QStringLiteral("x")},
                       {Unknown, QStringLiteral("a,x")},        {Refusing, QStringLiteral("a,refuse")},
                       {Undefined, QStringLiteral("undefined")}};
    QHash<QString, ParserDelegate> parserDelegates{{QStringLiteral("a"), store},
                                                   {QStringLiteral("b"), storeAndReturnFalse},
                                                   {QStringLiteral("c"), store},
                                                   {QStringLiteral("refuse"), refuse},
                                                   {QStringLiteral("fail"), failOtherwise}};
    QHash<QString, BuilderDelegate> builderDelegates{{QStringLiteral("a"), load},
                                                     {QStringLiteral("b"), load},
                                                     {QStringLiteral("c"), load},
                                                     {QStringLiteral("refuse"), refuseToLoad}};
    QStringList hookCalls;

protected:
    Table initSentenceIdentifiers() override
    {
        hookCalls.append(QStringLiteral("identifiers"));
        return ids;
    }
    Table initTalkerIdentifiers() override
    {
        hookCalls.append(QStringLiteral("talkers"));
        return {};
    }
    Table initSentenceFormatsParse() override
    {
        hookCalls.append(QStringLiteral("formats to parse"));
        return formatsParse;
    }
    Table initSentenceFormatsBuild() override
    {
        hookCalls.append(QStringLiteral("formats to build"));
        return formatsBuild;
    }
    QHash<QString, ParserDelegate> initParserDelegates() override
    {
        hookCalls.append(QStringLiteral("parser delegates"));
        return parserDelegates;
    }
    QHash<QString, BuilderDelegate> initBuilderDelegates() override
    {
        hookCalls.append(QStringLiteral("builder delegates"));
        return builderDelegates;
    }
    void setSentenceId(Record *record, int sentenceId) override
    {
        record->events.append(QStringLiteral("key %1").arg(sentenceId));
    }
};

/// A parser that overrides no table, so the tables are empty.
class BareParser : public Base
{
public:
    using Base::initBuilderDelegates;
    using Base::initParserDelegates;
    using Base::initSentenceFormatsBuild;
    using Base::initSentenceFormatsParse;
    using Base::initSentenceIdentifiers;
    using Base::initTalkerIdentifiers;
    using Base::m_sentenceIds;
    using Base::setSentenceId;
};

/// A parser that has tables but uses the base class's setSentenceId(), which does not store the key in the session.
class KeylessParser : public TestParser
{
protected:
    void setSentenceId(Record *record, int sentenceId) override { Base::setSentenceId(record, sentenceId); }
};

static_assert(std::is_same_v<Base::ParserDelegate, bool (*)(Record *, const QString &, const QString &)>);
static_assert(std::is_same_v<Base::BuilderDelegate, QString (*)(const Record *, const QString &)>);
static_assert(std::is_default_constructible_v<Base>);
static_assert(std::is_copy_constructible_v<Base> && std::is_copy_assignable_v<Base>);
static_assert(std::is_polymorphic_v<Base> && !std::is_abstract_v<Base>);
static_assert(!std::has_virtual_destructor_v<Base>);
static_assert(std::is_same_v<decltype(&Base::init), bool (Base::*)()>);
static_assert(std::is_same_v<decltype(&Base::parseSentence), bool (Base::*)(Record *, const QString &)>);
static_assert(std::is_same_v<decltype(&Base::buildSentence), bool (Base::*)(const Record *, int, QString &)>);
static_assert(std::is_same_v<decltype(&Base::splitSentence), void (Base::*)(QString &, QString &, QString &)>);
static_assert(std::is_same_v<decltype(&Base::parseTrimmed), bool (Base::*)(Record *, const QString &)>);
static_assert(
    std::is_same_v<decltype(&Base::parseListed), bool (Base::*)(Record *, const QString &, const QStringList &)>);
static_assert(
    std::is_same_v<decltype(&Base::parseParameters), bool (Base::*)(Record *, const QStringList &, const QString &)>);
static_assert(std::is_same_v<decltype(&Base::buildParameters), QString (Base::*)(const Record *, const QString &)>);
static_assert(std::is_same_v<decltype(TestParser::m_maxLength), int>);
static_assert(std::is_same_v<decltype(TestParser::m_lineEnd), QString>);
static_assert(std::is_same_v<decltype(TestParser::m_startFlag), QChar>);
static_assert(std::is_same_v<decltype(TestParser::m_reversed), bool>);

Record recordOf(const QString &a, const QString &b = QString(), const QString &c = QString())
{
    Record record;
    record.values = {{QStringLiteral("a"), a}, {QStringLiteral("b"), b}, {QStringLiteral("c"), c}};
    return record;
}

/// Returns the text with a line end.
QString line(const char *text)
{
    return QString::fromLatin1(text) + QStringLiteral("\r\n");
}

void verifyTablesAreThoseOfTheHooks(const TestParser &parser)
{
    QCOMPARE(parser.m_sentenceIds, parser.ids);
    QCOMPARE(parser.m_formatsParse, parser.formatsParse);
    QCOMPARE(parser.m_formatsBuild, parser.formatsBuild);
    QVERIFY(parser.m_parserDelegates == parser.parserDelegates);
    QVERIFY(parser.m_builderDelegates == parser.builderDelegates);
}

} // namespace

class TestParserAbstract : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void newParserHasItsSettingsAndEmptyTables();
    void hooksOfTheBaseReturnEmptyTables();
    void baseDoesNotStoreTheKey();
    void initLoadsTheTablesInOrderAndNoTalkers();
    void initTwiceKeepsTheFirstTables();
    void parserBeforeInitRefusesEverything();
    void parserWithoutTablesRefusesEverything();
    void parserIsCopiedWithItsTables();

    void parseTestsTheFrame_data();
    void parseTestsTheFrame();
    void parseTestsInOrder_data();
    void parseTestsInOrder();
    void parseAcceptsTheLongestSentence();
    void parseAcceptsBothStartFlags();
    void parseWithoutChecksumKeepsTheLineEnd();
    void parseReadsTheChecksumAsANumber_data();
    void parseReadsTheChecksumAsANumber();
    void parseLeavesTheSentenceAlone();
    void refusedFrameLeavesTheSessionAlone();

    void splitTakesOffTheStartFlag_data();
    void splitTakesOffTheStartFlag();
    void splitRefusesSeveralDelimiters();

    void parseTrimmedSeparatesIdentifierAndFields_data();
    void parseTrimmedSeparatesIdentifierAndFields();
    void parseTrimmedRefuses_data();
    void parseTrimmedRefuses();
    void keyIsStoredBeforeTheFields();
    void parseListedKeepsTheFieldsUnchanged();
    void undefinedKeyIsTreatedAsUnknown();
    void parseParametersReadsTheFormat_data();
    void parseParametersReadsTheFormat();
    void parseParametersRefuses_data();
    void parseParametersRefuses();
    void moreFieldsThanNamesFailBeforeAnyDelegate();
    void unknownNameFailsOnlyWhenAFieldReachesIt();
    void delegateThatReturnsFalseStopsNothing();
    void exceptionOfADelegateArrivesUnchanged();

    void buildParametersWritesTheFormat_data();
    void buildParametersWritesTheFormat();
    void buildParametersRefusesAnUnknownName_data();
    void buildParametersRefusesAnUnknownName();
    void buildWritesTheWholeSentence_data();
    void buildWritesTheWholeSentence();
    void buildWritesAHighChecksumWith16Digits_data();
    void buildWritesAHighChecksumWith16Digits();
    void checksumOfAnEmptySentenceIsThatOfTheDelimiter();
    void checksumWithoutFieldsIsThatOfTheIdentifier_data();
    void checksumWithoutFieldsIsThatOfTheIdentifier();
    void buildReplacesTheText();
    void buildHasNoLengthLimit();
    void buildRefuses_data();
    void buildRefuses();

    void builtSentenceIsParsedAgain_data();
    void builtSentenceIsParsedAgain();
    void reversedParserSwapsTheFormats();
    void reversedParserLooksInTheOtherTable();
    void operationsLeaveTheParserAlone();

    void changedTablesCountAtOnce();
    void everySentenceOfALargeTableIsRecognised();
    void identifierOfSeveralKeysMeansTheFirst();
};

void TestParserAbstract::newParserHasItsSettingsAndEmptyTables()
{
    const TestParser parser;
    QVERIFY(parser.m_sentenceIds.isEmpty());
    QVERIFY(parser.m_formatsParse.isEmpty());
    QVERIFY(parser.m_formatsBuild.isEmpty());
    QVERIFY(parser.m_parserDelegates.isEmpty());
    QVERIFY(parser.m_builderDelegates.isEmpty());
    QCOMPARE(parser.m_startFlag, QChar(u'$'));
    QCOMPARE(parser.m_startFlagAlt, QChar(u'!'));
    QCOMPARE(parser.m_lineEnd, QStringLiteral("\r\n"));
    QCOMPARE(parser.m_maxLength, 74);
    QCOMPARE(parser.m_checksumDelimiter, QChar(u'*'));
    QCOMPARE(parser.m_fieldSeparator, QChar(u','));
    QCOMPARE(parser.m_formatSeparator, QChar(u','));
    QCOMPARE(parser.m_reservedId, -9999);
    QCOMPARE(parser.m_undefinedId, -9999);
    QCOMPARE(parser.m_initialized, false);
    QCOMPARE(parser.m_reversed, false);
    QVERIFY(parser.hookCalls.isEmpty());
}

void TestParserAbstract::hooksOfTheBaseReturnEmptyTables()
{
    BareParser parser;
    QVERIFY(parser.initSentenceIdentifiers().isEmpty());
    QVERIFY(parser.initTalkerIdentifiers().isEmpty());
    QVERIFY(parser.initSentenceFormatsParse().isEmpty());
    QVERIFY(parser.initSentenceFormatsBuild().isEmpty());
    QVERIFY(parser.initParserDelegates().isEmpty());
    QVERIFY(parser.initBuilderDelegates().isEmpty());
}

void TestParserAbstract::baseDoesNotStoreTheKey()
{
    KeylessParser parser;
    parser.init();
    Record record;
    QVERIFY(parser.parseTrimmed(&record, QStringLiteral("THREE,1")));
    QCOMPARE(record.events, QStringList{QStringLiteral("a=1")});

    BareParser bare;
    bare.setSentenceId(&record, Three);
    QCOMPARE(record.events.size(), 1);
}

void TestParserAbstract::initLoadsTheTablesInOrderAndNoTalkers()
{
    TestParser parser;
    QVERIFY(parser.init());
    const QStringList expected{QStringLiteral("identifiers"), QStringLiteral("formats to parse"),
                               QStringLiteral("formats to build"), QStringLiteral("parser delegates"),
                               QStringLiteral("builder delegates")};
    QCOMPARE(parser.hookCalls, expected);
    QCOMPARE(parser.m_initialized, true);
    verifyTablesAreThoseOfTheHooks(parser);
}

void TestParserAbstract::initTwiceKeepsTheFirstTables()
{
    TestParser parser;
    QVERIFY(parser.init());
    const TestParser first = parser;
    parser.ids = {{Three, QStringLiteral("OTHER")}};
    parser.formatsParse.clear();
    parser.formatsBuild.clear();
    parser.parserDelegates.clear();
    parser.builderDelegates.clear();

    QVERIFY(parser.init());
    QCOMPARE(parser.hookCalls, first.hookCalls);
    QCOMPARE(parser.m_sentenceIds, first.m_sentenceIds);
    QCOMPARE(parser.m_formatsParse, first.m_formatsParse);
    QCOMPARE(parser.m_formatsBuild, first.m_formatsBuild);
    QVERIFY(parser.m_parserDelegates == first.m_parserDelegates);
    QVERIFY(parser.m_builderDelegates == first.m_builderDelegates);
    Record record;
    QVERIFY(parser.parseTrimmed(&record, QStringLiteral("THREE,1")));
}

void TestParserAbstract::parserBeforeInitRefusesEverything()
{
    TestParser parser;
    Record record;
    QCOMPARE(thrownMessage([&] { parser.parseSentence(&record, line("$THREE,1,2,3")); }),
             QStringLiteral("Undefined sentence ID: THREE"));
    QVERIFY(record.events.isEmpty());
    QString out = QStringLiteral("before");
    QCOMPARE(thrownMessage([&] { parser.buildSentence(&record, Three, out); }), QStringLiteral("No formatter found"));
    QCOMPARE(out, QStringLiteral("before"));
}

void TestParserAbstract::parserWithoutTablesRefusesEverything()
{
    BareParser parser;
    QVERIFY(parser.init());
    Record record;
    QCOMPARE(thrownMessage([&] { parser.parseTrimmed(&record, QStringLiteral("PJWVER")); }),
             QStringLiteral("Undefined sentence ID: PJWVER"));
    QString out;
    QCOMPARE(thrownMessage([&] { parser.buildSentence(&record, 0, out); }), QStringLiteral("No formatter found"));
}

void TestParserAbstract::parserIsCopiedWithItsTables()
{
    TestParser original;
    original.init();
    TestParser copy = original;
    original = TestParser();
    verifyTablesAreThoseOfTheHooks(copy);
    Record record;
    QVERIFY(copy.parseTrimmed(&record, QStringLiteral("THREE,1")));
    QCOMPARE(thrownMessage([&] { original.parseTrimmed(&record, QStringLiteral("THREE,1")); }),
             QStringLiteral("Undefined sentence ID: THREE"));
}

void TestParserAbstract::parseTestsTheFrame_data()
{
    QTest::addColumn<QString>("sentence");
    QTest::addColumn<QString>("message");
    const QString noStart = QStringLiteral("Start flag not found");
    const QString tooLong = QStringLiteral("Sentence too long");
    const QString badEnd = QStringLiteral("Bad end");
    const QString field = QStringLiteral("Checksum field");
    const QString misspelled = QStringLiteral("Checksum misspelled");
    const QString wrong = QStringLiteral("CRC calculation failed");
    QTest::newRow("null text") << QString() << noStart;
    QTest::newRow("empty text") << QStringLiteral("") << noStart;
    QTest::newRow("no start flag") << line("THREE,1,2,3") << noStart;
    QTest::newRow("blank before the start flag") << line(" $THREE,1,2,3") << noStart;
    QTest::newRow("full-width start flag") << QStringLiteral("\uff04THREE,1\r\n") << noStart;
    QTest::newRow("75 characters") << line(QByteArray("$THREE,").append(66, '1')) << tooLong;
    QTest::newRow("75 characters, alternative start flag") << line(QByteArray("!THREE,").append(66, '1')) << tooLong;
    QTest::newRow("75 code units, fewer characters")
        << QStringLiteral("$THREE,") + QStringLiteral("\U0001F600").repeated(33) + QStringLiteral("\r\n") << tooLong;
    QTest::newRow("start flag alone") << QStringLiteral("$") << badEnd;
    QTest::newRow("no line end") << QStringLiteral("$THREE,1,2,3") << badEnd;
    QTest::newRow("carriage return alone") << QStringLiteral("$THREE,1\r") << badEnd;
    QTest::newRow("line feed alone") << QStringLiteral("$THREE,1\n") << badEnd;
    QTest::newRow("line end the wrong way round") << QStringLiteral("$THREE,1\n\r") << badEnd;
    QTest::newRow("text after the line end") << QStringLiteral("$THREE,1\r\n ") << badEnd;
    QTest::newRow("two checksums") << line("$PJWVER,INF*61*00") << field;
    QTest::newRow("two delimiters in a row") << line("$PJWVER,INF**61") << field;
    QTest::newRow("checksum empty") << line("$PJWVER,INF*") << misspelled;
    QTest::newRow("checksum of blanks") << line("$PJWVER,INF*  ") << misspelled;
    QTest::newRow("checksum with a letter beyond F") << line("$PJWVER,INF*6G") << misspelled;
    QTest::newRow("checksum with a blank inside") << line("$PJWVER,INF*6 1") << misspelled;
    QTest::newRow("checksum beyond int") << line("$PJWVER,INF*100000061") << misspelled;
    QTest::newRow("checksum of 16 digits") << line("$PJWVER,INF*ffffffffffffff61") << misspelled;
    QTest::newRow("checksum one off") << line("$PJWVER,INF*62") << wrong;
    QTest::newRow("checksum 0 where it is not") << line("$PJWVER,INF*00") << wrong;
    QTest::newRow("checksum of another body") << line("$PJWVER,INF*0c") << wrong;
}

void TestParserAbstract::parseTestsTheFrame()
{
    QFETCH(QString, sentence);
    QFETCH(QString, message);
    TestParser parser;
    parser.init();
    Record record;
    QCOMPARE(thrownMessage([&] { parser.parseSentence(&record, sentence); }), message);
}

void TestParserAbstract::parseTestsInOrder_data()
{
    QTest::addColumn<QString>("sentence");
    QTest::addColumn<QString>("message");
    const QByteArray tail(80, '1');
    QTest::newRow("start flag before length") << line("THREE," + tail) << QStringLiteral("Start flag not found");
    QTest::newRow("start flag before line end") << QStringLiteral("THREE") << QStringLiteral("Start flag not found");
    QTest::newRow("length before line end")
        << QString::fromLatin1("$THREE," + tail) << QStringLiteral("Sentence too long");
    QTest::newRow("length before checksum") << line("$THREE," + tail + "*zz*") << QStringLiteral("Sentence too long");
    QTest::newRow("line end before checksum field") << QStringLiteral("$THREE*1*2") << QStringLiteral("Bad end");
    QTest::newRow("checksum field before spelling") << line("$THREE*zz*zz") << QStringLiteral("Checksum field");
    QTest::newRow("spelling before identifier length") << line("$T*zz") << QStringLiteral("Checksum misspelled");
    QTest::newRow("checksum before identifier length") << line("$T*00") << QStringLiteral("CRC calculation failed");
    QTest::newRow("checksum before identifier") << line("$NONESUCH*00") << QStringLiteral("CRC calculation failed");
    QTest::newRow("identifier length before identifier")
        << line("$T,1") << QStringLiteral("Wrong sentence description length");
    QTest::newRow("identifier before the number of fields")
        << line("$NONESUCH,1,2,3,4,5,6,7") << QStringLiteral("Undefined sentence ID: NONESUCH");
    QTest::newRow("format before the number of fields")
        << line("$UNREAD,1,2,3,4") << QStringLiteral("Format not found for sentence ID");
    QTest::newRow("number of fields before unknown names")
        << line("$UNKNOWN,1,2,3,4") << QStringLiteral("Specified parameters list and formatting string incompatible");
}

void TestParserAbstract::parseTestsInOrder()
{
    parseTestsTheFrame();
}

void TestParserAbstract::parseAcceptsTheLongestSentence()
{
    TestParser parser;
    parser.init();
    const QString longest = line(QByteArray("$THREE,").append(65, '1'));
    QCOMPARE(longest.size(), 74);
    Record record;
    QVERIFY(parser.parseSentence(&record, longest));
}

void TestParserAbstract::parseAcceptsBothStartFlags()
{
    TestParser parser;
    parser.init();
    const QStringList expected{QStringLiteral("key 1"), QStringLiteral("a=1"), QStringLiteral("b=2"),
                               QStringLiteral("c=3")};
    for (const QString &sentence : {line("$THREE,1,2,3*52"), line("!THREE,1,2,3*52")}) {
        Record record;
        QVERIFY(parser.parseSentence(&record, sentence));
        QCOMPARE(record.events, expected);
    }
}

void TestParserAbstract::parseWithoutChecksumKeepsTheLineEnd()
{
    TestParser parser;
    parser.init();
    Record record;
    QVERIFY(parser.parseSentence(&record, line("$THREE,1,2")));
    QCOMPARE(record.values.value(QStringLiteral("a")), QStringLiteral("1"));
    QCOMPARE(record.values.value(QStringLiteral("b")), QStringLiteral("2\r\n"));
    QCOMPARE(thrownMessage([&] { parser.parseSentence(&record, line("$THREE")); }),
             QStringLiteral("Undefined sentence ID: THREE\r\n"));
}

void TestParserAbstract::parseReadsTheChecksumAsANumber_data()
{
    QTest::addColumn<QString>("checksum");
    QTest::newRow("two digits") << QStringLiteral("2e");
    QTest::newRow("upper case") << QStringLiteral("2E");
    QTest::newRow("leading zeros") << QStringLiteral("002e");
    QTest::newRow("only the low byte counts") << QStringLiteral("12e");
    QTest::newRow("low byte of the largest int") << QStringLiteral("7fffff2e");
    QTest::newRow("blanks around") << QStringLiteral(" 2e ");
    QTest::newRow("blanks that are not ASCII") << QStringLiteral("\u00852e\u00a0");
    QTest::newRow("prefix of base 16") << QStringLiteral("0x2e");
    QTest::newRow("sign") << QStringLiteral("+2e");
    QTest::newRow("negative with the same low byte") << QStringLiteral("-d2");
    QTest::newRow("minus sign that is not ASCII") << QStringLiteral("\u2212d2");
}

void TestParserAbstract::parseReadsTheChecksumAsANumber()
{
    QFETCH(QString, checksum);
    TestParser parser;
    parser.init();
    Record record;
    QVERIFY(parser.parseSentence(&record, QStringLiteral("$THREE,1,2,O*%1\r\n").arg(checksum)));
    QCOMPARE(record.values.value(QStringLiteral("c")), QStringLiteral("O"));
}

void TestParserAbstract::parseLeavesTheSentenceAlone()
{
    TestParser parser;
    parser.init();
    const QString sentence = line("$THREE,1,2,3*52");
    Record record;
    QVERIFY(parser.parseSentence(&record, sentence));
    QCOMPARE(sentence, line("$THREE,1,2,3*52"));
}

void TestParserAbstract::refusedFrameLeavesTheSessionAlone()
{
    TestParser parser;
    parser.init();
    Record record = recordOf(QStringLiteral("before"));
    for (const QString &sentence : {line("THREE,1"), QStringLiteral("$THREE,1"), line("$THREE,1**"), line("$THREE,1*"),
                                    line("$THREE,1*00"), line("$TH,1"), line("$NONESUCH,1"), line("$UNREAD,1")}) {
        QVERIFY(!thrownMessage([&] { parser.parseSentence(&record, sentence); }).isNull());
        QVERIFY(record.events.isEmpty());
        QCOMPARE(record.values.value(QStringLiteral("a")), QStringLiteral("before"));
    }
}

void TestParserAbstract::splitTakesOffTheStartFlag_data()
{
    QTest::addColumn<QString>("sentence");
    QTest::addColumn<QString>("rest");
    QTest::addColumn<QString>("body");
    QTest::addColumn<QString>("checksum");
    QTest::newRow("with a checksum") << line("$PJWVER,INF*61") << line("PJWVER,INF*61") << QStringLiteral("PJWVER,INF")
                                     << line("61");
    QTest::newRow("without a checksum") << line("$PJWVER,INF") << line("PJWVER,INF") << line("PJWVER,INF") << QString();
    QTest::newRow("empty checksum") << QStringLiteral("$PJWVER*") << QStringLiteral("PJWVER*")
                                    << QStringLiteral("PJWVER") << QStringLiteral("");
    QTest::newRow("empty body") << line("$*00") << line("*00") << QStringLiteral("") << line("00");
    QTest::newRow("any first character") << QStringLiteral("*a*b") << QStringLiteral("a*b") << QStringLiteral("a")
                                         << QStringLiteral("b");
    QTest::newRow("empty text") << QString() << QString() << QString() << QString();
}

void TestParserAbstract::splitTakesOffTheStartFlag()
{
    QFETCH(QString, sentence);
    QFETCH(QString, rest);
    QFETCH(QString, body);
    QFETCH(QString, checksum);
    TestParser parser;
    QString actualBody = QStringLiteral("before");
    QString actualChecksum = QStringLiteral("before");
    parser.splitSentence(sentence, actualBody, actualChecksum);
    QCOMPARE(sentence, rest);
    QCOMPARE(actualBody, body);
    QCOMPARE(actualChecksum, checksum);
    QCOMPARE(actualChecksum.isNull(), checksum.isNull());
}

void TestParserAbstract::splitRefusesSeveralDelimiters()
{
    TestParser parser;
    for (const char *text : {"$PJWVER*0c*0c", "$**", "$a*b*c*d"}) {
        QString sentence = QString::fromLatin1(text);
        QString body;
        QString checksum;
        QCOMPARE(thrownMessage([&] { parser.splitSentence(sentence, body, checksum); }),
                 QStringLiteral("Checksum field"));
    }
}

void TestParserAbstract::parseTrimmedSeparatesIdentifierAndFields_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QStringList>("events");
    const QString key = QStringLiteral("key 1");
    QTest::newRow("no fields") << QStringLiteral("THREE") << QStringList{key};
    QTest::newRow("one empty field") << QStringLiteral("THREE,") << QStringList{key, QStringLiteral("a=")};
    QTest::newRow("all fields") << QStringLiteral(
        "THREE,1,2,3") << QStringList{key, QStringLiteral("a=1"), QStringLiteral("b=2"), QStringLiteral("c=3")};
    QTest::newRow("fewer fields than names")
        << QStringLiteral("THREE,1,2") << QStringList{key, QStringLiteral("a=1"), QStringLiteral("b=2")};
    QTest::newRow("empty fields between")
        << QStringLiteral("THREE,,2,")
        << QStringList{key, QStringLiteral("a="), QStringLiteral("b=2"), QStringLiteral("c=")};
    QTest::newRow("nothing is trimmed") << QStringLiteral("THREE, 1 ,2\r\n")
                                        << QStringList{key, QStringLiteral("a= 1 "), QStringLiteral("b=2\r\n")};
    QTest::newRow("identifier of three characters")
        << QStringLiteral("GAP,1") << QStringList{QStringLiteral("key 2"), QStringLiteral("a=1")};
    QTest::newRow("format without names, no fields") << QStringLiteral("EMPTY") << QStringList{QStringLiteral("key 4")};
    QTest::newRow("format without names, one field")
        << QStringLiteral("EMPTY,1") << QStringList{QStringLiteral("key 4")};
}

void TestParserAbstract::parseTrimmedSeparatesIdentifierAndFields()
{
    QFETCH(QString, body);
    QFETCH(QStringList, events);
    TestParser parser;
    parser.init();
    Record record;
    QVERIFY(parser.parseTrimmed(&record, body));
    QCOMPARE(record.events, events);
}

void TestParserAbstract::parseTrimmedRefuses_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QString>("message");
    const QString tooShort = QStringLiteral("Wrong sentence description length");
    QTest::newRow("empty body") << QString() << tooShort;
    QTest::newRow("empty identifier") << QStringLiteral(",1") << tooShort;
    QTest::newRow("two characters") << QStringLiteral("PJ") << tooShort;
    QTest::newRow("two characters and a field") << QStringLiteral("PJ,1") << tooShort;
    QTest::newRow("three unknown characters") << QStringLiteral("PJW") << QStringLiteral("Undefined sentence ID: PJW");
    QTest::newRow("unknown") << QStringLiteral("GPGGA,1") << QStringLiteral("Undefined sentence ID: GPGGA");
    QTest::newRow("other case") << QStringLiteral("three,1") << QStringLiteral("Undefined sentence ID: three");
    QTest::newRow("start of a known one") << QStringLiteral("THRE,1") << QStringLiteral("Undefined sentence ID: THRE");
    QTest::newRow("longer than a known one")
        << QStringLiteral("THREES,1") << QStringLiteral("Undefined sentence ID: THREES");
    QTest::newRow("blank before") << QStringLiteral(" THREE,1") << QStringLiteral("Undefined sentence ID:  THREE");
    QTest::newRow("placeholder as identifier")
        << QStringLiteral("%1%2,1") << QStringLiteral("Undefined sentence ID: %1%2");
    QTest::newRow("no format") << QStringLiteral("UNREAD") << QStringLiteral("Format not found for sentence ID");
}

void TestParserAbstract::parseTrimmedRefuses()
{
    QFETCH(QString, body);
    QFETCH(QString, message);
    TestParser parser;
    parser.init();
    Record record;
    QCOMPARE(thrownMessage([&] { parser.parseTrimmed(&record, body); }), message);
    QVERIFY(record.events.isEmpty());
}

void TestParserAbstract::keyIsStoredBeforeTheFields()
{
    TestParser parser;
    parser.init();
    Record record;
    QVERIFY(parser.parseSentence(&record, line("$GAP,1,2,3")));
    QCOMPARE(record.events.first(), QStringLiteral("key 2"));
    QCOMPARE(record.events.count(QStringLiteral("key 2")), 1);
}

void TestParserAbstract::parseListedKeepsTheFieldsUnchanged()
{
    TestParser parser;
    parser.init();
    Record record;
    QVERIFY(parser.parseListed(&record, QStringLiteral("THREE"), {QStringLiteral("x,y"), QStringLiteral("*")}));
    const QStringList expected{QStringLiteral("key 1"), QStringLiteral("a=x,y"), QStringLiteral("b=*")};
    QCOMPARE(record.events, expected);
    QCOMPARE(thrownMessage([&] { parser.parseListed(&record, QStringLiteral("NO"), {}); }),
             QStringLiteral("Undefined sentence ID: NO"));
    QCOMPARE(thrownMessage([&] { parser.parseListed(&record, QStringLiteral("UNREAD"), {}); }),
             QStringLiteral("Format not found for sentence ID"));
}

void TestParserAbstract::undefinedKeyIsTreatedAsUnknown()
{
    TestParser parser;
    parser.init();
    Record record;
    QCOMPARE(thrownMessage([&] { parser.parseTrimmed(&record, QStringLiteral("UNDEFINED,1")); }),
             QStringLiteral("Undefined sentence ID: UNDEFINED"));
    QVERIFY(record.events.isEmpty());
}

void TestParserAbstract::parseParametersReadsTheFormat_data()
{
    QTest::addColumn<QString>("format");
    QTest::addColumn<QStringList>("params");
    QTest::addColumn<QStringList>("events");
    const QString one = QStringLiteral("1");
    const QString two = QStringLiteral("2");
    const QString three = QStringLiteral("3");
    const QString a1 = QStringLiteral("a=1");
    const QString b2 = QStringLiteral("b=2");
    const QString b3 = QStringLiteral("b=3");
    QTest::newRow("one name") << QStringLiteral("a") << QStringList{one} << QStringList{a1};
    QTest::newRow("names in order") << QStringLiteral("b,a") << QStringList{two, one} << QStringList{b2, a1};
    QTest::newRow("names without a field are left alone")
        << QStringLiteral("a,b,c") << QStringList{one} << QStringList{a1};
    QTest::newRow("no fields") << QStringLiteral("a,b,c") << QStringList() << QStringList();
    QTest::newRow("no fields, unknown name") << QStringLiteral("x") << QStringList() << QStringList();
    QTest::newRow("gap skips its field") << QStringLiteral("a,,b") << QStringList{one, two, three}
                                         << QStringList{a1, b3};
    QTest::newRow("several gaps") << QStringLiteral("a,,,b") << QStringList{one, two, two, three}
                                  << QStringList{a1, b3};
    QTest::newRow("leading gap") << QStringLiteral(",b") << QStringList{one, two} << QStringList{b2};
    QTest::newRow("trailing gap") << QStringLiteral("a,") << QStringList{one, two} << QStringList{a1};
    QTest::newRow("only a gap") << QString() << QStringList{one} << QStringList();
    QTest::newRow("only gaps") << QStringLiteral(",") << QStringList{one, two} << QStringList();
    QTest::newRow("same name twice") << QStringLiteral("a,a") << QStringList{two, one}
                                     << QStringList{QStringLiteral("a=2"), a1};
}

void TestParserAbstract::parseParametersReadsTheFormat()
{
    QFETCH(QString, format);
    QFETCH(QStringList, params);
    QFETCH(QStringList, events);
    TestParser parser;
    parser.init();
    Record record;
    QVERIFY(parser.parseParameters(&record, params, format));
    QCOMPARE(record.events, events);
}

void TestParserAbstract::parseParametersRefuses_data()
{
    QTest::addColumn<QString>("format");
    QTest::addColumn<QStringList>("params");
    QTest::addColumn<QString>("message");
    const QString incompatible = QStringLiteral("Specified parameters list and formatting string incompatible");
    const QString unknown = QStringLiteral("Unknown format token in sentence formatter");
    const QString one = QStringLiteral("1");
    QTest::newRow("two fields for one name") << QStringLiteral("a") << QStringList{one, one} << incompatible;
    QTest::newRow("five fields for four names")
        << QStringLiteral("hwversion,v1,v2,v3") << QStringList{one, one, one, one, one} << incompatible;
    QTest::newRow("two fields for no name") << QString() << QStringList{one, one} << incompatible;
    QTest::newRow("unknown name") << QStringLiteral("x") << QStringList{one} << unknown;
    QTest::newRow("name in another case") << QStringLiteral("A") << QStringList{one} << unknown;
    QTest::newRow("name with a blank") << QStringLiteral("a, b") << QStringList{one, one} << unknown;
    QTest::newRow("blank is no gap") << QStringLiteral(" ") << QStringList{one} << unknown;
}

void TestParserAbstract::parseParametersRefuses()
{
    QFETCH(QString, format);
    QFETCH(QStringList, params);
    QFETCH(QString, message);
    TestParser parser;
    parser.init();
    Record record;
    QCOMPARE(thrownMessage([&] { parser.parseParameters(&record, params, format); }), message);
}

void TestParserAbstract::moreFieldsThanNamesFailBeforeAnyDelegate()
{
    TestParser parser;
    parser.init();
    Record record;
    QCOMPARE(thrownMessage([&] { parser.parseTrimmed(&record, QStringLiteral("THREE,1,2,3,4")); }),
             QStringLiteral("Specified parameters list and formatting string incompatible"));
    QCOMPARE(record.events, QStringList{QStringLiteral("key 1")});
}

void TestParserAbstract::unknownNameFailsOnlyWhenAFieldReachesIt()
{
    TestParser parser;
    parser.init();
    const QStringList stored{QStringLiteral("key 8"), QStringLiteral("a=1")};
    Record reached;
    QCOMPARE(thrownMessage([&] { parser.parseTrimmed(&reached, QStringLiteral("UNKNOWN,1,2,3")); }),
             QStringLiteral("Unknown format token in sentence formatter"));
    QCOMPARE(reached.events, stored);
    Record notReached;
    QVERIFY(parser.parseTrimmed(&notReached, QStringLiteral("UNKNOWN,1")));
    QCOMPARE(notReached.events, stored);
}

void TestParserAbstract::delegateThatReturnsFalseStopsNothing()
{
    TestParser parser;
    parser.init();
    QVERIFY(parser.parserDelegates.value(QStringLiteral("b")) == storeAndReturnFalse);
    Record record;
    QVERIFY(parser.parseSentence(&record, line("$THREE,1,2,3*52")));
    QCOMPARE(record.events.last(), QStringLiteral("c=3"));
}

void TestParserAbstract::exceptionOfADelegateArrivesUnchanged()
{
    TestParser parser;
    parser.init();
    Record record = recordOf(QStringLiteral("1"));
    QCOMPARE(thrownMessage([&] { parser.parseSentence(&record, line("$REFUSING,1,2,3")); }),
             QStringLiteral("Refused: refuse"));
    const QStringList stored{QStringLiteral("key 9"), QStringLiteral("a=1")};
    QCOMPARE(record.events, stored);
    QString out = QStringLiteral("before");
    QCOMPARE(thrownMessage([&] { parser.buildSentence(&record, Refusing, out); }), QStringLiteral("Refused: refuse"));
    QCOMPARE(out, QStringLiteral("before"));
    QVERIFY(throws<std::runtime_error>([&] { parser.parseSentence(&record, line("$FAILING,1,2,3")); }));
}

void TestParserAbstract::buildParametersWritesTheFormat_data()
{
    QTest::addColumn<QString>("format");
    QTest::addColumn<QString>("fields");
    QTest::newRow("no names") << QString() << QString();
    QTest::newRow("one name") << QStringLiteral("a") << QStringLiteral("1");
    QTest::newRow("names in order") << QStringLiteral("c,a,b") << QStringLiteral("3,1,2");
    QTest::newRow("gap leaves nothing") << QStringLiteral("a,,b") << QStringLiteral("1,2");
    QTest::newRow("several gaps leave nothing") << QStringLiteral("a,,,b") << QStringLiteral("1,2");
    QTest::newRow("trailing gap leaves a separator") << QStringLiteral("a,b,") << QStringLiteral("1,2,");
    QTest::newRow("several trailing gaps leave one separator") << QStringLiteral("a,b,,") << QStringLiteral("1,2,");
    QTest::newRow("leading gap leaves nothing") << QStringLiteral(",a") << QStringLiteral("1");
    QTest::newRow("only gaps") << QStringLiteral(",,") << QString();
    QTest::newRow("same name twice") << QStringLiteral("a,a") << QStringLiteral("1,1");
}

void TestParserAbstract::buildParametersWritesTheFormat()
{
    QFETCH(QString, format);
    QFETCH(QString, fields);
    TestParser parser;
    parser.init();
    const Record record = recordOf(QStringLiteral("1"), QStringLiteral("2"), QStringLiteral("3"));
    QCOMPARE(parser.buildParameters(&record, format), fields);
}

void TestParserAbstract::buildParametersRefusesAnUnknownName_data()
{
    QTest::addColumn<QString>("format");
    QTest::addColumn<QString>("name");
    QTest::newRow("alone") << QStringLiteral("x") << QStringLiteral("x");
    QTest::newRow("behind known ones") << QStringLiteral("a,b,x") << QStringLiteral("x");
    QTest::newRow("the first of two") << QStringLiteral("a,y,x") << QStringLiteral("y");
    QTest::newRow("other case") << QStringLiteral("A") << QStringLiteral("A");
    QTest::newRow("blank") << QStringLiteral(" ") << QStringLiteral(" ");
    QTest::newRow("placeholder") << QStringLiteral("%1") << QStringLiteral("%1");
}

void TestParserAbstract::buildParametersRefusesAnUnknownName()
{
    QFETCH(QString, format);
    QFETCH(QString, name);
    TestParser parser;
    parser.init();
    const Record record = recordOf(QStringLiteral("1"));
    QCOMPARE(thrownMessage([&] { parser.buildParameters(&record, format); }),
             QStringLiteral("Unknown format token in sentence formatter: ") + name);
}

void TestParserAbstract::buildWritesTheWholeSentence_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<QStringList>("values");
    QTest::addColumn<QString>("sentence");
    const QString one = QStringLiteral("1");
    const QString two = QStringLiteral("2");
    const QString three = QStringLiteral("3");
    QTest::newRow("all fields") << int(Three) << QStringList{one, two, three} << line("$THREE,1,2,3*52");
    QTest::newRow("empty fields keep their separators")
        << int(Three) << QStringList{QString(), QString(), QString()} << line("$THREE,,,*62");
    QTest::newRow("nothing is escaped") << int(
        Three) << QStringList{QStringLiteral("a b"), QStringLiteral("%1"), QStringLiteral("\\")}
                                        << line("$THREE,a b,%1,\\*09");
    QTest::newRow("delimiters in a value are not escaped")
        << int(Three) << QStringList{QStringLiteral("*"), QStringLiteral("$"), QStringLiteral("!")}
        << line("$THREE,*,$,!*4d");
    QTest::newRow("gap in the format") << int(Gap) << QStringList{one, two, three} << line("$GAP,1,2*55");
    QTest::newRow("format to build, not the one to parse")
        << int(OneWay) << QStringList{one, two, three} << line("$ONEWAY,2,3*0a");
    QTest::newRow("no fields, no separator") << int(Empty) << QStringList{one, two, three} << line("$EMPTY*55");
    QTest::newRow("only an empty field, no separator")
        << int(Unread) << QStringList{QString(), two, three} << line("$UNREAD*09");
    QTest::newRow("two high characters cancel out")
        << int(Three) << QStringList{QStringLiteral("\u00e4"), QStringLiteral("\u00e4"), QString()}
        << QStringLiteral("$THREE,\u00e4,\u00e4,*62\r\n");
    QTest::newRow("outside Latin-1 counts as a question mark")
        << int(Three) << QStringList{QStringLiteral("\u20ac"), QString(), QString()}
        << QStringLiteral("$THREE,\u20ac,,*5d\r\n");
}

void TestParserAbstract::buildWritesTheWholeSentence()
{
    QFETCH(int, key);
    QFETCH(QStringList, values);
    QFETCH(QString, sentence);
    TestParser parser;
    parser.init();
    const Record record = recordOf(values[0], values[1], values[2]);
    QString out;
    QVERIFY(parser.buildSentence(&record, key, out));
    QCOMPARE(out, sentence);
}

void TestParserAbstract::buildWritesAHighChecksumWith16Digits_data()
{
    QTest::addColumn<QStringList>("values");
    QTest::addColumn<QString>("checksum");
    QTest::newRow("umlaut") << QStringList{QStringLiteral("\u00e4"), QString(), QString()}
                            << QStringLiteral("ffffffffffffff86");
    QTest::newRow("lowest high character")
        << QStringList{QStringLiteral("\u0080"), QString(), QString()} << QStringLiteral("ffffffffffffffe2");
    QTest::newRow("highest character") << QStringList{QStringLiteral("\u00ff"), QStringLiteral("\u0001"), QString()}
                                       << QStringLiteral("ffffffffffffff9c");
}

void TestParserAbstract::buildWritesAHighChecksumWith16Digits()
{
    QFETCH(QStringList, values);
    QFETCH(QString, checksum);
    TestParser parser;
    parser.init();
    const Record record = recordOf(values[0], values[1], values[2]);
    QString out;
    QVERIFY(parser.buildSentence(&record, Three, out));
    QCOMPARE(out,
             QLatin1String("$THREE,") + values.join(QLatin1Char(',')) + QLatin1Char('*') + checksum
                 + QLatin1String("\r\n"));
    Record again;
    QCOMPARE(thrownMessage([&] { parser.parseSentence(&again, out); }), QStringLiteral("Checksum misspelled"));
}

void TestParserAbstract::checksumOfAnEmptySentenceIsThatOfTheDelimiter()
{
    TestParser parser;
    parser.ids[Empty] = QString();
    parser.ids[Unread] = QString();
    parser.init();
    const Record record = recordOf(QStringLiteral("x"));
    QString out;
    QVERIFY(parser.buildSentence(&record, Empty, out));
    QCOMPARE(out, line("$*2a"));
    QVERIFY(parser.buildSentence(&record, Unread, out));
    QCOMPARE(out, line("$,x*54"));
}

void TestParserAbstract::checksumWithoutFieldsIsThatOfTheIdentifier_data()
{
    QTest::addColumn<QString>("identifier");
    QTest::addColumn<QString>("sentence");
    QTest::newRow("one character") << QStringLiteral("A") << line("$A*41");
    QTest::newRow("two characters") << QStringLiteral("AB") << line("$AB*03");
}

void TestParserAbstract::checksumWithoutFieldsIsThatOfTheIdentifier()
{
    QFETCH(QString, identifier);
    QFETCH(QString, sentence);
    TestParser parser;
    parser.ids[Empty] = identifier;
    parser.init();
    const Record record;
    QString out;
    QVERIFY(parser.buildSentence(&record, Empty, out));
    QCOMPARE(out, sentence);
}

void TestParserAbstract::buildReplacesTheText()
{
    TestParser parser;
    parser.init();
    const Record record = recordOf(QStringLiteral("1"), QStringLiteral("2"), QStringLiteral("3"));
    QString out = QStringLiteral("$SOMETHING,ELSE");
    QVERIFY(parser.buildSentence(&record, Three, out));
    QCOMPARE(out, line("$THREE,1,2,3*52"));
    QVERIFY(parser.buildSentence(&record, Three, out));
    QCOMPARE(out, line("$THREE,1,2,3*52"));
}

void TestParserAbstract::buildHasNoLengthLimit()
{
    TestParser parser;
    parser.init();
    Record record = recordOf(QString(100, QLatin1Char('x')));
    QString out;
    QVERIFY(parser.buildSentence(&record, Three, out));
    QCOMPARE(out, line("$THREE," + QByteArray(100, 'x') + ",,*62"));
    QCOMPARE(thrownMessage([&] { parser.parseSentence(&record, out); }), QStringLiteral("Sentence too long"));
}

void TestParserAbstract::buildRefuses_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<QString>("message");
    QTest::newRow("no format to build") << int(Unwritten) << QStringLiteral("No formatter found");
    QTest::newRow("neither format nor identifier") << 4711 << QStringLiteral("No formatter found");
    QTest::newRow("key of a cleared session") << 0 << QStringLiteral("No formatter found");
    QTest::newRow("format but no identifier, which comes before its unknown name")
        << int(Nameless) << QStringLiteral("Sentence ID not found");
    QTest::newRow("name without a delegate")
        << int(Unknown) << QStringLiteral("Unknown format token in sentence formatter: x");
}

void TestParserAbstract::buildRefuses()
{
    QFETCH(int, key);
    QFETCH(QString, message);
    TestParser parser;
    parser.init();
    const Record record = recordOf(QStringLiteral("1"));
    QString out = QStringLiteral("before");
    QCOMPARE(thrownMessage([&] { parser.buildSentence(&record, key, out); }), message);
    QCOMPARE(out, QStringLiteral("before"));
}

void TestParserAbstract::builtSentenceIsParsedAgain_data()
{
    QTest::addColumn<QStringList>("values");
    QTest::newRow("plain") << QStringList{QStringLiteral("1"), QStringLiteral("two"), QStringLiteral("3.0")};
    QTest::newRow("empty") << QStringList{QString(), QString(), QString()};
    QTest::newRow("blanks") << QStringList{QStringLiteral(" "), QStringLiteral(" x "), QStringLiteral("  ")};
    QTest::newRow("start flags") << QStringList{QStringLiteral("$"), QStringLiteral("!"), QStringLiteral("$!")};
    QTest::newRow("control characters") << QStringList{QStringLiteral("\t"), QStringLiteral("\r\n"),
                                                       QStringLiteral("\u007f")};
}

void TestParserAbstract::builtSentenceIsParsedAgain()
{
    QFETCH(QStringList, values);
    TestParser parser;
    parser.init();
    const Record record = recordOf(values[0], values[1], values[2]);
    QString sentence;
    QVERIFY(parser.buildSentence(&record, Three, sentence));
    Record again;
    QVERIFY(parser.parseSentence(&again, sentence));
    QCOMPARE(again.events.first(), QStringLiteral("key 1"));
    QCOMPARE(again.values, record.values);
}

void TestParserAbstract::reversedParserSwapsTheFormats()
{
    TestParser host;
    host.init();
    TestParser board;
    board.init();
    board.m_reversed = true;
    const Record record = recordOf(QStringLiteral("1"), QStringLiteral("2"), QStringLiteral("3"));

    QString request;
    QVERIFY(host.buildSentence(&record, OneWay, request));
    QCOMPARE(request, line("$ONEWAY,2,3*0a"));
    Record atBoard;
    QVERIFY(board.parseSentence(&atBoard, request));
    const QStringList read{QStringLiteral("key 3"), QStringLiteral("b=2"), QStringLiteral("c=3")};
    QCOMPARE(atBoard.events, read);

    QString reply;
    QVERIFY(board.buildSentence(&record, OneWay, reply));
    QCOMPARE(reply, line("$ONEWAY,1*16"));
    Record atHost;
    QVERIFY(host.parseSentence(&atHost, reply));
    const QStringList answered{QStringLiteral("key 3"), QStringLiteral("a=1")};
    QCOMPARE(atHost.events, answered);
}

void TestParserAbstract::reversedParserLooksInTheOtherTable()
{
    TestParser parser;
    parser.init();
    parser.m_reversed = true;
    Record record = recordOf(QStringLiteral("1"));
    QString out;
    QCOMPARE(thrownMessage([&] { parser.parseTrimmed(&record, QStringLiteral("UNWRITTEN,1")); }),
             QStringLiteral("Format not found for sentence ID"));
    QVERIFY(parser.parseTrimmed(&record, QStringLiteral("UNREAD,1")));
    QCOMPARE(thrownMessage([&] { parser.buildSentence(&record, Unread, out); }), QStringLiteral("No formatter found"));
    QVERIFY(parser.buildSentence(&record, Unwritten, out));
    QCOMPARE(thrownMessage([&] { parser.buildSentence(&record, Nameless, out); }),
             QStringLiteral("Sentence ID not found"));
}

void TestParserAbstract::operationsLeaveTheParserAlone()
{
    TestParser parser;
    parser.init();
    const QStringList hookCalls = parser.hookCalls;
    Record record = recordOf(QStringLiteral("1"));
    for (const QString &sentence :
         {line("$THREE,1,2,3*52"), line("THREE"), line("$THREE*1*2"), line("$THREE*zz"), line("$THREE*00"), line("$TH"),
          line("$NONESUCH,1"), line("$UNREAD,1"), line("$UNKNOWN,1,2,3"), line("$REFUSING,1,2,3")}) {
        thrownMessage([&] { parser.parseSentence(&record, sentence); });
    }
    QString out;
    for (const int key : {int(Three), int(Unwritten), int(Nameless), int(Unknown), int(Refusing), 4711})
        thrownMessage([&] { parser.buildSentence(&record, key, out); });

    verifyTablesAreThoseOfTheHooks(parser);
    QCOMPARE(parser.hookCalls, hookCalls);
    QCOMPARE(parser.m_initialized, true);
    QCOMPARE(parser.m_reversed, false);
    QCOMPARE(parser.m_startFlag, QChar(u'$'));
    QCOMPARE(parser.m_lineEnd, QStringLiteral("\r\n"));
    QVERIFY(parser.buildSentence(&record, Empty, out));
    QCOMPARE(out, line("$EMPTY*55"));
}

void TestParserAbstract::changedTablesCountAtOnce()
{
    TestParser parser;
    parser.init();
    Record record = recordOf(QStringLiteral("1"), QStringLiteral("2"));
    QString out;
    parser.parseSentence(&record, line("$THREE,1,2,3*52"));
    parser.buildSentence(&record, OneWay, out);
    record.events.clear();

    parser.m_sentenceIds[Three] = QStringLiteral("OTHER");
    parser.m_formatsParse[Three] = QStringLiteral("a,c");
    parser.m_formatsBuild[Three] = QStringLiteral("c,a");
    parser.m_parserDelegates[QStringLiteral("c")] = refuse;
    parser.m_builderDelegates[QStringLiteral("c")] = [](const Record *, const QString &) {
        return QStringLiteral("x");
    };

    QCOMPARE(thrownMessage([&] { parser.parseSentence(&record, line("$THREE,1")); }),
             QStringLiteral("Undefined sentence ID: THREE"));
    QCOMPARE(thrownMessage([&] { parser.parseSentence(&record, line("$OTHER,8,9*45")); }),
             QStringLiteral("Refused: c"));
    QCOMPARE(record.events, (QStringList{QStringLiteral("key 1"), QStringLiteral("a=8")}));
    parser.buildSentence(&record, Three, out);
    QCOMPARE(out, line("$OTHER,x,8*04"));

    parser.m_formatSeparator = QLatin1Char(';');
    QCOMPARE(thrownMessage([&] { parser.buildSentence(&record, Three, out); }),
             QStringLiteral("Unknown format token in sentence formatter: c,a"));
}

void TestParserAbstract::everySentenceOfALargeTableIsRecognised()
{
    TestParser parser;
    QStringList identifiers;
    for (int key = 0; key < 100; ++key) {
        identifiers.append(QStringLiteral("S%1%2").arg(QString(key % 7, QLatin1Char('X'))).arg(key * 37 % 1000));
        parser.ids[key] = identifiers.last();
        parser.formatsParse[key] = QStringLiteral("a");
    }
    parser.init();
    for (int key = 0; key < identifiers.size(); ++key) {
        Record record;
        if (identifiers[key].size() >= 3)
            parser.parseTrimmed(&record, identifiers[key]);
        else
            parser.parseListed(&record, identifiers[key], {});
        QCOMPARE(record.events, QStringList{QStringLiteral("key %1").arg(key)});
        const QString unknown = identifiers[key] + QLatin1Char('Y');
        QCOMPARE(thrownMessage([&] { parser.parseListed(&record, unknown, {}); }),
                 QStringLiteral("Undefined sentence ID: %1").arg(unknown));
    }
}

void TestParserAbstract::identifierOfSeveralKeysMeansTheFirst()
{
    TestParser parser;
    parser.ids = {{Three, QStringLiteral("SAME")},
                  {Gap, QStringLiteral("OTHER")},
                  {OneWay, QStringLiteral("SAME")},
                  {Empty, QStringLiteral("SAME")}};
    parser.init();
    const int first = parser.m_sentenceIds.key(QStringLiteral("SAME"));
    Record record;
    parser.parseTrimmed(&record, QStringLiteral("SAME"));
    QCOMPARE(record.events, QStringList{QStringLiteral("key %1").arg(first)});
}

QTEST_APPLESS_MAIN(TestParserAbstract)
#include "tst_parserabstract.moc"

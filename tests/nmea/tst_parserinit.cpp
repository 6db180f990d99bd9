#include <nmea/parserinit.h>

#include <QtTest>

#include <limits>
#include <type_traits>
#include <utility>

#include "support/nmea/corpus.h"
#include "support/nmea/thrownmessage.h"

using JwDevice::IPayloadParser;
using JwDevice::SessionAbstract;
using JwDevice::SessionInit;
using Nmea::ParserInit;
using Base = Nmea::ParserAbstract<SessionInit>;
using Fields = QHash<QString, QVariant>;

static_assert(std::is_convertible_v<ParserInit *, IPayloadParser *>, "the interface is a public base");
static_assert(std::is_convertible_v<ParserInit *, Base *>, "the codec is a public base");
static_assert(std::has_virtual_destructor_v<ParserInit>);
static_assert(!std::has_virtual_destructor_v<Base>);
static_assert(!std::is_abstract_v<ParserInit>);
static_assert(std::is_default_constructible_v<ParserInit>);
static_assert(sizeof(ParserInit) == sizeof(IPayloadParser) + sizeof(Base), "ParserInit has no data members");
static_assert(std::is_same_v<Base::ParserDelegate, bool (*)(SessionInit *, const QString &, const QString &)>);
static_assert(std::is_same_v<Base::BuilderDelegate, QString (*)(const SessionInit *, const QString &)>);
static_assert(std::is_same_v<decltype(&ParserInit::parseInt), Base::ParserDelegate>);
static_assert(std::is_same_v<decltype(&ParserInit::parseString), Base::ParserDelegate>);
static_assert(std::is_same_v<decltype(&ParserInit::buildString), Base::BuilderDelegate>);

namespace {

class OpenParser : public ParserInit
{
public:
    using ParserInit::initBuilderDelegates;
    using ParserInit::initParserDelegates;
    using ParserInit::initSentenceFormatsBuild;
    using ParserInit::initSentenceFormatsParse;
    using ParserInit::initSentenceIdentifiers;
    using ParserInit::initTalkerIdentifiers;
    using ParserInit::setSentenceId;
};

/// The parser of a board: parses the sentences that the library builds, and builds the board's replies.
class BoardParser : public ParserInit
{
public:
    BoardParser() { m_reversed = true; }

protected:
    QHash<QString, BuilderDelegate> initBuilderDelegates() override
    {
        QHash<QString, BuilderDelegate> delegates;
        const QHash<QString, ParserDelegate> parsers = initParserDelegates();
        for (auto it = parsers.begin(); it != parsers.end(); ++it)
            delegates.insert(it.key(), buildString);
        return delegates;
    }
};

QString line(const char *text)
{
    return QString::fromLatin1(text) + QStringLiteral("\r\n");
}

SessionInit sessionOf(int sentenceId, const Fields &fields = Fields())
{
    SessionInit session;
    session.sentenceId = sentenceId;
    session.fields = fields;
    return session;
}

SessionInit parsed(const QString &sentence)
{
    ParserInit parser;
    parser.init();
    SessionInit session;
    parser.parse(&session, sentence);
    return session;
}

QString built(const SessionInit &session)
{
    ParserInit parser;
    parser.init();
    QString sentence;
    parser.build(&session, sentence);
    return sentence;
}

void addCorpus(const QString &fileName)
{
    QTest::addColumn<QString>("section");
    QTest::addColumn<QString>("sentence");
    const QVector<CorpusSentence> sentences = corpus(fileName);
    QVERIFY2(!sentences.isEmpty(), qPrintable(fileName));
    for (const CorpusSentence &sentence : sentences)
        QTest::newRow(sentence.name.constData()) << sentence.section << sentence.text;
}

bool equal(const SessionInit &a, const SessionInit &b)
{
    return a.sentenceId == b.sentenceId && a.fields == b.fields;
}

enum class Hole {
    None, // nowhere: the parser notices the change and refuses the sentence
    SameMeaning, // for example "$" became "!", or a letter of the checksum became upper-case
    DelimiterLost, // without "*" the sentence has no checksum, so the old checksum becomes text of the last field
    QuestionMark, // a "?" became a character outside Latin-1; the checksum counts this character as "?" too
};

/// Returns why the parser accepts a valid sentence after one of its characters was replaced, or Hole::None if the
/// parser refuses the changed sentence. The valid sentence must have all fields and a checksum of two digits.
Hole holeOf(const QString &sentence, int position, QChar replacement)
{
    const QChar original = sentence[position];
    const auto delimiter = sentence.indexOf(QLatin1Char('*'));
    if (position == 0)
        return replacement == QLatin1Char('!') ? Hole::SameMeaning : Hole::None;
    if (position < delimiter)
        return original == QLatin1Char('?') && replacement.unicode() > 0xff ? Hole::QuestionMark : Hole::None;
    if (position == delimiter) // a "," in this place makes one field too many, so the parser refuses the sentence
        return replacement == QLatin1Char(',') ? Hole::None : Hole::DelimiterLost;
    if (position > delimiter + 2)
        return Hole::None;
    if (replacement.unicode() < 0x80 && replacement.toLower() == original)
        return Hole::SameMeaning;
    const bool leadingZero = position == delimiter + 1 && original == QLatin1Char('0');
    return leadingZero && (replacement.isSpace() || replacement == QLatin1Char('+')) ? Hole::SameMeaning : Hole::None;
}

} // namespace

class TestParserInit : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tablesAreThoseOfTheInitializationSentences();
    void delegatesBelongToTheirFields_data();
    void delegatesBelongToTheirFields();
    void setSentenceIdStoresTheKeyOnly();
    void interfaceIsTheFirstBase();
    void isDestroyedThroughTheInterface();
    void parserBeforeInitRefusesEverything();

    void buildsTheQueries_data();
    void buildsTheQueries();
    void buildRefuses_data();
    void buildRefuses();
    void buildStringNeverFails_data();
    void buildStringNeverFails();

    void parsesAReply_data();
    void parsesAReply();
    void parsesThroughTheInterface();
    void parseIntStoresAnInt_data();
    void parseIntStoresAnInt();
    void parseStringStoresAText_data();
    void parseStringStoresAText();
    void versionNumberThatIsNoneIsStoredAsZero_data();
    void versionNumberThatIsNoneIsStoredAsZero();
    void missingFieldIsAbsent();
    void parseIntoAFilledSessionKeepsItsOtherFields();
    void requestIsRefusedOnReceipt();
    void tooLongReplyIsRefusedAsAWhole();
    void tooManyFieldsLeaveTheKeyAndNoField();
    void subcommandIsHandedOutAsItStands_data();
    void subcommandIsHandedOutAsItStands();

    void validSentenceIsParsed_data();
    void validSentenceIsParsed();
    void toleratedSentenceIsParsed_data();
    void toleratedSentenceIsParsed();
    void invalidSentenceIsRefused_data();
    void invalidSentenceIsRefused();
    void truncatedSentenceIsRefused_data();
    void truncatedSentenceIsRefused();
    void truncationBeforeALineEndIsNoticedByTheChecksumOnly_data();
    void truncationBeforeALineEndIsNoticedByTheChecksumOnly();
    void sentenceBehindGarbageIsRefused_data();
    void sentenceBehindGarbageIsRefused();
    void alteredCharacterIsNoticed_data();
    void alteredCharacterIsNoticed();
    void replyBuiltByTheBoardIsParsedByTheHost_data();
    void replyBuiltByTheBoardIsParsedByTheHost();
    void queryBuiltByTheHostIsParsedByTheBoard();
};

void TestParserInit::tablesAreThoseOfTheInitializationSentences()
{
    OpenParser parser;
    const QHash<int, QString> identifiers{
        {1, QStringLiteral("PJWVER")}, {2, QStringLiteral("PTJWWR")}, {3, QStringLiteral("PTJWRD")}};
    QCOMPARE(parser.initSentenceIdentifiers(), identifiers);
    const QHash<int, QString> formatsParse{
        {1, QStringLiteral("hwversion,v1,v2,v3")},
        {3, QStringLiteral("subcommand,name,devtype,boardid,rev,version,hwversion,appmode")}};
    QCOMPARE(parser.initSentenceFormatsParse(), formatsParse);
    const QHash<int, QString> formatsBuild{{1, QString()}, {2, QStringLiteral("subcommand")}};
    QCOMPARE(parser.initSentenceFormatsBuild(), formatsBuild);
    QVERIFY(parser.initTalkerIdentifiers().isEmpty());
    QCOMPARE(parser.initParserDelegates().size(), 11);
    QCOMPARE(parser.initBuilderDelegates().size(), 1);
    QVERIFY(parser.initBuilderDelegates().value(QStringLiteral("subcommand")) == &ParserInit::buildString);
}

void TestParserInit::delegatesBelongToTheirFields_data()
{
    QTest::addColumn<bool>("isNumber");
    for (const char *name : {"v1", "v2", "v3"})
        QTest::newRow(name) << true;
    for (const char *name : {"hwversion", "subcommand", "name", "devtype", "boardid", "rev", "version", "appmode"})
        QTest::newRow(name) << false;
}

void TestParserInit::delegatesBelongToTheirFields()
{
    QFETCH(bool, isNumber);
    OpenParser parser;
    const auto delegate = parser.initParserDelegates().value(QString::fromLatin1(QTest::currentDataTag()));
    QVERIFY(delegate == (isNumber ? &ParserInit::parseInt : &ParserInit::parseString));
}

void TestParserInit::setSentenceIdStoresTheKeyOnly()
{
    OpenParser parser;
    SessionInit session = sessionOf(1, {{QStringLiteral("v1"), 4}});
    for (const int key : {3, 0, -9999, 4711}) {
        parser.setSentenceId(&session, key);
        QCOMPARE(session.sentenceId, key);
        QCOMPARE(session.fields, (Fields{{QStringLiteral("v1"), 4}}));
    }
}

void TestParserInit::interfaceIsTheFirstBase()
{
    ParserInit parser;
    QCOMPARE(static_cast<void *>(static_cast<IPayloadParser *>(&parser)), static_cast<void *>(&parser));
}

void TestParserInit::isDestroyedThroughTheInterface()
{
    auto *parser = new ParserInit;
    parser->init();
    IPayloadParser *const interface = parser;
    delete interface; // if the wrong destructor runs, AddressSanitizer reports a leak or a wrong size
}

void TestParserInit::parserBeforeInitRefusesEverything()
{
    ParserInit parser;
    SessionInit session = sessionOf(1);
    QString sentence = QStringLiteral("before");
    QCOMPARE(thrownMessage([&] { parser.parse(&session, line("$PJWVER,7300021,1,4,0*0e")); }),
             QStringLiteral("Undefined sentence ID: PJWVER"));
    QCOMPARE(thrownMessage([&] { parser.build(&session, sentence); }), QStringLiteral("No formatter found"));
    QCOMPARE(sentence, QStringLiteral("before"));
}

void TestParserInit::buildsTheQueries_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<Fields>("fields");
    QTest::addColumn<QString>("sentence");
    const QString subcommand = QStringLiteral("subcommand");
    QTest::newRow("version query") << 1 << Fields() << line("$PJWVER*0c");
    QTest::newRow("version query takes no fields")
        << 1 << Fields{{subcommand, QStringLiteral("INF")}, {QStringLiteral("hwversion"), 1}} << line("$PJWVER*0c");
    QTest::newRow("information request") << 2 << Fields{{subcommand, QStringLiteral("INF")}} << line("$PTJWWR,INF*71");
    QTest::newRow("information request, with fields that it does not send")
        << 2 << Fields{{subcommand, QStringLiteral("INF")}, {QStringLiteral("name"), QStringLiteral("CTRL")}}
        << line("$PTJWWR,INF*71");
    QTest::newRow("sub-command stored as bytes")
        << 2 << Fields{{subcommand, QByteArray("INF")}} << line("$PTJWWR,INF*71");
    QTest::newRow("sub-command stored as a number") << 2 << Fields{{subcommand, 42}} << line("$PTJWWR,42*36");
    QTest::newRow("sub-command empty") << 2 << Fields{{subcommand, QString()}} << line("$PTJWWR*1c");
    QTest::newRow("sub-command absent") << 2 << Fields() << line("$PTJWWR*1c");
}

void TestParserInit::buildsTheQueries()
{
    QFETCH(int, key);
    QFETCH(Fields, fields);
    QFETCH(QString, sentence);
    ParserInit parser;
    parser.init();
    IPayloadParser &interface = parser;
    const SessionInit session = sessionOf(key, fields);
    QString out = QStringLiteral("before");
    QVERIFY(interface.build(&session, out));
    QCOMPARE(out, sentence);
}

void TestParserInit::buildRefuses_data()
{
    QTest::addColumn<int>("key");
    QTest::newRow("cleared session") << 0;
    QTest::newRow("information reply") << 3;
    QTest::newRow("unknown key") << 4;
    QTest::newRow("negative key") << -1;
    QTest::newRow("reserved key") << -9999;
}

void TestParserInit::buildRefuses()
{
    QFETCH(int, key);
    ParserInit parser;
    parser.init();
    const SessionInit session = sessionOf(key, {{QStringLiteral("subcommand"), QStringLiteral("INF")}});
    QString out = QStringLiteral("before");
    QCOMPARE(thrownMessage([&] { parser.build(&session, out); }), QStringLiteral("No formatter found"));
    QCOMPARE(out, QStringLiteral("before"));
}

void TestParserInit::buildStringNeverFails_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("text");
    QTest::newRow("text") << QVariant(QStringLiteral("INF")) << QStringLiteral("INF");
    QTest::newRow("int") << QVariant(-7) << QStringLiteral("-7");
    QTest::newRow("bool") << QVariant(true) << QStringLiteral("true");
    QTest::newRow("double") << QVariant(1.5) << QStringLiteral("1.5");
    QTest::newRow("bytes") << QVariant(QByteArray("\xc3\xa4")) << QStringLiteral("\u00e4");
    QTest::newRow("invalid") << QVariant() << QString();
    QTest::newRow("not convertible") << QVariant(QVariantList{1, 2}) << QString();
}

void TestParserInit::buildStringNeverFails()
{
    QFETCH(QVariant, value);
    QFETCH(QString, text);
    const SessionInit session = sessionOf(2, {{QStringLiteral("x"), value}});
    QCOMPARE(ParserInit::buildString(&session, QStringLiteral("x")), text);
    QCOMPARE(ParserInit::buildString(&session, QStringLiteral("X")), QString());
    QCOMPARE(session.fields.size(), 1);
}

void TestParserInit::parsesAReply_data()
{
    QTest::addColumn<QString>("sentence");
    QTest::addColumn<int>("key");
    QTest::addColumn<Fields>("fields");
    const auto versions = [](const QVariant &hwversion, const QVariant &v1, const QVariant &v2, const QVariant &v3) {
        return Fields{{QStringLiteral("hwversion"), hwversion},
                      {QStringLiteral("v1"), v1},
                      {QStringLiteral("v2"), v2},
                      {QStringLiteral("v3"), v3}};
    };
    const Fields description{{QStringLiteral("subcommand"), QStringLiteral("INF")},
                             {QStringLiteral("name"), QStringLiteral("CTRL")},
                             {QStringLiteral("devtype"), QStringLiteral("3")},
                             {QStringLiteral("boardid"), QStringLiteral("17")},
                             {QStringLiteral("rev"), QStringLiteral("2")},
                             {QStringLiteral("version"), QStringLiteral("1.04")},
                             {QStringLiteral("hwversion"), QStringLiteral("7300022")},
                             {QStringLiteral("appmode"), QStringLiteral("1")}};
    QTest::newRow("version reply") << line("$PJWVER,7300021,1,4,0*0e") << 1
                                   << versions(QStringLiteral("7300021"), 1, 4, 0);
    QTest::newRow("version reply of a text and large numbers")
        << line("$PJWVER,HW-7300022/B,255,65535,2147483647*6f") << 1
        << versions(QStringLiteral("HW-7300022/B"), 255, 65535, 2147483647);
    QTest::newRow("version reply of negative numbers")
        << line("$PJWVER,7300022,-1,-2,-2147483648*13") << 1
        << versions(QStringLiteral("7300022"), -1, -2, std::numeric_limits<int>::min());
    QTest::newRow("version reply with both hardware versions")
        << line("$PJWVER,7300021 7300022,1,0,0*1e") << 1 << versions(QStringLiteral("7300021 7300022"), 1, 0, 0);
    QTest::newRow("version reply without any field") << line("$PJWVER*0c") << 1 << Fields();
    QTest::newRow("version reply with the worked example's field")
        << line("$PJWVER,INF*61") << 1 << Fields{{QStringLiteral("hwversion"), QStringLiteral("INF")}};
    QTest::newRow("version reply with empty fields") << line("$PJWVER,,,,*0c") << 1 << versions(QString(), 0, 0, 0);
    QTest::newRow("version reply without checksum: the line end is no part of a number")
        << line("$PJWVER,7300021,1,4,7") << 1 << versions(QStringLiteral("7300021"), 1, 4, 7);
    QTest::newRow("description reply") << line("$PTJWRD,INF,CTRL,3,17,2,1.04,7300022,1*5e") << 3 << description;
    Fields unchecked = description;
    unchecked[QStringLiteral("appmode")] = QStringLiteral("1\r\n");
    QTest::newRow("description reply without checksum: the line end stays on the last text")
        << line("$PTJWRD,INF,CTRL,3,17,2,1.04,7300022,1") << 3 << unchecked;
}

void TestParserInit::parsesAReply()
{
    QFETCH(QString, sentence);
    QFETCH(int, key);
    QFETCH(Fields, fields);
    const SessionInit session = parsed(sentence);
    QCOMPARE(session.sentenceId, key);
    QCOMPARE(session.fields, fields);
    for (auto it = fields.begin(); it != fields.end(); ++it)
        QCOMPARE(session.fields.value(it.key()).userType(), it->userType());
}

void TestParserInit::parsesThroughTheInterface()
{
    ParserInit parser;
    parser.init();
    IPayloadParser &interface = parser;
    SessionInit session;
    SessionAbstract &base = session;
    QVERIFY(interface.parse(&base, line("$PJWVER,7300021,1,4,0*0e")));
    QCOMPARE(session.sentenceId, 1);
    QCOMPARE(thrownMessage([&] { interface.parse(&base, QStringLiteral("$PJWVER")); }), QStringLiteral("Bad end"));
}

void TestParserInit::parseIntStoresAnInt_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("value");
    QTest::newRow("number") << QStringLiteral("42") << 42;
    QTest::newRow("negative") << QStringLiteral("-42") << -42;
    QTest::newRow("leading zeros are not octal") << QStringLiteral("010") << 10;
    QTest::newRow("blanks around") << QStringLiteral(" 4\r\n") << 4;
    QTest::newRow("empty") << QString() << 0;
    QTest::newRow("letters") << QStringLiteral("abc") << 0;
    QTest::newRow("number and letters") << QStringLiteral("4x") << 0;
    QTest::newRow("base 16") << QStringLiteral("0x10") << 0;
    QTest::newRow("fraction") << QStringLiteral("1.5") << 0;
    QTest::newRow("largest") << QStringLiteral("2147483647") << std::numeric_limits<int>::max();
    QTest::newRow("beyond the largest") << QStringLiteral("2147483648") << 0;
    QTest::newRow("nine digits") << QStringLiteral("999999999") << 999999999;
    QTest::newRow("ten digits") << QStringLiteral("1000000000") << 1000000000;
    QTest::newRow("ten digits beyond the largest") << QStringLiteral("9999999999") << 0;
    QTest::newRow("zeros in front of the largest")
        << QStringLiteral("00002147483647") << std::numeric_limits<int>::max();
    QTest::newRow("plus") << QStringLiteral("+42") << 42;
    QTest::newRow("sign alone") << QStringLiteral("-") << 0;
    QTest::newRow("blank within") << QStringLiteral("4 2") << 0;
    QTest::newRow("blanks outside ASCII") << QStringLiteral("\u0085\u00a04\u2003") << 4;
    QTest::newRow("minus sign outside ASCII") << QStringLiteral("\u221242") << -42;
    QTest::newRow("NUL behind") << QStringLiteral("42") + QChar(u'\0') << 0;
    QTest::newRow("NUL within") << QStringLiteral("4") + QChar(u'\0') + QLatin1Char('2') << 0;
    QTest::newRow("digits outside ASCII") << QStringLiteral("\u0664\u0662") << 0;
}

void TestParserInit::parseIntStoresAnInt()
{
    QFETCH(QString, text);
    QFETCH(int, value);
    const QString name = QStringLiteral("anything");
    SessionInit session = sessionOf(1, {{name, QStringLiteral("before")}});
    QCOMPARE(ParserInit::parseInt(&session, text, name), true);
    QCOMPARE(session.fields, (Fields{{name, value}}));
    QCOMPARE(session.fields.value(name).userType(), int(QMetaType::Int));
    QCOMPARE(session.sentenceId, 1);
}

void TestParserInit::parseStringStoresAText_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("text") << QStringLiteral("CTRL");
    QTest::newRow("number") << QStringLiteral("17");
    QTest::newRow("blanks and line end stay") << QStringLiteral(" 1 \r\n");
    QTest::newRow("beyond ASCII") << QStringLiteral("\u00e4\u20ac");
    QTest::newRow("empty") << QStringLiteral("");
}

void TestParserInit::parseStringStoresAText()
{
    QFETCH(QString, text);
    const QString name = QStringLiteral("anything");
    SessionInit session = sessionOf(3, {{name, 4711}});
    QCOMPARE(ParserInit::parseString(&session, text, name), true);
    QCOMPARE(session.fields, (Fields{{name, text}}));
    QCOMPARE(session.fields.value(name).userType(), int(QMetaType::QString));
    QCOMPARE(session.sentenceId, 3);
}

void TestParserInit::versionNumberThatIsNoneIsStoredAsZero_data()
{
    QTest::addColumn<QString>("sentence");
    QTest::newRow("letters, empty, number and letter") << line("$PJWVER,7300021,abc,,4x*17");
    QTest::newRow("beyond int") << line("$PJWVER,7300021,99999999999,2147483648,4294967296*09");
    QTest::newRow("base 16, fraction, exponent") << line("$PJWVER,7300021,0x10,1.5,1e3*3f");
}

void TestParserInit::versionNumberThatIsNoneIsStoredAsZero()
{
    QFETCH(QString, sentence);
    const SessionInit session = parsed(sentence);
    for (const char *name : {"v1", "v2", "v3"})
        QCOMPARE(session.fields.value(QString::fromLatin1(name), -1), QVariant(0));
}

void TestParserInit::missingFieldIsAbsent()
{
    const SessionInit session = parsed(line("$PJWVER,7300021,1*0a"));
    QCOMPARE(session.fields,
             (Fields{{QStringLiteral("hwversion"), QStringLiteral("7300021")}, {QStringLiteral("v1"), 1}}));
    const QVariant subcommand = session.fields.value(QStringLiteral("subcommand"));
    QVERIFY(!subcommand.isValid());
    QCOMPARE(subcommand.toString(), QString());
}

void TestParserInit::parseIntoAFilledSessionKeepsItsOtherFields()
{
    ParserInit parser;
    parser.init();
    SessionInit session;
    QVERIFY(parser.parse(&session, line("$PTJWRD,INF,CTRL,3,17,2,1.04,7300022,1*5e")));
    QVERIFY(parser.parse(&session, line("$PJWVER,7300021,1*0a")));
    QCOMPARE(session.sentenceId, 1);
    QCOMPARE(session.fields.size(), 9);
    QCOMPARE(session.fields.value(QStringLiteral("subcommand")), QVariant(QStringLiteral("INF")));
    QCOMPARE(session.fields.value(QStringLiteral("hwversion")), QVariant(QStringLiteral("7300021")));
    QCOMPARE(session.fields.value(QStringLiteral("v1")), QVariant(1));

    session.clear();
    QVERIFY(parser.parse(&session, line("$PJWVER,7300021,1*0a")));
    QCOMPARE(session.fields.size(), 2);
}

void TestParserInit::requestIsRefusedOnReceipt()
{
    ParserInit parser;
    parser.init();
    SessionInit session;
    QCOMPARE(thrownMessage([&] { parser.parse(&session, line("$PTJWWR,INF*71")); }),
             QStringLiteral("Format not found for sentence ID"));
    QVERIFY(equal(session, SessionInit()));
}

void TestParserInit::tooLongReplyIsRefusedAsAWhole()
{
    ParserInit parser;
    parser.init();
    const QString reply = QStringLiteral("$PTJWRD,INF,%1,3,17,2,1.04,7300022,1*%2\r\n");
    const QString longest = reply.arg(QString(35, QLatin1Char('N')), QStringLiteral("19"));
    const QString tooLong = reply.arg(QString(36, QLatin1Char('N')), QStringLiteral("57"));
    QCOMPARE(longest.size(), 74);
    QCOMPARE(tooLong.size(), 75);
    SessionInit session;
    QVERIFY(parser.parse(&session, longest));
    session.clear();
    QCOMPARE(thrownMessage([&] { parser.parse(&session, tooLong); }), QStringLiteral("Sentence too long"));
    QVERIFY(equal(session, SessionInit()));
}

void TestParserInit::tooManyFieldsLeaveTheKeyAndNoField()
{
    ParserInit parser;
    parser.init();
    SessionInit session;
    QCOMPARE(thrownMessage([&] { parser.parse(&session, line("$PJWVER,7300021,1,4,0,5*17")); }),
             QStringLiteral("Specified parameters list and formatting string incompatible"));
    QCOMPARE(session.sentenceId, 1);
    QVERIFY(session.fields.isEmpty());
    QVERIFY(parser.parse(&session, line("$PJWVER,7300021,1,4,0*0e")));
}

void TestParserInit::subcommandIsHandedOutAsItStands_data()
{
    QTest::addColumn<QString>("sentence");
    QTest::addColumn<QString>("subcommand");
    QTest::newRow("upper case") << line("$PTJWRD,INF,CTRL,3,17,2,1.04,7300022,1*5e") << QStringLiteral("INF");
    QTest::newRow("lower case") << line("$PTJWRD,inf,CTRL,3,17,2,1.04,7300022,1*7e") << QStringLiteral("inf");
    QTest::newRow("blank behind") << line("$PTJWRD,INF ,CTRL,3,17,2,1.04,7300022,1*7e") << QStringLiteral("INF ");
}

void TestParserInit::subcommandIsHandedOutAsItStands()
{
    QFETCH(QString, sentence);
    QFETCH(QString, subcommand);
    QCOMPARE(parsed(sentence).fields.value(QStringLiteral("subcommand")), QVariant(subcommand));
}

void TestParserInit::validSentenceIsParsed_data()
{
    addCorpus(QStringLiteral("valid.nmea"));
}

void TestParserInit::validSentenceIsParsed()
{
    QFETCH(QString, section);
    QFETCH(QString, sentence);
    const SessionInit session = parsed(sentence);
    QCOMPARE(session.sentenceId, section.toInt());
    QCOMPARE(session.fields.size(), section == QLatin1String("1") ? 4 : 8);
}

void TestParserInit::toleratedSentenceIsParsed_data()
{
    addCorpus(QStringLiteral("tolerated.nmea"));
}

void TestParserInit::toleratedSentenceIsParsed()
{
    QFETCH(QString, section);
    QFETCH(QString, sentence);
    QCOMPARE(parsed(sentence).sentenceId, section.toInt());
}

void TestParserInit::invalidSentenceIsRefused_data()
{
    addCorpus(QStringLiteral("invalid.nmea"));
}

void TestParserInit::invalidSentenceIsRefused()
{
    QFETCH(QString, section);
    QFETCH(QString, sentence);
    ParserInit parser;
    parser.init();
    SessionInit session;
    QCOMPARE(thrownMessage([&] { parser.parse(&session, sentence); }), section);
    QVERIFY(session.fields.isEmpty());
}

void TestParserInit::truncatedSentenceIsRefused_data()
{
    addCorpus(QStringLiteral("valid.nmea"));
}

void TestParserInit::truncatedSentenceIsRefused()
{
    QFETCH(QString, sentence);
    ParserInit parser;
    parser.init();
    for (int length = 0; length < sentence.size(); ++length) {
        SessionInit session;
        QCOMPARE(thrownMessage([&] { parser.parse(&session, sentence.left(length)); }),
                 length == 0 ? QStringLiteral("Start flag not found") : QStringLiteral("Bad end"));
        QVERIFY(equal(session, SessionInit()));
    }
}

void TestParserInit::truncationBeforeALineEndIsNoticedByTheChecksumOnly_data()
{
    addCorpus(QStringLiteral("valid.nmea"));
}

void TestParserInit::truncationBeforeALineEndIsNoticedByTheChecksumOnly()
{
    QFETCH(QString, sentence);
    ParserInit parser;
    parser.init();
    const auto firstField = sentence.indexOf(QLatin1Char(',')) + 1;
    const auto delimiter = sentence.indexOf(QLatin1Char('*'));
    for (int length = 0; length < sentence.size() - 2; ++length) {
        const QString ended = sentence.left(length) + QStringLiteral("\r\n");
        SessionInit session;
        const bool accepted = thrownMessage([&] { parser.parse(&session, ended); }).isNull();
        // The parser accepts a sentence that ends after its first "," and before its "*": it is a sentence without
        // checksum.
        QVERIFY2(accepted == (length >= firstField && length <= delimiter), qPrintable(ended));
    }
}

void TestParserInit::sentenceBehindGarbageIsRefused_data()
{
    addCorpus(QStringLiteral("valid.nmea"));
}

void TestParserInit::sentenceBehindGarbageIsRefused()
{
    QFETCH(QString, sentence);
    ParserInit parser;
    parser.init();
    SessionInit session;
    for (const QChar garbage : {QChar(u' '), QChar(u'\n'), QChar(u'x'), QChar(u'\0'), QChar(0xff)}) {
        QCOMPARE(thrownMessage([&] { parser.parse(&session, garbage + sentence); }),
                 QStringLiteral("Start flag not found"));
    }
    QVERIFY(equal(session, SessionInit()));
}

void TestParserInit::alteredCharacterIsNoticed_data()
{
    addCorpus(QStringLiteral("valid.nmea"));
}

void TestParserInit::alteredCharacterIsNoticed()
{
    QFETCH(QString, sentence);
    ParserInit parser;
    parser.init();
    const SessionInit original = parsed(sentence);
    QVector<QChar> replacements{QChar(0x0660), QChar(0x20ac), QChar(0x2003), QChar(0xd800), QChar(0xff10)};
    for (int code = 0; code < 0x180; ++code)
        replacements.append(QChar(code));

    for (int position = 0; position < sentence.size(); ++position) {
        for (const QChar replacement : std::as_const(replacements)) {
            if (replacement == sentence[position])
                continue;
            QString altered = sentence;
            altered[position] = replacement;
            SessionInit session;
            const bool accepted = thrownMessage([&] { parser.parse(&session, altered); }).isNull();
            const Hole hole = holeOf(sentence, position, replacement);
            QVERIFY2(accepted == (hole != Hole::None), qPrintable(altered));
            if (hole == Hole::SameMeaning)
                QVERIFY2(equal(session, original), qPrintable(altered));
        }
    }
}

void TestParserInit::replyBuiltByTheBoardIsParsedByTheHost_data()
{
    addCorpus(QStringLiteral("valid.nmea"));
}

void TestParserInit::replyBuiltByTheBoardIsParsedByTheHost()
{
    QFETCH(QString, sentence);
    BoardParser board;
    board.init();
    const SessionInit session = parsed(sentence);
    QString reply;
    QVERIFY(board.build(&session, reply));
    QCOMPARE(reply, sentence);
    QVERIFY(equal(parsed(reply), session));
}

void TestParserInit::queryBuiltByTheHostIsParsedByTheBoard()
{
    BoardParser board;
    board.init();
    SessionInit received;
    QVERIFY(board.parse(&received, built(sessionOf(1))));
    QVERIFY(equal(received, sessionOf(1)));

    const SessionInit request = sessionOf(2, {{QStringLiteral("subcommand"), QStringLiteral("INF")}});
    received.clear();
    QVERIFY(board.parse(&received, built(request)));
    QVERIFY(equal(received, request));

    QCOMPARE(thrownMessage([&] { board.parse(&received, line("$PTJWRD,INF*62")); }),
             QStringLiteral("Format not found for sentence ID"));
    QString out;
    QCOMPARE(thrownMessage([&] { board.build(&request, out); }), QStringLiteral("No formatter found"));
}

QTEST_APPLESS_MAIN(TestParserInit)
#include "tst_parserinit.moc"

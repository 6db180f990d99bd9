#include "parserinit.h"

#include <device/boardrules.h>
#include <nmea/number.h>

namespace Nmea {

using JwDevice::InformationReply;
using JwDevice::InformationRequest;
using JwDevice::VersionSentence;

namespace {

/// Returns the same as readNumber() of base 10. Faster if `text` consists of one to nine digits, as nearly every number
/// does.
int toInt(const QString &text)
{
    constexpr int digitsOfAnyInt = 9;
    if (text.isEmpty() || text.size() > digitsOfAnyInt)
        return readNumber(text, 10);
    int number = 0;
    for (const QChar digit : text) {
        if (digit < QLatin1Char('0') || digit > QLatin1Char('9'))
            return readNumber(text, 10);
        number = number * 10 + (digit.unicode() - '0');
    }
    return number;
}

} // namespace

ParserInit::ParserInit() = default;

ParserInit::~ParserInit() = default;

bool ParserInit::parse(JwDevice::SessionAbstract *session, const QString &sentence)
{
    return parseSentence(static_cast<JwDevice::SessionInit *>(session), sentence);
}

bool ParserInit::build(const JwDevice::SessionAbstract *session, QString &sentence)
{
    const auto *init = static_cast<const JwDevice::SessionInit *>(session);
    return buildSentence(init, init->sentenceId, sentence);
}

bool ParserInit::parseInt(JwDevice::SessionInit *session, const QString &value, const QString &name)
{
    session->fields.insert(name, toInt(value));
    return true;
}

bool ParserInit::parseString(JwDevice::SessionInit *session, const QString &value, const QString &name)
{
    session->fields.insert(name, value);
    return true;
}

QString ParserInit::buildString(const JwDevice::SessionInit *session, const QString &name)
{
    return session->fields.value(name).toString();
}

QHash<int, QString> ParserInit::initSentenceIdentifiers()
{
    return {
        {VersionSentence, QStringLiteral("PJWVER")},
        {InformationRequest, QStringLiteral("PTJWWR")},
        {InformationReply, QStringLiteral("PTJWRD")},
    };
}

QHash<int, QString> ParserInit::initSentenceFormatsParse()
{
    return {
        //         1       2 3 4
        // $PJWVER,7300021,1,4,0*0e
        {VersionSentence, QStringLiteral("hwversion,v1,v2,v3")},
        //         1   2    3 4  5 6    7       8
        // $PTJWRD,INF,CTRL,3,17,2,1.04,7300022,1*5e
        {InformationReply, QStringLiteral("subcommand,name,devtype,boardid,rev,version,hwversion,appmode")},
    };
}

QHash<int, QString> ParserInit::initSentenceFormatsBuild()
{
    return {
        // $PJWVER*0c
        {VersionSentence, QString()},
        //         1
        // $PTJWWR,INF*71
        {InformationRequest, QStringLiteral("subcommand")},
    };
}

QHash<QString, ParserInit::ParserDelegate> ParserInit::initParserDelegates()
{
    return {
        {QStringLiteral("hwversion"), parseString},
        {QStringLiteral("v1"), parseInt},
        {QStringLiteral("v2"), parseInt},
        {QStringLiteral("v3"), parseInt},
        {QStringLiteral("subcommand"), parseString},
        {QStringLiteral("name"), parseString},
        {QStringLiteral("devtype"), parseString},
        {QStringLiteral("boardid"), parseString},
        {QStringLiteral("rev"), parseString},
        {QStringLiteral("version"), parseString},
        {QStringLiteral("appmode"), parseString},
    };
}

QHash<QString, ParserInit::BuilderDelegate> ParserInit::initBuilderDelegates()
{
    return {
        {QStringLiteral("subcommand"), buildString},
    };
}

void ParserInit::setSentenceId(JwDevice::SessionInit *session, int sentenceId)
{
    session->sentenceId = sentenceId;
}

} // namespace Nmea

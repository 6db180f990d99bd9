#include "boardrules.h"

#include <QSerialPortInfo>

#include <algorithm>
#include <iterator>

namespace JwDevice {

namespace {

const QLatin1String information("INF");

/// The query that asks for one type of board, and the test that recognises the reply.
struct BoardRule
{
    Type type;
    const char *name;
    SentenceKey query;
    bool (*isReply)(const SessionInit &reply);
};

bool hasHardwareNumber(const SessionInit &reply, const char *number)
{
    return reply.sentenceId == VersionSentence
        && reply.fields.value(QStringLiteral("hwversion")).toString().contains(QLatin1String(number));
}

bool isBoardB(const SessionInit &reply)
{
    return hasHardwareNumber(reply, "7300021");
}

bool isBoardA(const SessionInit &reply)
{
    return hasHardwareNumber(reply, "7300022") && !isBoardB(reply); // a reply with both numbers is from a BoardB
}

bool isBoardC(const SessionInit &reply)
{
    return reply.sentenceId == InformationReply
        && reply.fields.value(QStringLiteral("subcommand")).toString() == information;
}

constexpr BoardRule boardRules[] = {
    {BoardA, "BoardA", VersionSentence, isBoardA},
    {BoardB, "BoardB", VersionSentence, isBoardB},
    {BoardC, "BoardC", InformationRequest, isBoardC},
};

} // namespace

bool isCandidate(const QSerialPortInfo &port)
{
    return port.manufacturer() == QLatin1String(boardManufacturer) || port.vendorIdentifier() == boardVendorId;
}

QList<Type> boardTypes()
{
    QList<Type> types;
    for (const BoardRule &rule : boardRules)
        types.append(rule.type);
    return types;
}

QString typeName(Type type)
{
    for (const BoardRule &rule : boardRules) {
        if (rule.type == type)
            return QString::fromLatin1(rule.name);
    }
    return QStringLiteral("Unknown");
}

Type typeOf(const SessionInit &reply)
{
    for (const BoardRule &rule : boardRules) {
        if (rule.isReply(reply))
            return rule.type;
    }
    return Unknown;
}

QList<SentenceKey> queriesFor(const QList<Type> &types)
{
    QList<SentenceKey> queries;
    for (const BoardRule &rule : boardRules) {
        if (types.contains(rule.type) && !queries.contains(rule.query))
            queries.append(rule.query);
    }
    return queries;
}

SessionInit queryRecord(SentenceKey key)
{
    SessionInit session;
    session.sentenceId = key;
    if (key == InformationRequest)
        session.fields[QStringLiteral("subcommand")] = QString(information);
    return session;
}

} // namespace JwDevice

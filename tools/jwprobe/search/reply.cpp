#include "reply.h"

#include <device/sessioninit.h>
#include <nmea/exception.h>
#include <nmea/parserinit.h>

namespace JwProbe {

namespace {

enum Sentence {
    Version = 1,
    InformationReply = 3,
};

// As the library recognises a board; it doesn't tell of those that were not wanted.
JwDevice::Type typeOf(const JwDevice::SessionInit &session, const QString &hardwareVersion)
{
    if (session.sentenceId == Version) {
        if (hardwareVersion.contains(QLatin1String("7300021")))
            return JwDevice::BoardB;
        if (hardwareVersion.contains(QLatin1String("7300022")))
            return JwDevice::BoardA;
    } else if (session.sentenceId == InformationReply) {
        if (session.fields.value(QStringLiteral("subcommand")).toString() == QLatin1String("INF"))
            return JwDevice::BoardC;
    }
    return JwDevice::Unknown;
}

} // namespace

Reply readReply(const QString &payload)
{
    Reply reply;
    Nmea::ParserInit parser;
    parser.init();
    JwDevice::SessionInit session;
    try {
        parser.parse(&session, payload + QLatin1String("\r\n"));
    } catch (const Nmea::Exception &exception) {
        reply.fault = exception.message();
        return reply;
    }
    reply.hardwareVersion = session.fields.value(QStringLiteral("hwversion")).toString();
    reply.type = typeOf(session, reply.hardwareVersion);
    return reply;
}

} // namespace JwProbe

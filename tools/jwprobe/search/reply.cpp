#include "reply.h"

#include <device/boardrules.h>
#include <device/sessioninit.h>
#include <nmea/exception.h>
#include <nmea/parserinit.h>

namespace JwProbe {

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
    reply.type = JwDevice::typeOf(session);
    return reply;
}

} // namespace JwProbe

#include "diagnosis.h"

#include "access.h"
#include "boardtype.h"
#include "output.h"
#include "probelog.h"
#include "reply.h"

#include <QFile>

namespace JwProbe {

namespace {

Diagnosis diagnoseClosed(const PortIdentity &port, const PortRecord &record)
{
    if (record.openError == 0 && port.isKnown)
        return {port, QStringLiteral("notOpened"), QStringLiteral("not opened before the search ended"), {}};
    const Obstacle obstacle = explainOpenError(port, record.openError);
    const auto state = [&obstacle] {
        switch (obstacle.kind) {
        case Obstacle::NoSuchPort:
            return QStringLiteral("noSuchPort");
        case Obstacle::NoPermission:
            return QStringLiteral("noPermission");
        case Obstacle::Held:
            return QStringLiteral("held");
        case Obstacle::None:
        case Obstacle::Other:
            break;
        }
        return QStringLiteral("openFailed");
    };
    return {port, state(), obstacle.summary, obstacle.advice};
}

Diagnosis diagnoseAnswer(const PortIdentity &port, const Reply &reply, const QList<JwDevice::Type> &found)
{
    const QString type = typeName(reply.type);
    if (reply.type == JwDevice::Unknown) {
        return {port,
                QStringLiteral("unknownBoard"),
                QStringLiteral("answered as a board of no known type: %1").arg(printable(reply.text)),
                {QStringLiteral("Is it another product, or a firmware that came after this version of jwprobe?")}};
    }
    if (found.contains(reply.type)) {
        return {port,
                QStringLiteral("duplicate"),
                QStringLiteral("a second %1: %2").arg(type, printable(reply.text)),
                {QStringLiteral("To use this one: --port %1 --type %2").arg(port.name, type)}};
    }
    return {port,
            QStringLiteral("otherType"),
            QStringLiteral("answered as a %1, which is not wanted: %2").arg(type, printable(reply.text)),
            {QStringLiteral("To find it, add --type %1.").arg(type)}};
}

// The library gathers what all ports receive in one place.
QString aloneAdvice(const PortIdentity &port)
{
    return QStringLiteral(
               "Replies that arrive at the same moment can spoil each other: ask this port alone with --port "
               "%1.")
        .arg(port.name);
}

Diagnosis diagnoseUnreadable(const PortIdentity &port, const Reply &reply)
{
    return {
        port,
        QStringLiteral("unreadable"),
        QStringLiteral("sent what no board sends: %1 (%2)").arg(printable(reply.text), printable(reply.fault)),
        {QStringLiteral("Is it another kind of device? If it is a board, check its baud rate (115200), its cable and "
                        "its firmware."),
         aloneAdvice(port)}};
}

Diagnosis diagnoseSilence(const PortIdentity &port, const PortRecord &record)
{
    if (record.timeouts == 0)
        return {port, QStringLiteral("unheard"), QStringLiteral("no answer before the search ended"), {}};
    const QString rounds =
        record.timeouts == 1 ? QStringLiteral("a round") : QStringLiteral("%1 rounds").arg(record.timeouts);
    return {
        port,
        QStringLiteral("silent"),
        QStringLiteral("silent: it opened, but no sentence came in %1 of 400 ms").arg(rounds),
        {QStringLiteral("Check the board's power, its firmware (is it stuck in the boot loader?) and its baud rate "
                        "(115200). A board that starts slowly wants more --retries. --raw-traffic shows whether any "
                        "bytes come."),
         aloneAdvice(port)}};
}

} // namespace

Diagnosis diagnose(const PortIdentity &port, const PortRecord &record, const QList<JwDevice::Type> &found)
{
    if (!record.opened)
        return diagnoseClosed(port, record);
    if (!QFile::exists(port.location)) {
        return {port,
                QStringLiteral("unplugged"),
                QStringLiteral("its cable was pulled during the search"),
                {QStringLiteral("Plug it in again and run jwprobe again.")}};
    }
    QList<Reply> answers;
    Reply unreadable;
    for (const QString &payload : record.payloads) {
        const Reply reply = readReply(payload);
        if (reply.fault.isEmpty())
            answers.append(reply);
        else
            unreadable = reply;
    }
    for (const Reply &answer : qAsConst(answers)) {
        if (answer.type != JwDevice::Unknown)
            return diagnoseAnswer(port, answer, found);
    }
    if (!answers.isEmpty())
        return diagnoseAnswer(port, answers.last(), found);
    if (!unreadable.fault.isEmpty())
        return diagnoseUnreadable(port, unreadable);
    return diagnoseSilence(port, record);
}

} // namespace JwProbe

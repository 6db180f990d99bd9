#include "diagnosis.h"

#include "access.h"
#include <common/boardtype.h>
#include <common/locktrap.h>
#include <common/printable.h>
#include <jwprobe/search/reply.h>

#include <device/boardrules.h>
#include <device/lockfile.h>

#include <QFile>
#include <QSerialPortInfo>

using JwDevice::PortReport;

namespace JwProbe {

namespace {

Diagnosis diagnoseClosed(const PortIdentity &port, const PortReport &report)
{
    if (report.error == QSerialPort::NoError && port.isKnown) {
        return {port,
                report,
                QStringLiteral("notOpened"),
                QStringLiteral("not opened before the search ended"),
                {QStringLiteral("Give the search more time after its delay: a later --deadline or a shorter "
                                "--delay.")}};
    }
    if (JwTools::isLockTrap(report) && JwDevice::lockTrap(port.name).isEmpty()) {
        return {port,
                report,
                obstacleState(Obstacle::Other),
                JwTools::printable(report.errorText),
                {QStringLiteral("Somebody has removed it since then. Run jwprobe again.")}};
    }
    const Obstacle obstacle = explainOpenError(port, report.error);
    return {port, report, obstacleState(obstacle.kind), obstacle.summary, obstacle.advice};
}

Diagnosis diagnoseLoss(const PortIdentity &port, const PortReport &report)
{
    const QString answer = report.reply.isEmpty()
        ? QString()
        : QStringLiteral(", after it had answered %1").arg(JwTools::printable(report.reply));
    // On a busy machine, many errors may come before the system removes the port. So ask the system again.
    const bool isRemoved = (port.isKnown && QSerialPortInfo(port.name).isNull())
        || (!port.location.isEmpty() && !QFile::exists(port.location));
    if (report.error == QSerialPort::ResourceError || isRemoved) {
        return {port,
                report,
                QStringLiteral("unplugged"),
                QStringLiteral("its cable was pulled during the search") + answer,
                {QStringLiteral("Plug it in again and run jwprobe again.")}};
    }
    return {port,
            report,
            QStringLiteral("failed"),
            QStringLiteral("failed during the search: %1").arg(JwTools::printable(report.errorText)) + answer,
            {QStringLiteral("The system has the port, so its board may have restarted: check its cable and its power, "
                            "and run jwprobe again.")}};
}

Diagnosis diagnoseAnswer(const PortIdentity &port, const PortReport &report)
{
    const QString text = JwTools::printable(report.reply);
    if (report.verdict == PortReport::Duplicate) {
        const QString type = JwTools::boardName(report.type);
        return {port,
                report,
                QStringLiteral("duplicate"),
                QStringLiteral("a second %1: %2").arg(type, text),
                {QStringLiteral("To use this one: --port %1 --type %2").arg(port.name, type)}};
    }
    const JwDevice::Type type = readReply(report.reply).type;
    if (type == JwDevice::Unknown) {
        return {port,
                report,
                QStringLiteral("unknownBoard"),
                QStringLiteral("answered as a board of no known type: %1").arg(text),
                {QStringLiteral("Is it another product, or a firmware that came after this version of jwprobe?")}};
    }
    return {port,
            report,
            QStringLiteral("otherType"),
            QStringLiteral("answered as a %1, which is not wanted: %2").arg(JwTools::boardName(type), text),
            {QStringLiteral("To find it, add --type %1.").arg(JwTools::boardName(type))}};
}

Diagnosis diagnoseUnreadable(const PortIdentity &port, const PortReport &report)
{
    const QString fault = readReply(report.unreadable).fault;
    QString text = JwTools::printable(report.unreadable);
    if (!fault.isEmpty())
        text += QStringLiteral(" (%1)").arg(JwTools::printable(fault));
    const QString summary = report.payloads == 1
        ? QStringLiteral("sent what can't be read as a board's answer: %1").arg(text)
        : QStringLiteral("sent %1 payloads that can't be read as a board's answer, the newest: %2")
              .arg(report.payloads)
              .arg(text);
    return {
        port,
        report,
        QStringLiteral("unreadable"),
        summary,
        {QStringLiteral("Is it another kind of device? If it is a board, check its baud rate (115200), its cable and "
                        "its firmware.")}};
}

Diagnosis diagnoseSilence(const PortIdentity &port, const PortReport &report)
{
    const QString queries =
        report.queries == 1 ? QStringLiteral("its query") : QStringLiteral("any of %1 queries").arg(report.queries);
    const QStringList advice =
        QStringList{QStringLiteral("Check the board's power, its firmware (is it stuck in the boot loader?) and its "
                                   "baud rate (115200). A board that starts slowly needs more --retries. "
                                   "--raw-traffic shows whether any bytes come.")};
    if (report.verdict == PortReport::Awaiting) {
        return {port, report, QStringLiteral("unheard"),
                QStringLiteral("no answer to %1 before the search ended").arg(queries),
                QStringList{QStringLiteral("jwprobe waits %1 ms for an answer. A later --deadline gives the board time "
                                           "to answer.")
                                .arg(JwDevice::replyTime)}
                    + advice};
    }
    return {port, report, QStringLiteral("silent"),
            QStringLiteral("no sentence: the port opened, but none came within %1 ms of %2")
                .arg(QString::number(JwDevice::replyTime), queries),
            advice};
}

} // namespace

Diagnosis diagnose(const PortIdentity &port, const PortReport &report)
{
    if (report.verdict == PortReport::NotOpened)
        return diagnoseClosed(port, report);
    if (report.verdict == PortReport::Lost)
        return diagnoseLoss(port, report);
    if (!report.reply.isEmpty())
        return diagnoseAnswer(port, report);
    if (report.payloads > 0)
        return diagnoseUnreadable(port, report);
    return diagnoseSilence(port, report);
}

} // namespace JwProbe

#include "portverdict.h"

#include <common/boardtype.h>
#include <common/printable.h>

#include <device/portreport.h>

#include <QCoreApplication>

namespace JwMonitor {

namespace {

struct Verdict
{
    Q_DECLARE_TR_FUNCTIONS(JwMonitor::Verdict)
};

QString whyNotOpened(const JwDevice::PortReport &report)
{
    switch (report.error) {
    case QSerialPort::NoError:
        return Verdict::tr("waits to be opened");
    case QSerialPort::DeviceNotFoundError:
        return Verdict::tr("no such port");
    case QSerialPort::PermissionError:
        return Verdict::tr("not opened: held by another program, or no permission");
    default:
        return Verdict::tr("not opened: %1").arg(report.errorText);
    }
}

} // namespace

QString verdictText(const JwDevice::PortReport &report, bool isOver)
{
    switch (report.verdict) {
    case JwDevice::PortReport::NotOpened:
        return whyNotOpened(report);
    case JwDevice::PortReport::Awaiting:
        if (isOver && !report.unreadable.isEmpty())
            return Verdict::tr("unreadable: %1").arg(JwTools::printable(report.unreadable));
        return isOver ? Verdict::tr("no answer before the search ended") : Verdict::tr("asked, awaiting an answer");
    case JwDevice::PortReport::TimedOut:
        return report.unreadable.isEmpty() ? Verdict::tr("silent")
                                           : Verdict::tr("unreadable: %1").arg(JwTools::printable(report.unreadable));
    case JwDevice::PortReport::Silenced:
        return Verdict::tr("answered, but is not wanted: %1").arg(JwTools::printable(report.reply));
    case JwDevice::PortReport::Duplicate:
        return Verdict::tr("a second %1").arg(JwTools::boardName(report.type));
    case JwDevice::PortReport::Lost:
        return Verdict::tr("lost: %1").arg(report.errorText);
    case JwDevice::PortReport::HandedOver:
        return Verdict::tr("found");
    }
    return QString();
}

} // namespace JwMonitor

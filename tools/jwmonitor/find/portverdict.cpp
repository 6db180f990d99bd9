#include "portverdict.h"

#include <common/locktrap.h>
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
        return report.errorText.isEmpty() ? Verdict::tr("waits to be opened") : report.errorText;
    case QSerialPort::DeviceNotFoundError:
        return Verdict::tr("no such port");
    case QSerialPort::PermissionError:
        return JwTools::isLockTrap(report) ? Verdict::tr("not opened: %1").arg(report.errorText)
                                           : Verdict::tr("not opened: held by another program, or no permission");
    default:
        return Verdict::tr("not opened: %1").arg(report.errorText);
    }
}

} // namespace

bool isSettled(const JwDevice::PortReport &report)
{
    if (report.verdict == JwDevice::PortReport::NotOpened)
        return report.error != QSerialPort::NoError || !report.errorText.isEmpty();
    return report.verdict != JwDevice::PortReport::Awaiting;
}

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
    case JwDevice::PortReport::Lost:
        return Verdict::tr("lost: %1").arg(report.errorText);
    case JwDevice::PortReport::Duplicate: // never happens, because each port has its own probe
    case JwDevice::PortReport::HandedOver:
        return Verdict::tr("found");
    }
    return QString();
}

} // namespace JwMonitor

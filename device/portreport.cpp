#include "portreport.h"

namespace JwDevice {

QString verdictName(PortReport::Verdict verdict)
{
    switch (verdict) {
    case PortReport::NotOpened:
        break;
    case PortReport::Awaiting:
        return QStringLiteral("awaiting");
    case PortReport::TimedOut:
        return QStringLiteral("timedOut");
    case PortReport::Silenced:
        return QStringLiteral("silenced");
    case PortReport::Duplicate:
        return QStringLiteral("duplicate");
    case PortReport::Lost:
        return QStringLiteral("lost");
    case PortReport::HandedOver:
        return QStringLiteral("handedOver");
    }
    return QStringLiteral("notOpened");
}

} // namespace JwDevice

#include "board.h"

namespace JwDevice {

QString lossName(Board::Loss loss)
{
    switch (loss) {
    case Board::NotLost:
        break;
    case Board::CablePulled:
        return QStringLiteral("cablePulled");
    case Board::PortFailed:
        return QStringLiteral("portFailed");
    case Board::NoAnswer:
        return QStringLiteral("noAnswer");
    case Board::Lent:
        return QStringLiteral("lent");
    case Board::Released:
        return QStringLiteral("released");
    case Board::Stopped:
        return QStringLiteral("stopped");
    }
    return QStringLiteral("notLost");
}

} // namespace JwDevice

#pragma once

#include <device/communicator.h>
#include <device/type.h>

#include <QMetaType>
#include <QPointer>
#include <QString>

namespace JwMonitor {

/// A board that was found. BoardFinder owns the Communicator and may delete it at any time. After that, `communicator`
/// is null.
struct BoardLink
{
    QString port;
    JwDevice::Type type;
    QPointer<JwDevice::Communicator> communicator;
};

} // namespace JwMonitor

Q_DECLARE_METATYPE(JwMonitor::BoardLink)

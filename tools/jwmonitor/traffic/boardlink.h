#pragma once

#include <device/communicator.h>
#include <device/type.h>

#include <QMetaType>
#include <QPointer>
#include <QString>

namespace JwMonitor {

/// A board that was found. The Communicator belongs to the finder of the board, which may delete it at any time.
struct BoardLink
{
    QString port;
    JwDevice::Type type;
    QPointer<JwDevice::Communicator> communicator;
};

} // namespace JwMonitor

Q_DECLARE_METATYPE(JwMonitor::BoardLink)

#pragma once

#include <device/communicator.h>
#include <device/type.h>

#include <QMetaType>
#include <QPointer>
#include <QString>

namespace JwMonitor {

/// A board that was found. The Communicator is deleted after BoardFinder::boardLost(). After that, `communicator` is
/// null.
struct BoardLink
{
    QString port;
    JwDevice::Type type;
    QPointer<JwDevice::Communicator> communicator;
    QString id = QString(); ///< JwDevice::Board::id; a board that is back has the same id
};

} // namespace JwMonitor

Q_DECLARE_METATYPE(JwMonitor::BoardLink)

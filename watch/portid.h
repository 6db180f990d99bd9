#pragma once

#include <watch/jwwatch_export.h>

#include <QList>
#include <QString>
#include <QStringList>

class QSerialPortInfo;

namespace JwDevice {

/// Returns the id of the board on each of `ports`, in the same order. For QSerialPortInfo::availablePorts() these are
/// the ids that a BoardWatch gives if it starts now. See Board::id.
JWWATCH_EXPORT QStringList boardIds(const QList<QSerialPortInfo> &ports);

/// Returns whether the board on `port` can have this `id`: the USB serial number and interface of the port, its place
/// in the USB tree, or its name. Two boards with the same serial number can both have the id that is made of it. Use
/// this function if a user selects a board, for example in BoardWatch::setCandidateRule().
JWWATCH_EXPORT bool canHaveBoardId(const QSerialPortInfo &port, const QString &id);

} // namespace JwDevice

#pragma once

#include <watch/jwwatch_export.h>

#include <QList>
#include <QString>
#include <QStringList>

class QSerialPortInfo;

namespace JwDevice {

/// Returns for each of `ports` the id that a board on this port has (see Board::id), in the order of `ports`. Does not
/// open the ports. To get the ids that a BoardWatch would give if it started now, pass its candidate ports in the order
/// of QSerialPortInfo::availablePorts().
JWWATCH_EXPORT QStringList boardIds(const QList<QSerialPortInfo> &ports);

/// Returns whether a board on `port` can have this `id`: whether `id` is the port's USB serial number with the
/// interface, the port's place in the USB tree, or the name of the port (see Board::IdBasis). If two boards have the
/// same serial number, an id with this number can be the id of both, so the function returns true for both ports.
///
/// Use this function in BoardWatch::setCandidateRule() if the user names a board by its id.
JWWATCH_EXPORT bool canHaveBoardId(const QSerialPortInfo &port, const QString &id);

/// Returns whether the udev property `JWDEVICE_IGNORE` of `port` is "1". A BoardWatch never opens such a port, see
/// BoardWatch::setNeverOpened(). On systems without udev, returns false.
JWWATCH_EXPORT bool isIgnoredPort(const QSerialPortInfo &port);

} // namespace JwDevice

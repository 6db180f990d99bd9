#pragma once

#include <device/communicator.h>

#include <QBuffer>
#include <QByteArray>

/// All Communicators of the process share one receive buffer: what an earlier test left in it becomes part of this
/// payload, or goes with it.
inline void drainReceiveBuffer()
{
    QByteArray bytes = "$\r\n";
    QBuffer device(&bytes);
    device.open(QIODevice::ReadOnly);
    JwDevice::Communicator communicator;
    communicator.setIODevice(&device);
    QMetaObject::invokeMethod(&communicator, "ioReadyRead");
}

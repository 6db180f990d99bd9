#pragma once

#include <device/communicator.h>

#include <QBuffer>
#include <QByteArray>

/// Empties the receive buffer, which all Communicators of the process share. To do so, delivers a short payload to a
/// Communicator. Old bytes in the buffer leave it together with this payload.
inline void drainReceiveBuffer()
{
    QByteArray bytes = "$\r\n";
    QBuffer device(&bytes);
    device.open(QIODevice::ReadOnly);
    JwDevice::Communicator communicator;
    communicator.setIODevice(&device);
    QMetaObject::invokeMethod(&communicator, "ioReadyRead");
}

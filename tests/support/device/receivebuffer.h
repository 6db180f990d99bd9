#pragma once

#include <device/communicator.h>

#include <QBuffer>
#include <QByteArray>

/// Empties the receive buffer, which all Communicators of the process share. Old bytes in the buffer become part of the
/// payload that this function delivers, or are dropped with it.
inline void drainReceiveBuffer()
{
    QByteArray bytes = "$\r\n";
    QBuffer device(&bytes);
    device.open(QIODevice::ReadOnly);
    JwDevice::Communicator communicator;
    communicator.setIODevice(&device);
    QMetaObject::invokeMethod(&communicator, "ioReadyRead");
}

#pragma once

#include <device/jwdevice_export.h>

#include <QString>

/**
 * \file
 * The lock file with which QSerialPort stops other programs from opening a port. On many systems, for example Debian,
 * every user may write in the folder of lock files, so anything can be at the path of the lock file. If it is a named
 * pipe, QSerialPort::open() never returns, because it waits for another program to write into the pipe. Initializer
 * does not open such a port. If your program opens ports itself, call lockTrap() directly before each open().
 */
namespace JwDevice {

/// Returns the path of the lock file that QSerialPort uses, for example "/var/lock/LCK..ttyACM0". `portName` is a name
/// as QSerialPort::portName() returns it, for example "ttyACM0". Empty if there is no folder for lock files.
JWDEVICE_EXPORT QString lockFilePath(const QString &portName);

/// Returns what is at `path` if it is no lock file, for example "a named pipe". A symbolic link, and a file of more
/// than 4096 bytes, is no lock file. Empty if a lock file is at `path`, or nothing.
JWDEVICE_EXPORT QString foreignLockKind(const QString &path);

/// Returns why a program must not open the port `portName`, for example "/var/lock/LCK..ttyACM0 is a named pipe, no
/// lock file". Empty if there is no such reason. This function never waits.
JWDEVICE_EXPORT QString lockTrap(const QString &portName);

} // namespace JwDevice

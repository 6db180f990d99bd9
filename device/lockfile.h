#pragma once

#include <device/jwdevice_export.h>

#include <QString>

/**
 * \file
 * The lock file with which QSerialPort stops other programs from opening a port. Every user may write in the folder of
 * lock files, so anything can be at the path of the lock file. If it is a named pipe, QSerialPort::open() never
 * returns, because it waits for another program to write into the pipe. Initializer does not open such a port. If your
 * program opens ports itself, call lockTrap() before.
 */
namespace JwDevice {

/// Returns the path of the lock file that QSerialPort uses for the port `portName`, for example
/// "/var/lock/LCK..ttyACM0". Empty if there is no folder for lock files, and on Windows.
JWDEVICE_EXPORT QString lockFilePath(const QString &portName);

/// Returns what is at `path` if it is no lock file, for example "a named pipe". Empty if it may be a lock file, and if
/// nothing is there.
JWDEVICE_EXPORT QString foreignKind(const QString &path);

/// Returns why a program must not open the port `portName`, for example "/var/lock/LCK..ttyACM0 is a named pipe, no
/// lock file". Empty if nothing is there, or a lock file. This function never waits.
JWDEVICE_EXPORT QString lockTrap(const QString &portName);

} // namespace JwDevice

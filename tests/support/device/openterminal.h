#pragma once

#include <QSerialPort>
#include <QTest>

/// Opens a port that is a pseudo terminal. The system may give the name of a closed terminal to a new one before the
/// program that used it has removed the lock file of that name. So this function tries again for some seconds.
inline bool openTerminal(QSerialPort &port)
{
    return QTest::qWaitFor([&port] { return port.open(QIODevice::ReadWrite); });
}

#pragma once

#include "openterminal.h"

#include <device/communicator.h>

#include <QByteArray>
#include <QSerialPort>
#include <QString>

#include <pty.h>
#include <unistd.h>

/// A pseudo terminal, used as a serial line. A QSerialPort can open one end as a port. The test sends and receives at
/// the other end, like a board.
class SerialLine
{
public:
    SerialLine()
    {
        char name[64] = "";
        if (openpty(&m_board, &m_port, name, nullptr, nullptr) == 0)
            m_portName = QString::fromLocal8Bit(name);
    }
    ~SerialLine()
    {
        ::close(m_port);
        ::close(m_board);
    }
    SerialLine(const SerialLine &) = delete;
    SerialLine &operator=(const SerialLine &) = delete;

    QString portName() const { return m_portName; }
    bool send(const QByteArray &bytes) const
    {
        return ::write(m_board, bytes.constData(), static_cast<size_t>(bytes.size())) == bytes.size();
    }
    QByteArray receive() const
    {
        char bytes[1000];
        return QByteArray(bytes, static_cast<int>(qMax<ssize_t>(0, ::read(m_board, bytes, sizeof bytes))));
    }

private:
    int m_board = -1;
    int m_port = -1; // kept open, because a read at the board's end fails while nobody has the port open
    QString m_portName;
};

/// A Communicator on the open port of a SerialLine.
struct SerialCommunicator
{
    SerialCommunicator()
    {
        if (!openTerminal(port))
            qFatal("%s", qPrintable(port.errorString()));
        communicator.setIODevice(&port);
    }

    const SerialLine line;
    QSerialPort port{line.portName()};
    JwDevice::Communicator communicator;
};

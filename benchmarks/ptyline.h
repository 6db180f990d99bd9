#pragma once

#include <QSerialPort>

#include <memory>

#include <pty.h>
#include <unistd.h>

/// A pseudo terminal (pty) with a QSerialPort at one end. The benchmark writes to the other end like a board.
struct PtyLine
{
    explicit PtyLine(std::unique_ptr<QSerialPort> serialPort)
        : port(std::move(serialPort))
    {
        char name[64];
        if (openpty(&board, &held, name, nullptr, nullptr) != 0)
            qFatal("openpty: %s; raise the limit of open files", qUtf8Printable(qt_error_string()));
        port->setPortName(QString::fromLatin1(name));
        if (!port->open(QIODevice::ReadWrite))
            qFatal("%s: %s", name, qUtf8Printable(port->errorString()));
    }
    ~PtyLine()
    {
        port->close();
        ::close(board);
        ::close(held);
    }
    PtyLine(const PtyLine &) = delete;
    PtyLine &operator=(const PtyLine &) = delete;

    void send(const char *bytes, std::size_t size) const
    {
        if (::write(board, bytes, size) != static_cast<ssize_t>(size))
            qFatal("a line does not take what is written to it");
    }

    int board = -1;
    int held = -1; // descriptor of the port's end; stays open, so that the board can always send
    const std::unique_ptr<QSerialPort> port;
};

/// Reads and drops all available bytes. This is the least work that an application can do with a port. Returns the
/// number of bytes.
inline qint64 readAndDrop(QSerialPort *port)
{
    char bytes[1024];
    qint64 count = 0;
    while (port->bytesAvailable() > 0)
        count += port->read(bytes, sizeof bytes);
    return count;
}

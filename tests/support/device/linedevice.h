#pragma once

#include "support/common/eventloop.h"
#include "support/common/portname.h"

#include <device/wholelines.h>
#include <simulator/board.h>
#include <simulator/testbed.h>

#include <QLocalServer>
#include <QLocalSocket>
#include <QSerialPort>
#include <QTcpServer>
#include <QTcpSocket>

#include <memory>
#include <stdexcept>

/// An open device that offers whole lines only, together with the other end of its connection.
class LineDevice
{
public:
    virtual ~LineDevice() = default;

    virtual QIODevice *device() = 0;
    virtual JwDevice::WholeLinesBase *lines() = 0;
    /// Sends bytes from the other end.
    virtual void send(const QByteArray &bytes) = 0;
    /// Sends bytes and runs the event loop until they have arrived.
    void deliver(const QByteArray &bytes)
    {
        send(bytes);
        settle();
    }
    /// Opens the device again after it was closed.
    virtual void open() = 0;
};

inline void require(bool ok, const char *what)
{
    if (!ok)
        throw std::runtime_error(what);
}

/// A simulated serial port. Its board sends only the bytes of send().
class LineSerialPort : public LineDevice
{
public:
    explicit LineSerialPort(JwSimulator::Testbed &testbed)
        : m_board(testbed.add(config()))
        , m_port(std::make_unique<JwDevice::WholeLines<QSerialPort>>(m_board->portName()))
    {
        open();
    }

    QIODevice *device() override { return m_port.get(); }
    JwDevice::WholeLinesBase *lines() override { return m_port.get(); }
    void send(const QByteArray &bytes) override { m_board->send(bytes); }
    void open() override { require(m_port->open(QIODevice::ReadWrite), "the port does not open"); }

private:
    static JwSimulator::BoardConfig config()
    {
        JwSimulator::BoardConfig config;
        config.kind = JwSimulator::BoardConfig::Kind::Silent;
        config.port = uniquePortName();
        return config;
    }

    JwSimulator::Board *const m_board;
    const std::unique_ptr<JwDevice::WholeLines<QSerialPort>> m_port;
};

/// A socket that is connected to a server in this process.
template <typename Socket, typename Server>
class LineSocket : public LineDevice
{
public:
    LineSocket() { open(); }

    QIODevice *device() override { return m_socket.get(); }
    JwDevice::WholeLinesBase *lines() override { return m_socket.get(); }
    void send(const QByteArray &bytes) override
    {
        m_peer->write(bytes);
        m_peer->flush();
    }
    void open() override
    {
        m_server.close();
        if constexpr (std::is_same_v<Socket, QTcpSocket>) {
            require(m_server.listen(QHostAddress::LocalHost), "the server does not listen");
            m_socket->connectToHost(m_server.serverAddress(), m_server.serverPort());
        } else {
            require(m_server.listen(uniquePortName()), "the server does not listen");
            m_socket->connectToServer(m_server.fullServerName());
        }
        require(runUntil([this] { return m_socket->isOpen() && m_server.hasPendingConnections(); }), "not connected");
        m_peer.reset(m_server.nextPendingConnection());
        m_peer->setParent(nullptr);
        require(runUntil([this] { return m_socket->state() == Socket::ConnectedState; }), "not connected");
    }

private:
    Server m_server;
    std::unique_ptr<Socket> m_peer;
    const std::unique_ptr<JwDevice::WholeLines<Socket>> m_socket = std::make_unique<JwDevice::WholeLines<Socket>>();
};

enum class DeviceKind { SerialPort, TcpSocket, LocalSocket };
Q_DECLARE_METATYPE(DeviceKind)

constexpr struct
{
    DeviceKind kind;
    const char *name;
} deviceKinds[] = {{DeviceKind::SerialPort, "serial port"},
                   {DeviceKind::TcpSocket, "TCP socket"},
                   {DeviceKind::LocalSocket, "local socket"}};

inline std::unique_ptr<LineDevice> makeLineDevice(DeviceKind kind, JwSimulator::Testbed &testbed)
{
    switch (kind) {
    case DeviceKind::TcpSocket:
        return std::make_unique<LineSocket<QTcpSocket, QTcpServer>>();
    case DeviceKind::LocalSocket:
        return std::make_unique<LineSocket<QLocalSocket, QLocalServer>>();
    case DeviceKind::SerialPort:
        break;
    }
    return std::make_unique<LineSerialPort>(testbed);
}

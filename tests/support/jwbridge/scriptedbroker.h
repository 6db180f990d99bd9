#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QObject>
#include <QString>
#include <QTcpServer>
#include <QTcpSocket>

#include <functional>
#include <utility>

/// A packet of MQTT.
struct Packet
{
    enum Kind { Connect = 1, Connack = 2, Publish = 3, Puback = 4, Pingreq = 12, Pingresp = 13 };

    int kind;
    QByteArray content;

    /// The topic of a Publish.
    QByteArray topic() const { return content.mid(2, number(0)); }
    /// The number of a Publish with quality of service 1.
    QByteArray identifier() const { return content.mid(2 + number(0), 2); }
    QByteArray bytes() const
    {
        return static_cast<char>(kind << 4) + length(static_cast<int>(content.size())) + content;
    }
    /// Returns a length in groups of 7 bits, the lowest first.
    static QByteArray length(int left)
    {
        QByteArray bytes;
        do {
            bytes += static_cast<char>(left % 128 + (left >= 128 ? 128 : 0));
            left /= 128;
        } while (left > 0);
        return bytes;
    }

private:
    int number(int at) const { return static_cast<uchar>(content[at]) << 8 | static_cast<uchar>(content[at + 1]); }
};

/// A broker that sends for each packet the bytes that `answer` returns.
class ScriptedBroker
{
public:
    using Answer = std::function<QByteArray(const Packet &packet)>;

    explicit ScriptedBroker(Answer answer)
        : m_answer(std::move(answer))
    {
        QObject::connect(&m_server, &QTcpServer::newConnection, [this] {
            QTcpSocket *const socket = m_server.nextPendingConnection();
            ++connections;
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket, unread = QByteArray()]() mutable {
                unread += socket->readAll();
                for (Packet packet = take(unread); packet.kind > 0; packet = take(unread))
                    socket->write(m_answer(packet));
            });
        });
        m_server.listen(QHostAddress::LocalHost);
    }

    QString url() const { return QStringLiteral("mqtt://127.0.0.1:%1").arg(m_server.serverPort()); }
    int connections = 0;

    /// The packet that accepts a connection, with these properties.
    static QByteArray welcome(const QByteArray &properties = QByteArray())
    {
        return Packet{Packet::Connack, QByteArray(2, '\0') + static_cast<char>(properties.size()) + properties}.bytes();
    }

private:
    // Takes the first whole packet. Its kind is 0 if there is none.
    static Packet take(QByteArray &bytes)
    {
        int size = 0;
        int at = 1;
        for (int shift = 0; at < bytes.size(); shift += 7) {
            const auto group = static_cast<uchar>(bytes[at++]);
            size |= (group & 127) << shift;
            if (group >= 128)
                continue;
            if (bytes.size() < at + size)
                break;
            const Packet packet{static_cast<uchar>(bytes[0]) >> 4, bytes.mid(at, size)};
            bytes.remove(0, at + size);
            return packet;
        }
        return {0, QByteArray()};
    }

    const Answer m_answer;
    QTcpServer m_server;
};

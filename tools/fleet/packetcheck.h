#pragma once

#include <QByteArray>
#include <QtGlobal>

namespace JwFleet {

/**
 * Checks what a broker sends, before libmosquitto gets it. libmosquitto takes packets of any size, and ends the program
 * if a packet has a property of an unknown kind.
 */
class PacketCheck
{
public:
    enum Result {
        Good,
        Malformed, ///< no MQTT 5
        TooLarge, ///< the content of a packet is larger than `maxPacket` bytes
    };

    explicit PacketCheck(quint32 maxPacket)
        : m_maxPacket(maxPacket)
    {
    }

    /// Checks the next bytes. A packet is checked when its last byte is there. After a result that is not Good, use
    /// this object no more.
    Result add(const char *bytes, int size);

private:
    const quint32 m_maxPacket;
    QByteArray m_unfinished; // the beginning of a packet
};

} // namespace JwFleet

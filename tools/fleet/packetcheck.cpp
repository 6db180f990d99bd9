#include "packetcheck.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <algorithm>

namespace JwFleet {

namespace {

constexpr int maxNumberSize = 4; // bytes of a number in groups of 7 bits

// Reads a packet, or a part of it. After the end, every function returns 0 and isGood() is false.
class Reader
{
public:
    Reader(const uchar *begin, const uchar *end)
        : m_next(begin)
        , m_end(end)
    {
    }

    bool isGood() const { return m_isGood; }
    qint64 left() const { return m_end - m_next; }
    bool isAtEnd() const { return left() == 0; }

    void skip(qint64 size)
    {
        m_isGood = m_isGood && size <= left();
        m_next = m_isGood ? m_next + size : m_end;
    }
    uint byte()
    {
        const uchar *const place = m_next;
        skip(1);
        return m_isGood ? *place : 0;
    }
    // A number of one to four bytes, in groups of 7 bits, the lowest first.
    uint number()
    {
        uint value = 0;
        for (int i = 0; i < maxNumberSize; ++i) {
            const uint next = byte();
            value |= (next & 0x7f) << (7 * i);
            if (next < 0x80)
                return value;
        }
        m_isGood = false;
        return 0;
    }
    // Bytes with their number before them.
    void skipCounted()
    {
        const uint high = byte();
        skip(high << 8 | byte());
    }
    Reader part(qint64 size)
    {
        const uchar *const begin = m_next;
        skip(size);
        return {m_isGood ? begin : m_end, m_next};
    }

private:
    const uchar *m_next;
    const uchar *const m_end;
    bool m_isGood = true;
};

int typeOfProperty(uint identifier)
{
    int same = 0;
    int type = 0;
    const char *const name = mosquitto_property_identifier_to_string(static_cast<int>(identifier));
    return name && mosquitto_string_to_property_info(name, &same, &type) == MOSQ_ERR_SUCCESS ? type : 0;
}

bool areGoodProperties(Reader properties)
{
    while (properties.isGood() && !properties.isAtEnd()) {
        // libmosquitto expects an identifier of one byte, as all known ones have.
        switch (typeOfProperty(properties.byte())) {
        case MQTT_PROP_TYPE_BYTE:
            properties.skip(1);
            break;
        case MQTT_PROP_TYPE_INT16:
            properties.skip(2);
            break;
        case MQTT_PROP_TYPE_INT32:
            properties.skip(4);
            break;
        case MQTT_PROP_TYPE_VARINT:
            properties.number();
            break;
        case MQTT_PROP_TYPE_STRING_PAIR:
            properties.skipCounted();
            [[fallthrough]];
        case MQTT_PROP_TYPE_BINARY:
        case MQTT_PROP_TYPE_STRING:
            properties.skipCounted();
            break;
        default:
            return false;
        }
    }
    return properties.isGood();
}

// Moves to the properties of a packet. Returns false if no broker may send such a packet.
bool skipToProperties(Reader &packet, uint head)
{
    switch (head & 0xf0) {
    case CMD_PUBLISH:
        packet.skipCounted();
        if ((head & 0x06) != 0) // the quality of service; if it is not 0, the packet has a number
            packet.skip(2);
        return packet.isGood();
    case CMD_CONNACK:
    case CMD_SUBACK:
    case CMD_UNSUBACK:
        packet.skip(2);
        return packet.isGood();
    case CMD_PUBACK:
    case CMD_PUBREC:
    case CMD_PUBREL:
    case CMD_PUBCOMP:
        packet.skip(2);
        [[fallthrough]];
    case CMD_DISCONNECT:
    case CMD_AUTH:
        packet.skip(std::min<qint64>(packet.left(), 1)); // a reason, which may be left out
        return packet.isGood();
    case CMD_PINGRESP:
        return packet.isAtEnd();
    default:
        return false;
    }
}

bool isGoodPacket(Reader packet, uint head)
{
    if (!skipToProperties(packet, head))
        return false;
    if (packet.isAtEnd()) // no properties, and not even their length
        return true;
    const uint size = packet.number();
    return packet.isGood() && size <= packet.left() && areGoodProperties(packet.part(size));
}

} // namespace

PacketCheck::Result PacketCheck::add(const char *bytes, int size)
{
    m_unfinished.append(bytes, size);
    const auto *const begin = reinterpret_cast<const uchar *>(m_unfinished.constData());
    Reader reader(begin, begin + m_unfinished.size());
    qint64 finished = 0;
    while (reader.left() >= 2) {
        const bool isLengthThere = reader.left() > maxNumberSize;
        const uint head = reader.byte();
        const uint length = reader.number();
        if (!reader.isGood() && isLengthThere)
            return Malformed;
        if (!reader.isGood())
            break;
        if (length > m_maxPacket)
            return TooLarge;
        if (length > reader.left())
            break;
        if (!isGoodPacket(reader.part(length), head))
            return Malformed;
        finished = m_unfinished.size() - reader.left();
    }
    m_unfinished.remove(0, static_cast<int>(finished));
    return Good;
}

} // namespace JwFleet

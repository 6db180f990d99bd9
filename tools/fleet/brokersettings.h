#pragma once

#include "brokeraddress.h"

#include <QByteArray>
#include <QString>

namespace JwFleet {

/// How to connect to a broker. File names that are empty are not used.
struct BrokerSettings
{
    BrokerAddress address;
    QByteArray clientId; ///< the broker ends an older connection that has the same id
    QByteArray user;
    QByteArray password;
    QString caFile; ///< certificates of the authorities to trust; if empty, those of the system
    QString certificateFile; ///< certificate of this client
    QString keyFile; ///< private key of this client
    int keepAlive =
        30; ///< seconds; the connection is lost if the broker does not answer for about this time; at least 5
    quint32 maxPacket = 65536; ///< bytes; the broker is asked to send no larger packet
    QByteArray willTopic; ///< the broker publishes `will` here, retained, when it loses this client
    QByteArray will;
};

} // namespace JwFleet

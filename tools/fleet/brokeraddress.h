#pragma once

#include <QString>

#include <optional>

namespace JwFleet {

/// Where a broker is.
struct BrokerAddress
{
    QString host;
    quint16 port = 0;
    bool isTls = false;

    /// Reads an address such as "mqtt://broker.example:1883" or "mqtts://broker.example". Without a port, uses 1883 or,
    /// with TLS, 8883. Returns nothing and sets `error` if `text` is no such address.
    static std::optional<BrokerAddress> parse(const QString &text, QString *error);

    /// Returns the address in the form that parse() reads.
    QString text() const;
};

} // namespace JwFleet

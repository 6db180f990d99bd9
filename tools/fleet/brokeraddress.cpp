#include "brokeraddress.h"

#include <QUrl>

namespace JwFleet {

namespace {

constexpr quint16 plainPort = 1883;
constexpr quint16 tlsPort = 8883;

} // namespace

std::optional<BrokerAddress> BrokerAddress::parse(const QString &text, QString *error)
{
    const QUrl url(text, QUrl::StrictMode);
    const bool isTls = url.scheme() == QLatin1String("mqtts");
    const bool isPlain = url.scheme() == QLatin1String("mqtt");
    const bool hasOnlyHost =
        (url.path().isEmpty() || url.path() == QLatin1String("/")) && !url.hasQuery() && !url.hasFragment();
    if (!url.userInfo().isEmpty()) {
        *error = QStringLiteral("the address of the broker must not contain a user or a password: put them in a file, "
                                "see --login");
        return std::nullopt;
    }
    if ((!isTls && !isPlain) || url.host().isEmpty() || !hasOnlyHost || url.port(plainPort) == 0) {
        *error =
            QStringLiteral("\"%1\" is no address of a broker: give mqtt://HOST:PORT or mqtts://HOST:PORT").arg(text);
        return std::nullopt;
    }
    return BrokerAddress{url.host(), static_cast<quint16>(url.port(isTls ? tlsPort : plainPort)), isTls};
}

QString BrokerAddress::text() const
{
    return QStringLiteral("%1://%2:%3")
        .arg(isTls ? QStringLiteral("mqtts") : QStringLiteral("mqtt"),
             host.contains(QLatin1Char(':')) ? QStringLiteral("[%1]").arg(host) : host)
        .arg(port);
}

} // namespace JwFleet

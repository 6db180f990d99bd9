#include "brokeroptions.h"

#include "secretfile.h"
#include "topics.h"

#include <optional>

namespace JwFleet {

namespace {

bool fail(QString *error, const QString &text)
{
    *error = text;
    return false;
}

} // namespace

using JwTools::makeOption;

BrokerOptions::BrokerOptions()
    : m_prefix(makeOption("prefix", QStringLiteral("Beginning of all topics. Default: jw."), "PREFIX"))
    , m_login(makeOption("login",
                         QStringLiteral("File with the user in the first line and the password in the second. Other "
                                        "users must not be able to read it."),
                         "FILE"))
    , m_ca(makeOption("ca",
                      QStringLiteral("File with the certificates of the authorities to trust. Default: those of the "
                                     "system."),
                      "FILE"))
    , m_certificate(makeOption("certificate", QStringLiteral("File with the certificate of this machine."), "FILE"))
    , m_key(makeOption("key",
                       QStringLiteral("File with the key of --certificate. Other users must not be able to read it."),
                       "FILE"))
{
}

bool BrokerOptions::read(const JwTools::CommandLine &line, const QString &address, BrokerSettings &settings,
                         QString *error) const
{
    const std::optional<BrokerAddress> parsed = BrokerAddress::parse(address, error);
    if (!parsed || !readLogin(line, settings, error))
        return false;
    settings.address = *parsed;
    settings.caFile = line.value(m_ca);
    settings.certificateFile = line.value(m_certificate);
    settings.keyFile = line.value(m_key);
    const bool hasTlsFile =
        !settings.caFile.isEmpty() || !settings.certificateFile.isEmpty() || !settings.keyFile.isEmpty();
    if (hasTlsFile && !parsed->isTls)
        return fail(error, QStringLiteral("--ca, --certificate and --key are for TLS: give mqtts:// as the broker"));
    if (settings.certificateFile.isEmpty() != settings.keyFile.isEmpty())
        return fail(error, QStringLiteral("--certificate and --key belong together: give both"));
    return settings.keyFile.isEmpty() || readSecretFile(settings.keyFile, error).has_value();
}

bool BrokerOptions::readPrefix(const JwTools::CommandLine &line, QString &prefix, QString *error) const
{
    if (line.isSet(m_prefix))
        prefix = line.value(m_prefix);
    const QString fault = Topics::prefixFault(prefix);
    return fault.isEmpty() || fail(error, QStringLiteral("--prefix \"%1\" %2").arg(prefix, fault));
}

bool BrokerOptions::readLogin(const JwTools::CommandLine &line, BrokerSettings &settings, QString *error) const
{
    if (!line.isSet(m_login))
        return true;
    const QString file = line.value(m_login);
    const std::optional<QByteArray> secret = readSecretFile(file, error);
    if (!secret)
        return false;
    const QList<QByteArray> lines = secret->split('\n');
    settings.user = lines.value(0).trimmed();
    settings.password = lines.value(1).trimmed();
    return !settings.user.isEmpty()
        || fail(
            error,
            QStringLiteral("%1 is empty: write the user in the first line and the password in the second").arg(file));
}

} // namespace JwFleet

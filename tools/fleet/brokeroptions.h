#pragma once

#include "brokersettings.h"
#include <common/commandline.h>

#include <QCommandLineOption>
#include <QList>
#include <QString>

namespace JwFleet {

/// The options of a program that say how to connect to a broker, except the option with the broker's address.
class BrokerOptions
{
public:
    BrokerOptions();

    /// Returns the options in the order in which the help shows them.
    QList<QCommandLineOption> all() const { return {m_prefix, m_login, m_ca, m_certificate, m_key}; }

    /// Reads the options, and the files that they name. Leaves the settings without an option as they are. Returns
    /// false and sets `error` if something is wrong.
    bool read(const JwTools::CommandLine &line, const QString &address, BrokerSettings &settings, QString *error) const;
    bool readPrefix(const JwTools::CommandLine &line, QString &prefix, QString *error) const;

private:
    bool readLogin(const JwTools::CommandLine &line, BrokerSettings &settings, QString *error) const;

    const QCommandLineOption m_prefix;
    const QCommandLineOption m_login;
    const QCommandLineOption m_ca;
    const QCommandLineOption m_certificate;
    const QCommandLineOption m_key;
};

} // namespace JwFleet

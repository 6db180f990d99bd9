#pragma once

#include <QByteArray>
#include <QString>

#include <memory>

#include <openssl/ssl.h>

namespace JwFleet {

struct BrokerSettings;

/**
 * The settings of TLS for one connection. OpenSSL checks the broker's certificate and the name in it.
 *
 * libmosquitto could do this too, but only if it gets the broker's name instead of an address. Then it would look up
 * the name itself, and block the event loop.
 */
class TlsContext
{
public:
    explicit TlsContext(const BrokerSettings &settings);
    ~TlsContext();
    TlsContext(const TlsContext &) = delete;
    TlsContext &operator=(const TlsContext &) = delete;

    SSL_CTX *get() const { return m_context.get(); }
    /// Returns why the files of the settings can't be used, or why the broker's certificate was refused. Empty if
    /// nothing is wrong.
    QString fault() const { return m_fault; }

private:
    static int onVerified(int isGood, X509_STORE_CTX *store);
    static void onProgress(const SSL *ssl, int where, int value);
    void load(const BrokerSettings &settings);

    QByteArray m_host;
    QString m_fault;
    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> m_context;
};

} // namespace JwFleet

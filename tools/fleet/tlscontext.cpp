#include "tlscontext.h"

#include "brokersettings.h"

#include <QFile>
#include <QHostAddress>

#include <openssl/err.h>
#include <openssl/x509v3.h>

namespace JwFleet {

namespace {

QString opensslText()
{
    const unsigned long code = ERR_peek_last_error();
    ERR_clear_error();
    const char *const text = ERR_reason_error_string(code);
    return QString::fromUtf8(text ? text : "unknown error");
}

} // namespace

TlsContext::TlsContext(const BrokerSettings &settings)
    : m_host(settings.address.host.toUtf8())
    , m_context(SSL_CTX_new(TLS_client_method()), &SSL_CTX_free)
{
    SSL_CTX_set_app_data(get(), this);
    SSL_CTX_set_min_proto_version(get(), TLS1_2_VERSION);
    // libmosquitto writes a packet in parts, and moves its buffer between two attempts.
    SSL_CTX_set_mode(get(), SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    // Without this function, OpenSSL would ask for the password of a key on the terminal, and block the event loop.
    SSL_CTX_set_default_passwd_cb(get(), [](char *, int, int, void *) { return -1; });
    SSL_CTX_set_verify(get(), SSL_VERIFY_PEER, &TlsContext::onVerified);
    SSL_CTX_set_info_callback(get(), &TlsContext::onProgress);
    X509_VERIFY_PARAM *const rules = SSL_CTX_get0_param(get());
    if (QHostAddress(settings.address.host).isNull())
        X509_VERIFY_PARAM_set1_host(rules, m_host.constData(), static_cast<std::size_t>(m_host.size()));
    else
        X509_VERIFY_PARAM_set1_ip_asc(rules, m_host.constData());
    load(settings);
}

TlsContext::~TlsContext() = default;

void TlsContext::load(const BrokerSettings &settings)
{
    const QByteArray ca = QFile::encodeName(settings.caFile);
    const QByteArray certificate = QFile::encodeName(settings.certificateFile);
    const QByteArray key = QFile::encodeName(settings.keyFile);
    if (ca.isEmpty() ? SSL_CTX_set_default_verify_paths(get()) != 1
                     : SSL_CTX_load_verify_locations(get(), ca.constData(), nullptr) != 1)
        m_fault = QStringLiteral("can't use the file %1 as --ca: %2").arg(settings.caFile, opensslText());
    else if (!certificate.isEmpty() && SSL_CTX_use_certificate_chain_file(get(), certificate.constData()) != 1)
        m_fault =
            QStringLiteral("can't use the file %1 as --certificate: %2").arg(settings.certificateFile, opensslText());
    else if (!key.isEmpty() && SSL_CTX_use_PrivateKey_file(get(), key.constData(), SSL_FILETYPE_PEM) != 1)
        m_fault = QStringLiteral("can't use the file %1 as --key: %2").arg(settings.keyFile, opensslText());
}

int TlsContext::onVerified(int isGood, X509_STORE_CTX *store)
{
    if (!isGood) {
        const auto *const ssl =
            static_cast<const SSL *>(X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
        auto *const self = static_cast<TlsContext *>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl)));
        self->m_fault = QStringLiteral("the broker's certificate is refused: %1. Check --ca and the broker's name")
                            .arg(QString::fromUtf8(X509_verify_cert_error_string(X509_STORE_CTX_get_error(store))));
    }
    return isGood;
}

// Notes why the broker refuses the connection. Sends the broker's name in the handshake, because libmosquitto would
// send the address.
void TlsContext::onProgress(const SSL *ssl, int where, int value)
{
    auto *const self = static_cast<TlsContext *>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl)));
    if (where == SSL_CB_READ_ALERT && (value >> 8) == SSL3_AL_FATAL && self->m_fault.isEmpty())
        self->m_fault = QStringLiteral("TLS failed: the broker reports \"%1\". Check --certificate and --key")
                            .arg(QString::fromUtf8(SSL_alert_desc_string_long(value)));
    if ((where & SSL_CB_HANDSHAKE_START) != 0)
        SSL_set_tlsext_host_name(const_cast<SSL *>(ssl), self->m_host.constData());
}

} // namespace JwFleet

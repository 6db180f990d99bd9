#include "gate.h"

#include <mosquitto.h>

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace JwFleet {

namespace {

constexpr int pieceSize = 16384; // bytes that are moved at once; no record of TLS has more text
constexpr int recordHead = 5; // bytes: kind, version, version, length, length
constexpr int maxRecord = recordHead + pieceSize + 2048;

// Returns the size of the record of TLS at the beginning of `bytes`. Returns 0 if this is no record.
int recordSize(const QByteArray &bytes)
{
    const auto *const head = reinterpret_cast<const uchar *>(bytes.constData());
    const int size = recordHead + (head[3] << 8 | head[4]);
    const bool isRecord = head[0] >= SSL3_RT_CHANGE_CIPHER_SPEC && head[0] <= SSL3_RT_APPLICATION_DATA
        && head[1] == SSL3_VERSION_MAJOR && size <= maxRecord;
    return isRecord ? size : 0;
}

} // namespace

Gate::Gate(mosquitto *client, quint32 maxPacket)
    : m_client(client)
    , m_check(maxPacket)
{
    int pair[2] = {-1, -1};
    const int socket = mosquitto_socket(client);
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, pair) == 0) {
        m_inner = pair[0];
        m_network = ::fcntl(socket, F_DUPFD_CLOEXEC, 0);
    }
    if (m_network < 0 || ::dup3(pair[1], socket, O_CLOEXEC) < 0)
        m_errorNumber = errno;
    ::close(pair[1]);
    if (m_errorNumber != 0)
        return;
    m_readable = std::make_unique<QSocketNotifier>(m_network, QSocketNotifier::Read);
    m_writable = std::make_unique<QSocketNotifier>(m_network, QSocketNotifier::Write);
    m_written = std::make_unique<QSocketNotifier>(m_inner, QSocketNotifier::Read);
    m_readable->setEnabled(false);
    m_written->setEnabled(false);
    connect(m_readable.get(), &QSocketNotifier::activated, this, &Gate::receive);
    connect(m_writable.get(), &QSocketNotifier::activated, this, &Gate::onWritable);
    connect(m_written.get(), &QSocketNotifier::activated, this, &Gate::send);
}

Gate::~Gate()
{
    close();
}

void Gate::onWritable()
{
    if (std::exchange(m_isOpening, false)) {
        int error = 0;
        socklen_t size = sizeof error;
        ::getsockopt(m_network, SOL_SOCKET, SO_ERROR, &error, &size);
        m_readable->setEnabled(error == 0);
        Q_EMIT opened(error);
    }
    if (!m_isClosed)
        send();
}

void Gate::send()
{
    bool isOver = m_isOpening;
    while (!isOver) {
        if (m_unsent.isEmpty()) {
            m_unsent.resize(pieceSize);
            const auto size = ::recv(m_inner, m_unsent.data(), pieceSize, 0);
            m_unsent.resize(static_cast<int>(qMax<ssize_t>(size, 0)));
            isOver = size == 0; // libmosquitto has closed its end
            if (size <= 0)
                break;
        }
        const auto size =
            ::send(m_network, m_unsent.constData(), static_cast<std::size_t>(m_unsent.size()), MSG_NOSIGNAL);
        if (size < 0 && errno == EAGAIN)
            break;
        if (size < 0) {
            ::shutdown(m_network, SHUT_RDWR); // receive() then reports the end
            m_unsent.clear();
            isOver = true;
        } else {
            m_unsent.remove(0, static_cast<int>(size));
        }
    }
    m_written->setEnabled(!isOver && m_unsent.isEmpty());
    m_writable->setEnabled(m_isOpening || !m_unsent.isEmpty());
}

void Gate::receive()
{
    char bytes[pieceSize];
    const auto size = ::recv(m_network, bytes, sizeof bytes, 0);
    if (size < 0) {
        if (errno != EAGAIN && errno != EINTR)
            Q_EMIT broken(errno);
    } else if (size == 0) {
        m_readable->setEnabled(false);
        ::shutdown(m_inner, SHUT_WR);
        Q_EMIT arrived(); // libmosquitto reads the end of the connection
    } else if (mosquitto_ssl_get(m_client)) {
        m_record.append(bytes, static_cast<int>(size));
        passRecords();
    } else if (isAllowed(bytes, static_cast<int>(size))) {
        pass(bytes, static_cast<std::size_t>(size));
    }
}

void Gate::passRecords()
{
    while (!m_isClosed && m_record.size() >= recordHead) {
        const int size = recordSize(m_record);
        if (size > m_record.size())
            return;
        // OpenSSL ends the connection if this is no record.
        const QByteArray record = m_record.left(size > 0 ? size : static_cast<int>(m_record.size()));
        m_record.remove(0, static_cast<int>(record.size()));
        pass(record.constData(), static_cast<std::size_t>(record.size()));
    }
}

bool Gate::isAllowed(const char *bytes, int size)
{
    const PacketCheck::Result result = m_check.add(bytes, size);
    if (result != PacketCheck::Good)
        Q_EMIT refused(result);
    return result == PacketCheck::Good;
}

void Gate::pass(const char *bytes, std::size_t size)
{
    // libmosquitto has read everything before, so there is room for all bytes.
    if (::send(m_inner, bytes, size, MSG_NOSIGNAL) != static_cast<ssize_t>(size)) {
        Q_EMIT broken(errno);
        return;
    }
    auto *const ssl = static_cast<SSL *>(mosquitto_ssl_get(m_client));
    if (ssl && SSL_is_init_finished(ssl)) {
        char text[pieceSize];
        const int textSize = SSL_peek(ssl, text, sizeof text);
        if (textSize <= 0)
            ERR_clear_error(); // libmosquitto gets the same error
        else if (!isAllowed(text, textSize))
            return;
    }
    Q_EMIT arrived();
}

void Gate::close()
{
    if (std::exchange(m_isClosed, true))
        return;
    if (m_written) {
        send();
        for (QSocketNotifier *notifier : {m_readable.get(), m_writable.get(), m_written.get()})
            notifier->setEnabled(false);
    }
    ::close(m_network);
    ::close(m_inner);
}

} // namespace JwFleet

#include "eventsender.h"

#include <QDir>
#include <QFile>
#include <QtEndian>

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace JwSimulator {

namespace {

constexpr int mostWaiting = 10000; // messages for one monitor; later events are lost, as on a real system

// Returns the hash by which the kernel's filter of a monitor recognises a text: MurmurHash2 with seed 0.
quint32 filterHash(const QByteArray &text)
{
    if (text.isEmpty())
        return 0;
    const quint32 factor = 0x5bd1e995;
    quint32 hash = static_cast<quint32>(text.size());
    int i = 0;
    for (; i + 4 <= text.size(); i += 4) {
        quint32 part = qFromLittleEndian<quint32>(text.constData() + i) * factor;
        part ^= part >> 24;
        hash = hash * factor ^ part * factor;
    }
    if (i < text.size()) {
        for (int shift = 0; i < text.size(); ++i, shift += 8)
            hash ^= static_cast<quint32>(static_cast<uchar>(text.at(i))) << shift;
        hash *= factor;
    }
    hash ^= hash >> 13;
    hash *= factor;
    return hash ^ hash >> 15;
}

// The header of libudev's messages. The monitor checks all fields.
struct Header
{
    char prefix[8] = "libudev";
    quint32 magic = qToBigEndian(0xfeedcafeU);
    quint32 headerSize = sizeof(Header);
    quint32 propertiesOffset = sizeof(Header);
    quint32 propertiesSize = 0;
    quint32 subsystemHash = 0;
    quint32 typeHash = 0;
    quint32 tags[2] = {0, 0};
};
static_assert(sizeof(Header) == 40);

// Sends a message to the socket with this file name. Returns 0 or the error.
int sendTo(const QByteArray &socketName, const QByteArray &message)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socketName.constData(), sizeof address.sun_path - 1);
    const int sender = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const bool ok = ::connect(sender, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0
        && ::send(sender, message.constData(), static_cast<size_t>(message.size()), 0) == message.size();
    const int error = ok ? 0 : errno;
    ::close(sender);
    return error;
}

} // namespace

EventSender::EventSender(const QByteArray &folder)
    : m_folder(folder)
{
    m_retry.setTimerType(Qt::PreciseTimer);
    QObject::connect(&m_retry, &QTimer::timeout, [this] { flush(); });
}

void EventSender::send(const QByteArray &action, const QByteArray &path, const QByteArray &subsystem,
                       const QByteArray &type, const QByteArray &properties)
{
    const char end = '\0';
    const QByteArray text = "ACTION=" + action + end + "DEVPATH=/devices/" + path + end + "SUBSYSTEM=" + subsystem + end
        + "SEQNUM=" + QByteArray::number(++m_number) + end + properties;
    Header header;
    header.propertiesSize = static_cast<quint32>(text.size());
    header.subsystemHash = qToBigEndian(filterHash(subsystem));
    header.typeHash = qToBigEndian(filterHash(type));
    const QByteArray message = QByteArray(reinterpret_cast<const char *>(&header), sizeof header) + text;
    const QStringList monitors = QDir(QFile::decodeName(m_folder)).entryList({QStringLiteral("event*")}, QDir::System);
    for (const QString &monitor : monitors) {
        QQueue<QByteArray> &waiting = m_waiting[m_folder + '/' + QFile::encodeName(monitor)];
        if (waiting.size() < mostWaiting)
            waiting.enqueue(message);
    }
    flush();
}

void EventSender::flush()
{
    for (auto it = m_waiting.begin(); it != m_waiting.end();) {
        int error = 0;
        while (!it->isEmpty() && (error = sendTo(it.key(), it->head())) == 0)
            it->dequeue();
        it = error == EAGAIN ? std::next(it) : m_waiting.erase(it); // EAGAIN: the socket is full
    }
    if (m_waiting.isEmpty())
        m_retry.stop();
    else
        m_retry.start(1);
}

} // namespace JwSimulator

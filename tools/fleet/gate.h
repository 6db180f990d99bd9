#pragma once

#include "packetcheck.h"

#include <QByteArray>
#include <QObject>
#include <QSocketNotifier>

#include <cstddef>
#include <memory>

struct mosquitto;

namespace JwFleet {

/**
 * Stands between a broker and libmosquitto. The gate takes the socket of libmosquitto, and gives libmosquitto one end
 * of a pair of sockets instead. So libmosquitto gets only packets that PacketCheck has checked.
 *
 * With TLS, the gate passes on one record of TLS at a time, and checks the text that OpenSSL finds in the record before
 * libmosquitto reads this text.
 */
class Gate : public QObject
{
    Q_OBJECT

public:
    /// `client` must have a socket. errorNumber() is not 0 if the gate can't be made.
    Gate(mosquitto *client, quint32 maxPacket);
    ~Gate() override;

    int errorNumber() const { return m_errorNumber; }
    /// Ends the connection. Call this after mosquitto_destroy(), whose last bytes are sent. Emits no signal any more.
    void close();

Q_SIGNALS:
    /// The attempt to connect ended. `error` is 0 if there is a connection.
    void opened(int error);
    /// libmosquitto can read something: call mosquitto_loop_read() until libmosquitto has read everything.
    void arrived();
    /// The broker sent something that libmosquitto must not get. close() must follow.
    void refused(JwFleet::PacketCheck::Result why);
    /// Reading from the network failed. close() must follow.
    void broken(int error);

private:
    void onWritable();
    void send();
    void receive();
    void passRecords();
    void pass(const char *bytes, std::size_t size);
    bool isAllowed(const char *bytes, int size);

    mosquitto *const m_client;
    PacketCheck m_check;
    int m_errorNumber = 0;
    int m_network = -1; // the connection to the broker
    int m_inner = -1; // our end of the pair
    bool m_isOpening = true;
    bool m_isClosed = false;
    QByteArray m_unsent; // what the network did not take yet
    QByteArray m_record; // with TLS: what came of the newest record
    std::unique_ptr<QSocketNotifier> m_readable; // of the network
    std::unique_ptr<QSocketNotifier> m_writable; // of the network
    std::unique_ptr<QSocketNotifier> m_written; // of our end of the pair
};

} // namespace JwFleet

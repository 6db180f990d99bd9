#pragma once

#include "discoveryplay.h"
#include "support/common/recordsink.h"
#include "virtualclock.h"

#include <device/initializer.h>
#include <simulator/testbed.h>

#include <QBuffer>
#include <QPointer>
#include <QSerialPort>
#include <QTimer>

#include <functional>
#include <memory>
#include <vector>

/// The simulated ports. All schedules use the same ports, because making a port takes much longer than a schedule.
class DiscoveryPorts
{
public:
    DiscoveryPorts();

    ~DiscoveryPorts();

    /// Plugs in the cables of the first `ports` ports and pulls all other cables. Afterwards no bytes are on any cable.
    void renew(int ports);
    void pull(int port);
    void plug(int port);
    /// Sends `bytes` from the board on the port, and waits until all bytes can be read from the port.
    void send(int port, const QByteArray &bytes);
    JwSimulator::Board *board(int port) const { return m_boards[port]; }

private:
    int unread(int port) const;

    JwSimulator::Testbed m_testbed;
    QList<JwSimulator::Board *> m_boards;
    // For each port one more descriptor, with which unread() counts the port's unread bytes.
    int m_descriptors[DiscoverySchedule::mostPorts];
};

/// Runs a schedule on the real Initializer with real QSerialPorts, in virtual time.
class DiscoverySubject : public DiscoveryPlay
{
public:
    DiscoverySubject(const DiscoverySchedule &schedule, DiscoveryPorts &ports, VirtualClock &clock);
    ~DiscoverySubject() override;

    /// Returns an entry for each Communicator, in the order of creation: the number of an earlier Communicator at the
    /// same address, or -1 if there was none.
    const QVector<int> &reused() const { return m_reused; }

protected:
    bool hasInitializer() const override { return m_initializer; }
    bool probe(const QList<JwDevice::Type> &types, int delay, const QVector<int> &ports) override;
    void send(int port, const QByteArray &bytes) override;
    void pull(int port) override;
    void plug(int port) override;
    void hold(int port, bool held) override;
    uint setMaxRetries(uint retries) override;
    void deleteInitializer() override;
    void deleteInitializerLater() override { m_initializer->deleteLater(); }
    bool wait(int milliseconds) override;
    QStringList states() const override;
    QByteArray takeReceived(int port) override;
    qint64 now() const override { return m_clock.now(); }
    bool isListening(int port) const override;

    bool isAlive(int handOver) const override { return at(handOver).comm; }
    bool readPayload(int handOver, QString &payload) override;
    void write(int handOver) override;
    void deleteNow(int handOver) override;
    void deleteLater(int handOver) override;
    void unbind(int handOver) override;
    void rebind(int handOver) override;

private:
    struct Probed
    {
        JwDevice::Communicator *comm; // only compared, never followed, because the Communicator may be deleted
        QPointer<QTimer> timer; // tells apart two Communicators that had the same address
        QString name;
        QPointer<QSerialPort> port;
        QPointer<JwDevice::Communicator> guard;
    };
    struct HandOver
    {
        QPointer<JwDevice::Communicator> comm;
        QPointer<QSerialPort> port;
        std::unique_ptr<QBuffer> otherDevice;
    };

    HandOver &at(int handOver) { return m_handOvers[static_cast<size_t>(handOver)]; }
    const HandOver &at(int handOver) const { return m_handOvers[static_cast<size_t>(handOver)]; }
    bool isListed(const Probed &probed) const;
    void onRecord(const LogRecord &record);
    void findProbed();
    void onDeviceInitialized(JwDevice::Type type, JwDevice::Communicator *comm);

    DiscoveryPorts &m_ports;
    VirtualClock &m_clock;
    QPointer<JwDevice::Initializer> m_initializer;
    std::vector<HandOver> m_handOvers;
    QVector<Probed> m_probed; // in the order in which the ports were opened
    QVector<int> m_reused;
    QByteArray m_received[DiscoverySchedule::portCount];
    QObject m_context;
    std::shared_ptr<spdlog::sinks::sink> m_sink;
};

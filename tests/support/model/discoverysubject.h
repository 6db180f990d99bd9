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

/// The simulated ports of all schedules: to make one takes much longer than to run a schedule.
class DiscoveryPorts
{
public:
    DiscoveryPorts();

    ~DiscoveryPorts();

    /// Plugs in the cables of so many ports, and pulls those of the others; nothing is under way on them.
    void renew(int ports);
    void pull(int port);
    void plug(int port);
    /// Lets the board on the port send, and waits until the kernel has the bytes ready for the host.
    void send(int port, const QByteArray &bytes);
    JwSimulator::Board *board(int port) const { return m_boards[port]; }

private:
    int unread(int port) const;

    JwSimulator::Testbed m_testbed;
    QList<JwSimulator::Board *> m_boards;
    int m_descriptors[DiscoverySchedule::mostPorts]; // of the host's ends, to look at what arrived
};

/// The real Initializer on real QSerialPorts in virtual time.
class DiscoverySubject : public DiscoveryPlay
{
public:
    DiscoverySubject(const DiscoverySchedule &schedule, DiscoveryPorts &ports, VirtualClock &clock);
    ~DiscoverySubject() override;

    /// For each Communicator made by probing, which earlier one had the same address; -1: none.
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
    class Sink;
    struct Probed
    {
        JwDevice::Communicator *comm; // compared only: it may be gone
        QPointer<QTimer> timer; // a new one may have the address of one that is gone, as its Communicator may
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
    void takeRecord(const LogRecord &record);
    void findProbed();
    void takeInitialized(JwDevice::Type type, JwDevice::Communicator *comm);

    DiscoveryPorts &m_ports;
    VirtualClock &m_clock;
    QPointer<JwDevice::Initializer> m_initializer;
    std::vector<HandOver> m_handOvers;
    QVector<Probed> m_probed; // in the order of opening
    QVector<int> m_reused;
    QByteArray m_received[DiscoverySchedule::portCount];
    QObject m_context;
    std::shared_ptr<spdlog::sinks::sink> m_sink;
};

#pragma once

#include "discoveryplay.h"

#include <QMap>

#include <deque>
#include <functional>
#include <memory>
#include <vector>

/// A short, second implementation of the discovery rules: ports, statuses, retries, signals and log lines. The model
/// shares no code with the library, so a fault in the library is not also in the model. Events in the model happen in
/// the order that VirtualClock describes.
class DiscoveryModel : public DiscoveryPlay
{
public:
    /// `reused` contains an entry for each Communicator, in the order of creation: the number of an earlier
    /// Communicator at the same address, or -1. The heap chooses the addresses, so the model can't compute them.
    DiscoveryModel(const DiscoverySchedule &schedule, const QVector<int> &reused);
    ~DiscoveryModel() override;

protected:
    bool hasInitializer() const override { return !m_gone; }
    bool probe(const QList<JwDevice::Type> &types, int delay, const QVector<int> &ports) override;
    void send(int port, const QByteArray &bytes) override;
    void pull(int port) override;
    void plug(int port) override;
    void hold(int port, bool held) override;
    uint setMaxRetries(uint retries) override;
    void deleteInitializer() override;
    void deleteInitializerLater() override;
    bool wait(int milliseconds) override;
    QStringList states() const override;
    QByteArray takeReceived(int port) override;
    qint64 now() const override { return m_now; }
    bool isListening(int port) const override;

    bool isAlive(int handOver) const override;
    bool readPayload(int handOver, QString &payload) override;
    void write(int handOver) override;
    void deleteNow(int handOver) override;
    void deleteLater(int handOver) override;
    void unbind(int handOver) override;
    void rebind(int handOver) override;

private:
    struct Line; // a board, its cable, and the bytes on the cable
    struct Comm;
    struct Reply
    {
        QString error;
        JwDevice::Type type = JwDevice::Unknown;
    };
    /// The objects that an event loop deletes when the current event has returned to it. Each nested event loop has its
    /// own Frame.
    struct Frame
    {
        std::vector<Comm *> comms;
        std::vector<Comm *> ports;
        bool deleteInitializer = false;
    };

    void log(int level, const QString &text);
    void secondStage();
    void startTimer(Comm *comm);
    void query(Comm *comm);
    void writePayload(Comm *comm, const QByteArray &payload);
    void settle();
    void handle(const std::function<void()> &event);
    void deliver(Comm *port);
    void readDevice(Comm *comm);
    static QByteArray::size_type nextLine(const QByteArray &received);
    QByteArray cut();
    void keep(Comm *comm, const QByteArray &payload);
    bool takeLowest(Comm *comm, QString &payload);
    static Reply parse(const QString &payload);
    void boardReadyRead(Comm *comm);
    void readTimeout(Comm *comm);
    void setStatus(Comm *comm, JwDevice::Type type);
    bool isHeld(JwDevice::Type type) const;
    void decideIfComplete();
    void decide();
    void retry();
    void closePort(Comm *comm);

    std::vector<Line> m_lines;
    std::vector<std::unique_ptr<Comm>> m_comms; // in the order in which the ports were opened
    std::vector<Comm *> m_handOvers;
    std::deque<Frame> m_frames;
    const QVector<int> m_reused;
    QByteArray m_buffer; // the receive buffer, which all Communicators share
    QList<JwDevice::Type> m_types;
    QVector<QPair<int, QString>> m_candidates; // for each port to probe: index in m_lines (-1 if absent) and name
    qint64 m_now = 0;
    qint64 m_secondStageDue = -1;
    uint m_retries = 0;
    uint m_maxRetries = 3;
    bool m_listening = true;
    bool m_decided = false; // the signals of the last decision are being emitted
    bool m_decisionPosted = false;
    bool m_goesLater = false;
    bool m_gone = false;
};

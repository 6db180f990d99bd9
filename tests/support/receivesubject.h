#pragma once

#include "communicatorwatch.h"
#include "receivestream.h"

#include <memory>
#include <vector>

// What a store holds can be seen from outside only by emptying it. Streams are compared after every step, so they look
// inside: an explicit instantiation may name a private member.
template <QHash<uint, QString> JwDevice::Communicator::*member>
struct StoreAccess
{
    friend const QHash<uint, QString> &storeOf(const JwDevice::Communicator &communicator)
    {
        return communicator.*member;
    }
};
template struct StoreAccess<&JwDevice::Communicator::m_payloads>;
const QHash<uint, QString> &storeOf(const JwDevice::Communicator &communicator);

/// Real Communicators on scripted devices. One at a time, since it takes over the log and the shared receive buffer.
class ReceiveSubject : public ReceiveLines
{
public:
    explicit ReceiveSubject(int lines, Logger::Level level = Logger::Trace)
        : m_log(level)
    {
        drainReceiveBuffer();
        m_log.sink->records.clear();
        for (int line = 0; line < lines; ++line)
            addLine(line);
    }

    void queue(int line, const ReceiveRead &read) override
    {
        if (read.bytes.isEmpty())
            at(line).device.queueReadResult(read.result);
        else
            at(line).device.queueRead(read.bytes);
    }
    void announce(int line) override { at(line).device.announce(); }
    void setOpen(int line, bool open) override
    {
        ScriptedDevice &device = at(line).device;
        if (device.isOpen() && !open)
            device.close();
        else if (!device.isOpen() && open)
            device.open(QIODevice::ReadWrite | QIODevice::Unbuffered);
    }
    bool take(int line, uint id, QString &payload) override { return at(line).communicator.readPayload(payload, id); }

    QMap<uint, QString> store(int line) const override
    {
        const QHash<uint, QString> &payloads = storeOf(m_lines[static_cast<size_t>(line)]->communicator);
        QMap<uint, QString> sorted;
        for (auto payload = payloads.cbegin(); payload != payloads.cend(); ++payload)
            sorted.insert(payload.key(), *payload);
        return sorted;
    }

    QStringList takeLogLines() override { return takeLog(m_log); }

private:
    struct Line
    {
        ScriptedDevice device;
        JwDevice::Communicator communicator;
    };

    Line &at(int line) { return *m_lines[static_cast<size_t>(line)]; }

    void addLine(int number)
    {
        using JwDevice::Communicator;
        m_lines.push_back(std::make_unique<Line>());
        Communicator &communicator = at(number).communicator;
        communicator.setIODevice(&at(number).device);
        QObject::connect(&communicator, qOverload<uint>(&Communicator::readyRead),
                         [this, number](uint id) { payloadReceived(number, id); });
        QObject::connect(&communicator, qOverload<>(&Communicator::readyRead),
                         [this, number] { anythingReceived(number); });
    }

    LogCapture m_log;
    std::vector<std::unique_ptr<Line>> m_lines;
};

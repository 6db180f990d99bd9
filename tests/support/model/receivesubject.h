#pragma once

#include "support/device/buffereddevice.h"
#include "support/device/communicatorwatch.h"
#include "receivestream.h"

#include <device/wholelines.h>

#include <algorithm>
#include <memory>
#include <vector>

// After every step, the trace (the record of a run) shows the payloads that each Communicator stores. The public
// functions that read a payload also remove it, so the trace reads the private member. In C++, an explicit template
// instantiation may name a private member.
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

/// Real Communicators on the devices of a ReceiveStream. Only one ReceiveSubject may exist at a time, because all
/// Communicators share the log and the receive buffer.
class ReceiveSubject : public ReceiveLines
{
public:
    explicit ReceiveSubject(const QVector<ReceiveDevice> &devices, Logger::Level level = Logger::Trace)
        : m_log(level)
    {
        drainReceiveBuffer();
        m_log.sink->records.clear();
        for (int line = 0; line < devices.size(); ++line)
            addLine(line, devices[line]);
    }

    void queue(int line, const ReceiveRead &read) override
    {
        if (at(line).wholeLines)
            at(line).wholeLines->arrive(read.bytes);
        else if (read.bytes.isEmpty())
            at(line).plain->queueReadResult(read.result);
        else
            at(line).plain->queueRead(read.bytes);
    }
    void announce(int line) override
    {
        if (at(line).wholeLines)
            at(line).wholeLines->announce();
        else
            at(line).plain->announce();
    }
    void setOpen(int line, bool open) override
    {
        QIODevice *const device = at(line).communicator.device();
        if (device->isOpen() && !open)
            device->close();
        else if (!device->isOpen() && open)
            device->open(at(line).wholeLines ? QIODevice::ReadWrite : QIODevice::ReadWrite | QIODevice::Unbuffered);
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

    void setWholeLines(int line, bool wholeLines) override { at(line).wholeLines->setWholeLines(wholeLines); }
    QByteArray read(int line, ReceiveStep::Action how, int size) override
    {
        QIODevice *const device = at(line).wholeLines.get();
        if (!device->isOpen())
            return QByteArray();
        switch (how) {
        case ReceiveStep::ReadAll:
            return device->readAll();
        case ReceiveStep::ReadLine: {
            QByteArray bytes(size + 1, '\0'); // one byte more, because readLine() adds a NUL byte
            bytes.truncate(static_cast<int>(std::max<qint64>(0, device->readLine(bytes.data(), bytes.size()))));
            return bytes;
        }
        case ReceiveStep::Peek:
            return device->peek(size);
        default:
            return device->read(size);
        }
    }
    qint64 bytesAvailable(int line) const override
    {
        return m_lines[static_cast<size_t>(line)]->communicator.device()->bytesAvailable();
    }
    qint64 bytesReceived(int line) const override
    {
        return m_lines[static_cast<size_t>(line)]->wholeLines->bytesReceived();
    }

    QStringList takeLogLines() override { return takeLog(m_log); }

private:
    struct Line
    {
        std::unique_ptr<ScriptedDevice> plain;
        std::unique_ptr<JwDevice::WholeLines<BufferedDevice>> wholeLines;
        JwDevice::Communicator communicator;
    };

    Line &at(int line) { return *m_lines[static_cast<size_t>(line)]; }

    void addLine(int number, ReceiveDevice device)
    {
        using JwDevice::Communicator;
        m_lines.push_back(std::make_unique<Line>());
        Communicator &communicator = at(number).communicator;
        if (device == ReceiveDevice::Plain) {
            at(number).plain = std::make_unique<ScriptedDevice>();
            communicator.setIODevice(at(number).plain.get());
        } else {
            at(number).wholeLines = std::make_unique<JwDevice::WholeLines<BufferedDevice>>();
            communicator.setIODevice(at(number).wholeLines.get());
        }
        QObject::connect(&communicator, qOverload<uint>(&Communicator::readyRead),
                         [this, number](uint id) { payloadReceived(number, id); });
        QObject::connect(&communicator, qOverload<>(&Communicator::readyRead),
                         [this, number] { anythingReceived(number); });
    }

    LogCapture m_log;
    std::vector<std::unique_ptr<Line>> m_lines;
};

#pragma once

#include "receivestream.h"

#include <logger/logger.h>

#include <algorithm>
#include <deque>
#include <string>
#include <vector>

/// A short, second implementation of the receiving part of Communicators. The model shares no code with the library, so
/// a fault in the library is not also in the model. A std::string is the receive buffer of all Communicators.
class ReceiveModel : public ReceiveLines
{
public:
    explicit ReceiveModel(const QVector<ReceiveDevice> &devices, Logger::Level level = Logger::Trace)
        : m_level(level)
        , m_lines(static_cast<size_t>(devices.size()))
    {
        for (int line = 0; line < devices.size(); ++line)
            at(line).device = devices[line];
    }

    void queue(int line, const ReceiveRead &read) override
    {
        if (at(line).device == ReceiveDevice::Plain)
            at(line).reads.push_back(read);
        else
            at(line).received += read.bytes.toStdString();
    }

    void announce(int line) override
    {
        log(Logger::Trace, "", QStringLiteral("IO Data Ready"));
        if (at(line).device == ReceiveDevice::Plain)
            readPlainDevice(line);
        else
            readWholeLines(line);
    }

    void setOpen(int line, bool open) override
    {
        at(line).open = open;
        if (!open)
            at(line).received.clear();
    }

    bool take(int line, uint id, QString &payload) override
    {
        QMap<uint, QString> &store = at(line).store;
        if (store.isEmpty()) {
            log(Logger::Trace, "", QStringLiteral("Rx buffer is empty"));
            return false;
        }
        if (id == 0)
            id = store.firstKey();
        if (!store.contains(id)) {
            log(Logger::Warning, "", QStringLiteral("Requested payload not found"));
            return false;
        }
        payload = store.take(id);
        return true;
    }

    QMap<uint, QString> store(int line) const override { return m_lines[static_cast<size_t>(line)].store; }

    void setWholeLines(int line, bool wholeLines) override { at(line).wholeLines = wholeLines; }

    QByteArray read(int line, ReceiveStep::Action how, int size) override
    {
        std::string &received = at(line).received;
        size_t count = how == ReceiveStep::ReadAll ? received.size() : static_cast<size_t>(size);
        if (how == ReceiveStep::ReadLine)
            count = std::min(count, endOfLine(received));
        const QByteArray bytes = QByteArray::fromStdString(received.substr(0, count));
        if (how != ReceiveStep::Peek)
            received.erase(0, static_cast<size_t>(bytes.size()));
        return bytes;
    }

    /// Returns the number of bytes that the device offers: those up to the last CR LF. If the device holds nothing
    /// back, or if too many bytes follow this CR LF, it offers all bytes.
    qint64 bytesAvailable(int line) const override
    {
        const Line &device = m_lines[static_cast<size_t>(line)];
        const size_t lastEnd = device.received.rfind("\r\n");
        const size_t whole = lastEnd == std::string::npos ? 0 : lastEnd + 2;
        const bool holdsBack = device.wholeLines && device.received.size() - whole < tooMuchUnfinished;
        return static_cast<qint64>(holdsBack ? whole : device.received.size());
    }

    qint64 bytesReceived(int line) const override
    {
        return static_cast<qint64>(m_lines[static_cast<size_t>(line)].received.size());
    }

    QStringList takeLogLines() override
    {
        QStringList taken;
        taken.swap(m_log);
        return taken;
    }

    /// Returns the number of bytes in the shared buffer. The test that makes random streams uses this number to reach
    /// the buffer's limit.
    int buffered() const { return static_cast<int>(m_buffer.size()); }

private:
    static constexpr int readSize = 100;
    static constexpr size_t longestBuffer = 500;
    static constexpr size_t truncatedBy = 450;
    static constexpr size_t tooMuchUnfinished = 512;
    static constexpr int storeLimit = 5;

    struct Line
    {
        ReceiveDevice device = ReceiveDevice::Plain;
        std::deque<ReceiveRead> reads; // queued reads of a plain device
        std::string received; // unread bytes of a WholeLines device
        bool wholeLines = true;
        QMap<uint, QString> store;
        uint lastId = 1;
        bool open = true;
    };

    Line &at(int line) { return m_lines[static_cast<size_t>(line)]; }

    /// Returns the number of bytes up to and including the first line feed, where readLine() stops. If there is no line
    /// feed, returns the largest size_t.
    static size_t endOfLine(const std::string &bytes)
    {
        const size_t lineFeed = bytes.find('\n');
        return lineFeed == std::string::npos ? lineFeed : lineFeed + 1;
    }

    /// Returns how many bytes the device offers next: the bytes up to the next CR LF, if it begins within the first
    /// `tooMuchUnfinished` bytes. Otherwise returns 0 while the device holds its bytes back, and else the number of all
    /// bytes, but at most `tooMuchUnfinished`.
    static size_t nextLine(const Line &device)
    {
        const size_t lineEnd = device.received.find("\r\n");
        if (lineEnd < tooMuchUnfinished)
            return lineEnd + 2;
        const bool isHeld = device.wholeLines && device.received.size() < tooMuchUnfinished;
        return isHeld ? 0 : std::min<size_t>(device.received.size(), tooMuchUnfinished);
    }

    void readPlainDevice(int line)
    {
        while (!at(line).reads.empty()) {
            std::string chunk;
            if (readDevice(line, chunk) >= 1)
                append(chunk);
            cutAndKeep(line);
            if (!at(line).open)
                return;
        }
    }

    /// Reads from the device, up to one CR LF at a time. Asks nextLine() again after each CR LF. Also asks again after
    /// each payload, because a slot that gets the payload may read from the device or call setWholeLines().
    void readWholeLines(int line)
    {
        size_t offered = 0;
        while (at(line).open) {
            if (offered == 0)
                offered = nextLine(at(line));
            if (offered == 0)
                return;
            std::string &received = at(line).received;
            const std::string chunk = received.substr(0, std::min<size_t>(readSize, offered));
            received.erase(0, chunk.size());
            append(chunk);
            offered = cutAndKeep(line) ? 0 : offered - chunk.size();
        }
    }

    bool cutAndKeep(int line)
    {
        bool kept = false;
        for (std::string payload = cut(); !payload.empty(); payload = cut()) {
            keep(line, payload);
            kept = true;
        }
        return kept;
    }

    int readDevice(int line, std::string &chunk)
    {
        std::deque<ReceiveRead> &reads = at(line).reads;
        ReceiveRead &read = reads.front();
        if (read.bytes.isEmpty()) {
            const int result = read.result;
            reads.pop_front();
            return result;
        }
        chunk = read.bytes.left(readSize).toStdString();
        read.bytes.remove(0, readSize);
        if (read.bytes.isEmpty())
            reads.pop_front();
        return static_cast<int>(chunk.size());
    }

    void append(std::string chunk)
    {
        chunk.resize(std::min(chunk.find('\0'), chunk.size()));
        m_buffer += chunk;
        if (m_buffer.size() > longestBuffer) {
            log(Logger::Warning, "", QStringLiteral("Payload input buffer too large - truncating ..."));
            m_buffer.erase(0, truncatedBy);
        }
        logTraffic("RawCommunication", chunk);
    }

    std::string cut()
    {
        const size_t start = m_buffer.find_first_of("$!");
        const size_t lineEnd = start == std::string::npos ? start : m_buffer.find("\r\n", start);
        if (lineEnd == std::string::npos)
            return std::string();
        std::string payload = m_buffer.substr(start, lineEnd + 2 - start);
        m_buffer.erase(0, lineEnd + 2);
        const size_t lastDollar = payload.rfind('$');
        if (lastDollar != std::string::npos)
            payload.erase(0, lastDollar);
        return payload;
    }

    void keep(int line, const std::string &payload)
    {
        const uint id = ++at(line).lastId;
        QMap<uint, QString> &store = at(line).store;
        if (store.size() > storeLimit)
            store.erase(store.begin());
        store[id] = QString::fromLatin1(payload.data(), static_cast<int>(payload.size()));
        logTraffic("Communication", payload);
        payloadReceived(line, id);
        anythingReceived(line);
    }

    void logTraffic(const char *category, const std::string &bytes)
    {
        if (m_level > Logger::Trace)
            return;
        QString text;
        QDebug(&text) << " <- " << QString::fromLatin1(bytes.data(), static_cast<int>(bytes.size())).trimmed();
        text.chop(1); // removes the blank that QDebug adds at the end
        log(Logger::Trace, category, text);
    }

    void log(Logger::Level level, const char *category, const QString &text)
    {
        if (level >= m_level) {
            m_log += QStringLiteral("%1 [%2] communicator.cpp %3")
                         .arg(QString::number(level), QString::fromLatin1(category), text);
        }
    }

    const Logger::Level m_level;
    std::vector<Line> m_lines;
    std::string m_buffer;
    QStringList m_log;
};

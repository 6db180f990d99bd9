#pragma once

#include <QByteArray>
#include <QIODevice>
#include <QList>

#include <cstring>
#include <functional>

/// A sequential device. The test sets the result of every read and write, and the actions inside these calls.
class ScriptedDevice : public QIODevice
{
    Q_OBJECT

public:
    explicit ScriptedDevice(QObject *parent = nullptr)
        : QIODevice(parent)
    {
        open(ReadWrite | Unbuffered);
    }

    /// Queues `bytes` for the next read. If the read asks for fewer bytes, later reads return the rest.
    void queueRead(const QByteArray &bytes) { m_reads.append({bytes, bytes.size()}); }
    /// Queues a read without bytes. That read returns `result`, which is 0 or -1.
    void queueReadResult(qint64 result) { m_reads.append({QByteArray(), result}); }
    /// Emits readyRead() for the queued reads.
    void announce() { Q_EMIT readyRead(); }
    void deliver(const QByteArray &bytes)
    {
        queueRead(bytes);
        announce();
    }

    /// Queues the result of the next write. Without a queued result, a write accepts all bytes.
    void queueWriteResult(qint64 result) { m_writeResults.append(result); }
    void reportWritten(qint64 bytes) { Q_EMIT bytesWritten(bytes); }

    int connectionsOf(const char *signal) const { return receivers(signal); }

    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override
    {
        qint64 bytes = 0;
        for (const Read &read : m_reads)
            bytes += qMax<qint64>(1, read.bytes.size()); // 1 for a read without bytes, so that the caller tries to read
        return bytes;
    }

    QList<QByteArray> written;
    QList<qint64> requestedReads;
    std::function<void()> insideRead;
    std::function<void()> insideWrite;

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        requestedReads.append(maxSize);
        if (m_reads.isEmpty())
            return 0;
        Read read = m_reads.takeFirst();
        qint64 count = read.result;
        if (!read.bytes.isEmpty()) {
            count = qMin<qint64>(maxSize, read.bytes.size());
            std::memcpy(data, read.bytes.constData(), static_cast<size_t>(count));
            const QByteArray rest = read.bytes.mid(static_cast<int>(count));
            if (!rest.isEmpty())
                m_reads.prepend({rest, rest.size()});
        }
        if (insideRead)
            insideRead();
        return count;
    }

    qint64 writeData(const char *data, qint64 size) override
    {
        written.append(QByteArray(data, static_cast<int>(size)));
        if (insideWrite)
            insideWrite();
        return m_writeResults.isEmpty() ? size : m_writeResults.takeFirst();
    }

private:
    struct Read
    {
        QByteArray bytes;
        qint64 result;
    };
    QList<Read> m_reads;
    QList<qint64> m_writeResults;
};

#pragma once

#include <QIODevice>

#include <algorithm>
#include <cstring>

/// A fast sequential device: a read only copies the bytes. The device offers the bytes from feed() and accepts all
/// writes.
class StreamDevice : public QIODevice
{
public:
    StreamDevice() { open(ReadWrite | Unbuffered); }

    /// Offers the `size` bytes at `data`. The bytes must stay valid until they are read.
    void feed(const char *data, qint64 size)
    {
        m_data = data;
        m_size = size;
        Q_EMIT readyRead();
    }
    void reportWritten(qint64 bytes) { Q_EMIT bytesWritten(bytes); }

    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override { return m_size; }

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        const qint64 count = std::min(maxSize, m_size);
        std::memcpy(data, m_data, static_cast<std::size_t>(count));
        m_data += count;
        m_size -= count;
        return count;
    }
    qint64 writeData(const char *, qint64 size) override { return size; }

private:
    const char *m_data = nullptr;
    qint64 m_size = 0;
};

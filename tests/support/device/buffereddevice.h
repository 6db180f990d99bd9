#pragma once

#include <QByteArray>
#include <QIODevice>

#include <algorithm>

/// A sequential device that uses QIODevice's buffer, like a port or socket. The bytes stay in the buffer until they are
/// read or the device closes.
class BufferedDevice : public QIODevice
{
public:
    BufferedDevice() { open(ReadWrite); }

    void arrive(const QByteArray &bytes) { m_arrived += bytes; }
    void announce() { Q_EMIT readyRead(); }

    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override { return m_arrived.size() + QIODevice::bytesAvailable(); }
    void close() override
    {
        m_arrived.clear();
        QIODevice::close();
    }

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        const qint64 count = std::min<qint64>(maxSize, m_arrived.size());
        std::copy_n(m_arrived.constData(), count, data);
        m_arrived.remove(0, static_cast<int>(count));
        return count;
    }
    qint64 writeData(const char *, qint64 size) override { return size; }

private:
    QByteArray m_arrived; // bytes that are not in QIODevice's buffer yet
};

#pragma once

#include <device/jwdevice_export.h>

#include <QByteArray>
#include <QIODevice>

#include <algorithm>
#include <utility>

namespace JwDevice {

/// The interface with which a Communicator reads from a WholeLines device. Such a device holds the bytes of an
/// unfinished line back: its bytesAvailable() does not count these bytes until the line end arrives.
class JWDEVICE_EXPORT WholeLinesBase
{
public:
    /// A line with this many bytes and without a line end is no longer held back. A Communicator accepts at most 500
    /// characters as one payload, so every payload still arrives whole.
    static constexpr int longestHeld = 512;

    virtual ~WholeLinesBase();

    /// Returns whether bytesAvailable() leaves out the bytes after the last line end. True by default.
    bool wholeLines() const { return m_wholeLines; }
    /// Sets whether bytesAvailable() leaves out the bytes after the last line end. You may call this function at any
    /// time: no byte is lost, and no signal is emitted.
    void setWholeLines(bool wholeLines) { m_wholeLines = wholeLines; }

    /// Returns the number of all bytes that can be read, including bytes that are held back.
    virtual qint64 bytesReceived() const = 0;
    /// Returns the number of bytes up to and including the next line end, if it begins within the first 512 bytes. If
    /// there is no line end in these bytes, returns 0 while bytes are held back, otherwise the number of received
    /// bytes, at most 512. So a longer line is offered in parts.
    virtual qint64 nextLine() const = 0;

protected:
    /// Returns how many of `bytes` count as available. `bytes` must be all received bytes. An unfinished line is held
    /// back if it is shorter than `longest`.
    static qint64 bytesOfWholeLines(const char *bytes, qint64 size, qint64 longest);
    /// Computes the result of nextLine() from `bytes`. `bytes` must be the first 513 received bytes, or all of them if
    /// there are fewer.
    qint64 nextLine(const char *bytes, qint64 size, qint64 longest) const;

private:
    bool m_wholeLines = true;
};

} // namespace JwDevice

Q_DECLARE_INTERFACE(JwDevice::WholeLinesBase, "JwDevice.WholeLinesBase")

namespace JwDevice {

/**
 * A device that offers whole lines only: bytesAvailable() counts only the bytes up to the last line end. A line end is
 * a carriage return and a line feed. The base class `Device` is a buffered sequential QIODevice, for example
 * QSerialPort, QTcpSocket or QLocalSocket.
 *
 * \code
 * auto *socket = new JwDevice::WholeLines<QTcpSocket>(this);
 * socket->connectToHost(host, port);
 * communicator->setIODevice(socket);
 * \endcode
 *
 * All Communicators share one receive buffer. If sentences arrive in pieces on two devices at the same time, the pieces
 * mix in that buffer. A device of this class offers whole lines only, so the pieces don't mix. An Initializer opens its
 * ports as `WholeLines<QSerialPort>`.
 *
 * Only bytesAvailable() differs from `Device`. `read`, `readAll`, `peek`, `readLine`, `waitForReadyRead` and `atEnd`
 * work as in `Device` and include the bytes that are held back. If your application uses a binary protocol, call
 * setWholeLines(false); then bytesAvailable() counts every byte too.
 *
 * A line without a line end is not held back for ever. It counts as available when 512 bytes of it have arrived, or
 * when the device's read buffer is smaller and full. Closing the device drops all unread bytes, also bytes that are
 * held back.
 *
 * The class adds no signal and no property. It has the meta-object of `Device`, so metaObject()->className() returns
 * the name of `Device`.
 */
template <typename Device>
class WholeLines : public Device, public WholeLinesBase
{
public:
    /// Passes its arguments to a constructor of `Device`.
    template <typename... Arguments>
    explicit WholeLines(Arguments &&...arguments)
        : Device(std::forward<Arguments>(arguments)...)
    {
    }

    /// Returns the number of bytes up to and including the last line end. After setWholeLines(false), returns the
    /// number of all bytes.
    qint64 bytesAvailable() const override
    {
        const qint64 received = bytesReceived();
        if (received == 0 || !wholeLines())
            return received;
        // peek() is not const, but it changes nothing that a caller can see. So the cast is safe.
        auto *const device = const_cast<WholeLines *>(this);
        if (received > longestHeld) {
            const QByteArray bytes = device->peek(received);
            return bytesOfWholeLines(bytes.constData(), bytes.size(), longest());
        }
        char bytes[longestHeld];
        return bytesOfWholeLines(bytes, device->peek(bytes, received), longest());
    }

    /// Returns false while any byte can be read, even if the byte is held back.
    bool atEnd() const override { return bytesReceived() == 0 && Device::atEnd(); }

    qint64 bytesReceived() const override { return Device::bytesAvailable(); }
    qint64 nextLine() const override
    {
        char bytes[longestHeld + 1]; // one more byte, because a line end has two bytes and may begin at the 512th byte
        const qint64 size = std::min<qint64>(sizeof bytes, bytesReceived());
        if (size == 0)
            return 0;
        auto *const device = const_cast<WholeLines *>(this);
        const qint64 line = WholeLinesBase::nextLine(bytes, device->peek(bytes, size), longest());
        // If the read buffer was full, the device stopped reading. The device continues when somebody asks for more
        // bytes than it has received, so this peek asks for one more byte.
        if (line == 0 && bufferLimit(*this, 0) > 0)
            device->peek(bytesReceived() + 1);
        return line;
    }

    /// Makes qobject_cast<WholeLinesBase *>() work for this class, which has no Q_OBJECT.
    void *qt_metacast(const char *name) override
    {
        return qstrcmp(name, qobject_interface_iid<WholeLinesBase *>()) == 0 ? static_cast<WholeLinesBase *>(this)
                                                                             : Device::qt_metacast(name);
    }

private:
    template <typename Any>
    static auto bufferLimit(const Any &device, int) -> decltype(device.readBufferSize())
    {
        return device.readBufferSize();
    }
    static qint64 bufferLimit(const QIODevice &, long) { return 0; }

    /// Returns the length from which on an unfinished line is no longer held back: 512, or the size of the read buffer
    /// if that is smaller.
    qint64 longest() const
    {
        const qint64 limit = bufferLimit(*this, 0);
        return limit > 0 ? std::min<qint64>(limit, longestHeld) : longestHeld;
    }
};

} // namespace JwDevice

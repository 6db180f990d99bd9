#pragma once

#include <device/jwdevice_export.h>

#include <QByteArray>
#include <QIODevice>

#include <algorithm>
#include <utility>

namespace JwDevice {

/// The interface through which a Communicator reads a WholeLines device.
class JWDEVICE_EXPORT WholeLinesBase
{
public:
    /// A line of this many bytes without a line end is no longer held back. This is more than a Communicator can
    /// receive as one payload (500 characters), so every payload comes whole.
    static constexpr int longestHeld = 512;

    virtual ~WholeLinesBase();

    /// Whether bytes after the last line end are held back; true at first.
    bool wholeLines() const { return m_wholeLines; }
    /// Switches the holding back on or off, at any time. No byte is lost, and no signal is emitted.
    void setWholeLines(bool wholeLines) { m_wholeLines = wholeLines; }

    /// All bytes that can be read, also those that are held back.
    virtual qint64 bytesReceived() const = 0;
    /// The number of bytes through the next line end; 0 if no line end has arrived. Never more than 512: a longer line
    /// comes in parts, and so do all bytes if wholeLines() is false.
    virtual qint64 nextLine() const = 0;

protected:
    /// How many of `bytes` count as available. `bytes` are all that were received. An unfinished line is held back if
    /// it is shorter than `longest`.
    static qint64 bytesOfWholeLines(const char *bytes, qint64 size, qint64 longest);
    /// nextLine() for `bytes`: the first 513 bytes that were received, or all of them.
    qint64 nextLine(const char *bytes, qint64 size, qint64 longest) const;

private:
    bool m_wholeLines = true;
};

} // namespace JwDevice

Q_DECLARE_INTERFACE(JwDevice::WholeLinesBase, "JwDevice.WholeLinesBase")

namespace JwDevice {

/**
 * A `Device` whose bytesAvailable() counts only bytes up to the last line end. `Device` is a buffered sequential
 * QIODevice, for example QSerialPort, QTcpSocket or QLocalSocket. A line end is a carriage return and a line feed, as
 * in NMEA 0183.
 *
 * \code
 * auto *socket = new JwDevice::WholeLines<QTcpSocket>(this);
 * socket->connectToHost(host, port);
 * communicator->setIODevice(socket);
 * \endcode
 *
 * All Communicators share one receive buffer. If sentences arrive in pieces on two devices at the same time, the pieces
 * mix in that buffer. From a device of this class a Communicator takes whole lines only, so nothing mixes. An
 * Initializer opens its ports as `WholeLines<QSerialPort>`.
 *
 * Only bytesAvailable() changes. `read`, `readAll`, `peek`, `readLine`, `waitForReadyRead` and `atEnd` work as in
 * `Device` and give every byte. An application with a binary protocol calls setWholeLines(false); then bytesAvailable()
 * counts every byte too.
 *
 * A line without an end is not held back for ever: when 512 bytes of it have arrived (fewer if the device's read buffer
 * is smaller), they count as available. Closing the device drops bytes that were held back, as it drops all unread
 * bytes.
 *
 * The class adds no signal and no property; class name and meta-object are those of `Device`.
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

    /// The number of bytes up to the last line end received; of all bytes after setWholeLines(false).
    qint64 bytesAvailable() const override
    {
        const qint64 received = bytesReceived();
        if (received == 0 || !wholeLines())
            return received;
        // peek() is not const, but it changes nothing that a caller can see.
        auto *const device = const_cast<WholeLines *>(this);
        if (received > longestHeld) {
            const QByteArray bytes = device->peek(received);
            return bytesOfWholeLines(bytes.constData(), bytes.size(), longest());
        }
        char bytes[longestHeld];
        return bytesOfWholeLines(bytes, device->peek(bytes, received), longest());
    }

    /// False while any byte can be read, also a byte that is held back.
    bool atEnd() const override { return bytesReceived() == 0 && Device::atEnd(); }

    qint64 bytesReceived() const override { return Device::bytesAvailable(); }
    qint64 nextLine() const override
    {
        char bytes[longestHeld + 1]; // one more byte, so that a line end is not cut in two
        const qint64 size = std::min<qint64>(sizeof bytes, bytesReceived());
        if (size == 0)
            return 0;
        auto *const device = const_cast<WholeLines *>(this);
        const qint64 line = WholeLinesBase::nextLine(bytes, device->peek(bytes, size), longest());
        // A device whose read buffer was full continues only after a read of more than it holds.
        if (line == 0 && bufferLimit(*this, 0) > 0)
            device->peek(bytesReceived() + 1);
        return line;
    }

    /// Lets qobject_cast<WholeLinesBase *>() find this, without RTTI.
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

    /// An unfinished line of this many bytes is no longer held back: 512, or the size of a smaller read buffer.
    qint64 longest() const
    {
        const qint64 limit = bufferLimit(*this, 0);
        return limit > 0 ? std::min<qint64>(limit, longestHeld) : longestHeld;
    }
};

} // namespace JwDevice

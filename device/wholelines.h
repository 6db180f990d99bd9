#pragma once

#include <device/jwdevice_export.h>

#include <QByteArray>
#include <QIODevice>

#include <algorithm>
#include <utility>

namespace JwDevice {

/// The interface by which a Communicator reads a device that holds back unfinished lines: see WholeLines.
class JWDEVICE_EXPORT WholeLinesBase
{
public:
    /// An unfinished line of this many bytes is no longer held back. Longer than any payload that a Communicator can
    /// receive (500 characters), so each of those comes whole.
    static constexpr int longestHeld = 512;

    virtual ~WholeLinesBase();

    /// Whether an unfinished line is held back; true at first.
    bool wholeLines() const { return m_wholeLines; }
    /// Switches this on or off, at any time. No byte is lost, and no signal is emitted.
    void setWholeLines(bool wholeLines) { m_wholeLines = wholeLines; }

    /// All bytes that can be read, those of an unfinished line included.
    virtual qint64 bytesReceived() const = 0;
    /// The bytes through the next line end; 0 if that has not arrived. At most 512 of a longer line, and without
    /// wholeLines().
    virtual qint64 nextLine() const = 0;

protected:
    /// How many of `bytes`, which are all that were received, belong to whole lines. Of an unfinished line less than
    /// `longest` bytes are held back.
    static qint64 bytesOfWholeLines(const char *bytes, qint64 size, qint64 longest);
    /// nextLine() of `bytes`, which are the first that were received: 513 of them, or all.
    qint64 nextLine(const char *bytes, qint64 size, qint64 longest) const;

private:
    bool m_wholeLines = true;
};

} // namespace JwDevice

Q_DECLARE_INTERFACE(JwDevice::WholeLinesBase, "JwDevice.WholeLinesBase")

namespace JwDevice {

/**
 * A `Device` that counts as available only the bytes up to the last line end that it received. `Device` is a buffered
 * sequential QIODevice, for example QSerialPort, QTcpSocket or QLocalSocket. A line end is a carriage return and a line
 * feed, as NMEA 0183 has it.
 *
 * \code
 * auto *socket = new JwDevice::WholeLines<QTcpSocket>(this);
 * socket->connectToHost(host, port);
 * communicator->setIODevice(socket);
 * \endcode
 *
 * All Communicators share one receive buffer. Two of them whose sentences arrive in pieces, at the same time, mix these
 * pieces there. On a device of this class a Communicator takes only whole lines, so nothing mixes. An Initializer opens
 * its ports as `WholeLines<QSerialPort>`.
 *
 * Only bytesAvailable() changes: `read`, `readAll`, `peek`, `readLine`, `waitForReadyRead` and `atEnd` work as those
 * of `Device`, and give every byte. An application that speaks a binary protocol calls setWholeLines(false) to make
 * bytesAvailable() count every byte too.
 *
 * A line that does not end is bounded: when 512 bytes of it have arrived (fewer if the device's read buffer is
 * smaller), they count as available too. What is held back when the device closes is lost with it, as is everything
 * else that was not read.
 *
 * There is no signal and no property here; class name and meta-object are those of `Device`.
 */
template <typename Device>
class WholeLines : public Device, public WholeLinesBase
{
public:
    /// Passes its arguments on to a constructor of `Device`.
    template <typename... Arguments>
    explicit WholeLines(Arguments &&...arguments)
        : Device(std::forward<Arguments>(arguments)...)
    {
    }

    /// The bytes up to the last line end received; all of them with setWholeLines(false).
    qint64 bytesAvailable() const override
    {
        const qint64 received = bytesReceived();
        if (received == 0 || !wholeLines())
            return received;
        // To peek leaves all bytes where they are, so this is const to whoever asks.
        auto *const device = const_cast<WholeLines *>(this);
        if (received > longestHeld) {
            const QByteArray bytes = device->peek(received);
            return bytesOfWholeLines(bytes.constData(), bytes.size(), longest());
        }
        char bytes[longestHeld];
        return bytesOfWholeLines(bytes, device->peek(bytes, received), longest());
    }

    /// False as long as a byte can be read, also one of an unfinished line.
    bool atEnd() const override { return bytesReceived() == 0 && Device::atEnd(); }

    qint64 bytesReceived() const override { return Device::bytesAvailable(); }
    qint64 nextLine() const override
    {
        char bytes[longestHeld + 1]; // one more, or a line end could be cut in two
        const qint64 size = std::min<qint64>(sizeof bytes, bytesReceived());
        if (size == 0)
            return 0;
        auto *const device = const_cast<WholeLines *>(this);
        const qint64 line = WholeLinesBase::nextLine(bytes, device->peek(bytes, size), longest());
        // A device whose read buffer was full reads on only when it is asked for more than it holds.
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

    /// An unfinished line of this size is no longer held back: 512 bytes, or the size of a smaller read buffer.
    qint64 longest() const
    {
        const qint64 limit = bufferLimit(*this, 0);
        return limit > 0 ? std::min<qint64>(limit, longestHeld) : longestHeld;
    }
};

} // namespace JwDevice

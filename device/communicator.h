#pragma once

#include <device/jwdevice_export.h>

#include <QHash>
#include <QList>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QVector>

class QIODevice;

namespace JwDevice {

class IPayloadParser;
class SessionAbstract;

/**
 * Sends and receives payloads over one QIODevice. A payload is one whole sentence as text. It begins with a start
 * character ("$" or "!") and ends with "\r\n".
 *
 * Every payload has an id. The ids of written payloads start at 1, the ids of received payloads at 2. After the id
 * 2^32 - 1, the next id is 0.
 *
 * Received bytes are read as Latin-1. A received payload begins at the last "$" before the line end, or at the first
 * "!" if there is no "$". Bytes before this start character are dropped. A Communicator reads parts of up to 100 bytes.
 * If a part contains a NUL byte, the NUL byte and the rest of this part are dropped. If more than 500 characters wait
 * for a line end, the oldest 450 are dropped, and a warning is written to the log.
 *
 * A receiver of a signal may write, read, bind another device, attach a parser, run an event loop, or delete the
 * Communicator. It must not delete the device, because the device is still emitting a signal. Call the device's
 * QObject::deleteLater() instead.
 *
 * All Communicators of the process share one receive buffer. So all Communicators and their devices must belong to one
 * thread. If sentences arrive in pieces on several devices at the same time, the pieces mix in this buffer. A
 * WholeLines device prevents this mixing. The ports of an Initializer are WholeLines devices.
 */
class JWDEVICE_EXPORT Communicator : public QObject
{
    Q_OBJECT

public:
    /// Starts without a device and a parser. `parent` owns the Communicator, as every QObject owns its children.
    explicit Communicator(QObject *parent = nullptr);
    /// Deletes neither the device nor the parser.
    ~Communicator() override;

    /// Binds `device`: the Communicator now reads from it and writes to it, and no longer uses the previous device. If
    /// `device` is null, no device is bound. The caller still owns `device`. Bytes that already wait in `device` are
    /// read when `device` emits readyRead() the next time. The ids, the received payloads and the counting for
    /// transferred() do not start again. Returns true.
    bool setIODevice(QIODevice *device);
    /// Returns the bound device. Null if no device is bound or if the device was deleted.
    QIODevice *device() const;

    /// Attaches `parser` for the functions with a `session` argument. If `parser` is null, detaches the parser. The
    /// caller still owns `parser`, and must not delete it before the last call that uses it. Returns true.
    bool setParser(IPayloadParser *parser);

    /**
     * Writes `payload` unchanged, as Latin-1. Characters beyond Latin-1 become "?". `payload` must be a whole sentence,
     * and an open device must be bound. Returns the payload's id, or 0 if a receiver deleted the Communicator during
     * the write.
     *
     * A failed write still uses an id. No signal reports the failure, so check the device's error. To compute
     * transferred(), the Communicator keeps the lengths of all written payloads until it is deleted. A payload takes 48
     * bytes if its length differs from the payload before; otherwise it takes no memory.
     */
    uint writePayload(const QString &payload);
    /// Builds the sentence for `session` and writes it. `session` must be of the class that the parser expects. Returns
    /// the payload's id. Without a parser, returns 0. If the parser throws Nmea::Exception, returns 0 and writes a line
    /// to the log. Other exceptions pass through.
    uint writePayload(const SessionAbstract *session);

    /// Moves the received payload with `id` to `payload`, and returns true. If `id` is 0, moves the oldest payload,
    /// which has the lowest id. If there is no such payload, returns false and does not change `payload`. The
    /// Communicator keeps only the newest six payloads.
    bool readPayload(QString &payload, uint id = 0);
    /**
     * Takes the received payload with `id`, or the oldest if `id` is 0, and parses it into `session`. `session` must be
     * of the class that the parser expects. Call `session->clear()` first.
     *
     * Returns true if the payload was there, even if it could not be parsed. If no parser is attached, or the parser
     * throws Nmea::Exception, the payload is lost and an error is logged. Other exceptions pass through.
     */
    bool readPayload(SessionAbstract *session, uint id = 0);

Q_SIGNALS:
    /**
     * Emitted when the device reports written bytes, and their number is enough for the payload `id` and all payloads
     * before it. For a serial port, the system then has the bytes, but the board may receive them later.
     *
     * The signal only shows progress; it does not prove that the payload was sent. The device reports a number of
     * bytes. Each report is counted from the first payload on; reports are not added up. For example, "abc" has id 1
     * and "defg" id 2. A report of 7 bytes emits 1 and 2. A later report of 4 bytes emits 1 again. So small reports
     * never reach a late id. The id of a failed or empty write is emitted if the report is larger than all payloads
     * before it.
     */
    void transferred(uint id);
    /// Never emitted, because failed writes are not reported.
    void transferFailed(uint id);
    /// Emitted when the payload `id` was received. readPayload() can now read it.
    void readyRead(uint id);
    /// Emitted directly after readyRead(uint).
    void readyRead();
    /// Never emitted, because failures are only written to the log.
    void readFailed();

private Q_SLOTS:
    void ioReadyRead();
    void ioBytesWritten(qint64 bytes);

private:
    JWDEVICE_NO_EXPORT void setPendingBytes(uint id, qint64 bytes);
    JWDEVICE_NO_EXPORT QVector<uint> payloadsIn(qint64 bytes) const;
    JWDEVICE_NO_EXPORT void read(QString &buffer);
    JWDEVICE_NO_EXPORT QString takePayload(QString &buffer);
    JWDEVICE_NO_EXPORT uint lowestPayloadId() const;

    QList<QChar> m_startChars;
    QString m_lineEnd;
    int m_maxPayloads;
    bool m_wholeLines; // whether the device is a WholeLines device
    QPointer<QIODevice> m_device; // a QPointer, because the application may delete the device
    QHash<uint, QString> m_payloads;
    QMap<uint, qint64> m_pendingBytes;
    IPayloadParser *m_parser;
    uint m_rxId;
    uint m_txId;
};

} // namespace JwDevice

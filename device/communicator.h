#pragma once

#include <device/jwdevice_export.h>

#include <QHash>
#include <QList>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QString>

class QIODevice;

namespace JwDevice {

class IPayloadParser;
class SessionAbstract;

/**
 * Carries payloads over one QIODevice. A payload is one whole sentence as text, from its start character ("$" or "!")
 * through its "\r\n".
 *
 * Every payload has an id. Written payloads count from 1, received ones from 2, each wrapping modulo 2^32.
 *
 * Received bytes are read as Latin-1. A payload begins at its last "$", or at its "!" if it has no "$"; bytes before
 * that are dropped. A NUL byte drops the rest of its read, at most 99 bytes. If more than 500 characters wait for a
 * line end, the oldest 450 are dropped with a warning in the log.
 *
 * A receiver of a signal may write, read, bind another device, attach a parser, run an event loop, or delete the
 * Communicator. It must not delete the device, because the device is in the middle of its own signal: call
 * QObject::deleteLater().
 *
 * All Communicators of the process share one receive buffer, so all of them and their devices live in one thread. In
 * this buffer sentences mix if they arrive in pieces on several devices at the same time. A WholeLines device prevents
 * that. The ports of an Initializer are WholeLines devices.
 */
class JWDEVICE_EXPORT Communicator : public QObject
{
    Q_OBJECT

public:
    /// Starts without a device and a parser. `parent` owns it as it owns any QObject.
    explicit Communicator(QObject *parent = nullptr);
    /// Deletes neither the device nor the parser.
    ~Communicator() override;

    /// Binds `device` in place of the device before; null binds none. The caller keeps the ownership. Bytes that
    /// already wait in `device` are read at its next readyRead(). Ids, store and ledger go on. Returns true.
    bool setIODevice(QIODevice *device);
    /// The bound device; null if there is none or if it was deleted.
    QIODevice *device() const;

    /// Attaches `parser` for the overloads that take a session; null detaches it. The caller keeps the ownership, and
    /// the parser must outlive its use here. Returns true.
    bool setParser(IPayloadParser *parser);

    /**
     * Writes `payload` unchanged, as Latin-1; other characters become "?". `payload` must be a whole sentence, and an
     * open device must be bound. Returns the payload's id, or 0 if a receiver deleted the Communicator during the
     * write.
     *
     * A failed write still uses an id. No signal reports it; check the device's error. Every written payload keeps 48
     * bytes until its Communicator is deleted; transferred() is computed from them.
     */
    uint writePayload(const QString &payload);
    /// Builds the sentence for `session`, a record of the parser's own class, and writes it. Returns the payload's id.
    /// Returns 0 without a parser, and if the parser throws Nmea::Exception, with a line in the log. Other exceptions
    /// pass through.
    uint writePayload(const SessionAbstract *session);

    /// Takes the received payload with `id` out of the store, or the oldest (lowest id) if `id` is 0. The store keeps
    /// the newest six. Returns false, and does not change `payload`, if there is none.
    bool readPayload(QString &payload, uint id = 0);
    /**
     * Takes a received payload as above and parses it into `session`, a record of the parser's own class. Clear
     * `session` first.
     *
     * Returns true if a payload was taken, even without a parser or if the parser throws Nmea::Exception: then the log
     * has a line, and the payload is gone. Other exceptions pass through.
     */
    bool readPayload(SessionAbstract *session, uint id = 0);

Q_SIGNALS:
    /**
     * The device reported written bytes that cover the payload `id`. For a serial port this means: the system took the
     * bytes. The board may receive them later.
     *
     * This shows progress and is no receipt. Each report of the device is counted from the first payload on, again and
     * again. Example: "abc" has id 1 and "defg" id 2. A report of 7 bytes emits 1 and 2; a later report of 4 bytes
     * emits 1 again. So small reports never reach a late id. Failed and empty writes are covered by any report that
     * reaches them.
     */
    void transferred(uint id);
    /// Not emitted: a failed write is not reported.
    void transferFailed(uint id);
    /// The payload `id` was received and is in the store.
    void readyRead(uint id);
    /// Emitted directly after readyRead(uint).
    void readyRead();
    /// Not emitted: failures are in the log.
    void readFailed();

private Q_SLOTS:
    void ioReadyRead();
    void ioBytesWritten(qint64 bytes);

private:
    JWDEVICE_NO_EXPORT void read(QString &buffer);
    JWDEVICE_NO_EXPORT QString takePayload(QString &buffer);
    JWDEVICE_NO_EXPORT uint lowestPayloadId() const;

    QList<QChar> m_startChars;
    QString m_lineEnd;
    int m_maxPayloads;
    bool m_wholeLines; // the device holds back unfinished lines
    QPointer<QIODevice> m_device; // the application may delete the device first
    QHash<uint, QString> m_payloads;
    QMap<uint, qint64> m_pendingBytes;
    IPayloadParser *m_parser;
    uint m_rxId;
    uint m_txId;
};

} // namespace JwDevice

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
 * Received bytes are taken as Latin-1. A payload begins at its last "$" (at its "!" when it has none); what stands
 * before it is dropped. A NUL byte drops the rest of its read, at most 99 bytes. When more than 500 characters have
 * gathered, the oldest 450 are dropped with a warning in the log.
 *
 * Every signal may run the application's code: a receiver may write, read, rebind the device, attach a parser, run an
 * event loop of its own, or delete the Communicator. It must not delete the device from there, which is in the middle
 * of a signal of its own: use QObject::deleteLater().
 *
 * The receive buffer is shared by all Communicators of the process, so all of them and their devices live in one
 * thread. Sentences that arrive in pieces on several devices at the same time mix in it, unless the device holds back
 * unfinished lines: see WholeLines. The ports of an Initializer do.
 */
class JWDEVICE_EXPORT Communicator : public QObject
{
    Q_OBJECT

public:
    /// Without a device and a parser. `parent` may own it, as any QObject.
    explicit Communicator(QObject *parent = nullptr);
    /// Leaves the device and the parser alone.
    ~Communicator() override;

    /// Binds to `device`, or to none when it is null; lets go of the device bound before. It stays the caller's. Bytes
    /// that wait in it are read at its next readyRead(). Ids, store and ledger go on. Returns true.
    bool setIODevice(QIODevice *device);
    /// The bound device; null when there is none or it was deleted.
    QIODevice *device() const;

    /// Attaches a parser for the overloads that take a session, or none when it is null. It stays the caller's and must
    /// outlive its use here. Returns true.
    bool setParser(IPayloadParser *parser);

    /**
     * Writes `payload` as it stands, as Latin-1 (other characters become "?"). It must be a whole sentence, and an open
     * device must be bound. Returns its id, or 0 when a receiver deleted the Communicator meanwhile.
     *
     * A write that fails takes an id all the same and is not told of: ask the device for its error. The library keeps
     * one ledger entry per written payload for as long as the Communicator lives, see transferred().
     */
    uint writePayload(const QString &payload);
    /// Builds the sentence for `session`, a record of the parser's own class, and writes it. Returns its id; 0 without
    /// a parser, or when the parser throws Nmea::Exception, which the log tells. Other exceptions pass through.
    uint writePayload(const SessionAbstract *session);

    /// Takes a received payload out of the store: the one with `id`, or the oldest (the lowest id) for 0. The store
    /// keeps the newest six. Returns false, and leaves `payload` alone, when it is not there.
    bool readPayload(QString &payload, uint id = 0);
    /**
     * Takes a received payload as above and parses it into `session`, a record of the parser's own class. Clear it
     * first.
     *
     * Returns true when a payload was taken, even when there is no parser or it throws Nmea::Exception: the log tells
     * that, and the payload is gone. Other exceptions pass through.
     */
    bool readPayload(SessionAbstract *session, uint id = 0);

Q_SIGNALS:
    /**
     * The device reported bytes that cover the payload `id` (a serial port: the system took them; the board may see
     * them later).
     *
     * A sign of progress, not a receipt: each report of the device is charged to the payloads from the first one on
     * anew. After abc (id 1) and defg (id 2) went out in one report of 7 bytes, 1 and 2 come; a later report of 4 bytes
     * repeats 1; reports that stay small never reach a late id, and failed or empty writes are passed along the way.
     */
    void transferred(uint id);
    /// Not emitted: a failed write is not reported.
    void transferFailed(uint id);
    /// The payload `id` was received and is in the store.
    void readyRead(uint id);
    /// As readyRead(uint), right after it.
    void readyRead();
    /// Not emitted: what fails is in the log.
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
    QPointer<QIODevice> m_device; // guarded: a host application may delete the device first
    QHash<uint, QString> m_payloads;
    QMap<uint, qint64> m_pendingBytes;
    IPayloadParser *m_parser;
    uint m_rxId;
    uint m_txId;
};

} // namespace JwDevice

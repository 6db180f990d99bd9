#pragma once

#include "database.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QTimer>

#include <deque>
#include <vector>

namespace JwBridge {

/// A payload on its way to the broker.
struct Payload
{
    qint64 seq = 0; ///< greater than that of every earlier payload of this machine
    qint64 time = 0; ///< when it was received: µs since the epoch
    QByteArray board; ///< the board's part of the topic
    QByteArray text; ///< without line end
};

/// How many payloads were given up, and why.
struct LossCount
{
    qint64 size = 0; ///< the spool reached its size
    qint64 age = 0; ///< older than the spool's age
    qint64 disk = 0; ///< the disk could not be written, and the memory for payloads was full
    qint64 refused = 0; ///< the broker refused them
};

/**
 * Keeps payloads until the broker has acknowledged them, oldest first.
 *
 * A new payload stays in memory. If it is not acknowledged after storeInterval, it is written to disk: so while the
 * broker is fast, the disk is not used. A crash loses at most the payloads of the last two intervals.
 *
 * While the disk can't be written, up to maxMemory bytes stay in memory.
 */
class Spool : public QObject
{
    Q_OBJECT

public:
    static constexpr int storeInterval = 200; ///< ms
    static constexpr qint64 maxMemory = 16 * 1024 * 1024; ///< bytes

    struct Limits
    {
        qint64 bytes = 256 * 1024 * 1024; ///< size of the stored payloads; about 50 bytes are added to each
        qint64 age = 7 * 24 * 3600; ///< seconds
    };

    Spool(Database &database, const Limits &limits, QObject *parent = nullptr);
    /// Stores all payloads, unless finish() did so.
    ~Spool() override;

    /// Reads the spool that an earlier process left. The next payload gets at least the number `first`. Returns false
    /// and sets `error` if that fails. If the disk is full, payloads that were stored can still be sent: then the
    /// result is true, and diskTrouble() follows.
    bool load(QString *error, qint64 first = 1);
    /// Stores all payloads. Call this last. Returns how many payloads are lost because this failed, and sets `error`.
    int finish(QString *error);

    void add(const QByteArray &board, qint64 time, const QByteArray &text);
    /// Returns the oldest payload that is newer than `seq`, and is neither acknowledged nor given up. Null if there is
    /// none. Valid until the next call of a function of this object. A returned payload is no longer given up because
    /// of size or age, until giveAgain().
    const Payload *after(qint64 seq);
    /// Forgets which payloads after() has returned.
    void giveAgain() { m_given = m_acknowledged; }
    /// Removes all payloads up to `seq`.
    void acknowledge(qint64 seq);
    void countRefused();

    LossCount losses() const { return m_losses; }

Q_SIGNALS:
    void added();
    void lossesChanged();
    /// Emitted when the disk can't be written, and again when it can. `text` is empty if it can.
    void diskTrouble(const QString &text);
    /// Emitted once when stored payloads can't be read.
    void readTrouble(const QString &text);

private:
    /// The numbers that belong to what is on the disk.
    struct Stored
    {
        qint64 newest = 0; // seq of the newest stored payload; all others are in m_recent
        qint64 removed = 0; // all up to this one were removed
        qint64 bytes = 0;
        qint64 reserved = 0; // after a crash, the next process continues with this seq
        LossCount losses;
    };

    void store();
    bool write(qint64 upTo, qint64 reserved);
    bool insert(qint64 upTo, Stored &stored);
    bool removeAcknowledged(Stored &stored);
    bool giveUpExcess(Stored &stored);
    bool writeNumbers(const Stored &stored);
    bool isOverLimit() const;
    bool isIdle() const;
    const Payload *fromDisk(qint64 seq);
    void removeRecent(qint64 upTo);
    qint64 oldestTime() const;

    Database &m_database;
    const Limits m_limits;
    Stored m_stored;
    LossCount m_losses;
    std::deque<Payload> m_recent; // not yet stored, oldest first
    qint64 m_recentBytes = 0;
    std::vector<Payload> m_page; // stored payloads that were read, oldest first
    qint64 m_pageAfter = 0; // `m_page` begins with the first payload after this one
    qint64 m_next = 1; // seq of the next payload
    qint64 m_acknowledged = 0; // all up to this one are acknowledged
    qint64 m_given = 0; // after() has returned the payloads up to this one
    qint64 m_newestAtTick = 0;
    QString m_error; // why the newest write failed
    bool m_isLoaded = false;
    bool m_isInTrouble = false;
    bool m_isUnreadable = false; // since readTrouble()
    QTimer m_timer; // runs only while there is something to write or to give up
};

} // namespace JwBridge

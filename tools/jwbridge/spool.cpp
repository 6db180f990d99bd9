#include "spool.h"

#include <QDateTime>

#include <algorithm>
#include <utility>

namespace JwBridge {

namespace {

constexpr qint64 rowOverhead = 48; // bytes that a stored payload takes besides its texts, rounded up
constexpr int pageRows = 256; // payloads that are read from disk at once
// Numbers are reserved on disk before they are used, so that a crash never leads to a number that was used before. So a
// crash leaves a gap of up to this many numbers.
constexpr qint64 reservation = 65536;

const char *const schema = "CREATE TABLE IF NOT EXISTS payloads"
                           "(seq INTEGER PRIMARY KEY, time INTEGER, board BLOB, text BLOB);"
                           "CREATE TABLE IF NOT EXISTS numbers(name BLOB PRIMARY KEY, value INTEGER)";

qint64 sizeOf(const Payload &payload)
{
    return payload.text.size() + payload.board.size() + rowOverhead;
}

// Returns the first payload after `seq`. `payloads` must be in order.
template <typename Payloads>
auto firstAfter(const Payloads &payloads, qint64 seq)
{
    return std::partition_point(payloads.cbegin(), payloads.cend(),
                                [seq](const Payload &payload) { return payload.seq <= seq; });
}

bool isEqual(const LossCount &a, const LossCount &b)
{
    return a.size == b.size && a.age == b.age && a.disk == b.disk && a.refused == b.refused;
}

qint64 readNumber(const Database &database, const char *name)
{
    Statement statement(database, "SELECT value FROM numbers WHERE name = ?");
    statement.bind(0, QByteArray(name));
    return statement.next() ? statement.number(0) : 0;
}

bool writeNumber(const Database &database, const char *name, qint64 value)
{
    Statement statement(database, "INSERT OR REPLACE INTO numbers VALUES(?, ?)");
    return statement.bind(0, QByteArray(name)).bind(1, value).run();
}

} // namespace

Spool::Spool(Database &database, const Limits &limits, QObject *parent)
    : QObject(parent)
    , m_database(database)
    , m_limits(limits)
{
    m_timer.setInterval(storeInterval);
    connect(&m_timer, &QTimer::timeout, this, &Spool::store);
}

Spool::~Spool()
{
    QString error;
    finish(&error);
}

bool Spool::load(QString *error, qint64 first)
{
    bool isGood = m_database.run(schema);
    if (isGood) {
        m_losses = {readNumber(m_database, "size"), readNumber(m_database, "age"), readNumber(m_database, "disk"),
                    readNumber(m_database, "refused")};
        m_stored.losses = m_losses;
        Statement statement(m_database,
                            "SELECT coalesce(min(seq), 1), coalesce(max(seq), 0), "
                            "coalesce(sum(length(text) + length(board) + 48), 0) FROM payloads");
        isGood = statement.next();
        m_stored.newest = statement.number(1);
        m_stored.removed = std::min(statement.number(0) - 1, m_stored.newest);
        m_stored.bytes = statement.number(2);
        m_acknowledged = m_given = m_stored.removed;
        m_next = std::max<qint64>({readNumber(m_database, "next"), m_stored.newest + 1, first});
    }
    if (!isGood) {
        *error = m_database.trouble();
        return false;
    }
    // If the numbers can't be reserved, an earlier process may have used them already. The clock is ahead of all of
    // them.
    if (!write(0, m_next + reservation))
        m_next = std::max(m_next, QDateTime::currentMSecsSinceEpoch() * 1000);
    m_isLoaded = true;
    m_timer.start();
    return true;
}

int Spool::finish(QString *error)
{
    if (!std::exchange(m_isLoaded, false))
        return 0;
    m_timer.stop();
    if (write(m_next, m_next)) // without reserved numbers, so the next process continues without a gap
        return 0;
    *error = m_error;
    return static_cast<int>(m_recent.size());
}

void Spool::add(const QByteArray &board, qint64 time, const QByteArray &text)
{
    m_recent.push_back({m_next++, time, board, text});
    m_recentBytes += sizeOf(m_recent.back());
    if (m_recentBytes > maxMemory) {
        removeRecent(m_recent.front().seq);
        ++m_losses.disk;
    }
    if (!m_timer.isActive())
        m_timer.start();
    Q_EMIT added();
}

const Payload *Spool::after(qint64 seq)
{
    seq = std::max(seq, m_acknowledged);
    const Payload *payload = nullptr;
    if (seq < m_stored.newest) {
        payload = fromDisk(seq);
    } else {
        const auto next = firstAfter(m_recent, seq);
        payload = next == m_recent.cend() ? nullptr : &*next;
    }
    if (payload)
        m_given = payload->seq;
    return payload;
}

const Payload *Spool::fromDisk(qint64 seq)
{
    auto next = seq < m_pageAfter ? m_page.cend() : firstAfter(m_page, seq);
    if (next == m_page.cend()) {
        m_page.clear();
        m_pageAfter = seq;
        Statement statement(m_database,
                            "SELECT seq, time, board, text FROM payloads WHERE seq > ? ORDER BY seq LIMIT ?");
        statement.bind(0, seq).bind(1, pageRows);
        while (statement.next())
            m_page.push_back({statement.number(0), statement.number(1), statement.bytes(2), statement.bytes(3)});
        if (m_page.empty() && !std::exchange(m_isUnreadable, true)) // the newest stored payload is always there
            Q_EMIT readTrouble(m_database.trouble());
        next = m_page.cbegin();
    }
    return next == m_page.cend() ? nullptr : &*next;
}

void Spool::acknowledge(qint64 seq)
{
    m_acknowledged = std::max(m_acknowledged, seq);
    removeRecent(seq);
}

void Spool::countRefused()
{
    ++m_losses.refused;
    if (!m_timer.isActive())
        m_timer.start();
}

void Spool::removeRecent(qint64 upTo)
{
    while (!m_recent.empty() && m_recent.front().seq <= upTo) {
        m_recentBytes -= sizeOf(m_recent.front());
        m_recent.pop_front();
    }
}

void Spool::store()
{
    const LossCount before = m_stored.losses;
    const bool isLow = m_stored.reserved < m_next + reservation / 2;
    // While the disk could not be written, try again also if nothing waits. Otherwise its state is not known.
    const bool isGood =
        (isIdle() && !m_isInTrouble) || write(m_newestAtTick, isLow ? m_next + reservation : m_stored.reserved);
    m_newestAtTick = m_next - 1;
    if (m_isInTrouble == isGood) {
        m_isInTrouble = !isGood;
        Q_EMIT diskTrouble(isGood ? QString() : m_error);
    }
    if (!isEqual(m_losses, before))
        Q_EMIT lossesChanged();
    if (m_recent.empty() && m_stored.newest <= m_stored.removed && isIdle() && !m_isInTrouble)
        m_timer.stop();
}

// Returns whether the disk is up to date. Then it is not touched.
bool Spool::isIdle() const
{
    const bool hasOld = !m_recent.empty() && m_recent.front().seq <= m_newestAtTick;
    const bool hasAcknowledged = m_acknowledged > m_stored.removed && m_stored.newest > m_stored.removed;
    const bool isLow = m_stored.reserved < m_next + reservation / 2;
    return !hasOld && !hasAcknowledged && !isLow && isEqual(m_losses, m_stored.losses) && !isOverLimit();
}

bool Spool::isOverLimit() const
{
    if (m_stored.newest <= m_given)
        return false;
    return m_stored.bytes > m_limits.bytes || oldestTime() < QDateTime::currentSecsSinceEpoch() - m_limits.age;
}

// Returns when the oldest stored payload was received that may be given up, in seconds since the epoch.
qint64 Spool::oldestTime() const
{
    Statement statement(m_database, "SELECT time FROM payloads WHERE seq > ? ORDER BY seq LIMIT 1");
    statement.bind(0, m_given);
    return statement.next() ? statement.number(0) / 1000000 : QDateTime::currentSecsSinceEpoch();
}

// Brings the disk up to date in one transaction. If that fails, nothing changes.
bool Spool::write(qint64 upTo, qint64 reserved)
{
    Transaction transaction(m_database);
    Stored stored = m_stored;
    stored.reserved = reserved;
    stored.losses = m_losses;
    if (!transaction.isOpen() || !insert(upTo, stored) || !removeAcknowledged(stored) || !giveUpExcess(stored)
        || !writeNumbers(stored) || !transaction.commit()) {
        m_error = m_database.trouble(); // undoing the transaction may set another one
        return false;
    }
    removeRecent(upTo);
    m_stored = stored;
    m_losses = stored.losses;
    m_page.clear(); // may contain payloads that were given up
    return true;
}

bool Spool::insert(qint64 upTo, Stored &stored)
{
    Statement statement(m_database, "INSERT INTO payloads VALUES(?, ?, ?, ?)");
    const auto end = firstAfter(m_recent, upTo);
    for (auto it = m_recent.cbegin(); it != end; ++it) {
        if (!statement.bind(0, it->seq).bind(1, it->time).bind(2, it->board).bind(3, it->text).run())
            return false;
        stored.bytes += sizeOf(*it);
        stored.newest = it->seq;
    }
    return true;
}

bool Spool::removeAcknowledged(Stored &stored)
{
    if (m_acknowledged <= stored.removed)
        return true;
    Statement size(m_database,
                   "SELECT coalesce(sum(length(text) + length(board) + 48), 0) FROM payloads "
                   "WHERE seq <= ?");
    Statement remove(m_database, "DELETE FROM payloads WHERE seq <= ?");
    if (!size.bind(0, m_acknowledged).next() || !remove.bind(0, m_acknowledged).run())
        return false;
    stored.bytes -= size.number(0);
    stored.removed = m_acknowledged;
    return true;
}

// Removes the oldest payloads that exceed the size or the age. Leaves payloads that are on their way.
bool Spool::giveUpExcess(Stored &stored)
{
    const qint64 oldest = (QDateTime::currentSecsSinceEpoch() - m_limits.age) * 1000000;
    qint64 last = 0;
    Statement rows(m_database,
                   "SELECT seq, time, length(text) + length(board) + 48 FROM payloads WHERE seq > ? "
                   "ORDER BY seq");
    rows.bind(0, m_given);
    while (rows.next()) {
        const bool isTooMuch = stored.bytes > m_limits.bytes;
        if (!isTooMuch && rows.number(1) >= oldest)
            break;
        ++(isTooMuch ? stored.losses.size : stored.losses.age);
        stored.bytes -= rows.number(2);
        last = rows.number(0);
    }
    if (last == 0)
        return true;
    Statement remove(m_database, "DELETE FROM payloads WHERE seq > ? AND seq <= ?");
    Statement newest(m_database, "SELECT coalesce(max(seq), 0) FROM payloads");
    if (!remove.bind(0, m_given).bind(1, last).run() || !newest.next())
        return false;
    stored.newest = newest.number(0);
    return true;
}

bool Spool::writeNumbers(const Stored &stored)
{
    return writeNumber(m_database, "next", stored.reserved) && writeNumber(m_database, "size", stored.losses.size)
        && writeNumber(m_database, "age", stored.losses.age) && writeNumber(m_database, "disk", stored.losses.disk)
        && writeNumber(m_database, "refused", stored.losses.refused);
}

} // namespace JwBridge

#include "board.h"

#include <simulator/boardkind.h>
#include <simulator/hub.h>
#include <simulator/pacer.h>
#include <simulator/port.h>
#include <simulator/wire.h>

#include <QQueue>
#include <QSocketNotifier>
#include <QTimer>

#include <cerrno>
#include <unistd.h>

namespace JwSimulator {

namespace {

constexpr int readSize = 4096;
constexpr int longestLine = 1024;
constexpr int mostJournalEntries = 20000;
constexpr qint64 mostJournalBytes = 4 * 1024 * 1024;
constexpr int longestDrain = 1000; // milliseconds that the host gets to read the last bytes before a pull

const char *const unaskedBodies[] = {
    "GPGLL,4916.45,N,12311.12,W,225444,A",
    "HCHDG,101.1,,,7.1,W",
    "GPVTG,054.7,T,034.4,M,005.5,N,010.2,K",
};

} // namespace

class Board::Line : public QObject
{
public:
    Line(Board *board, int descriptorNumber, const BoardConfig &config)
        : QObject(board)
        , descriptor(descriptorNumber)
        , fromHost(config.usb, config.speed)
        , toHost(config.usb, config.speed)
        , readable(descriptor, QSocketNotifier::Read)
        , writable(descriptor, QSocketNotifier::Write)
    {
        writable.setEnabled(false);
        gap.setSingleShot(true);
        permission.setSingleShot(true);
        for (QTimer *timer : {&gap, &permission, &drain, &unasked})
            timer->setTimerType(Qt::PreciseTimer);
    }

    void stop()
    {
        readable.setEnabled(false);
        writable.setEnabled(false);
        fromHost.clear();
        toHost.clear();
        for (QTimer *timer : {&gap, &permission, &drain, &unasked})
            timer->stop();
        deleteLater();
    }

    bool isIdle() const { return !sending && outbox.isEmpty(); }

    // Bytes to send. Each reply is made only when it is needed, because a thousand replies with noise need much memory.
    struct Job
    {
        QByteArray bytes;
        QByteArray::size_type begin = 0; // index of the first byte that was not sent
        int replies = 0; // number of replies to send after `bytes`; they are not made yet
        int chunk = 0; // bytes per piece; if 0, everything is one piece
        bool gapIsDue = false;

        auto left() const { return bytes.size() - begin; }
    };

    const int descriptor;
    Pacer fromHost;
    Pacer toHost;
    QSocketNotifier readable;
    QSocketNotifier writable;
    QTimer gap;
    QTimer permission; // runs until the host may open the port
    QTimer drain; // runs shortly before the cable is pulled; while it runs, the board sends nothing
    QTimer unasked;
    int drainTicks = 0;
    QQueue<Job> outbox;
    QByteArray pending; // bytes that `toHost` released, but that write() has not accepted
    QByteArray written; // the part of the current piece that write() has accepted
    bool sending = false;
    bool feeding = false;
};

Board::Board(const BoardConfig &config, const QElapsedTimer &clock, std::unique_ptr<Port> port, Hub *hub)
    : m_config(config)
    , m_clock(clock)
    , m_port(std::move(port))
    , m_hub(hub)
    , m_random(config.seed)
{
    if (m_config.hwversion.isNull())
        m_config.hwversion = QLatin1String(boardKind(m_config.kind).hwversion);
    for (QTimer *timer : {&m_plugTimer, &m_pullTimer}) {
        timer->setSingleShot(true);
        timer->setTimerType(Qt::PreciseTimer);
    }
    connect(&m_plugTimer, &QTimer::timeout, this, &Board::plugAsConfigured);
    connect(&m_pullTimer, &QTimer::timeout, this, &Board::pullAsConfigured);
}

Board::~Board()
{
    // m_port closes the descriptor, so the notifiers in m_line, which watch the descriptor, must be deleted first.
    delete m_line;
}

QString Board::portName() const
{
    return m_port->name();
}

bool Board::start(QString *error)
{
    if (m_config.plugAfter >= 0) {
        // The timer starts when the event loop runs. Otherwise it could time out while other boards are still made.
        QTimer::singleShot(0, this, [this] {
            if (!m_plugged)
                m_plugTimer.start(m_config.plugAfter);
        });
        return true;
    }
    if (!m_hub || m_hub->isPlugged())
        return plug(error);
    // The hub's first board has the keys for all. A board that is added while the hub is not plugged in waits for it.
    return !m_hub->isFirst(this) || m_hub->plug(error);
}

QString Board::nextName() const
{
    const bool other = m_configuredPulls % 2 == 1 && !m_config.replugPort.isEmpty();
    return other ? m_config.replugPort : m_config.port;
}

bool Board::plug(QString *error)
{
    QString fault;
    if (m_plugged)
        fault = QStringLiteral("the cable is plugged in already; pull() it first");
    else if (m_hub && !m_hub->isPlugged())
        fault = QStringLiteral("hub %1 is not plugged in; use Testbed::plugHub()").arg(m_hub->name());
    else if (m_port->prepare(nextName(), fault))
        appear();
    if (fault.isEmpty())
        return true;
    if (error)
        *error = QStringLiteral("%1: %2").arg(portName(), fault);
    return false;
}

void Board::appear()
{
    m_plugTimer.stop();
    m_plugged = true;
    m_bytesSent = 0;
    m_port->appear();
    connectLine();
    // The timers start when the event loop runs, as in start().
    QTimer::singleShot(0, this, [this] {
        if (!m_plugged)
            return;
        if (isPullDue() && m_config.pullAfter >= 0)
            m_pullTimer.start(m_config.pullAfter);
        if (m_line && m_config.latePermission > 0)
            m_line->permission.start(m_config.latePermission);
    });
    Q_EMIT plugged();
}

void Board::plugAsConfigured()
{
    QString error;
    const bool ok = m_hub ? m_hub->plug(&error) : plug(&error);
    if (!ok)
        qWarning("cannot plug in the board: %s", qUtf8Printable(error));
}

void Board::pullAsConfigured()
{
    if (m_config.replugAfter >= 0)
        m_plugTimer.start(m_config.replugAfter);
    if (m_hub) {
        m_hub->pullAsConfigured();
    } else {
        ++m_configuredPulls;
        pull();
    }
}

void Board::connectLine()
{
    if (m_port->descriptor() < 0)
        return;
    m_line = new Line(this, m_port->descriptor(), m_config);
    connect(&m_line->readable, &QSocketNotifier::activated, this, &Board::onReadable);
    connect(&m_line->writable, &QSocketNotifier::activated, this, &Board::writePending);
    connect(&m_line->fromHost, &Pacer::released, this, &Board::onReceived);
    connect(&m_line->toHost, &Pacer::released, this, [this](const QByteArray &bytes) {
        m_line->pending += bytes;
        writePending();
    });
    connect(&m_line->gap, &QTimer::timeout, this, &Board::sendNext);
    connect(&m_line->permission, &QTimer::timeout, this, [this] { m_port->permit(); });
    connect(&m_line->drain, &QTimer::timeout, this, [this] {
        if (++m_line->drainTicks >= longestDrain || m_port->unread() == 0)
            pullAsConfigured();
    });
    connect(&m_line->unasked, &QTimer::timeout, this, &Board::sendUnasked);
    if (boardKind(m_config.kind).unasked != BoardKind::Unasked::Nothing)
        m_line->unasked.start(m_config.interval);
}

void Board::pull()
{
    if (!m_plugged)
        return;
    m_plugged = false;
    m_pullTimer.stop();
    m_pullTime = m_clock.elapsed();
    if (m_line) {
        if (!m_line->written.isEmpty())
            record(JournalEntry::Sent, m_line->written);
        // pull() may run inside a signal of one of m_line's timers. So stop() deletes m_line later.
        m_line->stop();
        m_line = nullptr;
    }
    m_port->unplug();
    Q_EMIT pulled();
}

bool Board::send(const QByteArray &bytes)
{
    if (!m_line || m_line->drain.isActive())
        return false;
    if (!bytes.isEmpty()) {
        Line::Job job;
        job.bytes = bytes;
        m_line->outbox.enqueue(job);
        sendNext();
    }
    return true;
}

void Board::onReadable()
{
    char buffer[readSize];
    const ssize_t count = ::read(m_line->descriptor, buffer, sizeof buffer);
    if (count > 0)
        m_line->fromHost.push(QByteArray(buffer, static_cast<int>(count)));
    else if (count == 0 || (errno != EAGAIN && errno != EINTR))
        m_line->readable.setEnabled(false);
    // If the host writes faster than the serial line carries, the board stops reading. Then the host has to wait, and
    // memory does not grow. onReceived() starts to read again.
    if (m_line && m_line->fromHost.waiting() >= readSize)
        m_line->readable.setEnabled(false);
}

void Board::onReceived(const QByteArray &bytes)
{
    const Line *const line = m_line;
    if (m_line->fromHost.waiting() < readSize)
        m_line->readable.setEnabled(true);
    m_partialLine += bytes;
    m_partialTime = m_clock.elapsed();
    Q_EMIT received(bytes);
    while (m_line == line) {
        const auto end = m_partialLine.indexOf('\n') + 1;
        if (end == 0)
            break;
        const QByteArray text = m_partialLine.left(end);
        m_partialLine.remove(0, end);
        record(JournalEntry::Received, text);
        onSentence(text.mid(qMax(0, text.lastIndexOf('$'))));
    }
    if (m_partialLine.size() > longestLine) {
        record(JournalEntry::Received, m_partialLine);
        m_partialLine.clear();
    }
}

void Board::onSentence(const QByteArray &sentence)
{
    const QByteArray body = sentenceBody(sentence);
    if (body.isNull())
        return;
    Line *const line = m_line;
    const bool own = body == boardKind(m_config.kind).query;
    if (own)
        ++m_queries;
    const bool answer = own && m_queries > m_config.ignore;
    Q_EMIT sentenceReceived(sentence.trimmed());
    if (!answer || m_line != line)
        return;
    if (m_config.delay == 0) {
        reply();
        return;
    }
    QTimer::singleShot(m_config.delay, Qt::PreciseTimer, line, [this, line] {
        if (m_line == line)
            reply();
    });
}

void Board::reply()
{
    Line::Job job;
    job.replies = m_config.replies;
    job.chunk = m_config.chunk;
    m_line->outbox.enqueue(job);
    sendNext();
}

QByteArray Board::makeReply()
{
    const QByteArray body = QByteArray(boardKind(m_config.kind).reply).replace("%1", m_config.hwversion.toLatin1());
    return randomBytes(m_config.noise, 1) + frameSentence(body, m_config.checksum == BoardConfig::Checksum::Good);
}

QByteArray Board::takePiece()
{
    Line::Job &job = m_line->outbox.head();
    while (job.replies > 0 && (job.left() == 0 || job.left() < job.chunk)) {
        job.bytes = job.bytes.mid(job.begin) + makeReply();
        job.begin = 0;
        --job.replies;
    }
    const QByteArray piece = job.bytes.mid(job.begin, job.chunk > 0 ? job.chunk : -1);
    job.begin += piece.size();
    job.gapIsDue = job.chunk > 0;
    if (job.left() == 0 && job.replies == 0)
        m_line->outbox.dequeue();
    return piece;
}

void Board::sendUnasked()
{
    // While earlier bytes are still on their way, the board sends no new bytes, so that bytes don't pile up.
    if (!m_line->isIdle())
        return;
    switch (boardKind(m_config.kind).unasked) {
    case BoardKind::Unasked::Nothing:
        break;
    case BoardKind::Unasked::RandomBytes:
        send(randomBytes(m_random.bounded(1, 65), 0));
        break;
    case BoardKind::Unasked::Sentences:
        const int count = sizeof unaskedBodies / sizeof *unaskedBodies;
        send(frameSentence(unaskedBodies[m_unaskedSent++ % count], m_config.checksum == BoardConfig::Checksum::Good));
        break;
    }
}

void Board::sendNext()
{
    Line *const line = m_line;
    if (line->feeding)
        return;
    // If the port accepts a piece at once, writePending() calls sendNext() again. `feeding` makes that call return, and
    // the loop sends the next piece, so there is no deep recursion.
    line->feeding = true;
    while (m_line == line && !line->sending && !line->outbox.isEmpty() && !line->gap.isActive()
           && !line->drain.isActive()) {
        Line::Job &next = line->outbox.head();
        if (next.gapIsDue && m_config.gap > 0) {
            line->gap.start(m_config.gap);
            next.gapIsDue = false;
            break;
        }
        line->sending = true;
        line->toHost.push(takePiece());
    }
    line->feeding = false;
}

void Board::writePending()
{
    Line *const line = m_line;
    line->writable.setEnabled(false);
    if (line->drain.isActive())
        return;
    qint64 most = line->pending.size();
    if (m_config.pullAfterBytes >= 0 && isPullDue())
        most = qMin(most, m_config.pullAfterBytes - m_bytesSent);
    while (most > 0) {
        const ssize_t count = ::write(line->descriptor, line->pending.constData(), static_cast<size_t>(most));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0) {
            // EAGAIN means that the port is full, so the board waits until the host reads. After another error, waiting
            // would not help.
            line->writable.setEnabled(errno == EAGAIN);
            return;
        }
        line->written += line->pending.left(static_cast<int>(count));
        line->pending.remove(0, static_cast<int>(count));
        m_bytesSent += count;
        most -= count;
    }
    if (m_config.pullAfterBytes >= 0 && isPullDue() && m_bytesSent >= m_config.pullAfterBytes) {
        // A pull drops the bytes that the host has not read, so the host gets a moment to read them.
        line->drain.start(1);
    }
    const bool whole = line->pending.isEmpty() && line->toHost.waiting() == 0;
    if (!whole && !line->drain.isActive())
        return;
    line->sending = false;
    const QByteArray piece = line->written;
    line->written.clear();
    if (!piece.isEmpty()) {
        record(JournalEntry::Sent, piece);
        Q_EMIT sent(piece);
    }
    if (m_line == line)
        sendNext();
}

QByteArray Board::randomBytes(int count, int least)
{
    QByteArray bytes(count, Qt::Uninitialized);
    for (char &byte : bytes)
        byte = static_cast<char>(m_random.bounded(least, 256));
    return bytes;
}

QList<JournalEntry> Board::journal() const
{
    QList<JournalEntry> entries = m_journal;
    if (!m_partialLine.isEmpty())
        entries.append({JournalEntry::Received, m_partialTime, m_partialLine});
    return entries;
}

void Board::record(JournalEntry::Direction direction, const QByteArray &bytes)
{
    m_journal.append({direction, m_clock.elapsed(), bytes});
    m_journalBytes += bytes.size();
    while (m_journal.size() > 1 && (m_journal.size() > mostJournalEntries || m_journalBytes > mostJournalBytes))
        m_journalBytes -= m_journal.takeFirst().bytes.size();
}

} // namespace JwSimulator

#include "discoverymodel.h"

#include <QDebug>

#include <algorithm>
#include <utility>

using JwDevice::Type;

namespace {

constexpr int replyTime = 400;
constexpr QByteArray::size_type readSize = 100;
constexpr int longestBuffer = 500;
constexpr int truncatedBy = 450;
constexpr int storeLimit = 5;
constexpr int longestSentence = 74;
constexpr int tooMuchUnfinished = 512;

enum Level { Trace, Debug, Info, Warning, Error };

QString quoted(const QString &text)
{
    QString result;
    QDebug(&result).nospace() << text;
    return result;
}

} // namespace

struct DiscoveryModel::Line
{
    bool plugged = false;
    QByteArray toHost; // bytes that the board sent and the port has not read yet
    QByteArray toBoard; // bytes that the application wrote and the port has not sent yet
    QByteArray received;
    Comm *host = nullptr; // the open port on this line; null if no port is open
};

/// A port and its Communicator.
struct DiscoveryModel::Comm
{
    int line = -1;
    QString name;

    bool open = true;
    bool lost = false; // the device is gone; the port notices this when the event loop handles the port next
    bool unsent = false; // some bytes were not sent when the device was removed
    bool emitting = false; // readyRead is being emitted; QSerialPort does not emit it again inside itself
    QByteArray arrived; // bytes that the port has read from the line and the Communicator has not read from the port

    bool alive = true;
    bool bound = true; // the Communicator is bound to the port, not to another device
    QByteArray other; // bytes that wait in that other device
    bool held = false;
    bool routed = true; // the Communicator's readyRead is connected to the Initializer
    uint lastId = 1;
    QMap<uint, QString> store;

    bool listed = true; // the Communicator is in the tables of the Initializer
    bool hasStatus = false;
    Type status = JwDevice::Unknown;
    bool handedOver = false;
    qint64 due = -1; // time at which the reply timer fires; -1 if the timer is stopped
};

DiscoveryModel::DiscoveryModel(const DiscoverySchedule &schedule, const QVector<int> &reused)
    : DiscoveryPlay(schedule)
    , m_lines(DiscoverySchedule::portCount)
    , m_reused(reused)
{
    for (int port = 0; port < schedule.ports; ++port)
        m_lines[static_cast<size_t>(port)].plugged = true;
    m_frames.emplace_back();
}

DiscoveryModel::~DiscoveryModel() = default;

void DiscoveryModel::log(int level, const QString &text)
{
    noteLog(level, "", "initializer.cpp", text);
}

// Ports and queries

bool DiscoveryModel::probe(const QList<Type> &types, int delay, const QVector<int> &ports)
{
    m_types = types;
    if (types.isEmpty()) {
        log(Error, QStringLiteral("No device types specified"));
        return false;
    }
    if (ports.isEmpty()) {
        m_candidates.clear();
        for (int port = 0; port < schedule().ports; ++port) {
            if (m_lines[static_cast<size_t>(port)].plugged)
                m_candidates.append({port, portName(port)});
        }
    }
    for (const int port : ports) {
        const bool exists = port == DiscoverySchedule::Busy || port == DiscoverySchedule::Denied
            || m_lines[static_cast<size_t>(port)].plugged;
        m_candidates.append(exists ? qMakePair(port, portName(port)) : qMakePair(-1, QString()));
    }
    if (types.contains(JwDevice::BoardC) && delay > 0)
        m_secondStageDue = m_now + delay;
    else
        secondStage();
    return true;
}

void DiscoveryModel::secondStage()
{
    const auto candidates = m_candidates;
    for (const auto &candidate : candidates) {
        Line *const line = candidate.first < 0 ? nullptr : &m_lines[static_cast<size_t>(candidate.first)];
        const bool refused = candidate.first == DiscoverySchedule::Busy || candidate.first == DiscoverySchedule::Denied;
        const int fault = refused || (line && line->host) ? 2 : !line || !line->plugged ? 1 : 0;
        if (fault != 0) {
            log(Trace,
                QStringLiteral("Serial port not accessible:  %1  -  %2").arg(quoted(candidate.second)).arg(fault));
            continue;
        }
        log(Trace, QStringLiteral("Serial port opened for probing:  %1").arg(quoted(candidate.second)));
        const int replaced = m_reused.value(static_cast<int>(m_comms.size()), -1);
        if (replaced >= 0) {
            m_comms[static_cast<size_t>(replaced)]->listed = false;
            m_comms[static_cast<size_t>(replaced)]->hasStatus = false;
        }
        m_comms.push_back(std::make_unique<Comm>());
        Comm *const comm = m_comms.back().get();
        comm->line = candidate.first;
        comm->name = candidate.second;
        line->host = comm;
        startTimer(comm);
        query(comm);
    }
    if (m_comms.empty()) {
        const QList<Type> types = m_types;
        for (const Type type : types) {
            deviceNotFound(type);
            if (m_gone)
                return;
        }
    }
}

void DiscoveryModel::startTimer(Comm *comm)
{
    comm->due = m_now + replyTime;
}

void DiscoveryModel::query(Comm *comm)
{
    if (m_types.contains(JwDevice::BoardA) || m_types.contains(JwDevice::BoardB))
        writePayload(comm, "$PJWVER*0c\r\n");
    if (m_types.contains(JwDevice::BoardC))
        writePayload(comm, "$PTJWWR,INF*71\r\n");
}

void DiscoveryModel::writePayload(Comm *comm, const QByteArray &payload)
{
    if (comm->lost)
        comm->unsent = true;
    else
        m_lines[static_cast<size_t>(comm->line)].toBoard += payload;
    const auto isTimed = [](const std::unique_ptr<Comm> &other) { return other->due >= 0 && other->open; };
    const auto timers = std::count_if(m_comms.begin(), m_comms.end(), isTimed);
    for (const char *category : {"Communication", "RawCommunication"}) {
        noteLog(Trace, category, "communicator.cpp",
                QStringLiteral("->  %1").arg(quoted(QString::fromLatin1(payload.trimmed()))));
        note(QStringLiteral("reply timers: %1").arg(m_gone ? 0 : timers));
    }
}

uint DiscoveryModel::setMaxRetries(uint retries)
{
    std::swap(m_maxRetries, retries);
    return retries;
}

// The event loop and the lines

void DiscoveryModel::deleteInitializerLater()
{
    // A second deleteLater() has no effect. So only the first call chooses the event loop that deletes the Initializer.
    if (!std::exchange(m_goesLater, true))
        m_frames.back().deleteInitializer = true;
}

bool DiscoveryModel::wait(int milliseconds)
{
    const qint64 end = m_now + milliseconds;
    for (;;) {
        settle();
        // If timers are due at the same time, the delay timer of the probe fires first (`m_secondStageDue`). Then the
        // reply timers fire in the order in which the ports were opened.
        Comm *next = nullptr;
        for (const auto &comm : m_comms) {
            if (comm->due >= 0 && (!next || comm->due < next->due))
                next = comm.get();
        }
        const bool secondStageNext = m_secondStageDue >= 0 && (!next || m_secondStageDue <= next->due);
        const qint64 timerDue = secondStageNext ? m_secondStageDue : next ? next->due : -1;
        const qint64 pieceDue = nextPieceDue();
        // If a piece and a timer are due at the same time, the piece is sent first.
        if (pieceDue >= 0 && pieceDue <= std::max(m_now, end) && (timerDue < 0 || pieceDue <= timerDue)) {
            m_now = std::max(m_now, pieceDue);
            sendPieces();
            continue;
        }
        if (!secondStageNext && !next)
            break;
        const qint64 due = timerDue;
        if (due > std::max(m_now, end))
            break;
        m_now = std::max(m_now, due);
        (secondStageNext ? m_secondStageDue : next->due) = -1;
        handle([&] { secondStageNext ? secondStage() : readTimeout(next); });
    }
    m_now = std::max(m_now, end);
    return true;
}

void DiscoveryModel::settle()
{
    for (;;) {
        if (m_decisionPosted) {
            m_decisionPosted = false;
            handle([this] {
                m_decided = false;
                decideIfComplete();
            });
            continue;
        }
        for (size_t i = 0; i < m_lines.size(); ++i) {
            Line &line = m_lines[i];
            line.received += line.toBoard;
            for (auto sentences = line.toBoard.count('\n'); sentences > 0; --sentences)
                answer(static_cast<int>(i));
            line.toBoard.clear();
        }
        for (const auto &comm : m_comms) {
            if (comm->unsent)
                closePort(comm.get());
        }
        const auto ready = std::find_if(m_comms.begin(), m_comms.end(), [this](const std::unique_ptr<Comm> &comm) {
            return comm->open && (comm->lost || !m_lines[static_cast<size_t>(comm->line)].toHost.isEmpty());
        });
        if (ready == m_comms.end())
            return;
        Comm *const port = ready->get();
        handle([&] { deliver(port); });
    }
}

void DiscoveryModel::handle(const std::function<void()> &event)
{
    m_frames.emplace_back();
    event();
    const Frame frame = m_frames.back();
    m_frames.pop_back();
    for (Comm *comm : frame.comms)
        comm->alive = false;
    for (Comm *port : frame.ports)
        closePort(port);
    if (frame.deleteInitializer && !m_gone)
        deleteInitializer();
}

void DiscoveryModel::send(int port, const QByteArray &bytes)
{
    Line &line = m_lines[static_cast<size_t>(port)];
    if (line.plugged)
        line.toHost += bytes;
}

void DiscoveryModel::pull(int port)
{
    Line &line = m_lines[static_cast<size_t>(port)];
    line.plugged = false;
    line.toHost.clear(); // because a pulled cable loses the bytes that are still on it
    if (line.host && !line.host->lost) {
        line.host->lost = true;
        line.host->unsent = !line.toBoard.isEmpty();
        line.toBoard.clear();
    }
}

void DiscoveryModel::plug(int port)
{
    m_lines[static_cast<size_t>(port)].plugged = true;
}

void DiscoveryModel::closePort(Comm *comm)
{
    if (!comm->open)
        return;
    comm->open = false;
    comm->arrived.clear();
    m_lines[static_cast<size_t>(comm->line)].toBoard.clear();
    m_lines[static_cast<size_t>(comm->line)].host = nullptr;
}

bool DiscoveryModel::isListening(int port) const
{
    const Comm *const comm = m_lines[static_cast<size_t>(port)].host;
    return comm && comm->open && !comm->lost && comm->alive && comm->bound;
}

QByteArray DiscoveryModel::takeReceived(int port)
{
    QByteArray taken;
    taken.swap(m_lines[static_cast<size_t>(port)].received);
    return taken;
}

// Receiving

void DiscoveryModel::deliver(Comm *port)
{
    if (port->lost) {
        closePort(port);
        return;
    }
    QByteArray &toHost = m_lines[static_cast<size_t>(port->line)].toHost;
    port->arrived += toHost;
    toHost.clear();
    if (port->emitting)
        return;
    port->emitting = true;
    if (port->alive && port->bound)
        readDevice(port);
    port->emitting = false;
}

void DiscoveryModel::readDevice(Comm *comm)
{
    noteLog(Trace, "", "communicator.cpp", QStringLiteral("IO Data Ready"));
    QByteArray::size_type left = 0; // number of bytes to read before nextLine() is asked again
    while (comm->alive) {
        QByteArray &source = comm->bound ? comm->arrived : comm->other;
        auto size = std::min(readSize, source.size());
        if (comm->bound) {
            // A port is read up to one CR LF at a time. `left` is 0 at first, after each CR LF and after each payload.
            if (left == 0)
                left = nextLine(source);
            size = std::min(readSize, left);
            left -= size;
        }
        if (size == 0)
            return;
        const QByteArray chunk = source.left(size).split('\0').first();
        source.remove(0, size);
        m_buffer += chunk;
        if (m_buffer.size() > longestBuffer) {
            noteLog(Warning, "", "communicator.cpp", QStringLiteral("Payload input buffer too large - truncating ..."));
            m_buffer.remove(0, truncatedBy);
        }
        noteLog(Trace, "RawCommunication", "communicator.cpp",
                QStringLiteral(" <-  %1").arg(quoted(QString::fromLatin1(chunk).trimmed())));
        while (comm->alive) {
            const QByteArray payload = cut();
            if (payload.isEmpty())
                break;
            keep(comm, payload);
            left = 0;
        }
    }
}

/// Returns how many bytes are read next from a port: the bytes up to the next CR LF. If the first `tooMuchUnfinished`
/// bytes contain no CR LF, returns `tooMuchUnfinished`, or 0 while fewer bytes have arrived.
QByteArray::size_type DiscoveryModel::nextLine(const QByteArray &received)
{
    const auto lineEnd = received.indexOf("\r\n");
    if (lineEnd >= 0 && lineEnd < tooMuchUnfinished)
        return lineEnd + 2;
    return received.size() < tooMuchUnfinished ? 0 : tooMuchUnfinished;
}

QByteArray DiscoveryModel::cut()
{
    const auto isStart = [](char c) { return c == '$' || c == '!'; };
    const int start = static_cast<int>(std::find_if(m_buffer.cbegin(), m_buffer.cend(), isStart) - m_buffer.cbegin());
    const auto end = m_buffer.indexOf("\r\n", start) + 2;
    if (start == m_buffer.size() || end < 2)
        return QByteArray();
    const QByteArray payload = m_buffer.mid(start, end - start);
    m_buffer.remove(0, end);
    return payload.mid(qMax(0, payload.lastIndexOf('$')));
}

void DiscoveryModel::keep(Comm *comm, const QByteArray &payload)
{
    if (comm->store.size() > storeLimit)
        comm->store.erase(comm->store.begin());
    comm->store[++comm->lastId] = QString::fromLatin1(payload);
    noteLog(Trace, "Communication", "communicator.cpp",
            QStringLiteral(" <-  %1").arg(quoted(QString::fromLatin1(payload).trimmed())));
    if (!comm->held && comm->routed && m_listening && !m_gone)
        boardReadyRead(comm);
}

bool DiscoveryModel::takeLowest(Comm *comm, QString &payload)
{
    if (comm->store.isEmpty()) {
        noteLog(Trace, "", "communicator.cpp", QStringLiteral("Rx buffer is empty"));
        return false;
    }
    payload = comm->store.take(comm->store.firstKey());
    return true;
}

DiscoveryModel::Reply DiscoveryModel::parse(const QString &payload)
{
    if (payload.size() > longestSentence)
        return {QStringLiteral("Sentence too long")};
    QString body = payload.mid(1);
    const auto stars = body.count(QLatin1Char('*'));
    if (stars > 1)
        return {QStringLiteral("Checksum field")};
    if (stars == 1) {
        bool ok = false;
        // With Qt 6, toInt() itself neither skips all blanks nor refuses a NUL after the number.
        const QString written = body.mid(body.indexOf(QLatin1Char('*')) + 1).trimmed();
        const int checksum = written.toInt(&ok, 16);
        body.truncate(body.indexOf(QLatin1Char('*')));
        if (!ok || written.contains(QChar::Null))
            return {QStringLiteral("Checksum misspelled")};
        int sum = 0;
        for (const QChar character : std::as_const(body))
            sum ^= character.unicode();
        if ((checksum & 0xFF) != sum)
            return {QStringLiteral("CRC calculation failed")};
    }
    const QStringList parts = body.split(QLatin1Char(','));
    const QString id = parts.first();
    const auto fields = parts.size() - 1;
    if (id.size() < 3)
        return {QStringLiteral("Wrong sentence description length")};
    const bool isVersion = id == QLatin1String("PJWVER");
    const bool isInformation = id == QLatin1String("PTJWRD");
    if (id == QLatin1String("PTJWWR"))
        return {QStringLiteral("Format not found for sentence ID")};
    if (!isVersion && !isInformation)
        return {QStringLiteral("Undefined sentence ID: ") + id};
    if (fields > (isVersion ? 4 : 8))
        return {QStringLiteral("Specified parameters list and formatting string incompatible")};
    const QString first = parts.value(1);
    if (isVersion && first.contains(QLatin1String("7300021")))
        return {QString(), JwDevice::BoardB};
    if (isVersion && first.contains(QLatin1String("7300022")))
        return {QString(), JwDevice::BoardA};
    if (isInformation && first == QLatin1String("INF"))
        return {QString(), JwDevice::BoardC};
    return {};
}

// Statuses and decisions

void DiscoveryModel::boardReadyRead(Comm *comm)
{
    log(Trace, QStringLiteral("Read succes on port:  %1").arg(quoted(comm->name)));
    bool found = false;
    for (QString payload; takeLowest(comm, payload) && !found;) {
        const Reply reply = parse(payload);
        if (!reply.error.isNull()) {
            log(Error, QStringLiteral("Parse failed:  %1").arg(quoted(reply.error)));
            continue;
        }
        comm->due = -1;
        if (reply.type == JwDevice::Unknown || !m_types.contains(reply.type))
            continue;
        comm->routed = false;
        found = true;
        setStatus(comm, isHeld(reply.type) ? JwDevice::Unknown : reply.type);
        if (m_gone || !comm->alive)
            return;
    }
}

void DiscoveryModel::readTimeout(Comm *comm)
{
    if (!m_listening)
        return;
    log(Trace, QStringLiteral("Read timeout for:  %1").arg(quoted(comm->name)));
    setStatus(comm, JwDevice::Unknown);
}

void DiscoveryModel::setStatus(Comm *comm, Type type)
{
    comm->hasStatus = true;
    comm->status = type;
    if (type != JwDevice::Unknown) {
        comm->handedOver = true;
        m_handOvers.push_back(comm);
        deviceInitialized(type, comm->name);
        if (m_gone)
            return;
    }
    decideIfComplete();
}

void DiscoveryModel::decideIfComplete()
{
    const bool complete = std::all_of(m_comms.begin(), m_comms.end(), [](const std::unique_ptr<Comm> &each) {
        return !each->listed || each->hasStatus;
    });
    if (complete && !m_decided)
        decide();
}

bool DiscoveryModel::isHeld(Type type) const
{
    return std::any_of(m_comms.begin(), m_comms.end(), [type](const std::unique_ptr<Comm> &comm) {
        return comm->listed && comm->hasStatus && comm->status == type;
    });
}

void DiscoveryModel::decide()
{
    m_decided = true;
    const QList<Type> types = m_types;
    const bool missing = std::any_of(types.begin(), types.end(), [this](Type type) { return !isHeld(type); });
    if (missing && m_retries < m_maxRetries) {
        ++m_retries;
        retry();
        return;
    }
    for (const Type type : types) {
        if (isHeld(type))
            continue;
        deviceNotFound(type);
        if (m_gone)
            return;
    }
    m_listening = false;
    log(Debug, QStringLiteral("Disconnect from signals"));
}

void DiscoveryModel::retry()
{
    log(Warning, QStringLiteral("Retry probing"));
    bool asked = false;
    for (const auto &comm : m_comms) {
        if (!comm->listed || (comm->hasStatus && comm->status != JwDevice::Unknown))
            continue;
        asked = true;
        comm->hasStatus = false;
        startTimer(comm.get());
        if (comm->open)
            query(comm.get());
    }
    if (asked)
        m_decided = false;
    else
        m_decisionPosted = true;
}

void DiscoveryModel::deleteInitializer()
{
    m_gone = true;
    m_decisionPosted = false;
    m_secondStageDue = -1;
    for (const auto &comm : m_comms) {
        comm->due = -1;
        if (comm->handedOver)
            continue;
        comm->alive = false;
        closePort(comm.get());
    }
    log(Trace, QStringLiteral("*** Initializer deleted ***"));
}

QStringList DiscoveryModel::states() const
{
    QStringList texts;
    for (const auto &comm : m_comms) {
        if (m_gone || !comm->listed)
            continue;
        QString state = QStringLiteral("awaiting reply");
        if (comm->hasStatus && comm->status != JwDevice::Unknown)
            state = QStringLiteral("handed over");
        else if (comm->hasStatus)
            state = comm->routed ? QStringLiteral("timed out") : QStringLiteral("duplicate");
        else if (comm->due < 0)
            state = QStringLiteral("silenced");
        texts << QStringLiteral("%1 %2").arg(comm->name, state);
    }
    return texts;
}

// Actions of the application

void DiscoveryModel::hold(int port, bool held)
{
    Comm *const comm = m_lines[static_cast<size_t>(port)].host;
    if (comm && !comm->handedOver)
        comm->held = held;
}

bool DiscoveryModel::isAlive(int handOver) const
{
    return m_handOvers[static_cast<size_t>(handOver)]->alive;
}

bool DiscoveryModel::readPayload(int handOver, QString &payload)
{
    return takeLowest(m_handOvers[static_cast<size_t>(handOver)], payload);
}

void DiscoveryModel::write(int handOver)
{
    Comm *const comm = m_handOvers[static_cast<size_t>(handOver)];
    writePayload(comm, writtenByApplication);
}

void DiscoveryModel::deleteNow(int handOver)
{
    Comm *const comm = m_handOvers[static_cast<size_t>(handOver)];
    comm->alive = false;
    m_frames.back().ports.push_back(comm);
}

void DiscoveryModel::deleteLater(int handOver)
{
    Comm *const comm = m_handOvers[static_cast<size_t>(handOver)];
    m_frames.back().comms.push_back(comm);
    m_frames.back().ports.push_back(comm);
}

void DiscoveryModel::unbind(int handOver)
{
    m_handOvers[static_cast<size_t>(handOver)]->bound = false;
}

void DiscoveryModel::rebind(int handOver)
{
    Comm *const comm = m_handOvers[static_cast<size_t>(handOver)];
    comm->bound = false;
    comm->other = otherDevice;
}

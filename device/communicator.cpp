#include "communicator.h"

#include <device/ipayloadparser.h>
#include <device/wholelines.h>
#include <logger/logger.h>
#include <nmea/exception.h>

#include <QIODevice>

#include <algorithm>
#include <limits>
#include <utility>

namespace JwDevice {

namespace {

constexpr int readSize = 100;
constexpr int maxBufferSize = 500;
constexpr int truncatedSize = 450;
constexpr qint64 noPayload = std::numeric_limits<qint64>::min();

constexpr char communication[] = "Communication";
constexpr char rawCommunication[] = "RawCommunication";

} // namespace

Communicator::Communicator(QObject *parent)
    : QObject(parent)
    , m_startChars{QLatin1Char('$'), QLatin1Char('!')}
    , m_lineEnd(QLatin1String("\r\n"))
    , m_maxPayloads(5)
    , m_wholeLines(false)
    , m_parser(nullptr)
    , m_rxId(1)
    , m_txId(1)
{
}

Communicator::~Communicator()
{
    setIODevice(nullptr);
}

bool Communicator::setIODevice(QIODevice *device)
{
    if (m_device) {
        disconnect(m_device, SIGNAL(readyRead()), this, SLOT(ioReadyRead()));
        disconnect(m_device, SIGNAL(bytesWritten(qint64)), this, SLOT(ioBytesWritten(qint64)));
    }
    m_device = device;
    m_wholeLines = qobject_cast<WholeLinesBase *>(device) != nullptr;
    if (m_device) {
        connect(m_device, SIGNAL(readyRead()), this, SLOT(ioReadyRead()));
        connect(m_device, SIGNAL(bytesWritten(qint64)), this, SLOT(ioBytesWritten(qint64)));
    }
    return true;
}

QIODevice *Communicator::device() const
{
    return m_device;
}

bool Communicator::setParser(IPayloadParser *parser)
{
    m_parser = parser;
    return true;
}

uint Communicator::writePayload(const QString &payload)
{
    const QString kept = payload; // a copy, because write() emits signals and a receiver may delete the caller's text
    const QByteArray bytes = kept.toLatin1();
    const QPointer<Communicator> self(this); // because a receiver may delete this object too
    const qint64 written = m_device ? m_device->write(bytes.constData(), bytes.size()) : -1;
    if (!self)
        return 0;
    const uint id = m_txId++;
    setPendingBytes(id, written);
    LOGGER_RECORD(Logger::Trace, communication).write() << "-> " << kept.trimmed();
    LOGGER_RECORD(Logger::Trace, rawCommunication).write() << "-> " << kept.trimmed();
    return id;
}

uint Communicator::writePayload(const SessionAbstract *session)
{
    if (!m_parser)
        return 0;
    try {
        QString payload;
        m_parser->build(session, payload);
        return writePayload(payload);
    } catch (const Nmea::Exception &exception) {
        LOGGER_RECORD(Logger::Error, nullptr).write() << "Build failed: " << exception.message();
        return 0;
    }
}

bool Communicator::readPayload(QString &payload, uint id)
{
    if (m_payloads.isEmpty()) {
        LOGGER_RECORD(Logger::Trace, nullptr).write("Rx buffer is empty");
        return false;
    }
    if (id == 0)
        id = lowestPayloadId();
    if (!m_payloads.contains(id)) {
        LOGGER_RECORD(Logger::Warning, nullptr).write("Requested payload not found");
        return false;
    }
    payload = m_payloads.take(id);
    return true;
}

bool Communicator::readPayload(SessionAbstract *session, uint id)
{
    QString payload;
    if (!readPayload(payload, id))
        return false;
    if (!m_parser) {
        LOGGER_RECORD(Logger::Error, nullptr).write("No parser attached");
        return true;
    }
    try {
        m_parser->parse(session, payload);
    } catch (const Nmea::Exception &exception) {
        LOGGER_RECORD(Logger::Error, nullptr).write() << "Parse failed: " << exception.message();
    }
    return true;
}

void Communicator::ioReadyRead()
{
    // All Communicators share this buffer, so one device may complete a line that another device began.
    static QString rxBuffer;

    LOGGER_RECORD(Logger::Trace, nullptr).write("IO Data Ready");
    read(rxBuffer);
}

void Communicator::ioBytesWritten(qint64 bytes)
{
    // All ids are collected before the first signal, because a receiver may write and so change m_pendingBytes.
    const QVector<uint> covered = payloadsIn(bytes);
    const QPointer<Communicator> self(this);
    for (const uint id : std::as_const(covered)) {
        Q_EMIT transferred(id);
        if (!self)
            return;
    }
}

// A run is a series of payloads with the same number of bytes. m_pendingBytes contains only the first id of each run,
// so it does not grow while all payloads are equally long. A run ends before the next id in m_pendingBytes. If the
// value of an id is noPayload, no payloads have the ids from this id up to the next id in m_pendingBytes.
void Communicator::setPendingBytes(uint id, qint64 bytes)
{
    const auto valueBefore = [this](QMap<uint, qint64>::iterator run) {
        return run == m_pendingBytes.begin() ? noPayload : *std::prev(run);
    };
    auto next = m_pendingBytes.upperBound(id);
    if (id != std::numeric_limits<uint>::max() && (next == m_pendingBytes.end() || next.key() != id + 1))
        next = m_pendingBytes.insert(next, id + 1, valueBefore(next)); // the payloads after this one keep their value
    const auto run = m_pendingBytes.lowerBound(id);
    if (valueBefore(run) != bytes)
        m_pendingBytes.insert(run, id, bytes);
    else if (run != next)
        m_pendingBytes.erase(run);
}

// Returns the ids of the payloads that `bytes` written bytes cover, counted from the lowest id.
QVector<uint> Communicator::payloadsIn(qint64 bytes) const
{
    QVector<uint> covered;
    for (auto run = m_pendingBytes.constBegin(); run != m_pendingBytes.constEnd(); ++run) {
        if (run.value() == noPayload)
            continue;
        const auto next = std::next(run);
        const uint end = next == m_pendingBytes.constEnd() ? 0 : next.key(); // the id after 2^32 - 1 is 0
        uint id = run.key();
        do {
            if (bytes == 0 || bytes < run.value())
                return covered;
            bytes -= run.value(); // the value of a failed write is -1, so this adds one byte
            covered.append(id);
        } while (++id != end);
    }
    return covered;
}

void Communicator::read(QString &buffer)
{
    // A receiver of readyRead() may delete this object, bind another device, or make other Communicators fill the same
    // buffer. So everything is checked again after each signal.
    const QPointer<Communicator> self(this);
    qint64 offered = 0;
    while (m_device) {
        // The cast is done again in each turn of the loop, because a receiver may have bound another device. The result
        // is null while the device is being destroyed.
        const auto *const lines = m_wholeLines ? qobject_cast<WholeLinesBase *>(m_device.data()) : nullptr;
        // A WholeLines device is read line by line. So while receivers run, the shared buffer contains no bytes of this
        // device.
        if (offered <= 0)
            offered = lines ? lines->nextLine() : m_device->bytesAvailable();
        if (offered == 0)
            return;
        char bytes[readSize];
        const qint64 count = m_device->read(bytes, lines ? std::min<qint64>(readSize, offered) : readSize);
        offered = lines && count >= 1 ? offered - count : 0;
        if (count >= 1) {
            const QLatin1String chunk(bytes, static_cast<int>(qstrnlen(bytes, static_cast<uint>(count))));
            buffer += chunk;
            if (buffer.size() > maxBufferSize) {
                LOGGER_RECORD(Logger::Warning, nullptr).write("Payload input buffer too large - truncating ...");
                buffer.remove(0, truncatedSize);
            }
            LOGGER_RECORD(Logger::Trace, rawCommunication).write() << " <- " << QString(chunk).trimmed();
        }
        if (!self) // the device's read() may emit signals, and a receiver may delete this object
            return;

        for (QString payload = takePayload(buffer); !payload.isEmpty(); payload = takePayload(buffer)) {
            const uint id = ++m_rxId;
            const auto start = payload.lastIndexOf(m_startChars[0]);
            if (start > 0)
                payload.remove(0, start);
            if (m_payloads.size() > m_maxPayloads)
                m_payloads.remove(lowestPayloadId());
            m_payloads[id] = payload;
            LOGGER_RECORD(Logger::Trace, communication).write() << " <- " << payload.trimmed();
            Q_EMIT readyRead(id);
            if (!self)
                return;
            Q_EMIT readyRead();
            if (!self)
                return;
            offered = 0; // ask the device again, because a receiver may have read bytes or bound another device
        }
        if (m_device && !m_device->isOpen()) // otherwise the loop would not end: some closed devices still offer bytes
            return;
    }
}

QString Communicator::takePayload(QString &buffer)
{
    const auto dollar = buffer.indexOf(m_startChars[0]);
    const auto exclamation = buffer.indexOf(m_startChars[1]);
    if (dollar < 0 && exclamation < 0)
        return QString();
    const auto start = dollar >= 0 && (dollar <= exclamation || exclamation < 0) ? dollar : exclamation;
    const auto end = buffer.indexOf(m_lineEnd, start);
    if (end < 0)
        return QString();

    const auto taken = end + m_lineEnd.size();
    QString payload;
    if (end > start) {
        payload = buffer.mid(start, taken - start);
    } else { // never happens while the line end contains no start character
        LOGGER_RECORD(Logger::Warning, nullptr).write("Scrambled payload");
        LOGGER_RECORD(Logger::Trace, nullptr).write() << buffer.left(taken);
    }
    buffer.remove(0, taken);
    return payload;
}

uint Communicator::lowestPayloadId() const
{
    return *std::min_element(m_payloads.keyBegin(), m_payloads.keyEnd());
}

} // namespace JwDevice

// Included here so that abidw, the tool with which scripts/abi describes the binary interface, sees the whole class in
// one translation unit.
#include "moc_communicator.cpp"

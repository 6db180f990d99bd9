#include "probefixture.h"

#include "support/common/portname.h"
#include "support/device/receivebuffer.h"

#include <device/boardrules.h>

#include <QTest>
#include <QTimer>

#include <algorithm>
#include <utility>

using JwDevice::Communicator;
using JwDevice::Initializer;
using JwDevice::Type;
using JwDevice::typeName;
using JwSimulator::Board;

namespace {

QByteArray journalBytes(const Board *board, JwSimulator::JournalEntry::Direction direction)
{
    QByteArray bytes;
    const auto journal = board->journal();
    for (const JwSimulator::JournalEntry &entry : journal) {
        if (entry.direction == direction)
            bytes += entry.bytes;
    }
    return bytes;
}

} // namespace

const QByteArray versionQuery = "$PJWVER*0c\r\n";
const QByteArray informationRequest = "$PTJWWR,INF*71\r\n";

ProbeFixture::ProbeFixture()
{
    drainReceiveBuffer();
    log.sink->records.clear();
    m_timelineSink = std::make_shared<RecordForwarder>([this](const LogRecord &record) {
        if (onRecord)
            onRecord(record);
        if (record.file == "initializer.cpp")
            timeline << record.text;
    });
    loggerInstance()->addSink(m_timelineSink);
    renew();
}

ProbeFixture::~ProbeFixture()
{
    delete initializer;
    for (const HandOver &handOver : std::as_const(handOvers)) {
        delete handOver.comm;
        delete handOver.port;
    }
    loggerInstance()->removeSink(m_timelineSink);
}

Initializer *ProbeFixture::renew()
{
    delete initializer;
    initializer = new Initializer;
    QObject::connect(initializer, &Initializer::deviceInitialized, [this](Type type, Communicator *comm) {
        timeline << QStringLiteral("deviceInitialized ") + typeName(type);
        handOvers.append({type, comm, qobject_cast<QSerialPort *>(comm->device())});
    });
    QObject::connect(initializer, &Initializer::deviceNotFound,
                     [this](Type type) { timeline << QStringLiteral("deviceNotFound ") + typeName(type); });
    return initializer;
}

Board *ProbeFixture::attach(const char *board)
{
    QString error;
    auto config = JwSimulator::BoardConfig::fromText(QString::fromUtf8(board), &error);
    if (!config)
        qFatal("%s", qUtf8Printable(error));
    config->port = uniquePortName();
    Board *const attached = testbed.add(*config, &error);
    if (!attached)
        qFatal("%s", qUtf8Printable(error));
    return attached;
}

QStringList ProbeFixture::portNames() const
{
    QStringList names;
    const QList<Board *> boards = testbed.boards();
    for (const Board *board : boards)
        names << board->portName();
    return names;
}

void ProbeFixture::probe(const TypeList &types)
{
    QVERIFY(initializer->probe(types, 0, portNames()));
}

Board *ProbeFixture::probeSilentBoard()
{
    Board *const board = attach("silent");
    initializer->setMaxRetries(0);
    probe({JwDevice::BoardA});
    timeOut(board);
    return board;
}

Communicator *ProbeFixture::comm(const Board *board) const
{
    const auto timers = replyTimers(*initializer);
    for (auto it = timers.keyBegin(); it != timers.keyEnd(); ++it) {
        if (stateOf(*initializer, *it) == PortState::HandedOver)
            continue;
        const auto *candidate = qobject_cast<QSerialPort *>((*it)->device());
        if (candidate && candidate->portName() == board->portName())
            return *it;
    }
    return nullptr;
}

QSerialPort *ProbeFixture::port(const Board *board) const
{
    Communicator *const prober = comm(board);
    return prober ? qobject_cast<QSerialPort *>(prober->device()) : nullptr;
}

QTimer *ProbeFixture::replyTimer(const Board *board) const
{
    return replyTimers(*initializer).value(comm(board));
}

PortState ProbeFixture::state(const Board *board) const
{
    const HandOver taken = handOver(board);
    return stateOf(*initializer, taken.comm ? taken.comm.data() : comm(board));
}

ProbeFixture::HandOver ProbeFixture::handOver(const Board *board) const
{
    for (auto it = handOvers.rbegin(); it != handOvers.rend(); ++it) {
        if (it->port && it->port->portName() == board->portName())
            return *it;
    }
    return {JwDevice::Unknown, nullptr, nullptr};
}

void ProbeFixture::endReplyTimers()
{
    const auto timers = replyTimers(*initializer);
    for (QTimer *timer : timers) {
        if (timer->isActive())
            timer->start(0);
    }
}

void ProbeFixture::timeOut(const Board *board)
{
    QTimer *const timer = replyTimer(board);
    QVERIFY(timer->isActive());
    timer->start(0);
    QTRY_VERIFY(timeline.contains(QStringLiteral("Read timeout for:  ") + quoted(board->portName())));
}

void ProbeFixture::store(Board *board, const QList<QByteArray> &payloads) const
{
    const auto stored = [this] {
        const auto &records = log.sink->records;
        return std::count_if(records.begin(), records.end(), [](const LogRecord &record) {
            return record.category == "Communication" && record.text.startsWith(QLatin1String(" <- "));
        });
    };
    const auto before = stored();
    Communicator *const prober = comm(board);
    prober->blockSignals(true);
    for (const QByteArray &payload : payloads)
        QVERIFY(board->send(payload));
    QTRY_COMPARE(stored(), before + payloads.size());
    prober->blockSignals(false);
}

bool ProbeFixture::isTimerActive() const
{
    const auto timers = initializer->findChildren<QTimer *>();
    return std::any_of(timers.begin(), timers.end(), [](const QTimer *timer) { return timer->isActive(); });
}

QStringList ProbeFixture::decisions() const
{
    QStringList decisions;
    for (const QString &entry : timeline) {
        if (entry.startsWith(QLatin1String("device")) || entry == QLatin1String("Retry probing")
            || entry == QLatin1String("Disconnect from signals"))
            decisions << entry;
    }
    return decisions;
}

QByteArray received(const Board *board)
{
    return journalBytes(board, JwSimulator::JournalEntry::Received);
}

QByteArray sent(const Board *board)
{
    return journalBytes(board, JwSimulator::JournalEntry::Sent);
}

QByteArray versionReply(const QByteArray &hardwareVersion)
{
    return JwSimulator::frameSentence("PJWVER," + hardwareVersion + ",1,4,0");
}

QByteArray informationReply(const QByteArray &subcommand)
{
    return JwSimulator::frameSentence("PTJWRD," + subcommand + ",CTRL,3,17,2,1.04,7300030,1");
}

QString quoted(const QString &text)
{
    return QLatin1Char('"') + text + QLatin1Char('"');
}

#include "watchfixture.h"

#include "support/common/portname.h"
#include "support/common/processusage.h"

#include <QSerialPortInfo>
#include <QTest>

#include <algorithm>

using JwDevice::Board;
using JwDevice::BoardWatch;
using JwDevice::PortEvent;

const QByteArray versionQuery = "$PJWVER*0c\r\n";
const QByteArray informationRequest = "$PTJWWR,INF*71\r\n";

WatchFixture::WatchFixture()
    : watch((ProcessUsage::watchObjects(), new BoardWatch)) // only objects that are made later are counted
    , log(Logger::Warning)
{
    QObject::connect(watch, &BoardWatch::boardFound, [this](const Board &board) {
        promise(m_known.value(board.id) != board.type, "boardFound", board, "comes once for each board");
        checkThere("found", board);
        if (onFound)
            onFound(board);
    });
    QObject::connect(watch, &BoardWatch::boardBack, [this](const Board &board) {
        promise(m_known.value(board.id) == board.type, "boardBack", board, "comes only for a board that was lost");
        checkThere("back", board);
        if (onBack)
            onBack(board);
    });
    QObject::connect(watch, &BoardWatch::boardLost, [this](const Board &board) {
        checkLost(board);
        if (onLost)
            onLost(board);
    });
    QObject::connect(watch, &BoardWatch::portsChanged, [this] {
        ++changes;
        if (onChange)
            onChange();
    });
    watch->setPortObserver([this](const PortEvent &event) {
        if (event.kind == PortEvent::Opened || event.kind == PortEvent::NotOpened)
            ++m_attempts[event.portName];
        if (event.kind == PortEvent::Asked)
            ++m_queries[event.portName];
    });
}

WatchFixture::~WatchFixture()
{
    delete watch;
    if (!m_broken.isEmpty())
        QTest::qFail(qPrintable(m_broken.join(QLatin1Char('\n'))), __FILE__, __LINE__);
}

JwSimulator::Board *WatchFixture::attach(const char *board)
{
    return attach(board, QString());
}

JwSimulator::Board *WatchFixture::attach(const char *board, const QString &serial)
{
    QString error;
    auto config = JwSimulator::BoardConfig::fromText(QString::fromUtf8(board), &error);
    if (!config)
        qFatal("%s", qUtf8Printable(error));
    config->port = uniquePortName();
    if (!serial.isNull())
        config->serial = serial;
    JwSimulator::Board *const attached = testbed.add(*config, &error);
    if (!attached)
        qFatal("%s", qUtf8Printable(error));
    return attached;
}

Board WatchFixture::found(const JwSimulator::Board *board) const
{
    const QList<Board> boards = watch->boards();
    for (const Board &candidate : boards) {
        if (candidate.portName == board->portName())
            return candidate;
    }
    return {};
}

JwDevice::PortReport WatchFixture::report(const JwSimulator::Board *board) const
{
    const QList<JwDevice::PortReport> reports = watch->portReports();
    for (const JwDevice::PortReport &candidate : reports) {
        if (candidate.portName == board->portName())
            return candidate;
    }
    return {};
}

void WatchFixture::stop()
{
    watch->stop();
    m_known.clear();
}

bool WatchFixture::isAtRest() const
{
    return ProcessUsage::now().timers == 0;
}

void WatchFixture::promise(bool kept, const char *signal, const Board &board, const char *text)
{
    if (!kept)
        m_broken << QStringLiteral("%1 of %2: %3").arg(QLatin1String(signal), board.id, QLatin1String(text));
}

void WatchFixture::checkThere(const char *signal, const Board &board)
{
    timeline << QStringLiteral("%1 %2").arg(QLatin1String(signal), board.id);
    promise(!m_there.contains(board.id), signal, board, "comes only after boardLost of the same id");
    m_there.insert(board.id);
    m_known.insert(board.id, board.type);
    promise(board.loss == Board::NotLost, signal, board, "the board is not lost");
    promise(board.type != JwDevice::Unknown, signal, board, "the type is known");
    promise(board.since.isValid() && board.since.timeSpec() == Qt::UTC, signal, board, "the time is in UTC");
    promise(board.communicator, signal, board, "has a Communicator");
    if (!board.communicator)
        return;
    const QSerialPort *const port = portOf(board);
    promise(port && port->isOpen(), signal, board, "the port is open");
    promise(port && port->portName() == board.portName, signal, board, "the Communicator's port is the board's");
    const QList<Board> boards = watch->boards();
    const bool isListed = std::any_of(boards.begin(), boards.end(), [&](const Board &listed) {
        return listed.id == board.id && listed.communicator == board.communicator;
    });
    promise(isListed, signal, board, "boards() contains the board");
}

void WatchFixture::checkLost(const Board &board)
{
    timeline << QStringLiteral("lost %1 %2").arg(board.id, JwDevice::lossName(board.loss));
    lost << board;
    promise(m_there.remove(board.id), "boardLost", board, "comes only after boardFound or boardBack of the same id");
    if (board.loss == Board::Stopped)
        m_known.clear(); // after a stop, each board is found again, not back
    promise(board.loss != Board::NotLost, "boardLost", board, "says why");
    const QList<Board> boards = watch->boards();
    const bool isListed =
        std::any_of(boards.begin(), boards.end(), [&](const Board &listed) { return listed.id == board.id; });
    promise(!isListed, "boardLost", board, "boards() no longer contains the board");
    if (board.loss == Board::Released) {
        promise(!board.communicator, "boardLost", board, "a deleted Communicator is null");
        return;
    }
    promise(board.communicator, "boardLost", board, "has a Communicator");
    if (!board.communicator)
        return;
    // Use the objects as a receiver would. If they were deleted, AddressSanitizer reports it.
    QString payload;
    while (board.communicator->readPayload(payload)) { }
    const QSerialPort *const port = portOf(board);
    promise(port && !port->isOpen(), "boardLost", board, "the port is closed, but exists");
}

bool canBeOpened(const JwSimulator::Board *board)
{
    QSerialPort port{QSerialPortInfo(board->portName())};
    return port.open(QIODevice::ReadWrite);
}

QByteArray received(const JwSimulator::Board *board)
{
    QByteArray bytes;
    const auto journal = board->journal();
    for (const JwSimulator::JournalEntry &entry : journal) {
        if (entry.direction == JwSimulator::JournalEntry::Received)
            bytes += entry.bytes;
    }
    return bytes;
}

QSerialPort *portOf(const Board &board)
{
    return qobject_cast<QSerialPort *>(board.communicator->device());
}

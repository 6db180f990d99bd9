// Uses one Communicator for a long time, and runs many probes in one process. Prints a table of the resources that the
// process uses at the start, halfway and at the end. A normal test run is short. scripts/soak sets these environment
// variables for a long run:
//
// JWDEVICE_SOAK_PAYLOADS=<n>  number of payloads in each direction
// JWDEVICE_SOAK_PROBES=<n>    number of probes
#include "support/common/environmentnumber.h"
#include "support/common/eventloop.h"
#include "support/common/portname.h"
#include "support/common/processusage.h"
#include "support/common/simulatedportsmain.h"
#include "support/common/soakusage.h"

#include <device/communicator.h>
#include <device/initializer.h>
#include <logger/logger.h>
#include <nmea/parserinit.h>
#include <simulator/board.h>
#include <simulator/testbed.h>

#include <QSerialPort>
#include <QSerialPortInfo>
#include <QTest>

#include <algorithm>
#include <memory>
#include <vector>

using JwDevice::Communicator;
using JwDevice::Initializer;
using JwSimulator::BoardConfig;

namespace {

constexpr quint32 batchSize = 100; // number of payloads that are sent together
constexpr quint32 warmUpPayloads = 25000; // fills a simulated board's journal (list of bytes), which then stops growing
constexpr int portCount = 40;
// Allowed growth of the heap in bytes. Some growth is normal, because the sizes of buffers vary a little.
constexpr qint64 heapChance = 100000;

/// Deletes the objects whose deleteLater() was called.
void deleteDeferred()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

BoardConfig boardConfig(BoardConfig::Kind kind)
{
    BoardConfig config;
    config.kind = kind;
    config.port = uniquePortName();
    return config;
}

QString payloadText(quint32 number)
{
    return QStringLiteral("$SOAK,%1*00\r\n").arg(number);
}

/// Returns the number of payloads, counted from the first one, whose sizes add up to at most `bytes`.
quint32 coveredBy(qint64 bytes)
{
    quint32 payloads = 0;
    for (bytes -= payloadText(0).size(); bytes >= 0; bytes -= payloadText(payloads).size())
        ++payloads;
    return payloads;
}

/// One Communicator on a QSerialPort, with a board at the other end.
class Link
{
public:
    Link()
    {
        m_board = m_testbed.add(boardConfig(BoardConfig::Kind::Silent));
        m_port.setPort(QSerialPortInfo(m_board->portName()));
        m_isOpen = m_port.open(QIODevice::ReadWrite);
        m_communicator.setIODevice(&m_port);
        QObject::connect(&m_communicator, qOverload<uint>(&Communicator::readyRead), &m_communicator,
                         [this](uint id) { onPayload(id); });
        QObject::connect(&m_communicator, &Communicator::transferred, &m_communicator, [this] { ++transferred; });
        // At each bytesWritten(), the Communicator counts from its first payload again, and emits transferred() for all
        // payloads that these bytes cover.
        QObject::connect(&m_port, &QSerialPort::bytesWritten, &m_communicator,
                         [this](qint64 bytes) { covered += std::min(coveredBy(bytes), lastId); });
        QObject::connect(m_board, &JwSimulator::Board::received, m_board,
                         [this](const QByteArray &bytes) { arrived += static_cast<quint32>(bytes.count('\n')); });
    }

    bool isOpen() const { return m_isOpen; }

    bool receive(quint32 payloads)
    {
        const quint32 end = received + payloads;
        while (received < end) {
            const quint32 batchEnd = qMin(received + batchSize, end);
            for (quint32 number = received; number < batchEnd; ++number)
                m_board->send(payloadText(number).toLatin1());
            if (!runUntil([&] { return received >= batchEnd; }))
                return false;
        }
        return true;
    }

    bool transmit(quint32 payloads)
    {
        const quint32 end = arrived + payloads;
        while (arrived < end) {
            const quint32 batchEnd = qMin(arrived + batchSize, end);
            for (quint32 number = arrived; number < batchEnd; ++number)
                lastId = m_communicator.writePayload(payloadText(number));
            if (!runUntil([&] { return arrived >= batchEnd; }))
                return false;
        }
        return true;
    }

    quint32 received = 0; ///< payloads that the Communicator received
    quint32 arrived = 0; ///< payloads that the board received
    quint32 wrong = 0; ///< received payloads with a wrong text or id
    quint64 transferred = 0; ///< how many times transferred() was emitted
    quint64 covered = 0; ///< how many times transferred() must be emitted
    uint lastId = 0;

private:
    void onPayload(uint id)
    {
        QString payload;
        if (!m_communicator.readPayload(payload, id) || payload != payloadText(received) || id != received + 2)
            ++wrong;
        ++received;
    }

    JwSimulator::Testbed m_testbed;
    JwSimulator::Board *m_board;
    QSerialPort m_port;
    Communicator m_communicator;
    bool m_isOpen;
};

/// One probe of one port. If a board is found, deletes its Communicator and port.
class Probe
{
public:
    Probe(JwDevice::Type type, const QString &portName, uint maxRetries)
    {
        m_initializer.setMaxRetries(maxRetries);
        QObject::connect(&m_initializer, &Initializer::deviceInitialized, &m_initializer,
                         [this](JwDevice::Type, Communicator *communicator) {
                             communicator->device()->deleteLater();
                             delete communicator;
                             found = isOver = true;
                         });
        QObject::connect(&m_initializer, &Initializer::deviceNotFound, &m_initializer, [this] { isOver = true; });
        m_initializer.probe({type}, 0, {portName});
    }

    bool found = false;
    bool isOver = false;

private:
    Initializer m_initializer;
};

/// Ports of four kinds. Of every ten ports, seven have a board that answers, one is busy (it can't be opened, as if
/// another program had it open), one has a silent board, and one loses its cable during the probe.
class MixedPorts
{
public:
    MixedPorts()
    {
        for (int i = 0; i < portCount; ++i) {
            const BoardConfig::Kind kinds[] = {BoardConfig::Kind::BoardA, BoardConfig::Kind::BoardB,
                                               BoardConfig::Kind::BoardC};
            BoardConfig config = boardConfig(answers(i) ? kinds[i % 3] : BoardConfig::Kind::Silent);
            if (i % 10 == 7)
                config.open = BoardConfig::Open::Busy;
            m_testbed.add(config);
        }
    }

    /// Probes the first `ports` ports at the same time. Returns true if exactly the answering boards are found.
    bool probe(int ports)
    {
        std::vector<std::unique_ptr<Probe>> probes;
        for (int i = 0; i < ports; ++i) {
            const JwDevice::Type types[] = {JwDevice::BoardA, JwDevice::BoardB, JwDevice::BoardC};
            // On a busy machine an answer may arrive too late, so allow retries.
            const uint maxRetries = answers(i) ? 20 : 0;
            probes.push_back(std::make_unique<Probe>(types[i % 3], m_testbed.boards()[i]->portName(), maxRetries));
            // Opening all ports takes longer than the reply time, so handle replies after each port.
            QCoreApplication::processEvents();
        }
        for (int i = 8; i < ports; i += 10)
            m_testbed.boards()[i]->pull();
        bool ok = runUntil([&] {
            return std::all_of(probes.cbegin(), probes.cend(), [](const auto &probe) { return probe->isOver; });
        });
        for (int i = 0; i < ports; ++i)
            ok = isAsExpected(i, *probes[static_cast<size_t>(i)]) && ok;
        probes.clear();
        deleteDeferred();
        for (int i = 8; i < ports; i += 10)
            ok = m_testbed.boards()[i]->plug() && ok;
        return ok;
    }

    bool probeMany(quint32 probes)
    {
        for (; probes > 0; probes -= qMin<quint32>(probes, portCount)) {
            if (!probe(static_cast<int>(qMin<quint32>(probes, portCount))))
                return false;
        }
        return true;
    }

    qint64 journalBytes() const { return ::journalBytes(m_testbed); }

private:
    static bool isAsExpected(int port, const Probe &probe)
    {
        if (probe.isOver && probe.found == answers(port))
            return true;
        qWarning("port %d: %s, %s", port, probe.isOver ? "over" : "not over", probe.found ? "found" : "not found");
        return false;
    }
    static bool answers(int port) { return port % 10 < 7; }

    JwSimulator::Testbed m_testbed;
};

/// Returns the number of heap bytes of one parser. An Initializer never deletes its parser, on purpose, so the heap
/// grows by this number with every Initializer.
qint64 parserBytes()
{
    // Measure many parsers: malloc may place the first ones in blocks that are already free, which would falsify the
    // result for a single parser.
    constexpr int count = 2000;
    std::vector<std::unique_ptr<Nmea::ParserInit>> parsers(count);
    const qint64 before = ProcessUsage::now().heapBytes;
    for (auto &parser : parsers) {
        parser = std::make_unique<Nmea::ParserInit>();
        parser->init();
    }
    return (ProcessUsage::now().heapBytes - before) / count;
}

} // namespace

class TestSoak : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void payloadsBothWaysLeaveNothingBehind();
    void probesLeaveTheirParserAndNothingElse();
    void initTestCase();
};

void TestSoak::payloadsBothWaysLeaveNothingBehind()
{
    const quint32 payloads = environmentNumber("JWDEVICE_SOAK_PAYLOADS", 100000);
    Link link;
    QVERIFY(link.isOpen());
    QVERIFY(link.receive(warmUpPayloads) && link.transmit(warmUpPayloads));

    const ProcessUsage start = ProcessUsage::now();
    QVERIFY(link.receive(payloads / 2));
    const ProcessUsage halfReceived = usageLike(start);
    QVERIFY(link.receive(payloads - payloads / 2));
    const ProcessUsage allReceived = usageLike(start);
    QVERIFY(link.transmit(warmUpPayloads)); // fills the board's journal, so that it no longer grows
    const ProcessUsage writingStart = usageLike(start);
    QVERIFY(link.transmit(payloads / 2));
    const ProcessUsage halfWritten = usageLike(start);
    QVERIFY(link.transmit(payloads - payloads / 2));
    const ProcessUsage allWritten = usageLike(start);

    qInfo("%s", qPrintable(ProcessUsage::tableHead()));
    qInfo("%s", qPrintable(start.tableRow(QStringLiteral("start"))));
    qInfo("%s", qPrintable(halfReceived.tableRow(QStringLiteral("received %1").arg(payloads / 2))));
    qInfo("%s", qPrintable(allReceived.tableRow(QStringLiteral("received %1").arg(payloads))));
    qInfo("%s", qPrintable(writingStart.tableRow(QStringLiteral("start of writing"))));
    qInfo("%s", qPrintable(halfWritten.tableRow(QStringLiteral("written %1").arg(payloads / 2))));
    qInfo("%s", qPrintable(allWritten.tableRow(QStringLiteral("written %1").arg(payloads))));

    QCOMPARE(link.received, warmUpPayloads + payloads);
    QCOMPARE(link.wrong, 0u);
    QCOMPARE(link.arrived, 2 * warmUpPayloads + payloads);
    QCOMPARE(link.lastId, 2 * warmUpPayloads + payloads);
    QCOMPARE(link.transferred, link.covered);
    QVERIFY(link.covered >= link.lastId / batchSize);
    for (const ProcessUsage &usage : {halfReceived, allReceived, writingStart, halfWritten, allWritten})
        QVERIFY(holdsNoMoreObjects(usage, start));
    QVERIFY(allReceived.heapBytes - start.heapBytes < heapChance);
    // The Communicator keeps memory only when the length of the payloads changes, that is, when their number gets
    // another digit.
    QVERIFY(allWritten.heapBytes - writingStart.heapBytes < heapChance);
}

void TestSoak::probesLeaveTheirParserAndNothingElse()
{
    const quint32 probes = environmentNumber("JWDEVICE_SOAK_PROBES", 400);
    const qint64 bytesOfParser = parserBytes();
    MixedPorts mixedPorts;
    // The first probes also create objects that the process keeps for good, so don't measure these probes.
    QVERIFY(mixedPorts.probeMany(2 * portCount));

    const qint64 journalAtStart = mixedPorts.journalBytes();
    const ProcessUsage start = ProcessUsage::now();
    QVERIFY(mixedPorts.probeMany(probes / 2));
    const ProcessUsage middle = usageLike(start);
    QVERIFY(mixedPorts.probeMany(probes - probes / 2));
    const ProcessUsage end = usageLike(start);

    const qint64 journalGrowth = mixedPorts.journalBytes() - journalAtStart;

    const double bytesPerProbe = double(end.heapBytes - start.heapBytes - journalGrowth) / probes;
    qInfo("%s", qPrintable(ProcessUsage::tableHead()));
    qInfo("%s", qPrintable(start.tableRow(QStringLiteral("start"))));
    qInfo("%s", qPrintable(middle.tableRow(QStringLiteral("%1 probes").arg(probes / 2))));
    qInfo("%s", qPrintable(end.tableRow(QStringLiteral("%1 probes").arg(probes))));
    qInfo("heap: %.1f bytes per probe (a parser alone: %lld), and %.1f in the journals of the simulated boards",
          bytesPerProbe, static_cast<long long>(bytesOfParser), double(journalGrowth) / probes);

    QVERIFY(holdsNoMoreObjects(middle, start));
    QVERIFY(holdsNoMoreObjects(end, start));
    QVERIFY(bytesPerProbe < 1.2 * double(bytesOfParser) + double(heapChance) / probes);
}

void TestSoak::initTestCase()
{
    ProcessUsage::watchObjects();
    loggerInstance()->setLevel(Logger::Fatal);
}

SIMULATED_PORTS_MAIN(TestSoak)
#include "tst_soak.moc"
